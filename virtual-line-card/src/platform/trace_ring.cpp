#include "trace_ring.h"

#include <algorithm>

namespace vlc {

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
                          {entry.args.begin(), entry.args.begin() + entry.arg_count}});
    }
    return events;
}

} // namespace vlc
