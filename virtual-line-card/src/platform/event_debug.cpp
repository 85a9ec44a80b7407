#include "vlc/event_debug.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "event_text.h"
#include "tap_words.h"
#include "trace_ring.h"
#include "vlc/event_manager.h"

namespace vlc {

namespace {

constexpr uint64_t number_mask = (uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1;

std::string_view short_name_of(const ed_component &component)
{
    return {component.short_name, strnlen(component.short_name, sizeof component.short_name)};
}

} // namespace

// What is kept of one component. Its name is a copy: a component that is registered anew may have
// been unloaded before. The rings stay for ever, since a component may hold on to them.
struct Registration {
    std::string short_name;
    ed_component *component = nullptr;
    std::unique_ptr<TraceRing> rings[ED_TRACE_BUFFERS];
    std::vector<const ed_debug_point *> point_of_number;

    bool has_ring(const void *buffer) const
    {
        return std::any_of(std::begin(rings), std::end(rings),
                           [buffer](const auto &ring) { return ring.get() == buffer; });
    }
    const ed_debug_point *point(uint64_t number);

private:
    void number_points();
};

struct EventDebug::State {
    std::vector<std::unique_ptr<Registration>> registrations;
    std::function<void(const std::string &)> printer;
    std::function<bool(const ed_debug_point &, const uint64_t *)> slow_filter;

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
    void print(const std::string &line) const;
};

// A point may get its number as late as with its first message, so a number that is not known yet
// is looked for once more.
const ed_debug_point *Registration::point(uint64_t number)
{
    if (number >= component->debug_point_count)
        return nullptr;
    if (number >= point_of_number.size() || !point_of_number[number] ||
        point_of_number[number]->number != number)
        number_points();
    return point_of_number[number];
}

void Registration::number_points()
{
    point_of_number.assign(component->debug_point_count, nullptr);
    for (uint64_t i = 0; i < component->debug_point_count; i++) {
        const ed_debug_point &point = component->debug_points[i];
        if (point.number < point_of_number.size())
            point_of_number[point.number] = &point;
    }
}

void EventDebug::State::print(const std::string &line) const
{
    if (printer)
        printer(line);
    else
        std::fprintf(stderr, "%s\n", line.c_str());
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
    for (size_t i = 0; i < ED_TRACE_BUFFERS; i++) {
        auto &ring = registration->rings[i];
        uint32_t entries = component->buffers[i].entries;
        if (entries == 0)
            entries = ED_TRACE_BUFFER_ENTRIES;
        if (!ring)
            ring = std::make_unique<TraceRing>(entries);
        component->buffer_handles[i] = ring.get();
    }
    return 0;
}

void EventDebugServices::print(const ed_component &component, const ed_debug_point &point,
                               uint32_t line, const char *format, const uint64_t *args)
{
    state().print(event_line(component, point, line, format, args));
}

bool EventDebugServices::passes_slow_filter(const ed_debug_point &point, const uint64_t *args)
{
    return state().slow_filter && state().slow_filter(point, args);
}

const ed_debug_point *EventDebugServices::point_of(const void *buffer, uint64_t event_word)
{
    Registration *owner = buffer ? state().owner_of(buffer) : nullptr;
    return owner ? owner->point(event_word & number_mask) : nullptr;
}

void EventDebugServices::record(void *buffer, uint64_t event_word, const ed_debug_point *point,
                                std::span<const uint64_t> args)
{
    if (!buffer || !state().owner_of(buffer))
        return; // not open: the event is dropped
    TraceRing::Entry &entry = static_cast<TraceRing *>(buffer)->next();
    entry.nanoseconds = CardClock::now().count();
    entry.event_word = event_word;
    entry.point = point;
    entry.arg_count = args.size();
    std::copy(args.begin(), args.end(), entry.args.begin());
    entry.strings = 0;
    if (point && point->format)
        TraceRing::keep_texts(entry, string_arguments(point->format, args, &entry.strings));
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

// Its arguments, strings by where they are kept.
std::vector<uint64_t> words_of(const TraceEvent &event)
{
    std::vector<uint64_t> words = event.args;
    for (size_t i = 0; i < words.size(); i++) {
        if ((event.strings >> i & 1) != 0)
            words[i] = tap_word(event.texts[i].c_str());
    }
    return words;
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
    const std::vector<uint64_t> words = words_of(event);
    const uint32_t line = event.point->line_filter & ED_LINE_ID_MASK;
    return event_line(component, *event.point, line, event.point->format, words.data());
}

std::string trace_text(const TraceEvent &event)
{
    if (!event.point)
        return unknown_site(event);
    std::string text = render_event(event.point->format, words_of(event)).text;
    text.erase(text.find_last_not_of(" \n") + 1);
    return text;
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
using vlc::TraceRing;

namespace {

bool trace_is_forced(void *buffer, uint64_t event_word, std::span<const uint64_t> words)
{
    if (!vlc::service_tap_is_set) [[likely]]
        return false;
    vlc::ServiceCall call{"_ltrace", {vlc::tap_word(buffer), event_word}, 2 + words.size()};
    static_assert(2 + TraceRing::max_args <= vlc::ServiceCall::max_args);
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
    const size_t arg_count = point ? std::min<size_t>(point->arg_count, TraceRing::max_args) : 0;
    // A message without arguments passes one 0, which only a tap is shown.
    const size_t word_count = point ? std::max<size_t>(arg_count, 1) : 0;
    std::array<uint64_t, TraceRing::max_args> words{};
    va_list passed;
    va_start(passed, event_word);
    for (size_t i = 0; i < word_count; i++)
        words[i] = va_arg(passed, uint64_t);
    va_end(passed);

    if (trace_is_forced(buffer, event_word, {words.data(), word_count}))
        return;
    EventDebugServices::record(buffer, event_word, point, {words.data(), arg_count});
}
