/* The platform resource manager (PRM): manager connection, service-request handles, table requests
 * and their late answers.
 *
 * PRM programs the network processors (NPs) and may restart at any time. A client opens one manager
 * connection and follows its notifications; on each connection-up it registers a service-request
 * handle, or re-registers the one that PRM still knows under its name. Requests are only taken in
 * here: their outcome comes later, one answer for each request, through the response queue.
 * Notifications, the asynchronous-response callback and the delay callback are all delivered on the
 * event manager that was given at open or register time, never from inside a call. */
#ifndef PLATFORM_PRM_H
#define PLATFORM_PRM_H

#include <stdint.h>

#include "record_proof.h"

#ifdef __cplusplus
extern "C" {
#endif

struct shadow_db;

/* Result codes of PRM beside the errno values. */
#define PRM_RESPONSE_QUEUE_EMPTY UINT32_C(0x257C5400)

/* Notifications: every class but PRM_NOTIF_CLASS_NP is a connection notification. */
enum { PRM_NOTIF_CLASS_NP = 1, PRM_NOTIF_CLASS_CONN = 2 };
enum { PRM_NP_RUNNING = 2, PRM_NP_WARM_BOOT = 3 };
enum { PRM_CONN_UP = 1, PRM_CONN_DOWN = 2, PRM_CONN_ERROR = 4 };

typedef struct prm_notification {
    uint32_t notif_class;
    uint32_t event;
} prm_notification;

/* Reference number of a request: (operation << 8) | table kind. PRM hands it back unread. A low
 * byte of PRM_REFNUM_DELAY_QUEUE marks an answer that belongs to PRM's own delay queue. */
enum { PRM_TABLE_SERVICE_CONFIG = 0, PRM_TABLE_EXT_CONF = 1 };
enum { PRM_OP_ADD = 0, PRM_OP_MODIFY = 1, PRM_OP_DELETE = 2 };
/* Requests for the flow table carry the ext conf table's number in theirs; PRM marks the answers to
 * them in `flags`. */
enum { PRM_REFNUM_OP_SHIFT = 8, PRM_REFNUM_TABLE_MASK = 0xFF, PRM_REFNUM_DELAY_QUEUE = 0xAB };
enum { PRM_ANSWER_OF_FLOW_TABLE = 0x10000 };

enum { PRM_RECORD_KIND = 4 };
enum { PRM_KEY_BYTES = 100, PRM_RESULT_BYTES = 512 };

/* One request for one NP. */
typedef struct prm_config_record {
    uint32_t np;
    uint32_t kind; /* PRM_RECORD_KIND */
    uint32_t refnum;
    uint32_t key_len;
    uint32_t reserved;
    uint8_t key[PRM_KEY_BYTES];
    uint32_t result_len;
    uint8_t result[PRM_RESULT_BYTES];
} prm_config_record;

/* The late answer to one request. */
typedef struct prm_async_response {
    uint32_t np;
    uint32_t flags;
    uint32_t status; /* 0, or why the request was not carried out */
    uint32_t refnum;
    uint32_t vrf_id;
    uint32_t key_size;
    uint8_t unused[8];
    uint8_t key[104];
    uint32_t result_size;
    uint8_t result[1244];
} prm_async_response;

typedef void (*prm_notif_fn)(struct shadow_db *context, const prm_notification *notification);
typedef void (*prm_async_fn)(void);
typedef uint32_t (*prm_delay_fn)(void);

/* Values that this client passes where the words have no other name. */
enum { PRM_MGR_OPEN_EVENTS = 7, PRM_SRH_CLIENT_KIND = 2 };
enum {
    PRM_DELAY_QUEUE_ID = 1,
    PRM_DELAY_QUEUE_FLAGS = 0,
    PRM_DELAY_QUEUE_DEPTH = 50,
    PRM_DELAY_QUEUE_SECONDS = 30,
    PRM_DELAY_QUEUE_KIND = 4
};

/* Opens the manager connection of `client` and stores it in *conn. Notifications go to `notif`
 * with `context`. Returns 0, or a code with *conn untouched. */
uint32_t prm_mgr_open(void *evm, uint32_t zero, const char *client, prm_notif_fn notif,
                      uint32_t events, void *context, void **conn);

/* Finds the handle that PRM still holds under a name. Returns 0 with *handle set, or a code with
 * *handle untouched. */
uint32_t prm_srh_get_handle(const char *client, void **handle);

/* Makes a new handle. Returns 0 with *handle set, or a code with *handle untouched. */
uint32_t prm_srh_register(void **handle, uint32_t client_kind, void *evm, prm_async_fn async);

/* Takes an existing handle over for this process and this event manager; answers that nobody read
 * are kept and announced again. Returns 0, or a code. */
uint32_t prm_srh_reregister(void *handle, void *evm, prm_async_fn async);

/* Names the handle, so that prm_srh_get_handle finds it after a restart. Returns 0, or a code. */
uint32_t prm_srh_set_name(void *handle, const char *name);

/* Sets up the delay queue of the handle: `depth` items, given to `delay` after `seconds`. Returns
 * 0, or a code. */
uint32_t prm_srh_delay_util_init(void *handle, uint32_t queue, uint32_t flags, uint32_t depth,
                                 uint32_t seconds, prm_delay_fn delay, uint32_t kind);

/* Hands an answer whose reference number marks it as the delay queue's back to it. Returns 0, or a
 * code for a reference number that is not the delay queue's. */
uint32_t prm_srh_delay_queue_process(uint32_t refnum);

/* Reads the oldest unread answer into *response. Returns 0; PRM_RESPONSE_QUEUE_EMPTY when none is
 * left; another code when the queue cannot be read. *response is untouched unless 0 is returned.
 * While unread answers remain after the callback returned, the callback is called again. */
uint32_t prm_srh_async_resp_data(void *handle, prm_async_response *response);

/* Requests. Each takes the record in and returns 0, or non-zero only for a bad handle or record or
 * a broken connection. A duplicate key on add, a missing key on modify or delete and a full table
 * are said in the late answer. */
uint32_t prm_srh_service_config_add(void *handle, prm_config_record *record);
uint32_t prm_srh_service_config_mod(void *handle, prm_config_record *record);
uint32_t prm_srh_service_config_del(void *handle, prm_config_record *record);
uint32_t prm_srh_ext_service_db_add(void *handle, prm_config_record *record);
uint32_t prm_srh_ext_service_db_mod(void *handle, prm_config_record *record);
uint32_t prm_srh_ext_service_db_del(void *handle, prm_config_record *record);
uint32_t prm_srh_flow_db_add(void *handle, prm_config_record *record);
uint32_t prm_srh_flow_db_mod(void *handle, prm_config_record *record);
uint32_t prm_srh_flow_db_del(void *handle, prm_config_record *record);

RECORD_SIZE(prm_notification, 8);
RECORD_FIELD(prm_notification, notif_class, 0);
RECORD_FIELD(prm_notification, event, 4);

RECORD_SIZE(prm_config_record, 636);
RECORD_FIELD(prm_config_record, np, 0);
RECORD_FIELD(prm_config_record, kind, 4);
RECORD_FIELD(prm_config_record, refnum, 8);
RECORD_FIELD(prm_config_record, key_len, 12);
RECORD_FIELD(prm_config_record, reserved, 16);
RECORD_FIELD(prm_config_record, key, 20);
RECORD_FIELD(prm_config_record, result_len, 120);
RECORD_FIELD(prm_config_record, result, 124);

RECORD_SIZE(prm_async_response, 1384);
RECORD_FIELD(prm_async_response, np, 0);
RECORD_FIELD(prm_async_response, flags, 4);
RECORD_FIELD(prm_async_response, status, 8);
RECORD_FIELD(prm_async_response, refnum, 12);
RECORD_FIELD(prm_async_response, vrf_id, 16);
RECORD_FIELD(prm_async_response, key_size, 20);
RECORD_FIELD(prm_async_response, unused, 24);
RECORD_FIELD(prm_async_response, key, 32);
RECORD_FIELD(prm_async_response, result_size, 136);
RECORD_FIELD(prm_async_response, result, 140);

#ifdef __cplusplus
}
#endif
#endif
