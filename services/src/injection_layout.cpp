#include "injection_layout.h"

#include <algorithm>
#include <cstdio>

#include "inline_service_packet.h"

namespace injection_layout {
namespace {

using Bytes = std::span<const uint8_t>;

// How a range's bytes are told.
enum class Value { none, byte, host_word, network_word, hexadecimal_word, service_tag, vlan, ipv4 };

struct Row {
    uint16_t length;
    Value value;
    const char *text;
};

constexpr Row prefix[] = {
    {INJECTED_PREFIX_NP, Value::none, "destination address, up to the NP"},
    {INJECTED_PREFIX_SOURCE - INJECTED_PREFIX_NP, Value::byte, "destination address: NP"},
    {INJECTED_PREFIX_VLAN_TAG - INJECTED_PREFIX_SOURCE, Value::none, "source address"},
    {2, Value::hexadecimal_word, "802.1Q tag follows:"},
    {2, Value::vlan, "tag control:"},
};
constexpr Row service_np_header[] = {
    {2, Value::service_tag, "flag and"},
    {4, Value::none, "zero"},
    {2, Value::hexadecimal_word, "fixed, service packet:"},
    {20, Value::none, "zero"},
    {2, Value::hexadecimal_word, "fixed:"},
    {1, Value::none, "zero"},
    {2, Value::hexadecimal_word, "fixed:"},
    {2, Value::none, "zero"},
    {1, Value::byte, "fixed:"},
    {3, Value::none, "zero"},
    {2, Value::host_word, "payload length:"},
    {15, Value::none, "zero"},
};
constexpr Row ip_np_header[] = {
    {6, Value::none, "zero"},      {2, Value::hexadecimal_word, "fixed, IP packet:"},
    {20, Value::none, "zero"},     {2, Value::hexadecimal_word, "fixed:"},
    {9, Value::none, "zero"},      {2, Value::host_word, "packet length:"},
    {2, Value::host_word, "tag:"}, {13, Value::none, "zero"},
};
constexpr Row ipv4[] = {
    {2, Value::hexadecimal_word, "version, header, service:"},
    {2, Value::network_word, "total length, always"},
    {4, Value::none, "identification and fragment, zero"},
    {1, Value::byte, "time to live:"},
    {1, Value::byte, "protocol:"},
    {2, Value::none, "checksum, not computed"},
    {4, Value::ipv4, "source address"},
    {4, Value::ipv4, "destination address"},
};
constexpr Row udp[] = {
    {2, Value::network_word, "source port:"},
    {2, Value::network_word, "destination port:"},
    {2, Value::network_word, "length:"},
    {2, Value::none, "checksum, none"},
};

constexpr size_t length_of(std::span<const Row> rows)
{
    size_t length = 0;
    for (const Row &row : rows)
        length += row.length;
    return length;
}
static_assert(length_of(prefix) == INJECTED_PREFIX_BYTES);
static_assert(length_of(service_np_header) == INJECTED_NP_HEADER_BYTES);
static_assert(length_of(ip_np_header) == INJECTED_NP_HEADER_BYTES);
static_assert(length_of(std::span(service_np_header).first(10)) == INJECTED_NP_LENGTH);
static_assert(length_of(std::span(ip_np_header).first(5)) == INJECTED_NP_LENGTH);
static_assert(length_of(std::span(ip_np_header).first(6)) == INJECTED_NP_IP_TAG);
static_assert(length_of(ipv4) == INJECTED_IPV4_BYTES);
static_assert(length_of(udp) == INJECTED_UDP_BYTES);

struct Part {
    const char *name;
    std::span<const Row> rows;
};

constexpr Part service_parts[] = {
    {"prefix", prefix}, {"NP header", service_np_header}, {"IPv4", ipv4}, {"UDP", udp}};
constexpr Part ip_parts[] = {{"prefix", prefix}, {"NP header", ip_np_header}};

uint32_t big_endian(Bytes bytes)
{
    uint32_t value = 0;
    for (const uint8_t byte : bytes)
        value = value << 8 | byte;
    return value;
}

std::string hexadecimal(uint32_t value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, static_cast<unsigned>(value));
    return text;
}

std::string value_text(Value value, Bytes bytes)
{
    switch (value) {
    case Value::none:
        return "";
    case Value::byte:
    case Value::network_word:
        return std::to_string(big_endian(bytes));
    case Value::host_word:
        return std::to_string(bytes[0] | bytes[1] << 8);
    case Value::hexadecimal_word:
        return hexadecimal(big_endian(bytes), 4);
    case Value::service_tag:
        return "tag " + hexadecimal(big_endian(bytes) & INJECTED_SERVICE_TAG_MASK, 3);
    case Value::vlan:
        return "priority " + std::to_string(big_endian(bytes) >> 13) + ", VLAN " +
               std::to_string(big_endian(bytes) & 0x0FFF);
    case Value::ipv4:
        return std::to_string(bytes[0]) + "." + std::to_string(bytes[1]) + "." +
               std::to_string(bytes[2]) + "." + std::to_string(bytes[3]);
    }
    return "";
}

std::string meaning_of(const Row &row, Bytes bytes)
{
    if (bytes.size() < row.length)
        return std::string(row.text) + " (cut off)";
    const std::string value = value_text(row.value, bytes);
    return row.text + (value.empty() ? "" : " " + value);
}

} // namespace

std::vector<Range> ranges_of(Kind kind, Bytes frame)
{
    const bool is_service = kind == Kind::service;
    std::vector<Range> ranges;
    size_t at = 0;
    for (const Part &part :
         is_service ? std::span<const Part>(service_parts) : std::span<const Part>(ip_parts)) {
        for (const Row &row : part.rows) {
            if (at >= frame.size())
                return ranges;
            const Bytes bytes = frame.subspan(at, std::min<size_t>(row.length, frame.size() - at));
            ranges.push_back({at, bytes.size(), part.name, meaning_of(row, bytes)});
            at += bytes.size();
        }
    }
    if (at < frame.size()) {
        const size_t rest = frame.size() - at;
        ranges.push_back({at, rest, is_service ? "payload" : "packet",
                          std::to_string(rest) + (rest == 1 ? " byte" : " bytes")});
    }
    return ranges;
}

} // namespace injection_layout
