// What the event-debug registry keeps of one component.
#pragma once

#include <algorithm>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform_event_debug.h"
#include "trace_ring.h"
#include "vlc/site_table.h"

namespace vlc {

inline constexpr const char *trace_buffer_names[ED_TRACE_BUFFERS] = {"event", "error"};

// Its name is a copy: a component that is registered anew may have
// been unloaded before. The rings stay for ever, since a component may hold on to them.
struct Registration {
    std::string short_name;
    ed_component *component = nullptr;
    std::unique_ptr<TraceRing> rings[ED_TRACE_BUFFERS];
    std::vector<const ed_debug_point *> point_of_number;
    std::unique_ptr<SiteTable> sites; // in the state directory
    uint64_t kept_for = 0;            // the card, by number, for which the files were opened

    bool has_ring(const void *buffer) const
    {
        return std::any_of(std::begin(rings), std::end(rings),
                           [buffer](const auto &ring) { return ring.get() == buffer; });
    }
    const ed_debug_point *point(uint64_t number);
    void number_points();
    // Returns the order of the last event that is there. Throws StateError.
    uint64_t keep_in(const std::filesystem::path &directory);
    void keep_in_memory();
};

} // namespace vlc
