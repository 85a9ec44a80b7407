#include "progress.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string_view>

#include "numbers.h"
#include "terminal.h"

namespace inlinectl {

Progress::Progress(bool shown) : shown_(shown), unicode_(standard_output_style().unicode) {}

std::string progress_line(std::string doing, double share, const std::string &rest, size_t columns,
                          bool unicode)
{
    constexpr size_t most_cells = 30;
    constexpr size_t fewest_cells = 4;
    constexpr size_t doing_columns = 11;
    constexpr std::string_view frame = " [] ";
    const size_t room = columns > 0 ? columns - 1 : 0; // the last column would wrap
    doing.resize(std::max(doing.size(), doing_columns), ' ');
    const size_t fixed = doing.size() + frame.size() + rest.size();
    if (room < fixed + fewest_cells)
        return (doing + " " + rest).substr(0, room);
    const size_t cells = std::min(most_cells, room - fixed);
    return doing + " [" + bar(share, cells, unicode) + "] " + rest;
}

Progress::~Progress()
{
    clear();
}

void Progress::show(const char *doing, double share, uint64_t count, const char *unit)
{
    if (!shown_)
        return;
    const auto now = std::chrono::steady_clock::now();
    if (now < next_)
        return;
    next_ = now + std::chrono::milliseconds(100);
    drawn_ = true;
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%3.0f%%  %s %s", share * 100, grouped(count).c_str(),
                  unit);
    const std::string line =
        progress_line(doing, share, text.data(), standard_error_columns(), unicode_);
    std::fprintf(stderr, "\r%s\033[K", line.c_str());
    std::fflush(stderr);
}

void Progress::clear()
{
    if (drawn_)
        std::fputs("\r\033[K", stderr);
    drawn_ = false;
}

} // namespace inlinectl
