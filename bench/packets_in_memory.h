// A capture whose packets lie in memory, and the destinations that they go to.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "traffic_meter.h"
#include "vlc/packet.h"

namespace bench {

class PacketsInMemory {
public:
    explicit PacketsInMemory(const char *capture);

    const std::vector<vlc::CapturedPacket> &all() const { return packets_; }
    // In order, each once, of the packets that can be read.
    std::vector<services::Destination> destinations() const;

private:
    std::vector<std::vector<uint8_t>> bytes_;
    std::vector<vlc::CapturedPacket> packets_;
};

} // namespace bench
