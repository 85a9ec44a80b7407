// Texts as cells of a table.
#pragma once

#include <algorithm>
#include <string>

namespace inlinectl {

inline std::string left(std::string text, size_t width)
{
    text.resize(std::max(width, text.size()), ' ');
    return text;
}

inline std::string right(const std::string &text, size_t width)
{
    return std::string(width - std::min(width, text.size()), ' ') + text;
}

} // namespace inlinectl
