// Layouts of the lookup keys and results that the NPs' forwarding path reads: the agreement
// between the services that write entries and the data plane that looks packets up.
//
//   destination key (service config table), 8 bytes:
//     0 kind 0x11 | 1 IP protocol | 2-5 destination address | 6-7 destination port
//   address key (ext conf table), 5 bytes:
//     0 kind 0x12 | 1-4 destination address
//   service key (service config table), 3 bytes:
//     0 kind 0x13 | 1-2 key of the shadow DB that the service's interface has
//   counting result, 8 bytes:
//     0 action 0x01 (count) | 1-3 counter number, written by the library | 4-7 entry id
//
// Numbers are in network byte order. Packets without ports are looked up under port 0. Keys hold
// zero bytes (an address such as 10.0.0.1), and the shadow DB compares keys as strings, so services
// find their entries by id. A service key says nothing of the service's user: a modify may change
// that, and it finds the row by its key. The results that encapsulate are in
// encapsulation_layout.h.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace lookup_keys {

inline constexpr uint8_t destination_kind = 0x11;
inline constexpr uint8_t address_kind = 0x12;
inline constexpr uint8_t service_kind = 0x13;
inline constexpr uint8_t count_action = 0x01;

using DestinationKey = std::array<uint8_t, 8>;
using AddressKey = std::array<uint8_t, 5>;
using ServiceKey = std::array<uint8_t, 3>;
using CountingResult = std::array<uint8_t, 8>;

constexpr uint8_t byte_of(uint32_t number, int place)
{
    return static_cast<uint8_t>(number >> (8 * place));
}

// A key as the word that its bytes make in memory, zeros behind them: what a packet is looked up
// by.
constexpr uint64_t destination_word(uint8_t protocol, uint32_t address, uint16_t port)
{
    return uint64_t{destination_kind} | uint64_t{protocol} << 8 |
           uint64_t{__builtin_bswap32(address)} << 16 | uint64_t{__builtin_bswap16(port)} << 48;
}

constexpr uint64_t address_word(uint32_t address)
{
    return uint64_t{address_kind} | uint64_t{__builtin_bswap32(address)} << 8;
}

template <typename Key>
constexpr Key key_of_word(uint64_t word)
{
    Key key{};
    for (uint8_t &byte : key) {
        byte = static_cast<uint8_t>(word);
        word >>= 8;
    }
    return key;
}

constexpr DestinationKey destination_key(uint8_t protocol, uint32_t address, uint16_t port)
{
    return key_of_word<DestinationKey>(destination_word(protocol, address, port));
}

constexpr AddressKey address_key(uint32_t address)
{
    return key_of_word<AddressKey>(address_word(address));
}

// Virtual services own the keys of application type 4.
inline constexpr uint32_t vservices = 256;
inline constexpr uint16_t first_vservice_key = 0x300;

constexpr uint16_t shadow_key_of_vservice(uint32_t index)
{
    return static_cast<uint16_t>(first_vservice_key | index);
}

constexpr ServiceKey service_key(uint16_t shadow_key)
{
    return {service_kind, byte_of(shadow_key, 1), byte_of(shadow_key, 0)};
}

// What a key says; what it does not say is 0.
struct Meaning {
    uint8_t kind = 0;
    uint8_t protocol = 0;
    uint32_t address = 0;
    uint16_t port = 0;
    uint16_t shadow_key = 0;
};

constexpr uint32_t number_in(std::span<const uint8_t> bytes)
{
    uint32_t number = 0;
    for (const uint8_t byte : bytes)
        number = number << 8 | byte;
    return number;
}

// Nothing for a key of another layout.
constexpr std::optional<Meaning> meaning_of(std::span<const uint8_t> key)
{
    if (key.size() == DestinationKey{}.size() && key[0] == destination_kind)
        return Meaning{key[0], key[1], number_in(key.subspan(2, 4)),
                       static_cast<uint16_t>(number_in(key.subspan(6, 2))), 0};
    if (key.size() == AddressKey{}.size() && key[0] == address_kind)
        return Meaning{key[0], 0, number_in(key.subspan(1, 4)), 0, 0};
    if (key.size() == ServiceKey{}.size() && key[0] == service_kind)
        return Meaning{key[0], 0, 0, 0, static_cast<uint16_t>(number_in(key.subspan(1, 2)))};
    return std::nullopt;
}

constexpr CountingResult counting_result(uint32_t entry_id)
{
    return {count_action,
            0,
            0,
            0,
            byte_of(entry_id, 3),
            byte_of(entry_id, 2),
            byte_of(entry_id, 1),
            byte_of(entry_id, 0)};
}

} // namespace lookup_keys
