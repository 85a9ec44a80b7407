// The known name that somebody most likely meant.
#pragma once

#include <algorithm>
#include <string_view>
#include <vector>

namespace vlc {

// How many letters have to be changed, put in or left out.
inline size_t edit_distance(std::string_view one, std::string_view other)
{
    std::vector<size_t> row{0};
    for (size_t j = 0; j < other.size(); ++j) {
        row.push_back(j + 1);
    }
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({row[j] + 1, row[j + 1] + 1, changed});
        }
    }
    return row.back();
}

} // namespace vlc
