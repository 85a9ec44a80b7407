#include "protocol_names.h"

#include <algorithm>
#include <array>

namespace inlinectl {
namespace {

struct Protocol {
    uint8_t number;
    const char *name;
};

constexpr std::array protocols{
    Protocol{1, "icmp"},   Protocol{2, "igmp"},  Protocol{4, "ipip"},  Protocol{6, "tcp"},
    Protocol{17, "udp"},   Protocol{41, "ipv6"}, Protocol{47, "gre"},  Protocol{50, "esp"},
    Protocol{51, "ah"},    Protocol{89, "ospf"}, Protocol{103, "pim"}, Protocol{112, "vrrp"},
    Protocol{132, "sctp"},
};
constexpr uint8_t tcp = 6;
constexpr uint8_t udp = 17;

} // namespace

std::string protocol_name(uint8_t number)
{
    const auto *row = std::ranges::find(protocols, number, &Protocol::number);
    return row == protocols.end() ? "proto-" + std::to_string(number) : row->name;
}

std::optional<uint8_t> protocol_number(std::string_view name)
{
    const auto *row = std::ranges::find_if(
        protocols, [name](const Protocol &protocol) { return name == protocol.name; });
    if (row == protocols.end())
        return std::nullopt;
    return row->number;
}

std::vector<std::string> known_protocols()
{
    std::vector<std::string> names;
    for (const Protocol &protocol : protocols)
        names.emplace_back(protocol.name);
    return names;
}

bool has_ports(uint8_t protocol)
{
    return protocol == tcp || protocol == udp;
}

std::string address_text(uint32_t address)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += std::to_string(address >> shift & 0xFF) + (shift > 0 ? "." : "");
    return text;
}

} // namespace inlinectl
