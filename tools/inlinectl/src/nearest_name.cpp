#include "nearest_name.h"

#include <algorithm>
#include <numeric>

namespace inlinectl {
namespace {

size_t edits_between(std::string_view one, std::string_view other)
{
    std::vector<size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), size_t{0});
    for (size_t i = 0; i < one.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i + 1;
        for (size_t j = 0; j < other.size(); ++j) {
            const size_t replaced = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, row[j + 1] + 1});
        }
    }
    return row[other.size()];
}

} // namespace

std::string did_you_mean(std::string_view given, const std::vector<std::string> &known)
{
    const size_t near_enough = std::max<size_t>(2, given.size() / 2);
    std::string_view nearest;
    size_t fewest = near_enough + 1;
    for (const std::string &name : known) {
        // A name that was begun is meant, however long its rest.
        const size_t edits = name.starts_with(given) ? 0 : edits_between(given, name);
        if (edits < fewest) {
            nearest = name;
            fewest = edits;
        }
    }
    if (nearest.empty())
        return {};
    return "; did you mean '" + std::string(nearest) + "'?";
}

} // namespace inlinectl
