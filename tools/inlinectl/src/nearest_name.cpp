#include "nearest_name.h"

#include "vlc/nearest_name.h"

namespace inlinectl {

std::string did_you_mean(std::string_view given, const std::vector<std::string> &known)
{
    const std::string_view nearest = vlc::nearest_of(given, known);
    if (nearest.empty())
        return {};
    return "; did you mean '" + std::string(nearest) + "'?";
}

} // namespace inlinectl
