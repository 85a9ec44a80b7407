/* The global context: the one record in which the host hands its handles to the library.
 *
 * Conventions of every exported call of this library, said once:
 * - A status is a uint32_t with errno meanings: 0 success, 2 not found, 12 no memory, no context or
 *   list failure, 13 already registered, 17 already exists, 22 invalid argument or missing handle.
 *   Codes of the platform are passed through unchanged.
 * - Everything runs on the host's event-manager thread; no call takes a lock, and two threads must
 *   not be inside the library at once.
 * - A failure logs one line before its code is returned, unless it is said otherwise. An output is
 *   untouched on failure, unless it is said otherwise.
 * - A broken invariant ends the process: one line on standard error, then a fault that leaves a
 *   core. A null argument that nothing is said of gives 22 after a log line, null, or nothing. */
#ifndef INLINE_SERVICE_CONTEXT_H
#define INLINE_SERVICE_CONTEXT_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

struct shadow_db;

/* Application types are 0 to 5; types 1 to 5 have keys in the shadow DB. */
enum { INLINE_SVC_APP_TYPES = 6 };

typedef void (*inline_svc_app_fn)(void);
/* phase: 1 begin of an interface, 0 one entry, 2 end of an interface. */
typedef void (*inline_svc_app_stats_fn)(uint32_t uidb_index, uint32_t entry_id, uint32_t phase,
                                        uint32_t a, uint32_t b);

/* Owned by the host and only pointed to by the library, which writes prm_conn, np_reset_pending and
 * the three arrays at the end. */
typedef struct inline_svc_global_cntx {
    uint64_t host_word;
    void *inline_evm; /* the host's event manager */
    uint64_t host_words[6];
    struct shadow_db *shadow_db; /* root of the shadow DB, in the window */
    uint64_t host_word_72;
    uint32_t shmwin_id; /* the window's number */
    uint32_t padding_84;
    void *prm_conn; /* written by inline_svc_prm_init */
    void *uidb_conn;
    uint32_t np_reset_pending; /* 1 from an NP reset to the next connection-up */
    uint16_t num_nps;
    uint16_t padding_110;
    inline_svc_app_fn app_handler[INLINE_SVC_APP_TYPES];
    inline_svc_app_stats_fn app_stats_handler[INLINE_SVC_APP_TYPES];
    void *app_data[INLINE_SVC_APP_TYPES];
} inline_svc_global_cntx;

/* Null until inline_svc_set_global_cntx; never cleared. */
extern inline_svc_global_cntx *pgbl_ptr;
/* The context's shadow DB root, as of the last call that succeeded. */
extern struct shadow_db *pshadow_db;
/* Copy of num_nps, written by inline_svc_stats_init: the bound of the counter operations. */
extern uint16_t NUM_LC_NPS;
/* 1 from a PRM connection error to the next connection-up; for the host to read. */
extern uint8_t engine_conn_error;

/* For the host's use; the library neither reads nor writes them. */
extern uint32_t spp_ui_in_progress;
extern uint64_t spp_ui_retval;
extern uint32_t imp_cmd_codes;
extern void *the_punt_decode_hash;
extern uint8_t u32x4_compare_word_mask_table[256];

/* Placeholders that the event-debug facility finds through the component record. */
extern uint64_t ed_dummy_libinline_service_infra[4];
extern uint64_t ed_perf_dummy_libinline_service_infra[4];

/* Hands the host's context to the library; comes before every other call.
 * Returns 0; 12 when `context` or its shadow_db is null.
 * pgbl_ptr is set to `context` in every case; pshadow_db keeps its value on failure. */
uint32_t inline_svc_set_global_cntx(inline_svc_global_cntx *context);

/* Sleeps 20 seconds. Returns 0. */
uint32_t inline_svc_dummy_init(void);

/* Store a handle of the context in *out.
 * Return 0; 22 when `out` is null, the handle is not set, or (the first two) no context is set.
 * For the third the context must have been set: without one it gives 22 too. */
uint32_t inline_svc_get_prm_conn_hdl(void **out);
uint32_t inline_svc_get_inline_evm(void **out);
uint32_t inline_svc_get_uidb_conn_hdl(void **out);

RECORD_SIZE(inline_svc_global_cntx, 256);
RECORD_FIELD(inline_svc_global_cntx, host_word, 0);
RECORD_FIELD(inline_svc_global_cntx, inline_evm, 8);
RECORD_FIELD(inline_svc_global_cntx, host_words, 16);
RECORD_FIELD(inline_svc_global_cntx, shadow_db, 64);
RECORD_FIELD(inline_svc_global_cntx, host_word_72, 72);
RECORD_FIELD(inline_svc_global_cntx, shmwin_id, 80);
RECORD_FIELD(inline_svc_global_cntx, padding_84, 84);
RECORD_FIELD(inline_svc_global_cntx, prm_conn, 88);
RECORD_FIELD(inline_svc_global_cntx, uidb_conn, 96);
RECORD_FIELD(inline_svc_global_cntx, np_reset_pending, 104);
RECORD_FIELD(inline_svc_global_cntx, num_nps, 108);
RECORD_FIELD(inline_svc_global_cntx, padding_110, 110);
RECORD_FIELD(inline_svc_global_cntx, app_handler, 112);
RECORD_FIELD(inline_svc_global_cntx, app_stats_handler, 160);
RECORD_FIELD(inline_svc_global_cntx, app_data, 208);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
