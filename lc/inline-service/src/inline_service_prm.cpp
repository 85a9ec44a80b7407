// The connection to PRM: opening it, registering on it, following what happens to it.

#include "inline_service_prm.h"

#include <cerrno>
#include <cstdlib>

#include <unistd.h>

#include "inline_service_card_type.h"
#include "inline_service_log.h"
#include "inline_service_stat.h"
#include "platform_card.h"

using namespace inline_service;

namespace {

constexpr char client_name[] = "inline_service";
constexpr int register_attempts = 60;
constexpr unsigned retry_seconds = 30;

uint32_t card_type = 0;

} // namespace

bool inline_service::card_takes_counters_unswapped()
{
    switch (card_type) {
#define CARD_TYPE_COUNTER_UNSWAPPED(name, code) case name:
#include "card_types.def"
#undef CARD_TYPE_COUNTER_UNSWAPPED
        return true;
    default:
        return false;
    }
}

uint32_t inline_svc_prm_init(void)
{
    if (pgbl_ptr == nullptr) // Kept: a context without a root passes
        return EINVAL;
    inline_svc_trace("PRM_INIT enter\n");
    card_type = platform_get_my_card_type();
    pgbl_ptr->prm_conn = nullptr;
    const uint32_t rc =
        prm_mgr_open(pgbl_ptr->inline_evm, 0, client_name, inline_svc_prm_notif_handler,
                     PRM_MGR_OPEN_EVENTS, pshadow_db, &pgbl_ptr->prm_conn);
    if (rc != 0)
        return rc;
    if (pshadow_db != nullptr)
        pshadow_db->prm_state |= SHADOW_DB_READY;
    inline_svc_trace("PRM_INIT exit\n");
    return 0;
}

namespace {

uint32_t reregister_handle(const shadow_db &root, void *evm)
{
    uint32_t rc = 0;
    for (int attempt = 1; attempt <= register_attempts; ++attempt) {
        rc = prm_srh_reregister(root.prm_srh_hdl, evm, inline_svc_prm_async_resp_handler);
        if (rc == 0)
            return 0;
        inline_svc_trace_error("Reregister with PRM failed\n");
        inline_svc_trace_error("Retrying prm_srh_reregister, retry count : %d\n", attempt);
        sleep(retry_seconds);
    }
    inline_svc_trace_error("V4 Re-register with PRM failed\n");
    return rc;
}

uint32_t register_handle(shadow_db &root, void *evm)
{
    uint32_t rc = 0;
    for (int attempt = 1; attempt <= register_attempts; ++attempt) {
        rc = prm_srh_register(&root.prm_srh_hdl, PRM_SRH_CLIENT_KIND, evm,
                              inline_svc_prm_async_resp_handler);
        if (rc == 0)
            return 0;
        inline_svc_trace_error("Registeration to PRM failed,probably prm restarted or crashed\n");
        inline_svc_trace_error("Retrying prm_srh_register, retry count : %d\n", attempt);
        sleep(retry_seconds);
    }
    inline_svc_trace_error(" Register with PRM failed\n");
    return rc;
}

} // namespace

uint32_t inline_svc_prm_register(inline_svc_global_cntx *context)
{
    if (context == nullptr)
        return refuse_null("context");
    if (pgbl_ptr == nullptr || pgbl_ptr->shadow_db == nullptr)
        return refuse_null(pgbl_ptr == nullptr ? "pgbl_ptr" : "pgbl_ptr->shadow_db");
    shadow_db &root = *pgbl_ptr->shadow_db; // where every request looks for the handle
    inline_svc_trace("Reregister with PRM Enter\n");
    prm_srh_get_handle(client_name, &root.prm_srh_hdl); // a handle that outlived this process
    uint32_t rc = root.prm_srh_hdl != nullptr ? reregister_handle(root, context->inline_evm)
                                              : register_handle(root, context->inline_evm);
    if (rc != 0)
        return rc;
    if (prm_srh_set_name(root.prm_srh_hdl, client_name) != 0)
        inline_svc_trace_error("Setting name for prm queue failed Verify handle passed in \n");
    if (plm_dpss_stats_init() != 0)
        inline_svc_trace_error("plm_dpss_stats_init failed \n");
    rc = inline_svc_stats_init();
    if (rc != 0)
        inline_svc_trace_error("inline stat init failed \n");
    inline_svc_trace("Reregister with PRM Exit\n");
    return rc;
}

namespace {

void on_nps_running(shadow_db &root)
{
    inline_svc_trace("PRM NP notification running state\n");
    root.conn_state = static_cast<uint16_t>(root.conn_state & ~SHADOW_DB_CONN_BITS);
    inline_svc_log_prm_state(&root);
    if (pgbl_ptr != nullptr && pgbl_ptr->np_reset_pending == 0)
        pgbl_ptr->np_reset_pending = 1;
}

void on_connection_down(shadow_db &root)
{
    inline_svc_trace("PRM CONN DOWN enter\n");
    root.conn_state = static_cast<uint16_t>(root.conn_state & ~SHADOW_DB_READY);
    inline_svc_log_prm_state(&root);
}

// Returns false when an NP reset was pending: its connection-up needs nothing further.
bool on_connection_up(shadow_db &root)
{
    engine_conn_error = 0;
    inline_svc_trace("PRM CONN UP registering enter\n");
    if (inline_svc_prm_register(pgbl_ptr) != 0) {
        inline_svc_trace_error(" prm register failed Error, EXIT");
        exit(1);
    }
    const bool np_was_reset = pgbl_ptr->np_reset_pending != 0;
    pgbl_ptr->np_reset_pending = 0;
    root.conn_state |= SHADOW_DB_READY;
    if (!np_was_reset) // the delay queue outlives an NP reset
        prm_srh_delay_util_init(pgbl_ptr->shadow_db->prm_srh_hdl, PRM_DELAY_QUEUE_ID,
                                PRM_DELAY_QUEUE_FLAGS, PRM_DELAY_QUEUE_DEPTH,
                                PRM_DELAY_QUEUE_SECONDS, inline_svc_stats_delay_delete_handler,
                                PRM_DELAY_QUEUE_KIND);
    inline_svc_log_prm_state(&root);
    return !np_was_reset;
}

void on_np_event(shadow_db &root, uint32_t event)
{
    inline_svc_trace("PRM NP notification handler enter\n");
    if (event == PRM_NP_RUNNING)
        on_nps_running(root);
    else if (event == PRM_NP_WARM_BOOT)
        inline_svc_trace("PRM NP notification warm boot state\n");
}

void on_connection_event(shadow_db &root, uint32_t event)
{
    inline_svc_trace("PRM CONN notification handler enter\n");
    switch (event) {
    case PRM_CONN_UP:
        if (!on_connection_up(root))
            return;
        break;
    case PRM_CONN_DOWN:
        on_connection_down(root);
        break;
    case PRM_CONN_ERROR:
        engine_conn_error = 1;
        break;
    default:
        return;
    }
    inline_svc_trace("PRM notification handler exit\n");
}

} // namespace

void inline_svc_prm_notif_handler(shadow_db *root, const prm_notification *notification)
{
    if (root == nullptr || pshadow_db == nullptr || notification == nullptr)
        return;
    inline_svc_trace("PRM notify handler enter\n");
    if (notification->notif_class == PRM_NOTIF_CLASS_NP)
        on_np_event(*root, notification->event);
    else
        on_connection_event(*root, notification->event);
}

void inline_svc_log_prm_state(shadow_db *root)
{
    if (root == nullptr)
        return;
    const bool ready = (root->prm_state & SHADOW_DB_READY) != 0;
    const bool up = (root->conn_state & SHADOW_DB_READY) != 0;
    if (ready && up)
        inline_svc_trace(" PRM ready and conn up \n");
    else if (ready)
        inline_svc_trace(" PRM ready and conn down  \n");
    else if (up)
        inline_svc_trace(" PRM NOT ready and conn up  \n");
    else
        inline_svc_trace(" PRM NOT ready and conn down \n");
}
