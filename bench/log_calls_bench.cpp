// The system calls of the usual lines over a whole file, from empty until it has reached its limit
// and is begun again.
//
// A tracer makes each call dearer, and how often a line asks for its position depends on the time
// between lines. So the lines are timed without the tracer first, and for the traced process the
// clock goes on by that much with each line.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>

#include <dlfcn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "inline_service_log.h"
#include "own_tmp.h"
#include "paired.h"
#include "traced_calls.h"
#include "usual_lines.h"

namespace {

// Of one line; the clock is the machine's while there is none.
int64_t pace = 0;
int64_t paced_time = 1'700'000'000'000'000'000;

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec *time) noexcept
{
    static const auto real =
        reinterpret_cast<int (*)(clockid_t, struct timespec *)>(dlsym(RTLD_NEXT, "clock_gettime"));
    if (pace == 0 || clock != CLOCK_REALTIME)
        return real(clock, time);
    paced_time += pace;
    time->tv_sec = paced_time / 1'000'000'000;
    time->tv_nsec = paced_time % 1'000'000'000;
    return 0;
}

namespace {

using namespace bench::usual;

constexpr const char *log_file = "/tmp/inline_svc_log";

#define OURS(format, fmt_format, ...) [] { inline_svc_trace(format __VA_OPT__(, ) __VA_ARGS__); },
using Speak = void (*)();
constexpr Speak usual_lines[] = {USUAL_LINES(OURS)};
constexpr size_t line_count = std::size(usual_lines);
constexpr size_t lines_of_a_file = 10'000'000 / 93; // more than the limit
constexpr size_t timed_slices = 101;
constexpr size_t lines_of_a_slice = 200;

void speak(size_t lines)
{
    for (size_t i = 0; i < lines; ++i)
        usual_lines[i % line_count]();
}

int64_t nanoseconds_now()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1'000'000'000 + now.tv_nsec;
}

int64_t timed_slice()
{
    const int64_t begin = nanoseconds_now();
    speak(lines_of_a_slice);
    return (nanoseconds_now() - begin) / static_cast<int64_t>(lines_of_a_slice);
}

// Nanoseconds of one line, the median of many slices, in a process of its own: streams are opened
// behind a fork.
int64_t timed_pace()
{
    auto &result = *new (mmap(nullptr, sizeof(int64_t), PROT_READ | PROT_WRITE,
                              MAP_SHARED | MAP_ANONYMOUS, -1, 0)) int64_t(0);
    const pid_t child = fork();
    if (child == 0) {
        std::array<int64_t, timed_slices> slices{};
        std::generate(slices.begin(), slices.end(), timed_slice);
        std::sort(slices.begin(), slices.end());
        result = slices[timed_slices / 2];
        _exit(0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    unlink(log_file);
    return result;
}

struct Counts {
    double writes = 0;
    double looks_at_the_position = 0;
    double others = 0;
};

// Of a hundred lines.
Counts count_calls()
{
    pace = timed_pace();
    std::optional<test::SystemCalls> calls = test::traced_calls([] {
        speak(1); // opens the stream
        const test::CallsCount counting;
        speak(lines_of_a_file);
    });
    pace = 0;
    struct stat status {};
    if (!calls)
        throw std::runtime_error("processes may not be traced here");
    if (stat(log_file, &status) != 0 || status.st_size > 1'000'000)
        throw std::runtime_error("the file was not begun again");
    Counts counts;
    for (const auto &[number, count] : *calls) {
        const double of_hundred = 100.0 * static_cast<double>(count) / lines_of_a_file;
        switch (number) {
        case SYS_write:
            counts.writes = of_hundred;
            break;
        case SYS_lseek:
            counts.looks_at_the_position = of_hundred;
            break;
        case SYS_newfstatat: // ctime's, once a second, and the file's
        case SYS_close:      // once, to begin again
        case SYS_openat:
        case SYS_ftruncate:
            break;
        default:
            counts.others += of_hundred;
        }
    }
    return counts;
}

void add_rows(const std::string &file_system)
{
    const auto counts = [counted = std::make_shared<std::unique_ptr<Counts>>()]() -> Counts & {
        if (*counted == nullptr)
            *counted = std::make_unique<Counts>(count_calls());
        return **counted;
    };
    const auto row = [&](const char *what) { return what + (", " + file_system); };
    bench::add_count({row("writes of 100 log lines"), [=] { return counts().writes; }, 100, 100});
    bench::add_count(
        {row("lseeks of 100 log lines"), [=] { return counts().looks_at_the_position; }, 2, 1.3});
    bench::add_count({row("other calls of 100 log lines"), [=] { return counts().others; }, 0, 0});
}

} // namespace

// log_calls_bench DIRECTORY ext4|tmpfs [options of the benchmarks]
int main(int argc, char **argv)
{
    const std::string file_system = bench::enter_own_tmp_of(argc, argv);
    add_rows(file_system);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
