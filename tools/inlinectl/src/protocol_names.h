// IP protocols by name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace inlinectl {

// "tcp", or "proto-253" for a protocol without a name here.
std::string protocol_name(uint8_t number);
std::optional<uint8_t> protocol_number(std::string_view name);
std::vector<std::string> known_protocols();

// Whether packets of the protocol carry ports.
bool has_ports(uint8_t protocol);

// "192.0.2.1"; the number is in host byte order.
std::string address_text(uint32_t address);

} // namespace inlinectl
