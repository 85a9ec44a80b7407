// The flows of a window with what the NPs have counted for them.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "flow_service.h"
#include "vlc/card_access.h"

namespace CLI {
class App;
}

namespace inlinectl {

struct ShownFlow {
    uint64_t flow_key = 0;
    services::FlowAccount account;
    bool policed = false;
    uint32_t nps = 0;  // bit n: it belongs to NP n
    uint32_t rows = 0; // bit n: NP n has a row of it
};

std::vector<ShownFlow> shown_flows(const std::vector<flow_record> &stored, vlc::CardAccess &card);

struct FlowSelection {
    std::optional<vlc::Ipv4Prefix> address; // of one of the two ends
    std::optional<uint16_t> port;           // of one of the two ends
    std::optional<uint8_t> protocol;
    std::string sort = "bytes";
    size_t first = SIZE_MAX; // so many of them
};

void declare_flow_selection(CLI::App &view, FlowSelection &selection);

struct SelectedFlows {
    std::vector<ShownFlow> flows; // sorted
    size_t matching = 0;          // before they were cut to the first ones
    size_t all = 0;
};
SelectedFlows select(std::vector<ShownFlow> flows, const FlowSelection &selection);

void write_text(std::ostream &out, const SelectedFlows &flows);
void write_json(std::ostream &out, const SelectedFlows &flows);

} // namespace inlinectl
