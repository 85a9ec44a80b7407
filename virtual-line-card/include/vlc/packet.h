// One packet of a capture, and what the data plane reads of it.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>

namespace vlc {

enum class LinkType : uint8_t { ethernet, linux_sll };

struct CapturedPacket {
    LinkType link;
    std::span<const uint8_t> bytes; // captured; may be fewer than the wire length
    uint32_t wire_length;
    int64_t nanoseconds;
    std::string_view capture = {}; // the name of its file, without the directory
};

// Addresses and ports in host byte order. The destination of a packet whose source route is not yet
// used up is the end of that route.
struct FiveTuple {
    uint32_t source;
    uint32_t destination;
    // Ports are 0 where the packet has none: other protocols than TCP and UDP, fragments after the
    // first, and headers cut off before the ports.
    uint16_t source_port;
    uint16_t destination_port;
    uint8_t protocol;
    bool operator==(const FiveTuple &) const = default;
};

enum class Unreadable : uint8_t {
    none,
    link_cut,    // ends inside the link header or a tag
    not_ipv4,    // another protocol
    ipv4_cut,    // captured bytes end inside the IPv4 header, before the destination is certain
    ipv4_broken, // version, header length or total length cannot be
    reasons
};
const char *unreadable_text(Unreadable reason);

struct ParsedPacket {
    Unreadable unreadable = Unreadable::none; // when not none, the tuple is not set
    FiveTuple tuple{};
    uint16_t vlan_id = 0;  // of the outermost tag; 0 without one
    uint8_t tags = 0;      // 255 for more
    bool fragment = false; // any fragment, the first too
    // The IPv4 packet without its link header and what pads the frame: its captured bytes, and how
    // many there were on the wire.
    std::span<const uint8_t> ipv4 = {};
    uint32_t ipv4_wire_length = 0;
};

// Any number of 802.1Q and 802.1ad tags, and LLC with or without SNAP. Never reads past the
// captured bytes.
ParsedPacket parse_packet(const CapturedPacket &packet) noexcept;

} // namespace vlc
