// Captures through the card's data plane.
#pragma once

#include <filesystem>
#include <vector>

#include "progress.h"
#include "traffic_meter.h"
#include "vlc/data_plane.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

// Gives every packet to the card, lets the card's events run, and has the meter count often enough
// for its sums. Ends early when the run is interrupted. Throws vlc::StateError for a capture that
// cannot be read.
vlc::DataPlaneTotals replay(vlc::VirtualLineCard &card, services::TrafficMeter &meter,
                            const std::vector<std::filesystem::path> &captures, Progress &progress);

} // namespace inlinectl
