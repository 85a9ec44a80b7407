// Entries by what their keys mean.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "flow_layout.h"
#include "traffic_meter.h"

namespace inlinectl {

// "tcp 192.0.2.1:80"; in the address table "192.0.2.1".
std::string entry_name(services::MeterTable table, const services::Destination &destination);

// "vservice 7"; of another service's key "key 7".
std::string service_name(uint16_t shadow_key);

// "tcp 192.0.2.1:34567 > 192.0.2.2:80"
std::string flow_name(const flow_layout::Tuple &flow);

// The same from the bytes of a key; empty for a key that is laid out in another way.
std::string key_name(uint32_t table, std::span<const uint8_t> key);

// "11 06 c0 00"
std::string spaced_hex(std::span<const uint8_t> bytes);

// "1106c000"
std::string plain_hex(std::span<const uint8_t> bytes);

} // namespace inlinectl
