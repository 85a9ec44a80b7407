#include "trace_ring.h"

#include <algorithm>

namespace vlc {

namespace {

std::vector<std::string> texts_of(const TraceRing::Entry &entry)
{
    std::vector<std::string> texts(entry.arg_count);
    const char *text = entry.texts.data();
    for (size_t place = 0; place < entry.arg_count; place++) {
        if ((entry.strings >> place & 1) == 0)
            continue;
        texts[place] = text;
        text += texts[place].size() + 1;
    }
    return texts;
}

} // namespace

void TraceRing::keep_texts(Entry &entry, std::span<const std::string_view> texts)
{
    size_t used = 0;
    for (size_t i = 0; i < texts.size(); i++) {
        // One byte is left for the end of this text and of each that follows.
        const size_t room = text_bytes - used - (texts.size() - i);
        const size_t length = std::min(texts[i].size(), room);
        std::copy_n(texts[i].data(), length, entry.texts.begin() + used);
        entry.texts[used + length] = '\0';
        used += length + 1;
    }
}

std::vector<TraceEvent> TraceRing::events() const
{
    const uint64_t kept = std::min<uint64_t>(recorded_, entries_.size());
    std::vector<TraceEvent> events;
    events.reserve(kept);
    for (uint64_t sequence = recorded_ - kept; sequence < recorded_; sequence++) {
        const Entry &entry = entries_[sequence % entries_.size()];
        events.push_back({entry.sequence,
                          entry.nanoseconds,
                          entry.event_word,
                          entry.point,
                          {entry.args.begin(), entry.args.begin() + entry.arg_count},
                          entry.strings,
                          texts_of(entry)});
    }
    return events;
}

} // namespace vlc
