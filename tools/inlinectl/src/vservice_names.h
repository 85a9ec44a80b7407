// Virtual services in words: on the command line, in files and in reports.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "inline_service_vservice.h"

namespace inlinectl {

// "udp", "udp-local"; the number for another.
std::string encapsulation_name(uint32_t encap);
std::optional<uint32_t> encapsulation_number(const std::string &name);
std::vector<std::string> known_encapsulations();

// "192.0.2.1:4789"
std::string endpoint_text(uint32_t address, uint16_t port);
// As a number in host byte order.
std::optional<uint32_t> address_number(const std::string &text);

// Where packets of a service go: this host for the local encapsulation, whatever the record says.
uint32_t destination_of(const vservice_config &config);

} // namespace inlinectl
