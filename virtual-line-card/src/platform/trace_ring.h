// A trace buffer: the last events that a component recorded, in the order of recording.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "vlc/event_debug.h"

namespace vlc {

class TraceRing {
public:
    static constexpr size_t max_args = 8;
    static constexpr size_t text_bytes = 256; // of an event's string arguments together

    struct Entry {
        uint64_t sequence;
        int64_t nanoseconds;
        uint64_t event_word;
        const ed_debug_point *point;
        size_t arg_count;
        std::array<uint64_t, max_args> args;
        uint32_t strings; // bit n: argument n is a string, whose text is the next one in `texts`
        std::array<char, text_bytes>
            texts; // each ends with a zero byte; cut where there is no room
    };

    // A string may be gone when the event is read, so its text is kept with the event.
    static void keep_texts(Entry &entry, std::span<const std::string_view> texts);

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
