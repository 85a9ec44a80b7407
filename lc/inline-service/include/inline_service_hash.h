/* A chained hash table in shared memory.
 *
 * The table is intrusive: entries are the owner's, and the table reads and writes only their first
 * field, the pointer to the next entry of the chain. It allocates, copies and frees nothing. A key
 * record is laid out like an entry, with its key filled in.
 *
 * The table's block is zeroed shared memory of 56 + 8 * num_buckets bytes: this header, and behind
 * it the head of each chain. It survives the process, its three functions do not: a restarted owner
 * calls in_hash_init, and in_hash_set_scan_callback, on the surviving block.
 *
 * A hash outside 0 to num_buckets - 1 is no entry's: nothing is found under it, nothing inserted.
 */
#ifndef INLINE_SERVICE_HASH_H
#define INLINE_SERVICE_HASH_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

enum { IN_HASH_BATCH_MAX = 256, IN_HASH_SCAN_INTERVAL = 20 };

/* The bucket of an entry or key record. */
typedef int32_t (*in_hash_fn)(const void *entry_or_key_record);
/* 1 when the entry has the key of the key record. */
typedef int32_t (*in_hash_match_fn)(const void *entry, const void *key_record);
/* Gets entries from the periodic walker. It must not unlink or free entries of the table. */
typedef void (*in_hash_scan_fn)(void **entries, uint32_t count);
/* Gets entries from in_hash_read_all; `last` is 1 on the final call alone. */
typedef uint32_t (*in_hash_read_fn)(void **entries, uint32_t count, uint32_t last);

typedef struct in_hash_table {
    uint32_t num_buckets;
    uint32_t padding_4;
    in_hash_fn hash;
    in_hash_match_fn match;
    in_hash_scan_fn scan_callback;
    uint32_t scan_period;   /* in which the walker is to cover the table; 0: it does nothing */
    uint32_t scan_batch;    /* entries for one scan callback */
    uint32_t scan_interval; /* between two calls of the walker, in the owner's unit of time */
    uint32_t scan_cursor;   /* the bucket that the walker visits next */
    uint32_t count;
    uint32_t padding_52;
} in_hash_table;

/* Stores the number of buckets and the two functions, and sets the walker's cursor to 0. Chains,
 * count and the walker's settings stay as they are.
 * Returns `mem`; null when that is null. */
in_hash_table *in_hash_init(uint32_t num_buckets, in_hash_table *mem, in_hash_fn hash,
                            in_hash_match_fn match);

/* Stores the walker's callback, its period and its batch; a batch of 0 or above 256 counts as 256.
 * Returns 256, the largest batch; 22 without a table. */
uint32_t in_hash_set_scan_callback(in_hash_table *table, in_hash_scan_fn callback, uint32_t period,
                                   uint32_t batch);

/* Returns the newest entry with the key; null when there is none. */
void *in_hash_lookup(in_hash_table *table, const void *key_record);

/* Links the entry in as the first of its chain. Does not look for another one with its key. */
void in_hash_insert(in_hash_table *table, void *entry);

/* Unlinks the newest entry with the key, which is not freed. Without one nothing changes. */
void in_hash_delete(in_hash_table *table, const void *entry_or_key_record);

/* Hands the next slice of the table to the scan callback: at least 256 entries and whole chains.
 * Meant to be called every scan_interval. When one call sees the whole table, the next ones do
 * nothing until the period is over. Process-wide, tables share that pause and the buffer. */
void in_hash_periodic_walker(in_hash_table *table);

/* Hands every entry to the callback, bucket by bucket, `batch` at a time; a batch of 0 or above 256
 * counts as 256. The final call holds what remains, also when that is nothing.
 * Returns what the final call returns; 22 without a table or callback. */
uint32_t in_hash_read_all(in_hash_table *table, in_hash_read_fn callback, uint32_t batch);

RECORD_SIZE(in_hash_table, 56);
RECORD_FIELD(in_hash_table, num_buckets, 0);
RECORD_FIELD(in_hash_table, padding_4, 4);
RECORD_FIELD(in_hash_table, hash, 8);
RECORD_FIELD(in_hash_table, match, 16);
RECORD_FIELD(in_hash_table, scan_callback, 24);
RECORD_FIELD(in_hash_table, scan_period, 32);
RECORD_FIELD(in_hash_table, scan_batch, 36);
RECORD_FIELD(in_hash_table, scan_interval, 40);
RECORD_FIELD(in_hash_table, scan_cursor, 44);
RECORD_FIELD(in_hash_table, count, 48);
RECORD_FIELD(in_hash_table, padding_52, 52);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
