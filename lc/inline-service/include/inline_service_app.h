/* What a service calls: batches of table entries, and its own registration. */
#ifndef INLINE_SERVICE_APP_H
#define INLINE_SERVICE_APP_H

#include <stdint.h>

#include "inline_service_context.h"
#include "inline_service_shadowdb.h"
#include "platform_list.h"
#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* Batch action: everything held for the key goes. Any other value applies the elements. */
enum { INLINE_SVC_BATCH_DELETE_ALL = 3 };

/* A batch for one key. It and its elements belong to the caller, who frees them. */
typedef struct action_array {
    uint16_t uidb_index; /* the shadow DB key */
    uint16_t padding_2;
    uint32_t app_ID;
    uint32_t app_param; /* becomes the entry's version */
    uint16_t entry_tag;
    uint16_t padding_14;
    uint32_t num_node; /* only tested for 0; the elements are walked by their links */
    uint32_t action;
    list_record node_list; /* of app_node_element */
} action_array;

/* Argument of inline_svc_app_register. */
typedef struct app_registration {
    uint32_t app_type; /* 0 to 5 */
    uint32_t padding_4;
    inline_svc_app_fn handler;
    inline_svc_app_stats_fn stats_handler;
    void *data;
} app_registration;

typedef struct app_handler_result {
    action_array *batch;
} app_handler_result;

/* Applies a batch. A batch action of 3 clears the key; otherwise the elements are applied in order,
 * and when one fails everything held for the key is cleared.
 * Returns 0 when the batch was applied, when the clear worked (also after a failed element), and
 * for a null batch; otherwise the clear's code, which is a code of PRM. */
uint32_t inline_svc_shadow_db_insert_action_array(action_array *batch);

/* Appends a heap copy of `node` (link zeroed) to a batch's list.
 * Returns 0; 12 when the copy or its enqueue failed, with the list as it was; 22 for a null list.
 */
uint32_t inline_svc_app_node_insert(list_record *node_list, app_node_element node);

/* Registers the three pointers of an application type, once.
 * Returns 0; 22 for a null record, an app_type above 5 or no context; 13 when any of the three is
 * set already. Refusals log nothing and change nothing. */
uint32_t inline_svc_app_register(const app_registration *reg);

/* Builds a batch in out->batch: from what is stored for key 1, or else four sample entries. The
 * caller frees the batch and its elements. The first argument is not read.
 * Returns 0; 12 when the batch could not be allocated (out->batch null) or its list not created
 * (out->batch is then dangling: look at the code first); 22 for a null `out`. */
uint32_t inline_svc_app_handler(uint64_t unused, app_handler_result *out);

RECORD_SIZE(action_array, 296);
RECORD_FIELD(action_array, uidb_index, 0);
RECORD_FIELD(action_array, padding_2, 2);
RECORD_FIELD(action_array, app_ID, 4);
RECORD_FIELD(action_array, app_param, 8);
RECORD_FIELD(action_array, entry_tag, 12);
RECORD_FIELD(action_array, padding_14, 14);
RECORD_FIELD(action_array, num_node, 16);
RECORD_FIELD(action_array, action, 20);
RECORD_FIELD(action_array, node_list, 24);

RECORD_SIZE(app_registration, 32);
RECORD_FIELD(app_registration, app_type, 0);
RECORD_FIELD(app_registration, padding_4, 4);
RECORD_FIELD(app_registration, handler, 8);
RECORD_FIELD(app_registration, stats_handler, 16);
RECORD_FIELD(app_registration, data, 24);

RECORD_SIZE(app_handler_result, 8);
RECORD_FIELD(app_handler_result, batch, 0);

#pragma GCC visibility pop
#ifdef __cplusplus
}
#endif
#endif
