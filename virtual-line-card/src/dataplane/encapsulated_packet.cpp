// IPv4 and UDP around an IPv4 packet.
#include "vlc/encapsulated_packet.h"

#include <algorithm>

namespace vlc {
namespace {

constexpr size_t ip_header_bytes = 20;
constexpr uint32_t longest_ip_packet = 0xFFFF;
constexpr uint8_t time_to_live = 64;
constexpr uint8_t udp = 17;
constexpr size_t type_of_service_place = 1;
constexpr size_t ip_checksum_place = 10;
constexpr size_t addresses_place = 12;
constexpr size_t address_bytes = 8; // both
constexpr size_t udp_checksum_place = ip_header_bytes + 6;

void store_16(uint8_t *at, uint32_t value)
{
    at[0] = static_cast<uint8_t>(value >> 8);
    at[1] = static_cast<uint8_t>(value);
}

void store_32(uint8_t *at, uint32_t value)
{
    store_16(at, value >> 16);
    store_16(at + 2, value);
}

// Words of 16 bits in network byte order; an odd last byte is a word's upper half.
uint64_t sum_of(std::span<const uint8_t> bytes)
{
    uint64_t sum = 0;
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        sum += static_cast<uint32_t>(bytes[i] << 8 | bytes[i + 1]);
    }
    return bytes.size() % 2 == 0 ? sum : sum + (uint32_t{bytes.back()} << 8);
}

uint16_t checksum(uint64_t sum)
{
    while (sum >> 16 != 0) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

uint16_t udp_checksum(const EncapsulatedPacket &packet, uint32_t udp_length)
{
    const std::span<const uint8_t> headers(packet.headers);
    const uint64_t pseudo_header =
        sum_of(headers.subspan(addresses_place, address_bytes)) + udp + udp_length;
    const uint16_t sum =
        checksum(pseudo_header + sum_of(headers.subspan(ip_header_bytes)) + sum_of(packet.inner));
    return sum != 0 ? sum : 0xFFFF; // 0 would say that there is none
}

} // namespace

uint32_t encapsulated_length(const ParsedPacket &packet) noexcept
{
    constexpr uint32_t longest_inner = longest_ip_packet - EncapsulatedPacket::header_bytes;
    return packet.ipv4_wire_length > longest_inner
               ? 0
               : packet.ipv4_wire_length + EncapsulatedPacket::header_bytes;
}

EncapsulatedPacket encapsulate(const ParsedPacket &packet, int64_t nanoseconds,
                               const UdpEndpoints &endpoints) noexcept
{
    EncapsulatedPacket out{{}, packet.ipv4, encapsulated_length(packet), nanoseconds};
    const auto udp_length = static_cast<uint32_t>(out.wire_length - ip_header_bytes);
    uint8_t *ip = out.headers.data();
    ip[0] = 0x45;
    ip[type_of_service_place] = packet.ipv4[type_of_service_place]; // as urgent as what is inside
    store_16(ip + 2, out.wire_length);
    store_16(ip + 6, 0x4000); // not to be fragmented, so that it needs no identification
    ip[8] = time_to_live;
    ip[9] = udp;
    store_32(ip + addresses_place, endpoints.source);
    store_32(ip + addresses_place + 4, endpoints.destination);
    store_16(ip + ip_checksum_place, checksum(sum_of({ip, ip_header_bytes})));
    uint8_t *header = ip + ip_header_bytes;
    store_16(header, endpoints.source_port);
    store_16(header + 2, endpoints.destination_port);
    store_16(header + 4, udp_length);
    if (packet.ipv4.size() == packet.ipv4_wire_length) {
        store_16(ip + udp_checksum_place, udp_checksum(out, udp_length));
    }
    return out;
}

} // namespace vlc
