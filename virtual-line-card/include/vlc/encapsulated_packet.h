// A packet that the card sends out: the inner packet in IPv4 and UDP.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>

#include "vlc/packet.h"

namespace vlc {

// Numbers in host byte order.
struct UdpEndpoints {
    uint32_t source = 0;
    uint32_t destination = 0;
    uint16_t source_port = 0;
    uint16_t destination_port = 0;
};

struct EncapsulatedPacket {
    static constexpr uint32_t header_bytes = 28; // IPv4 without options, UDP

    std::array<uint8_t, header_bytes> headers;
    std::span<const uint8_t> inner; // the captured bytes of the IPv4 packet that came
    uint32_t wire_length;           // of the whole, inner bytes that were not captured too
    int64_t nanoseconds;            // when the inner packet came
};

// Good for the call.
using Output = std::function<void(const EncapsulatedPacket &packet)>;

// How long a packet's encapsulation is, or 0 for one that no IPv4 packet can hold.
uint32_t encapsulated_length(const ParsedPacket &packet) noexcept;

// Of one that can be. The UDP checksum is 0, which says that there is none, where bytes that it
// would cover were not captured.
EncapsulatedPacket encapsulate(const ParsedPacket &packet, int64_t nanoseconds,
                               const UdpEndpoints &endpoints) noexcept;

} // namespace vlc
