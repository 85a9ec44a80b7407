// Ethernet or LINUX_SLL, tags, LLC/SNAP, IPv4, ports.
#include "vlc/packet.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace vlc {
namespace {

constexpr uint16_t ethertype_ipv4 = 0x0800;
constexpr uint16_t longest_802_3_length = 1500; // a larger type field names a protocol
constexpr uint16_t sll_llc = 0x0004;            // LINUX_SLL's word for a frame that begins with LLC

constexpr const char *reason_texts[] = {
    "readable",           "cut off in the link header or a tag",
    "not IPv4",           "cut off in the IPv4 header",
    "broken IPv4 header",
};
static_assert(std::size(reason_texts) == static_cast<size_t>(Unreadable::reasons));

uint16_t load_16(const uint8_t *at)
{
    return static_cast<uint16_t>(at[0] << 8 | at[1]);
}

uint32_t load_32(const uint8_t *at)
{
    return uint32_t{load_16(at)} << 16 | load_16(at + 2);
}

// What is left of the captured bytes.
struct Cursor {
    const uint8_t *at;
    const uint8_t *end;
    size_t wire; // left on the wire; not below left()

    size_t left() const { return static_cast<size_t>(end - at); }
    void skip(size_t bytes)
    {
        at += bytes;
        wire -= bytes;
    }
    void keep(size_t bytes)
    {
        end = at + std::min(left(), bytes);
        wire = std::min(wire, bytes);
    }
};

bool is_tag(uint16_t type)
{
    return type == 0x8100 || type == 0x88a8 || type == 0x9100;
}

// LLC headers behind which IPv4 can stand.
struct LlcHeader {
    uint8_t bytes[6];
    size_t length;
    bool type_follows; // otherwise what follows is IPv4
};
constexpr size_t llc_length = 3;
constexpr LlcHeader llc_headers[] = {
    {{0xaa, 0xaa, 0x03, 0x00, 0x00, 0x00}, 6, true}, // SNAP
    {{0xaa, 0xaa, 0x03, 0x00, 0x00, 0xf8}, 6, true}, // SNAP, bridged
    {{0x06, 0x06, 0x03}, llc_length, false},         // IPv4's own access point
};

Unreadable skip_llc(Cursor &cursor, uint16_t *type)
{
    if (cursor.left() < llc_length) {
        return Unreadable::link_cut;
    }
    for (const LlcHeader &header : llc_headers) {
        if (std::memcmp(cursor.at, header.bytes, std::min(cursor.left(), header.length)) != 0) {
            continue;
        }
        const size_t length = header.length + (header.type_follows ? 2 : 0);
        if (cursor.left() < length) {
            return Unreadable::link_cut;
        }
        *type = header.type_follows ? load_16(cursor.at + header.length) : ethertype_ipv4;
        cursor.skip(length);
        return *type > longest_802_3_length ? Unreadable::none : Unreadable::not_ipv4;
    }
    return Unreadable::not_ipv4;
}

// Goes over tags and LLC up to the IPv4 header.
Unreadable skip_to_ipv4(Cursor &cursor, uint16_t type, ParsedPacket &parsed)
{
    while (type != ethertype_ipv4) {
        if (is_tag(type)) {
            if (cursor.left() < 4) {
                return Unreadable::link_cut;
            }
            if (parsed.tags == 0) {
                parsed.vlan_id = load_16(cursor.at) & 0x0fff;
            }
            parsed.tags = static_cast<uint8_t>(std::min(parsed.tags + 1, 255));
            type = load_16(cursor.at + 2);
            cursor.skip(4);
        } else if (type <= longest_802_3_length) {
            cursor.keep(type);
            const Unreadable reason = skip_llc(cursor, &type);
            if (reason != Unreadable::none) {
                return reason;
            }
        } else {
            return Unreadable::not_ipv4;
        }
    }
    return Unreadable::none;
}

Unreadable skip_link(LinkType link, Cursor &cursor, ParsedPacket &parsed)
{
    const size_t header = link == LinkType::ethernet ? 14 : 16;
    if (cursor.left() < header) {
        return Unreadable::link_cut;
    }
    uint16_t type = load_16(cursor.at + header - 2);
    cursor.skip(header);
    if (link == LinkType::linux_sll && type <= longest_802_3_length) {
        // No length here, but a number of Linux for a frame without an Ethernet type.
        if (type != sll_llc) {
            return Unreadable::not_ipv4;
        }
        const Unreadable reason = skip_llc(cursor, &type);
        if (reason != Unreadable::none) {
            return reason;
        }
    }
    return skip_to_ipv4(cursor, type, parsed);
}

enum class Route { direct, source_routed, cut };

// What the source-route option at the front of `length` bytes of options says; it is `size` long.
// Its pointer counts the option's bytes from 1 and finds the first address at 4. A used-up or
// malformed route leaves the header's destination standing.
Route end_of_route(const Cursor &options, size_t length, size_t size, uint32_t *destination)
{
    constexpr size_t shortest_route = 7;
    constexpr size_t first_address = 4;
    if (size < shortest_route || size % 4 != 3) {
        return Route::direct;
    }
    if (options.left() < first_address - 1) {
        return Route::cut;
    }
    const size_t next = options.at[2];
    if (next < first_address || next % 4 != 0 || next > size) {
        return Route::direct;
    }
    if (options.left() < length) {
        return Route::cut;
    }
    *destination = load_32(options.at + size - 4);
    return Route::source_routed;
}

// Goes over `length` bytes of options. A source route that is not yet used up carries the
// destination as its last address: until every option has been seen that could be one, the header
// does not tell where the packet goes. A route counts only when all options were captured.
Route source_route(Cursor options, size_t length, uint32_t *destination)
{
    constexpr uint8_t end_of_options = 0;
    constexpr uint8_t no_operation = 1;
    constexpr uint8_t loose_route = 0x83;
    constexpr uint8_t strict_route = 0x89;
    options.keep(length);
    while (length > 0) {
        if (options.left() < 1) {
            return Route::cut;
        }
        const uint8_t option = options.at[0];
        size_t size = 1;
        if (option != no_operation) {
            if (option == end_of_options || length < 2) {
                return Route::direct;
            }
            if (options.left() < 2) {
                return Route::cut;
            }
            size = options.at[1];
            if (size < 2 || size > length) {
                return Route::direct;
            }
        }
        if (option == loose_route || option == strict_route) {
            return end_of_route(options, length, size, destination);
        }
        options.skip(std::min(size, options.left()));
        length -= size;
    }
    return Route::direct;
}

Unreadable read_ipv4(Cursor cursor, ParsedPacket &parsed)
{
    constexpr size_t shortest_header = 20;
    if (cursor.left() < shortest_header) {
        return Unreadable::ipv4_cut;
    }
    const uint8_t *ip = cursor.at;
    const size_t header = size_t{ip[0] & 0x0fu} * 4;
    const size_t total = load_16(ip + 2);
    // Kept: a total length of 0 is good. Captures taken on the sending machine have it where the
    // network card cuts the packet up, and then the packet goes as far as the frame does.
    if (ip[0] >> 4 != 4 || header < shortest_header || (total != 0 && total < header)) {
        return Unreadable::ipv4_broken;
    }
    uint32_t destination = load_32(ip + 16);
    if (header > shortest_header) {
        Cursor options = cursor;
        options.skip(shortest_header);
        if (source_route(options, header - shortest_header, &destination) == Route::cut) {
            return Unreadable::ipv4_cut;
        }
    }
    FiveTuple &tuple = parsed.tuple;
    tuple.source = load_32(ip + 12);
    tuple.destination = destination;
    tuple.protocol = ip[9];
    const uint16_t fragment = load_16(ip + 6);
    parsed.fragment = (fragment & 0x3fff) != 0;
    const bool first = (fragment & 0x1fff) == 0;
    if (total != 0) {
        cursor.keep(total);
    }
    parsed.ipv4 = {cursor.at, cursor.left()};
    parsed.ipv4_wire_length = static_cast<uint32_t>(cursor.wire);
    const bool has_ports = tuple.protocol == 6 || tuple.protocol == 17;
    if (has_ports && first && cursor.left() >= header + 4) {
        tuple.source_port = load_16(ip + header);
        tuple.destination_port = load_16(ip + header + 2);
    }
    return Unreadable::none;
}

} // namespace

const char *unreadable_text(Unreadable reason)
{
    return reason_texts[static_cast<size_t>(reason)];
}

ParsedPacket parse_packet(const CapturedPacket &packet) noexcept
{
    ParsedPacket parsed;
    // A record may tell less than was captured; what was captured was on the wire.
    Cursor cursor{packet.bytes.data(), packet.bytes.data() + packet.bytes.size(),
                  std::max<size_t>(packet.wire_length, packet.bytes.size())};
    parsed.unreadable = skip_link(packet.link, cursor, parsed);
    if (parsed.unreadable == Unreadable::none) {
        parsed.unreadable = read_ipv4(cursor, parsed);
    }
    return parsed;
}

} // namespace vlc
