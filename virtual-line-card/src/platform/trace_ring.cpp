#include "trace_ring.h"

#include <algorithm>

namespace vlc {

void TraceRing::keep_texts(TraceRecord &record, std::span<const std::string_view> texts)
{
    size_t used = 0;
    for (size_t i = 0; i < texts.size(); i++) {
        // One byte is left for the end of this text and of each that follows.
        const size_t room = TraceRecord::max_text_bytes - used - (texts.size() - i);
        const size_t length = std::min(texts[i].size(), room);
        std::copy_n(texts[i].data(), length, record.texts.begin() + used);
        record.texts[used + length] = '\0';
        used += length + 1;
    }
    record.text_bytes = static_cast<uint32_t>(used);
    while (used % sizeof(uint64_t) != 0)
        record.texts[used++] = '\0';
}

std::vector<TraceEvent> TraceRing::events() const
{
    const uint64_t kept = std::min<uint64_t>(recorded_, entries_.size());
    std::vector<TraceEvent> events;
    events.reserve(kept);
    for (uint64_t sequence = recorded_ - kept; sequence < recorded_; sequence++) {
        const Entry &entry = entries_[sequence % entries_.size()];
        const TraceRecord &record = entry.record;
        events.push_back({entry.sequence,
                          record.nanoseconds,
                          record.event_word,
                          entry.point,
                          {record.args.begin(), record.args.begin() + record.arg_count},
                          record.strings,
                          texts_of(record)});
    }
    return events;
}

} // namespace vlc
