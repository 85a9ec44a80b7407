#include "vlc/event_debug.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "event_registration.h"
#include "site_switches.h"
#include "tap_words.h"
#include "vlc/event_manager.h"
#include "vlc/event_text.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr uint64_t number_mask = (uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1;

std::string_view short_name_of(const ed_component &component)
{
    return {component.short_name, strnlen(component.short_name, sizeof component.short_name)};
}

} // namespace

struct EventDebug::State {
    std::vector<std::unique_ptr<Registration>> registrations;
    std::function<void(const std::string &)> printer;
    std::function<bool(const ed_debug_point &, const uint64_t *)> slow_filter;
    EventDebug::Follower follower;
    SiteSwitches switches;
    std::filesystem::path directory; // of the card that is alive
    uint64_t card = 0;               // how many came and went
    uint64_t order = 0;              // of the last event of all components

    Registration *find(std::string_view short_name)
    {
        for (const auto &registration : registrations) {
            if (registration->short_name == short_name)
                return registration.get();
        }
        return nullptr;
    }
    Registration *owner_of(const void *buffer)
    {
        for (const auto &registration : registrations) {
            if (registration->has_ring(buffer))
                return registration.get();
        }
        return nullptr;
    }
    void print(const ed_component &component, const ed_debug_point &point, uint32_t line,
               const char *format, const uint64_t *args);
    void keep(Registration &registration);
};

// A component is brought to the card's directory when it shows that it is there: one that was
// unloaded meanwhile must not be looked at. What cannot be kept does not stop it.
void EventDebug::State::keep(Registration &registration)
{
    registration.keep_in_memory();
    try {
        if (!directory.empty())
            order = std::max(order, registration.keep_in(directory));
    } catch (const StateError &error) {
        registration.keep_in_memory();
        std::fprintf(stderr, "virtual line card: the trace of %s stays in memory: %s\n",
                     registration.short_name.c_str(), error.what());
    }
    registration.kept_for = card;
}

// What stands in a trace of a site, but for its place there.
void fill_record(TraceRecord &record, const ed_debug_point *point, uint64_t event_word,
                 std::span<const uint64_t> args)
{
    record.nanoseconds = CardClock::now().count();
    record.event_word = event_word;
    record.sites = 0;
    record.order = 0;
    record.arg_count = static_cast<uint32_t>(args.size());
    std::copy(args.begin(), args.end(), record.args.begin());
    record.strings = 0;
    record.text_bytes = 0;
    record.reserved = 0;
    if (point && point->format)
        TraceRing::keep_texts(record, string_arguments(point->format, args, &record.strings));
}

void EventDebug::State::print(const ed_component &component, const ed_debug_point &point,
                              uint32_t line, const char *format, const uint64_t *args)
{
    bool followed = false;
    if (follower) {
        const size_t count = args ? std::min<size_t>(point.arg_count, TraceRecord::max_args) : 0;
        const Registration *registration = find(short_name_of(component));
        TraceRecord record{};
        fill_record(record, &point, point.number, {args, count});
        record.sites = registration && registration->sites ? registration->sites->check() : 0;
        followed = follower(component, record);
    }
    if (printer)
        printer(event_line(component, point, line, format, args));
    else if (!followed)
        std::fprintf(stderr, "%s\n", event_line(component, point, line, format, args).c_str());
}

// The services' half of the registry.
struct EventDebugServices {
    static uint32_t add(ed_component *component);
    static void print(const ed_component &component, const ed_debug_point &point, uint32_t line,
                      const char *format, const uint64_t *args);
    static bool passes_slow_filter(const ed_debug_point &point, const uint64_t *args);
    // The site of an event word for a buffer; null when either is unknown.
    static const ed_debug_point *point_of(const void *buffer, uint64_t event_word);
    static void record(void *buffer, uint64_t event_word, const ed_debug_point *point,
                       std::span<const uint64_t> args);

private:
    static EventDebug::State &state() { return *EventDebug::instance().state_; }
};

uint32_t EventDebugServices::add(ed_component *component)
{
    Registration *registration = state().find(short_name_of(*component));
    auto &listed = EventDebug::instance().components_;
    if (registration) {
        std::replace(listed.begin(), listed.end(), registration->component, component);
    } else {
        registration = state().registrations.emplace_back(new Registration).get();
        registration->short_name = short_name_of(*component);
        listed.push_back(component);
    }
    registration->component = component;
    registration->point_of_number.clear();
    registration->keep_in_memory();
    for (size_t i = 0; i < ED_TRACE_BUFFERS; i++) {
        auto &ring = registration->rings[i];
        uint32_t entries = component->buffers[i].entries;
        if (entries == 0)
            entries = ED_TRACE_BUFFER_ENTRIES;
        if (!ring)
            ring = std::make_unique<TraceRing>(entries);
        component->buffer_handles[i] = ring.get();
    }
    state().keep(*registration);
    return 0;
}

void EventDebugServices::print(const ed_component &component, const ed_debug_point &point,
                               uint32_t line, const char *format, const uint64_t *args)
{
    state().print(component, point, line, format, args);
}

bool EventDebugServices::passes_slow_filter(const ed_debug_point &point, const uint64_t *args)
{
    return state().slow_filter ? state().slow_filter(point, args)
                               : state().switches.passes(point, args);
}

const ed_debug_point *EventDebugServices::point_of(const void *buffer, uint64_t event_word)
{
    Registration *owner = buffer ? state().owner_of(buffer) : nullptr;
    return owner ? owner->point(event_word & number_mask) : nullptr;
}

void EventDebugServices::record(void *buffer, uint64_t event_word, const ed_debug_point *point,
                                std::span<const uint64_t> args)
{
    Registration *owner = buffer ? state().owner_of(buffer) : nullptr;
    if (!owner)
        return; // not open: the event is dropped
    if (owner->kept_for != state().card)
        state().keep(*owner);
    TraceRing &ring = *static_cast<TraceRing *>(buffer);
    TraceRing::Entry &entry = ring.begin();
    entry.point = point;
    fill_record(entry.record, point, event_word, args);
    entry.record.sites = owner->sites ? owner->sites->check() : 0;
    entry.record.order = ++state().order;
    if (point && owner->sites)
        owner->sites->hit(*point);
    ring.end(entry);
}

EventDebug::EventDebug() : state_(std::make_unique<State>()) {}
EventDebug::~EventDebug() = default;

EventDebug &EventDebug::instance()
{
    // Never destroyed: a component may record until the very end of the process.
    static auto &registry = *new EventDebug;
    return registry;
}

ed_component *EventDebug::component(const char *short_name) const
{
    const Registration *registration = state_->find(short_name);
    return registration ? registration->component : nullptr;
}

std::vector<TraceEvent> EventDebug::events(const ed_component *component, uint32_t buffer) const
{
    for (const auto &registration : state_->registrations) {
        if (registration->component == component && buffer < ED_TRACE_BUFFERS)
            return registration->rings[buffer]->events();
    }
    return {};
}

namespace {

EventText rendered(const TraceEvent &event)
{
    const char *format = event.point->format ? event.point->format : "";
    return render_kept_event(format, event.args, event.strings, event.texts);
}

std::string unknown_site(const TraceEvent &event)
{
    return "event " + std::to_string(event.event_word & number_mask) + " of no known site";
}

} // namespace

std::string trace_line(const ed_component &component, const TraceEvent &event)
{
    if (!event.point)
        return unknown_site(event);
    const uint32_t line = event.point->line_filter & ED_LINE_ID_MASK;
    return event_line(component, *event.point, line, rendered(event));
}

std::string trace_text(const TraceEvent &event)
{
    if (!event.point)
        return unknown_site(event);
    std::string text = rendered(event).text;
    text.erase(text.find_last_not_of(" \n") + 1);
    return text;
}

void EventDebug::keep_in(const std::filesystem::path &directory)
{
    state_->directory = directory;
    ++state_->card;
}

void EventDebug::keep_in_memory()
{
    keep_in({});
    for (const auto &registration : state_->registrations)
        registration->keep_in_memory();
}

void EventDebug::check_files(const std::filesystem::path &directory)
{
    for (const std::string &component : traced_components(directory)) {
        for (const char *buffer : trace_buffer_names) {
            const std::filesystem::path file = directory / trace_file_name(component, buffer);
            if (std::filesystem::exists(std::filesystem::symlink_status(file)))
                TraceFile::check(file);
        }
    }
}

std::vector<SiteChange> EventDebug::change_sites(const std::vector<SiteQuery> &queries)
{
    std::vector<Registration *> shown;
    for (const auto &registration : state_->registrations) {
        if (registration->sites && registration->kept_for == state_->card)
            shown.push_back(registration.get());
    }
    return state_->switches.carry_out(queries, shown);
}

void EventDebug::on_follow(Follower follower)
{
    state_->follower = std::move(follower);
}

void EventDebug::on_print(std::function<void(const std::string &line)> printer)
{
    state_->printer = std::move(printer);
}

void EventDebug::on_slow_filter(
    std::function<bool(const ed_debug_point &, const uint64_t *args)> filter)
{
    state_->slow_filter = std::move(filter);
}

} // namespace vlc

using vlc::EventDebugServices;
using vlc::tapped_call;
using vlc::TraceRecord;

namespace {

bool trace_is_forced(void *buffer, uint64_t event_word, std::span<const uint64_t> words)
{
    if (!vlc::service_tap_is_set) [[likely]]
        return false;
    vlc::ServiceCall call{"_ltrace", {vlc::tap_word(buffer), event_word}, 2 + words.size()};
    static_assert(2 + TraceRecord::max_args <= vlc::ServiceCall::max_args);
    std::copy(words.begin(), words.end(), call.args.begin() + 2);
    return vlc::ask_service_tap(call).has_value();
}

} // namespace

uint32_t ed_init(ed_component *component, uint64_t arg1, uint64_t arg2, uint64_t arg3,
                 uint64_t arg4)
{
    if (auto forced = tapped_call("ed_init", component, arg1, arg2, arg3, arg4))
        return vlc::forced_as<uint32_t>(*forced);
    return component ? EventDebugServices::add(component) : 22;
}

void ed_print_debug(ed_debug_point *point, ed_component *component, const uint64_t *args,
                    uint64_t zero1, uint32_t line, uint64_t zero2, const char *format,
                    uint64_t zero3)
{
    if (tapped_call("ed_print_debug", point, component, args, zero1, line, zero2, format, zero3))
        return;
    if (point && component)
        EventDebugServices::print(*component, *point, line, format, args);
}

void ed_slow_debugs(ed_debug_point *point, ed_component *component, uint32_t *matched,
                    const uint64_t *args, uint64_t zero1, uint32_t line, uint64_t zero2,
                    const char *format, uint64_t zero3)
{
    if (tapped_call("ed_slow_debugs", point, component, matched, args, zero1, line, zero2, format,
                    zero3))
        return;
    if (!point || !component || !EventDebugServices::passes_slow_filter(*point, args))
        return;
    if (matched)
        *matched = 1;
    if ((point->flags & (ED_SUPPRESS_PRINT | ED_SUPPRESS_ALL)) == 0)
        EventDebugServices::print(*component, *point, line, format, args);
}

void _ltrace(void *buffer, uint64_t event_word, ...)
{
    const ed_debug_point *point = EventDebugServices::point_of(buffer, event_word);
    const size_t arg_count = point ? std::min<size_t>(point->arg_count, TraceRecord::max_args) : 0;
    // A message without arguments passes one 0, which only a tap is shown.
    const size_t word_count = point ? std::max<size_t>(arg_count, 1) : 0;
    std::array<uint64_t, TraceRecord::max_args> words{};
    va_list passed;
    va_start(passed, event_word);
    for (size_t i = 0; i < word_count; i++)
        words[i] = va_arg(passed, uint64_t);
    va_end(passed);

    if (trace_is_forced(buffer, event_word, {words.data(), word_count}))
        return;
    EventDebugServices::record(buffer, event_word, point, {words.data(), arg_count});
}
