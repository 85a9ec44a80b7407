// The nearest known name, for a name that is not known.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace inlinectl {

// "; did you mean 'NAME'?", or nothing when no known name is near.
std::string did_you_mean(std::string_view given, const std::vector<std::string> &known);

} // namespace inlinectl
