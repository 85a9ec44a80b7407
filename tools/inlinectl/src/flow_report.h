// What a run's flow service has done, and how it is shown.
#pragma once

#include <ostream>
#include <string>
#include <vector>

#include "flow_service.h"
#include "traffic_meter.h"

namespace inlinectl {

struct FlowReport {
    static constexpr size_t most_top = 10;

    services::FlowSums sums;
    uint64_t active = 0;
    services::MeterCount passed; // of flows that ended and of active ones
    services::MeterCount dropped;
    std::vector<services::FlowAccount> top; // most bytes first, dropped ones too
    std::vector<std::string> problems;      // of the export; one line each

    void take(const services::FlowAccount &account);
};

// One line for each way in which packets went by without a flow.
std::vector<std::string> flow_problems(const FlowReport &report);

// One JSON object on a line.
std::string export_line(const services::FlowAccount &account);

// "2026-11-01T10:00:00.000000001Z"
std::string time_text(int64_t nanoseconds);

} // namespace inlinectl
