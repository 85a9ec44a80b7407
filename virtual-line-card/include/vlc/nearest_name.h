// The known name that somebody most likely meant.
#pragma once

#include <algorithm>
#include <string>
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

// The nearest of the known names; empty when none is near.
template <typename Names>
std::string_view nearest_of(std::string_view given, const Names &known)
{
    std::string_view nearest;
    size_t fewest = std::max<size_t>(2, given.size() / 2) + 1;
    for (const std::string_view name : known) {
        // A name that was begun is meant, however long its rest.
        const size_t edits = name.starts_with(given) ? 0 : edit_distance(given, name);
        if (edits < fewest) {
            nearest = name;
            fewest = edits;
        }
    }
    return nearest;
}

// "; the nearest known name is 'NAME'", or nothing when none is near.
template <typename Names>
std::string nearest_known_name(std::string_view given, const Names &known)
{
    const std::string_view nearest = nearest_of(given, known);
    return nearest.empty() ? "" : "; the nearest known name is '" + std::string(nearest) + "'";
}

} // namespace vlc
