/* Packets out: injection into an NP through the platform's packet path. Utility messages in: one
 * handler for each kind of message, which answers into a file.
 *
 * A frame that is injected begins with a prefix (an Ethernet header with an 802.1Q tag) and the
 * NP's own header. Behind them lies either an IPv4 and a UDP header with the caller's payload, or
 * the caller's IP packet as it is. */
#ifndef INLINE_SERVICE_PACKET_H
#define INLINE_SERVICE_PACKET_H

#include <stdint.h>
#include <stdio.h>

#include "platform_packet_path.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The frame's parts, in their order. */
enum {
    INJECTED_PREFIX_BYTES = 16,
    INJECTED_NP_HEADER_BYTES = 56,
    INJECTED_IPV4_BYTES = 20, /* this and the next of a packet to a service line card alone */
    INJECTED_UDP_BYTES = 8
};

/* Places in the prefix. */
enum { INJECTED_PREFIX_NP = 5, INJECTED_PREFIX_SOURCE = 6, INJECTED_PREFIX_VLAN_TAG = 12 };

/* Places in the NP's header. Its first two bytes carry the tag of a packet to a service line card,
 * most significant byte first; the length and the tag of an IP packet are in host byte order. The
 * bytes without a name here are fixed values for the NP. */
enum {
    INJECTED_NP_SERVICE_TAG = 0,
    INJECTED_NP_LENGTH = 39,
    INJECTED_NP_IP_TAG = 41,
    INJECTED_SERVICE_TAG_MASK = 0x0FFF,
    INJECTED_SERVICE_TAG_FLAG = 0x8000
};

/* The UDP ports of a packet to a service line card. */
enum { INJECTED_SOURCE_PORT = 5555, INJECTED_DESTINATION_PORT = 4100 };

/* Registers this process with the packet path, once, and notes the card's type. Returns the
 * client's handle; null, after a log line, when the packet path gives none. */
void *plm_inline_spp_client_register(spp_client_params params);

/* Sends a payload towards a service line card, in UDP and IPv4; the addresses are in host byte
 * order. Of the tag 12 bits go into the frame. What becomes of it is in the log alone. */
void plm_inline_send_packet_to_service_lc(uint32_t tag, uint32_t src_ip, uint32_t dst_ip,
                                          const void *payload, uint32_t length);

/* Sends a whole IP packet. What becomes of it is in the log alone. Without a registered client the
 * packet path gets the null handle, and refuses it. */
void plm_inline_send_ip_packet(uint16_t tag, const void *packet, uint32_t length);

enum { INUTIL_KINDS = 3 };

/* Answers a message into the file, which is open and empty, and is closed behind the call. Its
 * result is not looked at. */
typedef uint32_t (*inutil_handler_fn)(const void *msg, FILE *result, uint32_t kind);

/* The handlers by kind of message; null for none. */
extern inutil_handler_fn inutil_handler[INUTIL_KINDS];

/* Sets the handler of a kind; null takes it away. A kind that there is not is logged and changes
 * nothing. Returns the table in each case. */
void *inline_register_inutil_callback(uint32_t kind, inutil_handler_fn handler);

/* Empties /tmp/inutil_result.txt and has the handler of the message's kind, which is its first
 * 32-bit word, write its answer there. Returns what closing the file gave, 0 when all is written;
 * -1 when the file cannot be opened, with no handler called; 22 for a null message. */
int plm_inline_process_util_msg(const void *msg);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
