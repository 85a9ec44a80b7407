// The log: one macro for every site, one assertion.
//
//   inline_svc_trace("Total counters %d", size);        an ordinary message
//   inline_svc_trace_error(" enqueue failed \n");       a failure
//   inline_svc_assert(FALSE);                           a path that must not be reached
//
// A message goes three ways: a time-stamped line in the log file, the event-debug facility when the
// site's flags ask for it, and a trace event. Writing a site registers it: its debug point is a
// static record in a linker section, and the section is the array that the facility is given. A
// site therefore never stands in an inline function or template, where the compiler would make one
// record of many or none. The format is checked by the compiler, and the arguments appear in the
// debug point under their source expressions.
#pragma once

#include <algorithm>
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ctime>

#include "inline_service_direct_write.h"
#include "inline_service_log_format.h"
#include "platform_event_debug.h"

namespace inline_service {

inline constexpr size_t log_line_limit = 600;      // longer lines are cut here
inline constexpr size_t log_stamp_length = 20;     // "Nov 21 01:38:00.123:"
inline constexpr size_t longest_fixed_text = 1000; // of a site, what its arguments are left aside

// A line on its way to the file: time stamp, text, newline. A text is cut once it is whole, so
// there is room for what a site writes beyond the limit.
struct LogLine {
    size_t length; // of what stands in `text`
    char text[log_line_limit + longest_fixed_text];
};

// One stream on the log file. Each source file has its own, so several are open at once, each with
// its own position, as with one stdio stream a file.
//
// Whether the file is past its limit is asked before each line. What stdio would learn by a system
// call is mostly known without: a stream that truncated stands behind what it wrote itself, and one
// that appends stands no further than the file can have grown since its position was last asked
// for.
class LogStream {
public:
    // Opens the stream or, past the size limit, truncates the file; then begins a line with its
    // time stamp. Returns where its text goes, or null when there is no stream.
    char *begin(LogLine *line);
    // The line is whole up to `end`: the stream holds it, cut to the limit, until flush().
    void hold(LogLine *line, const char *end);
    // One write; what the disk refuses is lost, as with a flush that fails.
    void flush();

private:
    bool has_written(long written);
    [[gnu::cold]] void write_rest(const LogLine &line, long written);
    void flush_held();
    bool open(bool truncate);
    bool begin_anew();
    bool past_limit(const timespec &now);
    bool is_certainly_short(int64_t since_last) const;
    int64_t ask_position();

    int descriptor_ = -1;
    bool appends_ = false;
    uint32_t exact_lines_ = 0; // of this opening, before which its position is always asked for
    uint32_t fork_ = 0;    // the process's forks when it was opened: a shared position is asked for
    int64_t position_ = 0; // exact of one that truncated, else at `asked_`
    uint64_t asked_ = 0;   // when the position was asked for, in nanoseconds
    uint64_t last_ = 0;    // the last line's time
    LogLine *held_ = nullptr;

    // The farthest end of a write that did not append, since this process last truncated the file:
    // such a write may make a hole, and the file longer at once.
    static int64_t farthest_write_;
};

// Both stand in the site itself: see write_directly().
[[gnu::always_inline]] inline void LogStream::hold(LogLine *line, const char *end)
{
    line->length = std::min(static_cast<size_t>(end - line->text), log_line_limit);
    line->text[line->length++] = '\n';
    held_ = line;
}

// Takes note of where a write ended. Returns whether it wrote anything.
[[gnu::always_inline]] inline bool LogStream::has_written(long written)
{
    if (!appends_ && written > 0) {
        position_ += written;
        farthest_write_ = std::max(farthest_write_, position_);
    }
    return written > 0;
}

[[gnu::always_inline]] inline void LogStream::flush()
{
    if (held_ == nullptr)
        return;
    const LogLine &line = *held_;
    held_ = nullptr;
    const long written = write_directly(descriptor_, line.text, line.length);
    if (written == static_cast<long>(line.length)) [[likely]]
        has_written(written);
    else
        write_rest(line, written);
}

// Each source file that logs has one.
[[maybe_unused]] static constinit LogStream log_stream;

// The component record that all sites belong to.
extern ed_component component;

// Whether the facility asks for anything but a site's line and its trace event; most never do.
inline bool has_event_debug(const ed_debug_point &point)
{
    const uint16_t flags = __atomic_load_n(&point.flags, __ATOMIC_RELAXED);
    return (flags & (ED_PRINT | ED_SLOW | ED_SUPPRESS_ALL)) != 0;
}
// Gives the message to the event-debug facility if the site's flags say so. Returns whether the
// site's trace event is to be sent.
[[gnu::cold]] bool give_to_event_debug(ed_debug_point &point, uint32_t line, const uint64_t *words);

inline void *trace_buffer_of(const ed_debug_point &point)
{
    return component.buffer_handles[point.trace_buffer % ED_TRACE_BUFFERS];
}
inline uint64_t event_word_of(const ed_debug_point &point)
{
    const uint64_t trace_word = __atomic_load_n(&component.trace_word, __ATOMIC_RELAXED) & 0x1F;
    const uint64_t number = point.number & ((UINT64_C(1) << ED_EVENT_NUMBER_BITS) - 1);
    return ED_EVENT_WORD_FIXED | (trace_word << ED_EVENT_TRACE_WORD_SHIFT) | number;
}

// The one word in which the facilities get an argument: integers widened by their own signedness,
// strings by address.
template <std::integral Integer>
constexpr uint64_t as_word(Integer value)
{
    return static_cast<uint64_t>(value);
}
inline uint64_t as_word(const void *address)
{
    return reinterpret_cast<uint64_t>(address);
}

// Puts a text into a line with printf, and returns its end: for formats that are not simple.
char *print_line(LogLine *line, char *out, const char *format, ...);

template <typename Text, typename... Arguments>
void log_message(LogStream &stream, ed_debug_point &point, uint32_t line, Arguments... arguments)
{
    LogLine text;
    if (char *out = stream.begin(&text)) {
        if constexpr (parsed_format<Text>.is_simple) {
            static_assert(parsed_format<Text>.longest <= longest_fixed_text - log_stamp_length);
            stream.hold(&text, put_format<Text>(out, text.text + log_line_limit, arguments...));
        } else {
            stream.hold(&text, print_line(&text, out, point.format, arguments...));
        }
    }
    bool is_traced = true;
    if (has_event_debug(point)) [[unlikely]] {
        const std::array<uint64_t, sizeof...(arguments) + 1> words = {as_word(arguments)...};
        is_traced = give_to_event_debug(point, line, words.data());
    }
    if (is_traced) {
        if constexpr (sizeof...(arguments) == 0)
            _ltrace(trace_buffer_of(point), event_word_of(point), uint64_t{0});
        else
            _ltrace(trace_buffer_of(point), event_word_of(point), as_word(arguments)...);
    }
    stream.flush();
}

// A null argument that a call cannot do without: logs it and returns 22.
uint32_t refuse_null(const char *argument, const char *function = __builtin_FUNCTION());

// Hands the component record to the event-debug facility under the short name.
void register_component(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4);

// Never called: lets the compiler hold a site's format against its arguments.
[[gnu::format(printf, 1, 2)]] void check_format(const char *format, ...);

[[noreturn]] void assertion_failed(const char *file, int line, const char *expression);

} // namespace inline_service

#define INLINE_SVC_NAME(expression, ...) #expression, __VA_OPT__(INLINE_SVC_NAME_1(__VA_ARGS__))
#define INLINE_SVC_NAME_1(expression, ...) #expression, __VA_OPT__(INLINE_SVC_NAME_2(__VA_ARGS__))
#define INLINE_SVC_NAME_2(expression, ...) #expression, __VA_OPT__(INLINE_SVC_NAME_3(__VA_ARGS__))
#define INLINE_SVC_NAME_3(expression, ...) #expression, __VA_OPT__(INLINE_SVC_NAME_4(__VA_ARGS__))
#define INLINE_SVC_NAME_4(expression, ...) #expression, __VA_OPT__(INLINE_SVC_NAME_5(__VA_ARGS__))
#define INLINE_SVC_NAME_5(expression) #expression,

// The section's name is a C identifier, so that the linker marks its ends; the explicit alignment
// keeps compilers from spreading the records. `used` keeps a site that the optimiser proved dead,
// so that every build has the same sites.
// clang-format off
#define INLINE_SVC_SITE(site_level, site_function, site_format, ...)                               \
    do {                                                                                           \
        static constexpr const char *site_names[] = {                                              \
            __VA_OPT__(INLINE_SVC_NAME(__VA_ARGS__)) nullptr};                                     \
        [[gnu::section("inline_svc_debug_points"), gnu::used]]                                     \
        alignas(8) static constinit ed_debug_point site_point = {                                  \
            .flags = ED_DEFAULT_FLAGS,                                                             \
            .level = site_level,                                                                   \
            .trace_buffer = site_level,                                                            \
            .line_filter = __LINE__,                                                               \
            .arg_count = sizeof(site_names) / sizeof(site_names[0]) - 1,                           \
            .number = 0,                                                                           \
            .arg_names = site_names,                                                               \
            .format = site_format,                                                                 \
            .file = __FILE__,                                                                      \
            .function = site_function,                                                             \
            .reserved = 0};                                                                        \
        if (false)                                                                                 \
            ::inline_service::check_format(site_format __VA_OPT__(, ) __VA_ARGS__);                \
        constexpr auto site_text = [] { return ::std::string_view(site_format); };                 \
        ::inline_service::log_message<decltype(site_text)>(::inline_service::log_stream,           \
                                                           site_point, __LINE__ __VA_OPT__(, )     \
                                                               __VA_ARGS__);                       \
    } while (false)
// clang-format on

#define inline_svc_trace(...) INLINE_SVC_SITE(ED_EVENT_BUFFER, __func__, __VA_ARGS__)
#define inline_svc_trace_error(...) INLINE_SVC_SITE(ED_ERROR_BUFFER, __func__, __VA_ARGS__)

#define FALSE false
#define inline_svc_assert(expression)                                                              \
    do {                                                                                           \
        if (!(expression))                                                                         \
            ::inline_service::assertion_failed(__FILE__, __LINE__, #expression);                   \
    } while (false)
