// A trace buffer: the last events that a component recorded, in the order of recording.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "vlc/event_debug.h"

namespace vlc {

class TraceRing {
public:
    static constexpr size_t max_args = 8;

    struct Entry {
        uint64_t sequence;
        int64_t nanoseconds;
        uint64_t event_word;
        const ed_debug_point *point;
        size_t arg_count;
        std::array<uint64_t, max_args> args;
    };

    explicit TraceRing(uint32_t entries) : entries_(entries) {}

    // The place of the next event, which the caller fills; its sequence is set.
    Entry &next()
    {
        Entry &entry = entries_[recorded_ % entries_.size()];
        entry.sequence = recorded_++;
        return entry;
    }
    std::vector<TraceEvent> events() const; // oldest first

private:
    std::vector<Entry> entries_;
    uint64_t recorded_ = 0;
};

} // namespace vlc
