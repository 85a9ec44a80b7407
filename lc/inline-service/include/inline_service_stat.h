/* Packet counters: which are in use on each NP, and what they have counted. */
#ifndef INLINE_SERVICE_STAT_H
#define INLINE_SERVICE_STAT_H

#include <stdint.h>

#include "inline_service_shadowdb.h"
#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Sums over NPs, modulo 2^32. */
typedef struct stats_sum {
    uint32_t first;  /* packets */
    uint32_t second; /* bytes */
} stats_sum;

/* Makes the bitmaps, one per NP, unless the root's stats_state is 1.
 * Returns 0; 22 when a bitmap could not be allocated, or for each NP past the eighth, with the
 * others made; 12 without a context or root. */
uint32_t inline_svc_stats_init(void);

/* Takes the lowest free counter of an NP and, when `clear` is not 0, reads it once so that it
 * starts at zero; a failed clear is logged only.
 * Returns 0 with *counter set; 12 without a context, root or bitmap and when none is free; 22 for
 * a bad NP or a null `counter`. */
uint32_t inline_svc_alloc_counter(uint32_t *counter, uint32_t np_id, uint32_t clear);

/* Gives a counter back; one that is free already is accepted.
 * Returns 0; 22 for a bad NP, no root or bitmap, and a number outside the region (its end is
 * inside). */
uint32_t inline_svc_free_counter(uint32_t counter, uint32_t np_id);

/* Reads every entry's counters and calls the services' statistics callbacks. Returns 0. Ends the
 * process when no root is set. */
uint32_t inline_svc_stats_collection(void);

/* One pass over one main entry. What is missing (application type, callback, entry) is logged and
 * ends the pass. */
void inline_svc_main_index_collect_stat(uint32_t uidb_index);

/* Adds a node's counters on every NP to *sum. */
void inline_svc_node_get_stat(shmem_node *node, stats_sum *sum);

/* Adds one counter of one NP to *sum; a failed read adds nothing. */
void inline_svc_get_stat_per_np(uint32_t np, uint32_t counter, stats_sum *sum);

/* PRM's callback for delayed deletion. Does nothing and returns 0. */
uint32_t inline_svc_stats_delay_delete_handler(void);

RECORD_SIZE(stats_sum, 8);
RECORD_FIELD(stats_sum, first, 0);
RECORD_FIELD(stats_sum, second, 4);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
