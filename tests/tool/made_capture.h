// Captures made for a test, packet by packet.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

struct MadePacket {
    enum class Kind { tcp, udp, icmp, arp };
    Kind kind = Kind::udp;
    std::string source = "198.51.100.1";
    std::string destination = "192.0.2.1";
    uint16_t source_port = 40000;
    uint16_t destination_port = 53;
    size_t payload = 0;
};

// The frame's bytes.
std::vector<uint8_t> frame_of(const MadePacket &packet);

void write_capture(const std::string &file, const std::vector<MadePacket> &packets);

} // namespace test
