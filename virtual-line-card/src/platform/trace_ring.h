// A trace buffer: the last events that a component recorded, in the order of recording. It is the
// process's own memory; with a file, each event is written there too, for whoever looks from
// outside or comes after the process.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "vlc/event_debug.h"
#include "vlc/trace_file.h"

namespace vlc {

class TraceRing {
public:
    struct Entry {
        uint64_t sequence; // of this process
        const ed_debug_point *point;
        TraceRecord record;
    };

    // A string may be gone when the event is read, so its text is kept with the event.
    static void keep_texts(TraceRecord &record, std::span<const std::string_view> texts);

    explicit TraceRing(uint32_t entries) : entries_(entries) {}

    // The place of the next event, which the caller fills and then hands to `end`.
    Entry &begin()
    {
        Entry &entry = entries_[recorded_ % entries_.size()];
        entry.sequence = recorded_++;
        return entry;
    }
    void end(const Entry &entry)
    {
        if (file_)
            file_->append(entry.record);
    }
    std::vector<TraceEvent> events() const; // oldest first

    uint32_t size() const { return static_cast<uint32_t>(entries_.size()); }
    void write_to(std::unique_ptr<TraceFile> file) { file_ = std::move(file); } // null: to none

private:
    std::vector<Entry> entries_;
    uint64_t recorded_ = 0;
    std::unique_ptr<TraceFile> file_;
};

} // namespace vlc
