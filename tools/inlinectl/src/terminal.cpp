#include "terminal.h"

#include <algorithm>
#include <array>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <langinfo.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace inlinectl {
namespace {

bool is_drawing_terminal(int descriptor)
{
    const char *kind = std::getenv("TERM");
    return isatty(descriptor) != 0 && kind != nullptr && std::string_view(kind) != "dumb";
}

bool colours_refused()
{
    const char *setting = std::getenv("NO_COLOR");
    return setting != nullptr && *setting != '\0';
}

} // namespace

std::string Style::paint(const char *code, std::string_view text) const
{
    if (!colour)
        return std::string(text);
    return std::string("\033[") + code + "m" + std::string(text) + "\033[0m";
}

Style standard_output_style()
{
    std::setlocale(LC_CTYPE, "");
    return {.colour = is_drawing_terminal(STDOUT_FILENO) && !colours_refused(),
            .unicode = std::string_view(nl_langinfo(CODESET)) == "UTF-8"};
}

bool standard_error_draws()
{
    return is_drawing_terminal(STDERR_FILENO);
}

size_t standard_error_columns()
{
    constexpr size_t usual = 80;
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return usual;
    return size.ws_col;
}

std::string bar(double share, size_t width, bool unicode)
{
    static constexpr std::array parts{"", "▏", "▎", "▍", "▌", "▋", "▊", "▉"};
    const size_t steps_a_cell = unicode ? parts.size() : 1;
    const double exact = std::clamp(share, 0.0, 1.0) * static_cast<double>(width * steps_a_cell);
    size_t steps = static_cast<size_t>(std::lround(exact));
    if (steps == 0 && share > 0)
        steps = 1;
    const size_t whole = steps / steps_a_cell;
    const size_t part = steps % steps_a_cell;
    std::string drawn;
    for (size_t cell = 0; cell < whole; ++cell)
        drawn += unicode ? "█" : "#";
    drawn += parts[part];
    drawn.append(width - whole - (part > 0 ? 1 : 0), ' ');
    return drawn;
}

} // namespace inlinectl
