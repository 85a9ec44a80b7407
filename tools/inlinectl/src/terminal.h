// What the terminal can show.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace inlinectl {

// How the report may be drawn.
struct Style {
    bool colour = false;
    bool unicode = false;

    std::string bold(std::string_view text) const { return paint("1", text); }
    std::string red(std::string_view text) const { return paint("31", text); }
    std::string cyan(std::string_view text) const { return paint("36", text); }

private:
    std::string paint(const char *code, std::string_view text) const;
};

// For standard output: colours on a terminal alone and not with NO_COLOR, block characters where
// the locale's character set is UTF-8.
Style standard_output_style();

// A terminal on standard error that can redraw its line.
bool standard_error_draws();

// How wide the terminal on standard error is now; 80 where it does not say.
size_t standard_error_columns();

// `share` of `width` cells as a bar, filled up with blanks. Eighths of a cell in Unicode, whole
// cells otherwise; what is above 0 shows at least the smallest step.
std::string bar(double share, size_t width, bool unicode);

} // namespace inlinectl
