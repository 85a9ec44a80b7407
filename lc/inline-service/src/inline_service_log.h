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

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <ctime>

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
    bool ready(const timespec &now);
    bool past_limit(const timespec &now);
    bool open(bool truncate);
    int64_t ask_position(const timespec &now);

    int descriptor_ = -1;
    bool appends_ = false;
    uint32_t exact_lines_ = 0; // of this opening, before which its position is always asked for
    uint32_t fork_ = 0;    // the process's forks when it was opened: a shared position is asked for
    int64_t position_ = 0; // exact of one that truncated, else at `asked_`
    timespec asked_ = {};  // when the position was asked for
    timespec last_ = {};   // the last line's time
    LogLine *held_ = nullptr;
};

// Each source file that logs has one.
[[maybe_unused]] static constinit LogStream log_stream;

// Gives the message to the event-debug facility if the site's flags say so. Returns whether the
// site's trace event is to be sent.
bool select_event_debug(ed_debug_point &point, uint32_t line, const uint64_t *words);
void *trace_buffer_of(const ed_debug_point &point);
uint64_t event_word_of(const ed_debug_point &point);

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
    const std::array<uint64_t, sizeof...(arguments) + 1> words = {as_word(arguments)...};
    if (select_event_debug(point, line, words.data())) {
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
