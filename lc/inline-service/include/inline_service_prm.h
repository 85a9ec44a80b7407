/* Programming the network processors through PRM. */
#ifndef INLINE_SERVICE_PRM_H
#define INLINE_SERVICE_PRM_H

#include <stdint.h>

#include "inline_service_context.h"
#include "inline_service_shadowdb.h"
#include "platform_prm.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Opens the manager connection and reads the card type; PRM then drives the library through
 * inline_svc_prm_notif_handler.
 * Returns 0; 22 without a context, silently; PRM's code when the open failed, with the ready flag
 * unchanged and no line of its own. */
uint32_t inline_svc_prm_init(void);

/* Registers the service-request handle, or re-registers the one that PRM still knows, with the
 * event manager of `context`; up to 60 attempts, 30 seconds after each that failed. Then names the
 * queue and sets up the statistics. The handle is kept in the root of the global context. Returns
 * 0; PRM's last code when every attempt failed; the code of inline_svc_stats_init when that failed;
 * 22 for a null context, and when the global context or its root is not set. */
uint32_t inline_svc_prm_register(inline_svc_global_cntx *context);

/* PRM's notifications. Ends the process with status 1 when a connection-up cannot register. A null
 * argument is ignored. */
void inline_svc_prm_notif_handler(shadow_db *root, const prm_notification *notification);

/* Logs one of four lines for the two ready flags. */
void inline_svc_log_prm_state(shadow_db *root);

/* Send one node to one table on every NP, ascending: add, modify or delete by its action. A failure
 * on one NP is logged and the next is tried.
 * Return 22 for an unknown action, key_len above 48, result_len above 64, a null node or no
 * context, before any counter is taken or PRM called; otherwise the status of the last step for the
 * last NP: the request's, or on a delete that gives counters back that of freeing the last one. */
uint32_t inline_svc_prm_service_table_update(shmem_node *node);
uint32_t inline_svc_prm_ext_table_update(shmem_node *node);

/* Sends the node to the table that its table_type names.
 * Returns the table's status; 22 without a context, root or node, and for another table_type. */
uint32_t inline_svc_prm_update(shmem_node *node);

/* Reads every answer that PRM has ready and logs those that failed. */
void inline_svc_prm_async_resp_handler(void);

/* Logs the hardware error report for an answer; changes nothing. */
void inline_svc_catastrophic_recovery(const prm_async_response *response);

/* Writes "<label> <len <length>>: " and then two hexadecimal digits a byte into `buffer`, as many
 * whole bytes as `size` characters hold. A length of 0 or less gives the header alone. */
void inline_svc_format_hex(char *buffer, int32_t size, const void *bytes, int32_t length,
                           const char *label);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
