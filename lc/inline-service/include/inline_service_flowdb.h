/* Flows: exact-match entries of the NPs' flow table, kept in shared memory by a 64-bit key.
 *
 * Two layers. flowdb_* is the store of any owner of a flow table; dpss_flow_* are the entry points
 * of the flow service, which uses the one table that the root holds. Every change goes to the NPs
 * first. Keys, results and user data are byte strings that the service's encoders write and read
 * (platform_flow.h). The table's hash and match functions look at `flow_key`.
 *
 * A record belongs to the caller from flowdb_alloc until flowdb_add succeeds, then to the table
 * until flowdb_delete, and to the caller again after it. */
#ifndef INLINE_SERVICE_FLOWDB_H
#define INLINE_SERVICE_FLOWDB_H

#include <stdint.h>

#include "inline_service_hash.h"
#include "inline_service_shadowdb.h"
#include "platform_prm.h"
#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum { FLOW_KEY_BYTES = 32, FLOW_RESULT_BYTES = 36, FLOW_USER_DATA_BYTES = 131 };
enum { FLOW_RESULT_LENGTH = 32 };
/* Flags of a record. */
enum { FLOW_HAS_STATS = 1, FLOW_ON_ALL_NPS = 2 };
enum { FLOW_STATE_BUILT = 1 };
#define FLOW_ALL_NPS UINT32_C(0xFFFFFFFF)

/* What is done with a flow on its NPs. */
enum { FLOW_ADD = 1, FLOW_MODIFY = 2, FLOW_DELETE = 3 };

/* The walker's settings of the flow service, in the unit of time of its timer. */
enum { FLOW_SCAN_PERIOD = 300, FLOW_SCAN_BATCH = 20 };

typedef struct flow_record {
    struct flow_record *next;
    uint64_t flow_key;
    uint32_t reserved_16;
    uint32_t state;
    uint8_t key[FLOW_KEY_BYTES];
    uint8_t key_len;
    uint8_t result[FLOW_RESULT_BYTES];
    uint8_t result_len;
    uint8_t reserved_94[6];
    uint32_t flags;
    uint8_t np; /* the flow's only one, unless it is on all */
    uint8_t user_data[FLOW_USER_DATA_BYTES];
    uint32_t counter[SHADOW_DB_MAX_NPS];      /* 0: none */
    uint32_t drop_counter[SHADOW_DB_MAX_NPS]; /* of a flow with a policer: counter + 1 */
    uint32_t reserved_300;
} flow_record;

/* ---- the store ------------------------------------------------------------------------------ */

/* Takes a table of num_buckets chains from the window. Returns it; null when the window has no room
 * or the size does not fit in 31 bits. */
in_hash_table *flowdb_init(uint32_t num_buckets, in_hash_fn hash, in_hash_match_fn match);

/* Those of the hash table. */
uint32_t flowdb_set_scan_callback(in_hash_table *table, in_hash_scan_fn callback, uint32_t period,
                                  uint32_t batch);
uint32_t flowdb_read_all(in_hash_table *table, in_hash_read_fn callback, uint32_t batch);

/* A zeroed record from the window; null when there is no room. */
flow_record *flowdb_alloc(void);
/* Gives a record back that is in no table. Returns the window's code. */
uint32_t flowdb_free(flow_record *record);

/* The flow with the key; null without one or without a table. */
flow_record *flowdb_lookup(in_hash_table *table, uint64_t flow_key);

/* Programs the flow into its NPs, with two counters each when `policer` is 1, and enters it into
 * the table. Does not look for another flow with the key. Returns 0; 22 without table or record,
 * and for a record whose hash is outside the table, with nothing programmed; otherwise the code of
 * inline_flow_db_update_prm, with the table unchanged. */
uint32_t flowdb_add(in_hash_table *table, flow_record *record, uint32_t policer);

/* Programs the record's present result into its NPs. Returns inline_flow_db_update_prm's code. */
uint32_t flowdb_modify(in_hash_table *table, flow_record *record);

/* Takes the flow off its NPs, gives its counters back and unlinks it, whatever PRM says; the record
 * is not freed. Returns inline_flow_db_update_prm's code; 22 without table or record. */
uint32_t flowdb_delete(in_hash_table *table, flow_record *record);

/* inline_flow_read_stats. */
uint32_t flowdb_read_stats(flow_record *record, uint64_t *first, uint64_t *second, uint32_t flag);

/* ---- the flow service's entry points --------------------------------------------------------- */

/* The table that the root holds; null without one. */
in_hash_table *dpss_flow_get_db_handle(void);

/* Opens the encoder, to which the arguments go unread, and takes the root's table over: the
 * operations below are on that one from now on. Its walker calls dpss_flow_scan_callback. Returns
 * 0, also when the root holds no table; a line is logged then. */
uint32_t dpss_flow_table_init(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4);

/* Adds a flow, to every NP or to the one of the low 8 bits of `np`; an existing one is not
 * modified. Returns 0; 17 when there is a flow with the key, with nothing programmed or logged; 12
 * without room in the window; 22 for an encoded key above 32 bytes and without a table; otherwise
 * the code of inline_flow_db_update_prm. After any of them the store is as before; NPs that were
 * programmed before one that failed keep the flow. */
uint32_t dpss_flow_add_modify(uint64_t flow_key, uint32_t np, uint32_t with_stats, void *flow_info);

/* Has dpss_fill_flow_info_from_db fill *out. Returns 0; 2 without such a flow, with *out untouched;
 * 22 when `out` is null and there is one. */
uint32_t dpss_flow_lookup(uint64_t flow_key, void *out);

/* Deletes a flow and frees its record. Returns 0, also when there is none; otherwise the code of
 * inline_flow_db_update_prm, with the flow gone from the store all the same. */
uint32_t dpss_flow_delete(uint64_t flow_key);

/* The same, with the flow's last statistics in *first and *second; both 0 without such a flow.
 * Returns 22 for a null output, with nothing changed. */
uint32_t dpss_flow_delete_with_stats_read(uint64_t flow_key, uint64_t *first, uint64_t *second);

/* ---- flows on the NPs ------------------------------------------------------------------------ */

/* Adds, modifies or deletes a flow on each of its NPs, ascending.
 * add: takes one dynamic counter an NP, or two in a row when `policer` is 1, for a flow with
 * statistics. delete: gives them back. Returns the code of the last NP's request (of a delete: that
 * of giving its counter back); 22 for another action, no NPs, an NP without a statistics table, a
 * null record, lengths that the record has no room for, no context, and an add with statistics on
 * an NP from 8 on; 12 when PRM has no counter. Nothing is undone. */
uint32_t inline_flow_db_update_prm(uint32_t action, flow_record *record, uint32_t policer);

/* The same with two counters of the counter pool for each flow with statistics; a delete gives back
 * those that are not 0 and sets them to 0. Returns the code of the last call made. */
uint32_t inline_flow_update_prm(uint32_t action, flow_record *record);

/* Sums the flow's first counters over its NPs: packets in *first, bytes in *second. A read that
 * fails counts as 0. `flag` 0 reads with option 1, any other with option 0.
 * Returns 0; 22 for a null argument. Without statistics both are 0. */
uint32_t inline_flow_read_stats(flow_record *record, uint64_t *first, uint64_t *second,
                                int32_t flag);

/* Makes the request record, of which np and refnum stay 0. Lengths that the record has no room for
 * are refused with a log line, and the entry is left as it is. */
void inline_flow_make_prm_entry(const flow_record *record, prm_config_record *entry);

RECORD_SIZE(flow_record, 304);
RECORD_FIELD(flow_record, next, 0);
RECORD_FIELD(flow_record, flow_key, 8);
RECORD_FIELD(flow_record, reserved_16, 16);
RECORD_FIELD(flow_record, state, 20);
RECORD_FIELD(flow_record, key, 24);
RECORD_FIELD(flow_record, key_len, 56);
RECORD_FIELD(flow_record, result, 57);
RECORD_FIELD(flow_record, result_len, 93);
RECORD_FIELD(flow_record, reserved_94, 94);
RECORD_FIELD(flow_record, flags, 100);
RECORD_FIELD(flow_record, np, 104);
RECORD_FIELD(flow_record, user_data, 105);
RECORD_FIELD(flow_record, counter, 236);
RECORD_FIELD(flow_record, drop_counter, 268);
RECORD_FIELD(flow_record, reserved_300, 300);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
