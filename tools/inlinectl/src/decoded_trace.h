// What is traced in a state directory, decoded by the tables of sites that stand beside it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "vlc/event_text.h"
#include "vlc/site_query.h"
#include "vlc/site_table.h"
#include "vlc/trace_file.h"

namespace inlinectl {

struct DecodedArgument {
    std::string name;  // the expression, as the site has it
    std::string shown; // quoted, where it is a text
    vlc::EventArgument value;
    std::string text; // of a text
};

struct DecodedEvent {
    std::string component; // its short name
    std::string buffer;    // "event" or "error"; of its site, where it was only printed
    vlc::TraceRecord record;
    const vlc::StoredSite *site = nullptr; // null when no table has it
    std::string text;                      // on one line
    std::vector<DecodedArgument> arguments;

    bool is_traced() const { return record.mark != 0; }   // or only printed
    uint64_t sequence() const { return record.mark - 1; } // of one that is
    uint32_t number() const;                              // of its site
};

struct DecodedTrace {
    std::vector<std::unique_ptr<vlc::StoredSites>> sites; // that events point into
    std::vector<DecodedEvent> events;                     // as they were recorded
    std::vector<std::string> notes;                       // what is left out, and why
    bool is_damaged = false;                              // and not by a kill alone
    bool has_files = false;                               // something was traced here once
};

inline constexpr const char *trace_buffers[] = {"event", "error"};

// Also while a host writes. Throws StateError for a directory that is none of a card, and when no
// trace of it can be read.
DecodedTrace decode_trace(const std::filesystem::path &state_directory);

// One event, by the table of its component; null for none.
DecodedEvent decode_event(const std::string &component, const vlc::TraceRecord &record,
                          const vlc::StoredSites *sites);

// What a terminal would take for a command shows as a question mark.
std::string printable(std::string text);

// The name without the directories: "inline_service_log.cpp:120".
std::string site_place(const vlc::StoredSite &site);

} // namespace inlinectl
