// Files of virtual services.
#pragma once

#include <filesystem>
#include <vector>

#include "inline_service_vservice.h"

namespace inlinectl {

// In the order of the file. Throws UsageError and StateError, "FILE:LINE:COLUMN: ...", for what is
// no record; what the library refuses of a record is not looked at.
std::vector<vservice_config> load_vservices(const std::filesystem::path &file);

} // namespace inlinectl
