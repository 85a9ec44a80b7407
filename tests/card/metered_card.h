// A card with a host and a traffic meter on it, as `inlinectl run` sets them up, for one process.
#pragma once

#include <memory>
#include <vector>

#include "service_host.h"
#include "traffic_meter.h"
#include "vlc/virtual_line_card.h"

namespace test {

inline constexpr char metered_card_directory[] = "/tmp/card";

class MeteredCard {
public:
    explicit MeteredCard(uint32_t card_type, uint16_t num_nps = 4);
    explicit MeteredCard(std::unique_ptr<vlc::VirtualLineCard> on);

    services::TrafficMeter::Programmed program(const std::vector<services::Destination> &wanted);

    std::unique_ptr<vlc::VirtualLineCard> card;
    std::unique_ptr<services::ServiceHost> host;
    std::unique_ptr<services::TrafficMeter> meter;
};

} // namespace test
