// One line of the log against the write of its bytes, against the plain stdio sequence, and against
// loggers that leave each line in the file before they return.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <fmt/os.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "inline_service_log.h"
#include "own_tmp.h"
#include "paired.h"
#include "usual_lines.h"

// The facilities are not what is measured.
uint32_t ed_init(ed_component *, uint64_t, uint64_t, uint64_t, uint64_t)
{
    return 0;
}
void ed_print_debug(ed_debug_point *, ed_component *, const uint64_t *, uint64_t, uint32_t,
                    uint64_t, const char *, uint64_t)
{
}
void ed_slow_debugs(ed_debug_point *, ed_component *, uint32_t *, const uint64_t *, uint64_t,
                    uint32_t, uint64_t, const char *, uint64_t)
{
}
void _ltrace(void *, uint64_t, ...) {}

namespace {

using namespace bench::usual;

constexpr int64_t size_limit = 10000000;

// ---- ours --------------------------------------------------------------------------------------

#define OURS(format, fmt_format, ...) [] { inline_svc_trace(format __VA_OPT__(, ) __VA_ARGS__); },
using Speak = void (*)();
constexpr Speak our_lines[] = {USUAL_LINES(OURS)};
constexpr size_t line_count = std::size(our_lines);

void speak_ours(size_t lines)
{
    for (size_t i = 0; i < lines; ++i)
        our_lines[i % line_count]();
}

// ---- the bytes alone ---------------------------------------------------------------------------

std::string stamp()
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    char text[32];
    std::snprintf(text, sizeof text, "%.15s.%03ld:", std::ctime(&now.tv_sec) + 4,
                  now.tv_nsec / 1000000);
    return text;
}

class ReadyLines {
public:
    explicit ReadyLines(const char *file)
        : descriptor_(open(file, O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644))
    {
#define READY(format, fmt_format, ...)                                                             \
    std::snprintf(text, sizeof text, format __VA_OPT__(, ) __VA_ARGS__);                           \
    lines_.push_back(stamp() + text + "\n");
        char text[601];
        USUAL_LINES(READY)
    }
    ~ReadyLines()
    {
        close(descriptor_);
    }
    ReadyLines(const ReadyLines &) = delete;
    ReadyLines &operator=(const ReadyLines &) = delete;

    void write_all(size_t lines) const
    {
        for (size_t i = 0; i < lines; ++i) {
            const std::string &line = lines_[i % line_count];
            benchmark::DoNotOptimize(write(descriptor_, line.data(), line.size()));
        }
    }
    void keep_short() const
    {
        if (lseek(descriptor_, 0, SEEK_END) > size_limit && ftruncate(descriptor_, 0) != 0)
            std::abort();
    }
    double average_bytes() const
    {
        size_t bytes = 0;
        for (const std::string &line : lines_)
            bytes += line.size();
        return static_cast<double>(bytes) / static_cast<double>(lines_.size());
    }

private:
    int descriptor_;
    std::vector<std::string> lines_;
};

// ---- the plain stdio sequence ------------------------------------------------------------------

FILE *stdio_stream = nullptr;
constexpr const char *stdio_file = "/tmp/stdio_log";

[[gnu::format(printf, 1, 2)]] void stdio_line(const char *format, ...)
{
    if (stdio_stream == nullptr) {
        stdio_stream = std::fopen(stdio_file, "a");
    } else if (static_cast<int32_t>(std::ftell(stdio_stream)) > size_limit) {
        std::fclose(stdio_stream);
        stdio_stream = std::fopen(stdio_file, "w");
    }
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    char line[601];
    const int begun = std::snprintf(line, sizeof line, "%.15s.%03ld:", std::ctime(&now.tv_sec) + 4,
                                    now.tv_nsec / 1000000);
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line + begun, sizeof line - static_cast<size_t>(begun), format, arguments);
    va_end(arguments);
    std::fprintf(stdio_stream, "%s\n", line);
    std::fflush(stdio_stream);
}

#define STDIO(format, fmt_format, ...) [] { stdio_line(format __VA_OPT__(, ) __VA_ARGS__); },
constexpr Speak stdio_lines[] = {USUAL_LINES(STDIO)};

void speak_stdio(size_t lines)
{
    for (size_t i = 0; i < lines; ++i)
        stdio_lines[i % line_count]();
}

// ---- other loggers -----------------------------------------------------------------------------

// A volatile is a value once it has been read.
template <typename Value>
auto value_of(const volatile Value &value)
{
    return Value(value);
}

std::shared_ptr<spdlog::logger> spd;

#define SPD(format, fmt_format, ...) [] { spd->info(fmt_format VALUES(__VA_ARGS__)); },
#define VALUES(...) __VA_OPT__(VALUES_1(__VA_ARGS__))
#define VALUES_1(one, ...) , value_of(one) __VA_OPT__(VALUES_2(__VA_ARGS__))
#define VALUES_2(one, ...) , value_of(one) __VA_OPT__(VALUES_3(__VA_ARGS__))
#define VALUES_3(one, ...) , value_of(one) __VA_OPT__(VALUES_4(__VA_ARGS__))
#define VALUES_4(one, ...) , value_of(one) __VA_OPT__(VALUES_5(__VA_ARGS__))
#define VALUES_5(one, ...) , value_of(one) __VA_OPT__(VALUES_6(__VA_ARGS__))
#define VALUES_6(one) , value_of(one)
const Speak spd_lines[] = {USUAL_LINES(SPD)};

void speak_spd(size_t lines)
{
    for (size_t i = 0; i < lines; ++i)
        spd_lines[i % line_count]();
}

constexpr const char *spd_file = "/tmp/spd_log";

void begin_spd()
{
    spdlog::drop_all();
    spd = spdlog::basic_logger_st("bench", spd_file, true);
    spd->set_pattern("%b %d %H:%M:%S.%e:%v");
    spd->flush_on(spdlog::level::info);
}

constexpr const char *fmt_file = "/tmp/fmt_log";
std::unique_ptr<fmt::ostream> fmt_stream;
std::string given_stamp;

void begin_fmt()
{
    fmt_stream = std::make_unique<fmt::ostream>(fmt::output_file(fmt_file));
    given_stamp = stamp();
}

#define FMT(format, fmt_format, ...)                                                               \
    [] { fmt_stream->print(FMT_STRING("{}" fmt_format "\n"), given_stamp VALUES(__VA_ARGS__)); },
const Speak fmt_lines[] = {USUAL_LINES(FMT)};

void speak_fmt(size_t lines)
{
    for (size_t i = 0; i < lines; ++i) {
        fmt_lines[i % line_count]();
        fmt_stream->flush();
    }
}

template <typename Begin>
void keep_short(const char *file, Begin begin)
{
    if (std::filesystem::file_size(file) > size_limit)
        begin();
}

// ---- the rows ----------------------------------------------------------------------------------

struct Goals {
    double gate;
    double aim;
};

void add_rows(const std::string &file_system, const Goals &write, const ReadyLines &ready)
{
    const auto row = [&](const char *what) { return what + (", " + file_system); };
    bench::add_pair({.what = row("log line"),
                     .reference = "write(2) of its bytes",
                     .ours = speak_ours,
                     .other = [&ready](size_t lines) { ready.write_all(lines); },
                     .gate = write.gate,
                     .aim = write.aim,
                     .between = [&ready] { ready.keep_short(); }});
    const auto add_peer = [&](const char *what, const char *peer, const bench::Slice &speak,
                              const Goals &goals, const std::function<void()> &between) {
        bench::add_pair({.what = row(what),
                         .reference = peer,
                         .ours = speak_ours,
                         .other = speak,
                         .ratio = bench::Ratio::peer_over_ours,
                         .gate = goals.gate,
                         .aim = goals.aim,
                         .between = between});
    };
    add_peer("log line, loggers", "spdlog, flushed", speak_spd, {1.45, 1.6},
             [] { keep_short(spd_file, begin_spd); });
    add_peer("log line, formats", "fmt::output_file, flushed, stamp given", speak_fmt, {1.1, 1.2},
             [] { keep_short(fmt_file, begin_fmt); });
    add_peer("log line, TZ unset", "stdio sequence", speak_stdio, {4.0, 5.0},
             [] { unsetenv("TZ"); });
    add_peer("log line, TZ set", "stdio sequence", speak_stdio, {2.0, 2.4},
             [] { setenv("TZ", "UTC", 1); });
}

} // namespace

// log_line_bench DIRECTORY ext4|tmpfs [options of the benchmarks]
int main(int argc, char **argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: log_line_bench DIRECTORY FILE-SYSTEM [--benchmark_...]\n");
        return 2;
    }
    bench::enter_own_tmp(argv[1]);
    const std::string file_system = argv[2];
    const ReadyLines ready("/tmp/ready_lines");
    begin_spd();
    begin_fmt();
    benchmark::AddCustomContext("bytes_a_line", std::to_string(ready.average_bytes()));
    const bool in_memory = file_system == "tmpfs";
    add_rows(file_system, in_memory ? Goals{1.25, 1.15} : Goals{1.2, 1.12}, ready);
    argc -= 2;
    argv[2] = argv[0];
    argv += 2;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
