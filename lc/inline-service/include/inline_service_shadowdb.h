/* The shadow DB: the record, in shared memory, of every entry that services had programmed.
 *
 * These records are read again by a restarted host and by other processes of the card, so their
 * layout never changes. Pointers are addresses inside the window, which lies at the same place in
 * every process. */
#ifndef INLINE_SERVICE_SHADOWDB_H
#define INLINE_SERVICE_SHADOWDB_H

#include <stdint.h>

#include "platform_list.h"
#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct action_array;
struct app_node;
struct in_hash_table;
struct main_entry;
struct shadow_db;
struct shmem_node;
struct uidb_attribute;

enum {
    SHADOW_DB_MAX_NPS = 8,
    SHADOW_DB_MAIN_SLOTS = 1280,
    SHADOW_DB_KEYS = 1024, /* keys from here on have slots, but lookups refuse them */
    SHADOW_DB_TABLES = 2,
    SHADOW_DB_INFRA_SLOTS = 6,
    SHADOW_DB_KEY_BYTES = 48,
    SHADOW_DB_RESULT_BYTES = 64
};

/* app_node.table_type */
enum { SHADOW_DB_SERVICE_CONFIG = 0, SHADOW_DB_EXT_CONF = 1 };
/* app_node.action */
enum { SHADOW_DB_CREATE = 1, SHADOW_DB_MODIFY = 2, SHADOW_DB_DELETE = 3 };
/* app_node.hw_index of an entry without counters in the service config table */
#define SHADOW_DB_NO_HW_INDEX UINT32_C(0xFFFFFFFF)
/* app_node.entry_id of an entry that statistics leave out */
#define SHADOW_DB_NO_ENTRY_ID UINT32_C(0xFFFFFFFF)
/* result of inline_shadow_db_appid_to_key for what has no key */
#define SHADOW_DB_NO_KEY UINT32_C(0xFFFFFFFF)
/* flag in prm_state and in conn_state */
enum { SHADOW_DB_READY = 4, SHADOW_DB_CONN_BITS = 7 };

/* The root. */
typedef struct shadow_db {
    uint8_t reserved_0[16];
    uint32_t initialized; /* set by the host after the first initialisation; keeps main_table */
    uint16_t prm_state;   /* SHADOW_DB_READY: manager connection open */
    uint16_t conn_state;  /* SHADOW_DB_READY: connection up and registered */
    uint32_t stats_state; /* set to 1 by the host after the first registration; keeps counters */
    uint32_t padding_28;
    uint32_t *counters[SHADOW_DB_MAX_NPS]; /* per NP the bitmap of counters in use */
    void *prm_srh_hdl;
    struct uidb_attribute *uidb_attr_table;
    uint8_t reserved_112[16];
    uint32_t infra_ip[SHADOW_DB_INFRA_SLOTS];
    uint32_t infra_value[SHADOW_DB_INFRA_SLOTS];
    uint16_t infra_slot_key[SHADOW_DB_INFRA_SLOTS];
    uint32_t padding_188;
    struct main_entry **main_table; /* SHADOW_DB_MAIN_SLOTS pointers */
    struct in_hash_table *flow_db;
    void *vservice_db;
} shadow_db;

/* What is programmed for one key. */
typedef struct main_entry {
    uint16_t uidb_index; /* the key */
    uint16_t padding_2;
    uint32_t entry_version; /* app_param of the last request that left the entry non-empty */
    uint16_t entry_tag;
    uint16_t stat_round; /* statistics passes completed, modulo 65536 */
    uint32_t timestamp;  /* 1 after a request that left the entry non-empty; no clock */
    uint32_t app_ID;
    uint32_t num_elements[SHADOW_DB_TABLES];
    uint32_t padding_28;
    list_record table_array[SHADOW_DB_TABLES]; /* of shmem_node */
} main_entry;

/* An entry as its service gave it. */
typedef struct app_node {
    uint8_t key[SHADOW_DB_KEY_BYTES];
    uint32_t key_len;
    uint8_t result[SHADOW_DB_RESULT_BYTES];
    uint32_t result_len;
    uint32_t hw_index;
    uint32_t entry_id;
    uint32_t table_type;
    uint32_t action;
    struct shmem_node *shmem_node; /* in a request: the node meant; in a stored node: itself */
} app_node;

/* A request: one element of a batch, and the first 176 bytes of a node. */
typedef struct app_node_element {
    list_link link;
    struct app_node app_node;
} app_node_element;

/* An entry as it is stored. */
typedef struct shmem_node {
    list_link link;
    struct app_node app_node;
    uint32_t stat_index_rx[SHADOW_DB_MAX_NPS];
    uint32_t stat_index_drop[SHADOW_DB_MAX_NPS];
    uint64_t reserved_240;
} shmem_node;

/* ---- shared memory ------------------------------------------------------------------------- */

/* Takes `size` bytes of the window, zero-filled. Returns null after a log line when there is no
 * context or the window refuses; one line in either case. */
void *inline_svc_shared_mem_alloc(int32_t size);

/* Gives a block back. Returns the window's code; logs nothing. */
uint32_t inline_svc_shared_mem_free(void *block);

/* Throws away every block of the window. Returns the window's code; 12 without a context. */
uint32_t inline_svc_shared_mem_reset(void);

/* ---- initialisation and keys --------------------------------------------------------------- */

/* Registers the library with the event-debug facility, passing the four words on, and makes the
 * main table unless the root says that it exists. Ends the process when no root is set.
 * Returns 0; the window's code when the table could not be allocated; 12 without a context. */
uint32_t inline_svc_shadow_db_initialized(uint64_t arg1, uint64_t arg2, uint64_t arg3,
                                          uint64_t arg4);

/* The key of application type 1 to 5 and an index below 256: (app_type - 1) << 8 | index.
 * Returns 0xFFFFFFFF for another type or an index with any of the bits 0xFF00. */
uint32_t inline_shadow_db_appid_to_key(int32_t app_type, uint32_t index);

/* The application type, and the index, of a key; 0 for a key with any of the bits 0xFC00. */
uint32_t inline_shadow_db_key_to_apptype(uint32_t key);
uint32_t inline_shadow_db_key_to_appid(uint32_t key);

/* ---- node lists ---------------------------------------------------------------------------- */

/* Makes the list. Returns 0; 12 when the platform could not; 22 for null. */
uint32_t inline_svc_list_create(list_record *list);

/* Appends the node, through the list's own operation where it has one. Returns 0; 12 when the
 * enqueue failed; 22 for null. */
uint32_t inline_svc_list_insert(list_record *list, shmem_node *node);

/* Takes the node off the list. Returns 0 whatever the platform says; 22 for null. */
uint32_t inline_svc_list_delete(list_record *list, shmem_node *node);

/* Ends the list. Returns 0 whatever the platform says; 22 for null. */
uint32_t inline_svc_list_destroy(list_record *list);

/* 1 when the node carries the entry id, else 0; 0 for null. */
uint32_t inline_shadow_db_compare_node_entry_id(const shmem_node *node, uint32_t entry_id);

/* ---- queries: none changes anything; what is absent is null after a log line ---------------- */

/* The entry stored under the low 16 bits of `key`; null for a key of 1024 and more. Ends the
 * process when no root is set. */
main_entry *inline_svc_shadow_db_query_main(uint32_t key);

/* The first node, table 0 before table 1, whose key and result equal the given bytes as strings:
 * the comparison stops at a zero byte common to both sides, and a length of 0 matches any node. */
shmem_node *inline_shadow_db_query_node(main_entry *main, const void *key, uint32_t key_len,
                                        const void *result, uint32_t result_len);

/* The first node, table 0 before table 1, with the entry id. */
shmem_node *inline_shadow_db_query_entry_id(main_entry *main, uint32_t entry_id);

/* ---- changes ------------------------------------------------------------------------------- */

/* Applies a batch's elements in order and stops at the first that fails; those before it stay
 * applied. A batch with num_node 0 frees the main entry.
 * Returns 0; 12 for no memory or a failed list operation; 22 for a null batch, a key of 1024 and
 * more, an element without data, an unknown action or a table_type above 1, and a modify or delete
 * whose node is not a live one of its table; any other value is the hardware's.
 * Ends the process when no root is set, and on a modify or delete without a node. */
uint32_t inline_shadow_db_insert_main(struct action_array *batch);

/* Deletes every node of the batch's key from hardware and shadow, table 0 first, then frees the
 * main entry. Returns 0, also for null and for a key that holds nothing; otherwise the code of the
 * first delete that failed, with that node off its list and everything after it left in place. */
uint32_t inline_shadow_db_clear_main(struct action_array *batch);

/* ---- prints, into the log ------------------------------------------------------------------ */

/* One line a field. Return 0; 22 for null. */
uint32_t inline_svc_shadow_db_print_node(const shmem_node *node);
uint32_t inline_svc_shadow_db_print_main_entry(const main_entry *main_entry);

/* All 1280 slots with their nodes. Returns 0; 22, without the closing line, when a link carries no
 * node. Ends the process when no root is set. */
uint32_t inline_svc_shadow_db_dump(void);

RECORD_SIZE(shadow_db, 216);
RECORD_FIELD(shadow_db, reserved_0, 0);
RECORD_FIELD(shadow_db, initialized, 16);
RECORD_FIELD(shadow_db, prm_state, 20);
RECORD_FIELD(shadow_db, conn_state, 22);
RECORD_FIELD(shadow_db, stats_state, 24);
RECORD_FIELD(shadow_db, padding_28, 28);
RECORD_FIELD(shadow_db, counters, 32);
RECORD_FIELD(shadow_db, prm_srh_hdl, 96);
RECORD_FIELD(shadow_db, uidb_attr_table, 104);
RECORD_FIELD(shadow_db, reserved_112, 112);
RECORD_FIELD(shadow_db, infra_ip, 128);
RECORD_FIELD(shadow_db, infra_value, 152);
RECORD_FIELD(shadow_db, infra_slot_key, 176);
RECORD_FIELD(shadow_db, padding_188, 188);
RECORD_FIELD(shadow_db, main_table, 192);
RECORD_FIELD(shadow_db, flow_db, 200);
RECORD_FIELD(shadow_db, vservice_db, 208);

RECORD_SIZE(main_entry, 576);
RECORD_FIELD(main_entry, uidb_index, 0);
RECORD_FIELD(main_entry, padding_2, 2);
RECORD_FIELD(main_entry, entry_version, 4);
RECORD_FIELD(main_entry, entry_tag, 8);
RECORD_FIELD(main_entry, stat_round, 10);
RECORD_FIELD(main_entry, timestamp, 12);
RECORD_FIELD(main_entry, app_ID, 16);
RECORD_FIELD(main_entry, num_elements, 20);
RECORD_FIELD(main_entry, padding_28, 28);
RECORD_FIELD(main_entry, table_array, 32);

RECORD_SIZE(app_node, 144);
RECORD_FIELD(app_node, key, 0);
RECORD_FIELD(app_node, key_len, 48);
RECORD_FIELD(app_node, result, 52);
RECORD_FIELD(app_node, result_len, 116);
RECORD_FIELD(app_node, hw_index, 120);
RECORD_FIELD(app_node, entry_id, 124);
RECORD_FIELD(app_node, table_type, 128);
RECORD_FIELD(app_node, action, 132);
RECORD_FIELD(app_node, shmem_node, 136);

RECORD_SIZE(app_node_element, 176);
RECORD_FIELD(app_node_element, link, 0);
RECORD_FIELD(app_node_element, app_node, 32);

RECORD_SIZE(shmem_node, 248);
RECORD_FIELD(shmem_node, link, 0);
RECORD_FIELD(shmem_node, app_node, 32);
RECORD_FIELD(shmem_node, stat_index_rx, 176);
RECORD_FIELD(shmem_node, stat_index_drop, 208);
RECORD_FIELD(shmem_node, reserved_240, 240);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
