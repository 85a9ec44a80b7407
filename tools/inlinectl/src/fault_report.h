// How often each rule of a fault plan matched and fired.
#pragma once

#include <ostream>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "terminal.h"
#include "vlc/faults.h"

namespace inlinectl {

struct FaultReport {
    vlc::FaultPlan plan;
    std::vector<vlc::Faults::Count> counts; // by rule
};
FaultReport fault_report(const vlc::Faults &faults);

void write_fault_text(std::ostream &out, const FaultReport &report, const Style &style);
nlohmann::ordered_json fault_json(const FaultReport &report);

} // namespace inlinectl
