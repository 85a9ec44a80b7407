// Layout of a result that encapsulates packets in UDP: the agreement between the encoder of the
// service side, the data plane that carries it out, and the tools that show it.
//
//   encapsulation result (service config table), 32 bytes: four zero bytes, then 28 encoded ones:
//     0 action 0x02 (encapsulate) | 1 IP protocol | 2-5 flags | 6 user flags | 7 is user 4
//     8-11 outer source address | 12-15 outer destination address
//     16-17 outer source port | 18-19 outer destination port
//     20-22 marks of a known user | 23-27 zero
//
// Numbers are in network byte order. The four zero bytes say of such a result that it carries no
// counter: the NP counts the row's hits by itself.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "lookup_keys.h"

namespace encapsulation_layout {

inline constexpr uint8_t encapsulate_action = 0x02;
inline constexpr uint8_t udp = 17;
inline constexpr size_t zero_bytes = 4;
inline constexpr size_t encoded_bytes = 28;

// Numbers in host byte order.
struct Encapsulation {
    uint32_t source = 0;
    uint32_t destination = 0;
    uint16_t source_port = 0;
    uint16_t destination_port = 0;
    uint8_t protocol = udp;
    std::array<uint8_t, 4> flags{};
    uint8_t user_flags = 0; // bit 0
    uint8_t is_user_4 = 0;
    std::array<uint8_t, 3> known_user{};
    bool operator==(const Encapsulation &) const = default;
};

using Encoded = std::array<uint8_t, encoded_bytes>;

constexpr Encoded encoded(const Encapsulation &wanted)
{
    Encoded bytes{encapsulate_action, wanted.protocol};
    std::ranges::copy(wanted.flags, bytes.begin() + 2);
    bytes[6] = wanted.user_flags;
    bytes[7] = wanted.is_user_4;
    for (int place = 0; place < 4; ++place) {
        bytes[static_cast<size_t>(8 + place)] = lookup_keys::byte_of(wanted.source, 3 - place);
        bytes[static_cast<size_t>(12 + place)] =
            lookup_keys::byte_of(wanted.destination, 3 - place);
    }
    bytes[16] = lookup_keys::byte_of(wanted.source_port, 1);
    bytes[17] = lookup_keys::byte_of(wanted.source_port, 0);
    bytes[18] = lookup_keys::byte_of(wanted.destination_port, 1);
    bytes[19] = lookup_keys::byte_of(wanted.destination_port, 0);
    std::ranges::copy(wanted.known_user, bytes.begin() + 20);
    return bytes;
}

// What a result of the table says; nothing for a result of another layout.
constexpr std::optional<Encapsulation> encapsulation_in(std::span<const uint8_t> result)
{
    if (result.size() != zero_bytes + encoded_bytes)
        return std::nullopt;
    const auto bytes = result.subspan(zero_bytes);
    if (lookup_keys::number_in(result.first(zero_bytes)) != 0 || bytes[0] != encapsulate_action ||
        bytes[1] != udp)
        return std::nullopt;
    Encapsulation found;
    found.protocol = bytes[1];
    std::ranges::copy(bytes.subspan(2, 4), found.flags.begin());
    found.user_flags = bytes[6];
    found.is_user_4 = bytes[7];
    found.source = lookup_keys::number_in(bytes.subspan(8, 4));
    found.destination = lookup_keys::number_in(bytes.subspan(12, 4));
    found.source_port = static_cast<uint16_t>(lookup_keys::number_in(bytes.subspan(16, 2)));
    found.destination_port = static_cast<uint16_t>(lookup_keys::number_in(bytes.subspan(18, 2)));
    std::ranges::copy(bytes.subspan(20, 3), found.known_user.begin());
    return found;
}

} // namespace encapsulation_layout
