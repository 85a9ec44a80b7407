#include "entry_names.h"

#include "hardware_view.h"
#include "lookup_keys.h"
#include "protocol_names.h"

namespace inlinectl {

using services::Destination;
using services::MeterTable;

std::string entry_name(MeterTable table, const Destination &destination)
{
    const auto &[protocol, address, port] = destination;
    if (table == MeterTable::addresses)
        return address_text(address);
    std::string text = protocol_name(protocol) + " " + address_text(address);
    if (has_ports(protocol) || port != 0)
        text.append(":").append(std::to_string(port));
    return text;
}

std::string service_name(uint16_t shadow_key)
{
    if (shadow_key < lookup_keys::first_vservice_key)
        return "key " + std::to_string(shadow_key);
    return "vservice " + std::to_string(shadow_key - lookup_keys::first_vservice_key);
}

std::string flow_name(const flow_layout::Tuple &flow)
{
    const auto end = [&flow](uint32_t address, uint16_t port) {
        return entry_name(MeterTable::destinations, {flow.protocol, address, port});
    };
    const std::string source = end(flow.source, flow.source_port);
    const std::string destination = end(flow.destination, flow.destination_port);
    return source + " > " + destination.substr(destination.find(' ') + 1);
}

std::string key_name(uint32_t table, std::span<const uint8_t> key)
{
    if (table == services::flow_table) {
        const auto flow = flow_layout::tuple_in(key);
        return flow ? flow_name(*flow) : "";
    }
    const std::optional<lookup_keys::Meaning> meaning = lookup_keys::meaning_of(key);
    if (!meaning)
        return {};
    if (meaning->kind == lookup_keys::service_kind)
        return table == SHADOW_DB_SERVICE_CONFIG ? service_name(meaning->shadow_key) : "";
    const bool by_address = meaning->kind == lookup_keys::address_kind;
    const MeterTable expected = by_address ? MeterTable::addresses : MeterTable::destinations;
    if (table != static_cast<uint32_t>(expected))
        return {};
    return entry_name(expected, {meaning->protocol, meaning->address, meaning->port});
}

std::string spaced_hex(std::span<const uint8_t> bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        if (!text.empty())
            text += ' ';
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::string plain_hex(std::span<const uint8_t> bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

} // namespace inlinectl
