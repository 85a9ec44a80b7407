// Reads captures through before anything is done with them.
#pragma once

#include <cstdint>
#include <filesystem>
#include <vector>

#include "progress.h"
#include "traffic_meter.h"

namespace inlinectl {

struct CaptureScan {
    std::vector<services::Destination> destinations; // of readable packets; sorted, each once
    uint64_t packets = 0;
};

// Throws vlc::StateError for a capture that cannot be read to its end, UsageError for one that
// cannot be read twice. Ends early when the run is interrupted.
CaptureScan scan_captures(const std::vector<std::filesystem::path> &files, Progress &progress);

} // namespace inlinectl
