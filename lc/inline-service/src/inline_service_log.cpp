#include "inline_service_log.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#if defined(__SSE2__)
#include <immintrin.h>
#endif
#include <pthread.h>
#include <unistd.h>

#include "inline_service_context.h"
#include "inline_service_regular_file.h"

#if defined(__SANITIZE_ADDRESS__)
#define READS_ARE_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define READS_ARE_CHECKED 1
#endif
#endif

// The ends of the section that holds the debug points, made by the linker.
extern "C" {
extern ed_debug_point __start_inline_svc_debug_points[] __attribute__((visibility("hidden")));
extern ed_debug_point __stop_inline_svc_debug_points[] __attribute__((visibility("hidden")));
}

namespace inline_service {
namespace {

constexpr char log_path[] = "/tmp/inline_svc_log";
constexpr int32_t log_size_limit = 10000000;
[[maybe_unused]] constexpr size_t smallest_page = 4096;

} // namespace

constinit ed_component component = {
    .name = "libinline_service_infra",
    .short_name = "",
    .buffers = {{"event", ED_TRACE_BUFFER_ENTRIES, 0}, {"error", ED_TRACE_BUFFER_ENTRIES, 0}},
    .buffer_handles = {nullptr, nullptr},
    .trace_word = 0,
    .padding = 0,
    .dummy = ed_dummy_libinline_service_infra,
    .perf_dummy = ed_perf_dummy_libinline_service_infra,
    .debug_points = __start_inline_svc_debug_points,
    .debug_point_count = 0,
    .reserved = 0};

namespace {

size_t debug_point_count()
{
    return static_cast<size_t>(__stop_inline_svc_debug_points - __start_inline_svc_debug_points);
}

bool stands_before(const ed_debug_point &left, const ed_debug_point &right)
{
    const int files = std::strcmp(left.file, right.file);
    return files != 0 ? files < 0 : left.line_filter < right.line_filter;
}

// Numbers follow the source order, by file and line. Compilers and linkers keep no order inside a
// section, so the place in the array says nothing. Runs when the library is loaded, before any
// message.
[[gnu::constructor]] void number_debug_points()
{
    ed_debug_point *points = __start_inline_svc_debug_points;
    const size_t count = debug_point_count();
    for (size_t i = 0; i < count; ++i) {
        const auto before = std::count_if(points, points + count, [&](const ed_debug_point &other) {
            return stands_before(other, points[i]);
        });
        points[i].number = static_cast<uint32_t>(before);
    }
    component.debug_point_count = count;
}

// The stamp of the last line. ctime costs more than the rest of a line, so it is asked once a
// second; all that changes within one are three digits.
struct Stamp {
    time_t second;
    char text[log_stamp_length + 1];
};
constinit Stamp stamp = {-1, ""};

[[gnu::noinline, gnu::cold]] void begin_second(time_t second)
{
    const char *text = ctime(&second);
    if (text == nullptr) // a year that has no text
        text = "    (no time)";
    snprintf(stamp.text, sizeof stamp.text, "%-15.15s.000:", text + 4);
    stamp.second = second;
}

void put_stamp(char *out, const timespec &now)
{
    if (now.tv_sec != stamp.second || stamp.text[0] == '\0')
        begin_second(now.tv_sec);
    const auto milliseconds = static_cast<uint32_t>(now.tv_nsec) / 1000000;
    memcpy(out, stamp.text, log_stamp_length);
    out[16] = static_cast<char>('0' + milliseconds / 100);
    memcpy(out + 17, &two_digits[2 * (milliseconds % 100)], 2);
}

// How far a file grows at most in a nanosecond: more than a machine's memory takes.
constexpr int64_t fastest_growth = 16;
// Behind each opening positions are asked for, so that one who writes little writes as stdio does
// whatever is done to the file meanwhile.
constexpr uint32_t exact_lines_of_an_opening = 100;

// Changes with each fork, on both sides of it.
uint32_t forks = 0;

[[gnu::constructor]] void watch_forks()
{
    constexpr auto note = [] { ++forks; };
    pthread_atfork(nullptr, note, note);
}

// Only differences count, so a time before or after what the word holds does no harm.
uint64_t nanoseconds_of(const timespec &time)
{
    return static_cast<uint64_t>(time.tv_sec) * 1000000000 + static_cast<uint64_t>(time.tv_nsec);
}

} // namespace

constinit int64_t LogStream::farthest_write_ = 0;

bool LogStream::open(bool truncate)
{
    descriptor_ = open_regular_file(log_path, truncate ? FileBegin::empty : FileBegin::at_its_end);
    if (descriptor_ < 0)
        printf("failed to open!!!\n");
    appends_ = !truncate;
    exact_lines_ = exact_lines_of_an_opening;
    fork_ = forks;
    position_ = 0;
    if (truncate)
        farthest_write_ = 0;
    return descriptor_ >= 0;
}

// The kernel knows the position, also after a fork: of a stream that appends it is the file's end
// at its own last write, other streams' bytes included.
int64_t LogStream::ask_position()
{
    position_ = lseek(descriptor_, 0, SEEK_CUR);
    asked_ = last_;
    return position_;
}

// Whether the file cannot have reached the limit since the position was asked for: however fast it
// grew meanwhile, or a write made a hole in it. A clock that stands still or was set back says
// nothing of how long that has been.
bool LogStream::is_certainly_short(int64_t since_last) const
{
    const int64_t room = log_size_limit - std::max(position_, farthest_write_);
    return since_last > 0 && static_cast<int64_t>(last_ - asked_) <= room / fastest_growth;
}

// What another process does to the file is noticed when the position is asked for next: one that
// truncates it, and so makes it longer at once or leaves a hole behind which others write, may have
// it begun again up to 0.6 ms late, which is how long the longest file would take to be written.
bool LogStream::past_limit(const timespec &now)
{
    const uint64_t nanoseconds = nanoseconds_of(now);
    const auto since_last = static_cast<int64_t>(nanoseconds - last_);
    last_ = nanoseconds;
    int64_t position = position_; // exact of a stream that truncated
    if (exact_lines_ > 0 || fork_ != forks) {
        exact_lines_ -= exact_lines_ > 0;
        position = ask_position();
    } else if (appends_) {
        if (is_certainly_short(since_last))
            return false;
        position = ask_position();
    }
    // Kept: the position is taken as a signed 32-bit number, so a file beyond 2 GiB is left alone.
    return static_cast<int32_t>(position) > log_size_limit;
}

bool LogStream::begin_anew()
{
    close(descriptor_);
    descriptor_ = -1;
    return open(true);
}

char *LogStream::begin(LogLine *line)
{
    if (held_ != nullptr) [[unlikely]] // a facility that the line was given to logs in its turn
        flush_held();
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const bool is_ready = descriptor_ < 0 ? open(false) : !past_limit(now) || begin_anew();
    if (!is_ready) [[unlikely]]
        return nullptr;
    put_stamp(line->text, now);
    return line->text + log_stamp_length;
}

void LogStream::flush_held()
{
    flush();
}

// As stdio does with a write that was cut short: goes on until nothing more can be written.
void LogStream::write_rest(const LogLine &line, long written)
{
    for (size_t done = 0; has_written(written);
         written = write_directly(descriptor_, line.text + done, line.length - done)) {
        done += static_cast<size_t>(written);
        if (done == line.length)
            return;
    }
    if (written < 0)
        errno = static_cast<int>(-written);
}

// Measured and copied at once, 16 bytes a step: most texts end within two, sooner than libc's
// functions for both are found and called. A step may read behind a text's end, but never into
// another page; what checks each read gets the plain way.
char *put_text(char *out, const char *end, const char *text)
{
    if (text == nullptr)
        text = "(null)";
#if defined(__SSE2__) && !defined(READS_ARE_CHECKED)
    for (; out < end; out += sizeof(__m128i), text += sizeof(__m128i)) {
        if (reinterpret_cast<uintptr_t>(text) % smallest_page > smallest_page - sizeof(__m128i))
            break;
        const __m128i step = _mm_loadu_si128(reinterpret_cast<const __m128i *>(text));
        _mm_storeu_si128(reinterpret_cast<__m128i *>(out), step);
        const int ends = _mm_movemask_epi8(_mm_cmpeq_epi8(step, _mm_setzero_si128()));
        if (ends != 0)
            return out + std::min(std::countr_zero(static_cast<unsigned>(ends)),
                                  static_cast<int>(end - out));
    }
#endif
    const size_t length = out < end ? strnlen(text, static_cast<size_t>(end - out)) : 0;
    memcpy(out, text, length);
    return out + length;
}

char *print_line(LogLine *line, char *out, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const auto room = static_cast<size_t>(line->text + log_line_limit + 1 - out);
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral" // checked where the site stands
    const int wanted = vsnprintf(out, room, format, arguments);
#pragma GCC diagnostic pop
    va_end(arguments);
    return out + std::min(static_cast<size_t>(std::max(wanted, 0)), room - 1);
}

bool give_to_event_debug(ed_debug_point &point, uint32_t line, const uint64_t *words)
{
    // The facility changes flags and filter while the library runs.
    const uint16_t flags = __atomic_load_n(&point.flags, __ATOMIC_RELAXED);
    const uint32_t filter = __atomic_load_n(&point.line_filter, __ATOMIC_RELAXED);
    uint32_t matched = 0;
    if ((flags & ED_PRINT) != 0) {
        matched = 1;
        if ((filter >> ED_FILTER_BYTE_SHIFT) != 0 || (flags & ED_LINE) != 0) {
            if ((flags & ED_LINE) != 0 && (filter & ED_LINE_ID_MASK) != line)
                matched = 0;
            if ((flags & ED_INVERT) != 0)
                matched = matched == 0;
        }
        if (matched != 0 && (flags & (ED_SUPPRESS_PRINT | ED_SUPPRESS_ALL)) == 0)
            ed_print_debug(&point, &component, words, 0, line, 0, point.format, 0);
    } else if ((flags & ED_SLOW) != 0) {
        ed_slow_debugs(&point, &component, &matched, words, 0, line, 0, point.format, 0);
    }
    return (flags & ED_SUPPRESS_ALL) == 0 || matched != 0;
}

uint32_t refuse_null(const char *argument, const char *function)
{
    inline_svc_trace_error("%s is NULL in %s", argument, function);
    return EINVAL;
}

void register_component(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4)
{
    memcpy(component.short_name, "inlc", sizeof "inlc");
    ed_init(&component, arg1, arg2, arg3, arg4);
}

// The sanitizers must not see the fault before the kernel does.
__attribute__((no_sanitize("undefined"), no_sanitize("address"))) void
assertion_failed(const char *file, int line, const char *expression)
{
    flockfile(stderr);
    fprintf(stderr, "%s: %d %s -- assertion failed\n", file, line, expression);
    volatile uintptr_t address_of_the_fault = 1; // leaves a core
    *reinterpret_cast<volatile char *>(address_of_the_fault) = 0;
    abort();
}

} // namespace inline_service
