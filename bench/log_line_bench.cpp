// One line of the log against the write of its bytes, against the plain stdio sequence, and against
// loggers that leave each line in the file before they return.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <fmt/os.h>
#include <glog/logging.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include "inline_service_log.h"
#include "own_tmp.h"
#include "paired.h"
#include "usual_lines.h"

namespace {

using namespace bench::usual;

constexpr int64_t size_limit = 10000000;
constexpr size_t stamp_length = 20;

// ---- ours --------------------------------------------------------------------------------------

#define OURS(format, fmt_format, ...) [] { inline_svc_trace(format __VA_OPT__(, ) __VA_ARGS__); },
using Speak = void (*)();
constexpr const char *our_file = "/tmp/inline_svc_log";
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
    // Behind stamps of their length.
    bool are_in(std::string_view text) const
    {
        for (const std::string &line : lines_) {
            if (text.substr(0, line.size()).substr(stamp_length) != line.substr(stamp_length))
                return false;
            text.remove_prefix(line.size());
        }
        return text.empty();
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

// The logger without a lock is the one to hold ours against: a line of ours takes none either. One
// with a lock is what a program with threads makes; it stands beside without a goal.
std::shared_ptr<spdlog::logger> unlocked_spd;
std::shared_ptr<spdlog::logger> locked_spd;
spdlog::logger *spd = nullptr; // the one that speaks
constexpr const char *unlocked_spd_file = "/tmp/spd_log";
constexpr const char *locked_spd_file = "/tmp/locked_spd_log";

void set_up(spdlog::logger &logger)
{
    logger.set_pattern("%b %d %H:%M:%S.%e:%v");
    logger.flush_on(spdlog::level::info);
}

void begin_unlocked_spd()
{
    spdlog::drop("unlocked");
    unlocked_spd = spdlog::basic_logger_st("unlocked", unlocked_spd_file, true);
    set_up(*unlocked_spd);
}

void begin_locked_spd()
{
    spdlog::drop("locked");
    locked_spd = spdlog::basic_logger_mt("locked", locked_spd_file, true);
    set_up(*locked_spd);
}

#define SPD(format, fmt_format, ...) [] { spd->info(fmt_format VALUES(__VA_ARGS__)); },
#define VALUES(...) __VA_OPT__(VALUES_1(__VA_ARGS__))
#define VALUES_1(one, ...) , value_of(one) __VA_OPT__(VALUES_2(__VA_ARGS__))
#define VALUES_2(one, ...) , value_of(one) __VA_OPT__(VALUES_3(__VA_ARGS__))
#define VALUES_3(one, ...) , value_of(one) __VA_OPT__(VALUES_4(__VA_ARGS__))
#define VALUES_4(one, ...) , value_of(one) __VA_OPT__(VALUES_5(__VA_ARGS__))
#define VALUES_5(one, ...) , value_of(one) __VA_OPT__(VALUES_6(__VA_ARGS__))
#define VALUES_6(one) , value_of(one)
const Speak spd_lines[] = {USUAL_LINES(SPD)};

void speak_spd(spdlog::logger &logger, size_t lines)
{
    spd = &logger;
    for (size_t i = 0; i < lines; ++i)
        spd_lines[i % line_count]();
}

// It has a prefix of its own and formats nothing: fmt does, as for the others.
constexpr const char *glog_file = "/tmp/glog_log";

void begin_glog()
{
    FLAGS_logbufsecs = 0; // each line in the file before the call returns
    FLAGS_stderrthreshold = google::GLOG_FATAL;
    FLAGS_timestamp_in_logfile_name = false;
    google::SetLogDestination(google::GLOG_INFO, glog_file);
    google::SetLogSymlink(google::GLOG_INFO, "");
    google::InitGoogleLogging("log_line_bench");
}

#define GLOG(printf_format, fmt_format, ...)                                                       \
    [] { LOG(INFO) << fmt::format(FMT_STRING(fmt_format) VALUES(__VA_ARGS__)); },
const Speak glog_lines[] = {USUAL_LINES(GLOG)};

void speak_glog(size_t lines)
{
    for (size_t i = 0; i < lines; ++i)
        glog_lines[i % line_count]();
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

// All write the same bytes, but for the time of their stamps.
void expect_usual_lines(const ReadyLines &ready, const char *file, const bench::Slice &speak)
{
    speak(line_count);
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    if (!ready.are_in(text.str()))
        throw std::runtime_error(std::string(file) + " holds other lines:\n" + text.str());
}

void keep_short(const char *file, void (*begin)())
{
    if (std::filesystem::file_size(file) > size_limit)
        begin();
}

// Peers whose lines are ours byte for byte.
struct Peer {
    const char *what;
    const char *name;
    const char *file;
    void (*begin)();
    bench::Slice speak;
    double gate;
    double aim;
};

const Peer peers[] = {
    {"log line, loggers", "spdlog, flushed", unlocked_spd_file, begin_unlocked_spd,
     [](size_t lines) { speak_spd(*unlocked_spd, lines); }, 1.45, 1.6},
    {"log line, loggers", "spdlog with its lock, flushed", locked_spd_file, begin_locked_spd,
     [](size_t lines) { speak_spd(*locked_spd, lines); }, 0, 0},
    {"log line, formats", "fmt::output_file, flushed, stamp given", fmt_file, begin_fmt, speak_fmt,
     1.1, 1.2},
};

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
    for (const Peer &peer : peers)
        add_peer(peer.what, peer.name, peer.speak, {peer.gate, peer.aim},
                 [&peer] { keep_short(peer.file, peer.begin); });
    add_peer("log line, loggers", "glog, flushed, formatted by fmt", speak_glog, {0, 0}, [] {
        if (truncate(glog_file, 0) != 0)
            std::abort();
    });
    add_peer("log line, TZ unset", "stdio sequence", speak_stdio, {4.0, 5.0},
             [] { unsetenv("TZ"); });
    add_peer("log line, TZ set", "stdio sequence", speak_stdio, {2.0, 2.4},
             [] { setenv("TZ", "UTC", 1); });
}

} // namespace

// log_line_bench DIRECTORY ext4|tmpfs [options of the benchmarks]
int main(int argc, char **argv)
{
    const std::string file_system = bench::enter_own_tmp_of(argc, argv);
    for (const char *appended : {our_file, stdio_file})
        std::remove(appended); // what an earlier run left
    const ReadyLines ready("/tmp/ready_lines");
    for (const Peer &peer : peers) {
        peer.begin();
        expect_usual_lines(ready, peer.file, peer.speak);
    }
    expect_usual_lines(ready, our_file, speak_ours);
    expect_usual_lines(ready, stdio_file, speak_stdio);
    begin_glog();
    benchmark::AddCustomContext("bytes_a_line", std::to_string(ready.average_bytes()));
    const bool in_memory = file_system == "tmpfs";
    add_rows(file_system, in_memory ? Goals{1.25, 1.15} : Goals{1.2, 1.12}, ready);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
