#include "nearest_name.h"

#include <algorithm>

#include "vlc/nearest_name.h"

namespace inlinectl {

std::string did_you_mean(std::string_view given, const std::vector<std::string> &known)
{
    const size_t near_enough = std::max<size_t>(2, given.size() / 2);
    std::string_view nearest;
    size_t fewest = near_enough + 1;
    for (const std::string &name : known) {
        // A name that was begun is meant, however long its rest.
        const size_t edits = name.starts_with(given) ? 0 : vlc::edit_distance(given, name);
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
