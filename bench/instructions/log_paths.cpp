// A line of the log, its write included as the call alone.
#include "hot_path.h"
#include "inline_service_log.h"
#include "usual_lines.h"

#include <cstddef>
#include <iterator>

namespace {

using namespace bench::usual;

#define SPEAK(format, fmt_format, ...) [] { inline_svc_trace(format __VA_OPT__(, ) __VA_ARGS__); },
using Speak = void (*)();
constexpr Speak lines[] = {USUAL_LINES(SPEAK)};
constexpr size_t line_count = std::size(lines);

void speak(size_t rounds)
{
    for (size_t round = 0; round < rounds; ++round) {
        for (const Speak line : lines)
            line();
    }
}

void log_line()
{
    speak(20); // more than a stream's first lines, each of which asks for its position
    constexpr size_t rounds = 200;
    bench::count_instructions(rounds * line_count, [] { speak(rounds); });
}

constexpr bench::HotPath paths[] = {{"log line", log_line}};

} // namespace

const std::span<const bench::HotPath> bench::hot_paths = paths;
