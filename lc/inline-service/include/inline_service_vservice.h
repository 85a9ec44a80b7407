/* Virtual services: UDP-encapsulated endpoints by a small index, configured by messages.
 *
 * The last configuration of each index is kept in a table in the window, which the host makes with
 * vservice_table_init() and stores in the root. Each service that was added owns one entry of the
 * service config table, entry id 0, under application type 4 and its index. */
#ifndef INLINE_SERVICE_VSERVICE_H
#define INLINE_SERVICE_VSERVICE_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum { VSERVICES = 256, VSERVICE_APP_TYPE = 4 };

enum { VSERVICE_ADD = 1, VSERVICE_DELETE = 2, VSERVICE_DELETE_ALL = 3 };
/* The encapsulations that are supported; the destination of the second is this host. */
enum { VSERVICE_ENCAP_UDP = 1, VSERVICE_ENCAP_UDP_LOCAL = 4 };

/* The configuration of one service. Numbers in host byte order; what has no name is kept and not
 * interpreted. */
typedef struct vservice_config {
    uint32_t vs_index;
    uint8_t unread_4[44];
    uint32_t encap;
    uint32_t user; /* 1, 2 and 4 are known kinds */
    uint8_t unread_56[12];
    uint32_t src_ip;
    uint8_t unread_72[16];
    uint32_t dst_ip;
    uint8_t unread_92[12];
    uint16_t sport;
    uint16_t dport;
    uint8_t unread_108[996];
} vservice_config;

/* The head of a message. Behind it lie `count` items: of an add vservice_config records, of a
 * delete indices of 32 bits; a count below 1 means none. */
typedef struct vservice_message {
    uint32_t unread_0;
    uint32_t unread_4;
    int32_t type;
    int32_t count;
} vservice_message;

/* Opens the platform's encoder, to which the arguments go unread, and takes the table over from the
 * root. Returns the table, or null when there is none. */
void *plm_vservice_init(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4);

/* Makes the table, all zero. Returns it, or null after the allocation's log line. */
void *vservice_table_init(void);

/* The table that the root holds; null without one. */
void *vservice_get_db_handle(void);

/* The record of an index in the table of plm_vservice_init; null from 256 on and without a table.
 */
void *plm_vservice_get_common_data(uint32_t index);

/* Handles one message, which holds all its items. Items that are invalid or unsupported are logged
 * and skipped; what cannot be programmed goes to the platform error log. */
void plm_vservice_msg_handler(const void *msg);

RECORD_SIZE(vservice_config, 1104);
RECORD_FIELD(vservice_config, vs_index, 0);
RECORD_FIELD(vservice_config, unread_4, 4);
RECORD_FIELD(vservice_config, encap, 48);
RECORD_FIELD(vservice_config, user, 52);
RECORD_FIELD(vservice_config, unread_56, 56);
RECORD_FIELD(vservice_config, src_ip, 68);
RECORD_FIELD(vservice_config, unread_72, 72);
RECORD_FIELD(vservice_config, dst_ip, 88);
RECORD_FIELD(vservice_config, unread_92, 92);
RECORD_FIELD(vservice_config, sport, 104);
RECORD_FIELD(vservice_config, dport, 106);
RECORD_FIELD(vservice_config, unread_108, 108);

RECORD_SIZE(vservice_message, 16);
RECORD_FIELD(vservice_message, unread_0, 0);
RECORD_FIELD(vservice_message, unread_4, 4);
RECORD_FIELD(vservice_message, type, 8);
RECORD_FIELD(vservice_message, count, 12);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
