// A scenario file: the entries to program, when not the captures say it.
#pragma once

#include <filesystem>
#include <vector>

#include "traffic_meter.h"

namespace inlinectl {

// Sorted, each once. Throws UsageError "FILE:LINE:COLUMN: ..." for what is broken, missing, out of
// range or unknown.
std::vector<services::Destination> load_scenario(const std::filesystem::path &file);

} // namespace inlinectl
