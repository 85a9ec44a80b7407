/* PRM's statistics client: counters that the NPs keep. */
#ifndef PLATFORM_PRM_STATS_H
#define PLATFORM_PRM_STATS_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Mode of a read; the only one that this client uses. */
enum { PRM_STATS_MODE = 2 };
/* Options of a read. The first two only read. */
enum { PRM_STATS_READ = 0, PRM_STATS_READ_OTHER = 1, PRM_STATS_READ_AND_CLEAR = 2 };
/* What this client passes for the words of prm_stats_cl_alloc that have no other name. */
enum { PRM_STATS_DPSS_CLIENT = 27, PRM_STATS_DPSS_KIND = 2 };

/* Prepares the statistics client of this process. Returns 0, or a code that may be ignored. */
uint32_t prm_stats_cl_pre_init(void);

/* The region of stateless double counters: number of its first counter, and how many there are.
 * Both may change when PRM restarts, so callers ask each time. */
uint32_t prm_stats_cl_get_stateless_double_start(void);
uint32_t prm_stats_cl_get_stateless_double_size(void);

/* Reads a counter of one NP; with PRM_STATS_READ_AND_CLEAR it is zero afterwards. A double counter
 * is two words, packets and bytes; the pointer may be null, and `unused` is not looked at. A
 * counter's number is understood in either byte order of its low three bytes. Returns 0, or a code
 * with the two words untouched. */
uint32_t prm_stats_cl_read(void *client, uint32_t counter, uint32_t np, uint32_t *mode,
                           uint64_t double_counter[2], void *unused, uint32_t option);

/* Dynamic counters. Takes a run of *count counters (1 or 2) of an NP's statistics table. Returns 0
 * with the first one's number in *counter, never 0; or a code with it untouched. */
uint32_t prm_stats_cl_alloc(void *client, uint32_t table_id, uint32_t client_kind, uint32_t kind,
                            uint32_t *count, uint32_t *counter);

/* Gives a run back, by its first counter. Returns 0, also for counter 0; or a code. */
uint32_t prm_stats_cl_free(void *client, uint32_t table_id, uint32_t counter);

/* Where the NPs find a dynamic counter: an address of 24 bits. */
uint32_t prm_stats_cl_get_phy_stats_ptr(uint32_t counter);

/* The text of a statistics code; never null. */
const char *prm_stats_err_string(uint32_t code);

#ifdef __cplusplus
}
#endif
#endif
