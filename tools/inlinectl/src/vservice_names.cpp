#include "vservice_names.h"

#include <arpa/inet.h>

#include "protocol_names.h"

namespace inlinectl {
namespace {

constexpr struct {
    uint32_t number;
    const char *name;
} encapsulations[] = {{VSERVICE_ENCAP_UDP, "udp"}, {VSERVICE_ENCAP_UDP_LOCAL, "udp-local"}};

} // namespace

std::string encapsulation_name(uint32_t encap)
{
    for (const auto &[number, name] : encapsulations) {
        if (number == encap)
            return name;
    }
    return std::to_string(encap);
}

std::optional<uint32_t> encapsulation_number(const std::string &name)
{
    for (const auto &[number, known] : encapsulations) {
        if (name == known)
            return number;
    }
    return std::nullopt;
}

std::vector<std::string> known_encapsulations()
{
    std::vector<std::string> names;
    for (const auto &[number, name] : encapsulations)
        names.emplace_back(name);
    return names;
}

std::string endpoint_text(uint32_t address, uint16_t port)
{
    return address_text(address) + ":" + std::to_string(port);
}

std::optional<uint32_t> address_number(const std::string &text)
{
    in_addr address{};
    if (inet_pton(AF_INET, text.c_str(), &address) != 1)
        return std::nullopt;
    return ntohl(address.s_addr);
}

uint32_t destination_of(const vservice_config &config)
{
    return config.encap == VSERVICE_ENCAP_UDP_LOCAL ? INADDR_LOOPBACK : config.dst_ip;
}

} // namespace inlinectl
