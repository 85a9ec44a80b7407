// IPv4 prefixes as texts.
#include <arpa/inet.h>

#include <charconv>

#include "vlc/card_config.h"

namespace vlc {

std::string text_of(const Ipv4Prefix &prefix)
{
    char text[INET_ADDRSTRLEN] = {};
    const in_addr address{htonl(prefix.network)};
    inet_ntop(AF_INET, &address, text, sizeof text);
    return std::string(text) + "/" + std::to_string(prefix.length);
}

std::optional<Ipv4Prefix> prefix_of(std::string_view text)
{
    constexpr uint8_t longest = 32;
    Ipv4Prefix prefix{0, longest};
    const size_t slash = text.find('/');
    if (slash != std::string_view::npos) {
        const char *end = text.data() + text.size();
        const auto [last, error] = std::from_chars(text.data() + slash + 1, end, prefix.length);
        if (error != std::errc{} || last != end || prefix.length > longest)
            return std::nullopt;
    }
    in_addr address{};
    if (inet_pton(AF_INET, std::string(text.substr(0, slash)).c_str(), &address) != 1)
        return std::nullopt;
    prefix.network = ntohl(address.s_addr);
    if ((prefix.network & ~prefix.mask()) != 0)
        return std::nullopt;
    return prefix;
}

} // namespace vlc
