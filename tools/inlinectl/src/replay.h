// Captures through the card's data plane.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "card_session.h"
#include "flow_run.h"
#include "progress.h"
#include "traffic_meter.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

struct ReplayPlan {
    std::vector<std::filesystem::path> captures;
    uint64_t times = 1;                         // 0: until the run is interrupted
    std::optional<uint32_t> packets_per_second; // as fast as it goes when not given
};

struct Replayed {
    vlc::RunningCard::Traffic traffic;
    bool was_cut_short = false; // by an interrupt, unless it had no end
    std::string failure;        // of a capture that could be read no further; empty for none
};

// Gives every packet to the card, lets the card's events run, and has the meter count often enough
// for its sums. Ends early when the run is interrupted, or when the card goes away
// and does not come back. A capture that cannot be read to its end, since it has changed, ends it
// too: what was replayed before it is kept.
// `flows` is told of each packet before the card gets it; null without a flow service.
Replayed replay(vlc::VirtualLineCard &card, CardSession &session, services::TrafficMeter &meter,
                FlowRun *flows, const ReplayPlan &plan, Progress &progress);

} // namespace inlinectl
