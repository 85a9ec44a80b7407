// Captures through the card's data plane.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "card_session.h"
#include "flow_run.h"
#include "progress.h"
#include "traffic_meter.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

struct Replayed {
    vlc::RunningCard::Traffic traffic;
    std::string failure; // of a capture that could be read no further; empty for none
};

// Gives every packet to the card, lets the card's events run, and has the meter count often enough
// for its sums. Ends early when the run is interrupted, or when the card goes away
// and does not come back. A capture that cannot be read to its end, since it has changed, ends it
// too: what was replayed before it is kept.
// `flows` is told of each packet before the card gets it; null without a flow service.
Replayed replay(vlc::VirtualLineCard &card, CardSession &session, services::TrafficMeter &meter,
                FlowRun *flows, const std::vector<std::filesystem::path> &captures,
                Progress &progress);

} // namespace inlinectl
