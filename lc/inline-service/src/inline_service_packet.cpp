// Packets into the NPs through the packet path, and utility messages answered into a file.

#include "inline_service_packet.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

#include <unistd.h>

#include "inline_service_log.h"
#include "inline_service_regular_file.h"
#include "platform_card.h"

inutil_handler_fn inutil_handler[INUTIL_KINDS] = {};

using namespace inline_service;

namespace {

// ---- what a frame is made of -------------------------------------------------------------------

using Prefix = std::array<uint8_t, INJECTED_PREFIX_BYTES>;
using NpHeader = std::array<uint8_t, INJECTED_NP_HEADER_BYTES>;
using Ipv4Header = std::array<uint8_t, INJECTED_IPV4_BYTES>;
using UdpHeader = std::array<uint8_t, INJECTED_UDP_BYTES>;

constexpr Prefix prefix_template = {
    0x00, 0x65, 0x7A, 0x00, 0x00, 0x00, // destination address; the last byte is the NP
    'P',  'L',  'M',  'P',  'N',  'T',  // source address
    0x81, 0x00,                         // 802.1Q
    0x05, 0x02,                         // tag control
};

struct FixedByte {
    uint8_t offset;
    uint8_t value;
};

// The NP's header beside length and tag; all other bytes are 0.
constexpr FixedByte udp_np_header[] = {{6, 0x0F},  {7, 0x0E},  {28, 0x47}, {29, 0x03},
                                       {31, 0x41}, {32, 0x01}, {35, 0x1D}};
constexpr FixedByte ip_np_header[] = {{6, 0x0F}, {7, 0x8E}, {28, 0x47}, {29, 0x09}};

constexpr Ipv4Header ipv4_template = {
    0x45, 0x40,             // version and header length, type of service
    0x00, 0x01,             // Kept: total length, whatever the payload's is
    0x00, 0x00, 0x00, 0x00, // identification, fragment
    2,    17,               // time to live, UDP
    0x00, 0x00,             // Kept: no checksum
};
constexpr size_t ipv4_source = 12;
constexpr size_t ipv4_destination = 16;

constexpr uint8_t high_byte(uint32_t value)
{
    return static_cast<uint8_t>(value >> 8);
}

constexpr uint8_t low_byte(uint32_t value)
{
    return static_cast<uint8_t>(value);
}

void put_address(uint8_t *place, uint32_t address)
{
    for (const int shift : {24, 16, 8, 0})
        *place++ = static_cast<uint8_t>(address >> shift);
}

Prefix prefix_to(uint8_t np)
{
    Prefix prefix = prefix_template;
    prefix[INJECTED_PREFIX_NP] = np;
    return prefix;
}

// Kept: the field holds the low 16 bits of a length that is longer.
NpHeader np_header(std::span<const FixedByte> fixed, uint32_t length)
{
    NpHeader header = {};
    for (const FixedByte &byte : fixed)
        header[byte.offset] = byte.value;
    header[INJECTED_NP_LENGTH] = low_byte(length);
    header[INJECTED_NP_LENGTH + 1] = high_byte(length);
    return header;
}

Ipv4Header ipv4_header(uint32_t source, uint32_t destination)
{
    Ipv4Header header = ipv4_template;
    put_address(&header[ipv4_source], source);
    put_address(&header[ipv4_destination], destination);
    return header;
}

UdpHeader udp_header(uint32_t payload_length)
{
    const uint32_t length = payload_length + INJECTED_UDP_BYTES;
    return {
        high_byte(INJECTED_SOURCE_PORT),
        low_byte(INJECTED_SOURCE_PORT),
        high_byte(INJECTED_DESTINATION_PORT),
        low_byte(INJECTED_DESTINATION_PORT),
        high_byte(length),
        low_byte(length),
        0x00, // no checksum
        0x00,
    };
}

template <size_t Size>
gather_piece piece(const std::array<uint8_t, Size> &part)
{
    return {part.data(), Size};
}

// ---- where it goes -----------------------------------------------------------------------------

constexpr uint32_t flag_card_types[] = {CARD_TYPE_NP_BY_DIRECTION_1, CARD_TYPE_NP_BY_DIRECTION_2};
constexpr uint32_t mapped_card_types[] = {CARD_TYPE_NP_BY_DIRECTION_1, CARD_TYPE_NP_BY_DIRECTION_2,
                                          CARD_TYPE_NP_BY_DIRECTION_3, CARD_TYPE_NP_BY_DIRECTION_4};

void *client = nullptr;
uint32_t np_by_direction = 0; // of IP packets, by the card's type at the last registration

bool is_among(std::span<const uint32_t> card_types, uint32_t card_type)
{
    return std::find(card_types.begin(), card_types.end(), card_type) != card_types.end();
}

// Kept: packets to a service line card ask by the card's type, of which there are four; IP packets
// by the flag, which two of them set.
uint8_t np_of_service_packet()
{
    uint8_t np = 0;
    if (is_among(mapped_card_types, platform_get_my_card_type()) &&
        plm_pkt_dir_to_np_map(PLM_DIRECTION_WORD, PLM_DIRECTION_INJECT, &np) != 0)
        inline_svc_trace_error("Error getting np_num for inject");
    return np; // Kept: as it stands also when the map failed
}

uint8_t np_of_ip_packet()
{
    uint8_t np = 0;
    if (np_by_direction == 1)
        plm_pkt_dir_to_np_map(PLM_DIRECTION_WORD, PLM_DIRECTION_INJECT, &np);
    return np;
}

struct Outcome {
    uint32_t rc;
    uint32_t retcode;

    // Kept: a frame that waits in a full queue counts as sent.
    bool is_sent() const
    {
        return retcode == SPP_RETCODE_SENT || retcode == SPP_RETCODE_QUEUE_FULL;
    }
};

Outcome send(uint32_t port, std::span<gather_piece> pieces)
{
    uint32_t retcode = SPP_RETCODE_SENT;
    const uint32_t rc =
        spp_prep_bfd_pkt_and_xmt(client, port, pieces.data(), static_cast<uint32_t>(pieces.size()),
                                 SPP_SEND_WORD_1, &retcode, SPP_SEND_WORD_2);
    return {rc, retcode};
}

void log_service_packet(Outcome sent)
{
    static constexpr char failed[] = "spp_prep_bfd_pkt_and_xmt returned non-zero rc %d, retcode %d";
    static constexpr char refused[] = "spp_prep_bfd_pkt_and_xmt returned non-zero retcode %d ";
    const auto [rc, retcode] = sent;
    if (rc != 0)
        inline_svc_trace_error(failed, rc, retcode);
    else if (!sent.is_sent())
        inline_svc_trace_error(refused, retcode);
    else
        inline_svc_trace("spp_prep_bfd_pkt_and_xmt returned OK %d", retcode);
}

void log_ip_packet(Outcome sent)
{
    const auto [rc, retcode] = sent;
    if (rc != 0)
        inline_svc_trace_error("send failure rc %d retcode %d", rc, retcode);
    else if (!sent.is_sent())
        inline_svc_trace_error("pkt not sent retcode %d\n", retcode);
    else
        inline_svc_trace("pkt sent\n");
}

} // namespace

void *plm_inline_spp_client_register(spp_client_params params)
{
    np_by_direction = is_among(flag_card_types, platform_get_my_card_type()) ? 1 : 0;
    if (client != nullptr)
        return client;
    const uint32_t rc = spp_client_init_v2(&client, params);
    if (rc != 0) {
        inline_svc_trace_error("spp_client_init_v2 failed: rc = %d", rc);
        client = nullptr; // whatever the packet path left there
    }
    return client;
}

void plm_inline_send_packet_to_service_lc(uint32_t tag, uint32_t src_ip, uint32_t dst_ip,
                                          const void *payload, uint32_t length)
{
    if (client == nullptr) {
        inline_svc_trace_error(" spp_handle is NULL");
        return;
    }
    if (payload == nullptr) {
        refuse_null("payload");
        return;
    }
    const uint32_t tag_word = INJECTED_SERVICE_TAG_FLAG | (tag & INJECTED_SERVICE_TAG_MASK);
    NpHeader header = np_header(udp_np_header, length);
    header[INJECTED_NP_SERVICE_TAG] = high_byte(tag_word);
    header[INJECTED_NP_SERVICE_TAG + 1] = low_byte(tag_word);
    const uint8_t np = np_of_service_packet();
    const Prefix prefix = prefix_to(np);
    const Ipv4Header ipv4 = ipv4_header(src_ip, dst_ip);
    const UdpHeader udp = udp_header(length);
    gather_piece pieces[] = {
        piece(prefix), piece(header), piece(ipv4), piece(udp), {payload, length}};
    const uint32_t port = plm_np_to_cpu_port_map(np);
    if (port == PLM_NO_CPU_PORT) {
        inline_svc_trace_error("Error getting tsec port");
        return;
    }
    log_service_packet(send(port, pieces));
}

void plm_inline_send_ip_packet(uint16_t tag, const void *packet, uint32_t length)
{
    if (packet == nullptr) {
        refuse_null("packet");
        return;
    }
    NpHeader header = np_header(ip_np_header, length);
    header[INJECTED_NP_IP_TAG] = low_byte(tag);
    header[INJECTED_NP_IP_TAG + 1] = high_byte(tag);
    const uint8_t np = np_of_ip_packet();
    const Prefix prefix = prefix_to(np);
    gather_piece pieces[] = {piece(prefix), piece(header), {packet, length}};
    const uint32_t port = plm_np_to_cpu_port_map(np);
    if (port == PLM_NO_CPU_PORT) {
        inline_svc_trace_error("Error getting tsec port");
        return;
    }
    log_ip_packet(send(port, pieces));
}

// ---- utility messages --------------------------------------------------------------------------

void *inline_register_inutil_callback(uint32_t kind, inutil_handler_fn handler)
{
    if (kind < INUTIL_KINDS)
        inutil_handler[kind] = handler;
    else
        inline_svc_trace_error("no utility messages of kind %u", kind);
    return inutil_handler;
}

int plm_inline_process_util_msg(const void *msg)
{
    static constexpr char path[] = "/tmp/inutil_result.txt";
    if (msg == nullptr)
        return static_cast<int>(refuse_null("msg"));
    const int descriptor = open_regular_file(path, FileBegin::empty);
    FILE *result = descriptor >= 0 ? fdopen(descriptor, "w") : nullptr;
    if (result == nullptr) {
        if (descriptor >= 0)
            close(descriptor);
        inline_svc_trace_error("failed to open %s", path);
        return -1;
    }
    uint32_t kind;
    memcpy(&kind, msg, sizeof kind); // senders align as they like
    if (kind < INUTIL_KINDS && inutil_handler[kind] != nullptr)
        inutil_handler[kind](msg, result, kind);
    return fclose(result);
}
