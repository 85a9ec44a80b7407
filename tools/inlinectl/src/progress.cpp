#include "progress.h"

#include <cstdio>

#include "numbers.h"
#include "terminal.h"

namespace inlinectl {

Progress::Progress(bool shown) : shown_(shown), unicode_(standard_output_style().unicode) {}

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
    constexpr size_t cells = 30;
    std::fprintf(stderr, "\r%-11s [%s] %3.0f%%  %s %s\033[K", doing,
                 bar(share, cells, unicode_).c_str(), share * 100, grouped(count).c_str(), unit);
    std::fflush(stderr);
}

void Progress::clear()
{
    if (drawn_)
        std::fputs("\r\033[K", stderr);
    drawn_ = false;
}

} // namespace inlinectl
