// The event-debug registry and the trace buffers of the card.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform_event_debug.h"
#include "vlc/site_messages.h"
#include "vlc/site_query.h"
#include "vlc/trace_file.h"

namespace vlc {

struct TraceEvent {
    uint64_t sequence;
    int64_t nanoseconds; // the card's clock
    uint64_t event_word;
    const ed_debug_point *point; // null when the number is no site's
    std::vector<uint64_t> args;
    uint32_t strings;               // bit n: argument n is a string, which may be gone by now
    std::vector<std::string> texts; // what it said when the event was recorded, by place
};

// "SHORT FILE:LINE FUNCTION: text [name=value ...]"
std::string trace_line(const ed_component &component, const TraceEvent &event);

// "text" alone, without what ends a line
std::string trace_text(const TraceEvent &event);

// A query that can be read and cannot be carried out.
class SiteQueryRefused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Registered components and what they recorded. The process has one.
class EventDebug {
public:
    static EventDebug &instance();
    ~EventDebug();
    EventDebug(const EventDebug &) = delete;
    EventDebug &operator=(const EventDebug &) = delete;

    ed_component *component(const char *short_name) const; // null when not registered
    const std::vector<ed_component *> &components() const { return components_; }
    std::vector<TraceEvent> events(const ed_component *component, uint32_t buffer) const;

    // While a card is alive, its state directory has the trace buffers and the table of sites of
    // every component that shows itself (vlc/trace_file.h, vlc/site_table.h). The handles that
    // components hold stay good.
    void keep_in(const std::filesystem::path &directory);
    void keep_in_memory();
    // Throws StateError for a file of a trace that cannot be gone on with.
    static void check_files(const std::filesystem::path &directory);

    // Carries out queries on the sites of the components that have shown themselves to the card
    // that is alive. Throws SiteQueryRefused, with nothing changed, when one of them selects no
    // site.
    std::vector<SiteChange> change_sites(const std::vector<SiteQuery> &queries);
    // Is given what sites print beside the printer, as an event; returns whether somebody sees it.
    // When somebody does, standard error is spared.
    using Follower = std::function<bool(const ed_component &, const TraceRecord &)>;
    void on_follow(Follower follower);

    // What ed_print_debug and ed_slow_debugs print: one finished line; standard error by default.
    void on_print(std::function<void(const std::string &line)> printer);
    // Decides for ed_slow_debugs whether a message passes. Without it a message passes when a query
    // made its site slow and the query's conditions hold.
    void on_slow_filter(std::function<bool(const ed_debug_point &, const uint64_t *args)> filter);

private:
    friend struct EventDebugServices;
    struct State;
    EventDebug();
    std::vector<ed_component *> components_; // in the order of their first registration
    std::unique_ptr<State> state_;
};

} // namespace vlc
