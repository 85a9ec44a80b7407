// Captures through the card's data plane.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "progress.h"
#include "traffic_meter.h"
#include "vlc/data_plane.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

struct Replayed {
    vlc::DataPlaneTotals traffic;
    std::string failure; // of a capture that could be read no further; empty for none
};

// Gives every packet to the card, lets the card's events run, and has the meter count often enough
// for its sums. Ends early when the run is interrupted. A capture that cannot
// be read to its end, since it has changed, ends it too: what was replayed before it is kept.
Replayed replay(vlc::VirtualLineCard &card, services::TrafficMeter &meter,
                const std::vector<std::filesystem::path> &captures, Progress &progress);

} // namespace inlinectl
