#include "service_host.h"

#include <atomic>
#include <cstring>
#include <utility>

#include "inline_service_attributes.h"
#include "inline_service_prm.h"
#include "inline_service_stat.h"
#include "inline_service_vservice.h"
#include "platform_shared_window.h"
#include "service_error.h"

namespace services {

namespace {

constexpr int32_t attribute_bytes = UIDB_ATTRIBUTES * sizeof(uidb_attribute);

} // namespace

ServiceHost::ServiceHost(HostHandles handles) : handles_(std::move(handles))
{
    if (handles_.num_nps < 1 || handles_.num_nps > SHADOW_DB_MAX_NPS)
        throw ServiceError("a host needs 1 to 8 NPs, not " + std::to_string(handles_.num_nps));
}

void ServiceHost::start()
{
    find_or_make_root();
    hand_over_context();
    prepare_shadow_db();
    make_tables();
    connect();
}

void ServiceHost::find_or_make_root()
{
    found_root_ = handles_.root != nullptr;
    if (found_root_)
        return;
    void *block = nullptr;
    require_success("shmwin_malloc of the shadow DB's root",
                    shmwin_malloc(handles_.window_id, sizeof(shadow_db), &block));
    if (block == nullptr)
        throw ServiceError("shmwin_malloc of the shadow DB's root gave no block");
    std::memset(block, 0, sizeof(shadow_db));
    // Only now: a root that is found is a root that was zeroed.
    handles_.root = static_cast<shadow_db *>(block);
    handles_.publish_root(handles_.root);
}

void ServiceHost::hand_over_context()
{
    context_.inline_evm = handles_.event_manager;
    context_.shadow_db = handles_.root;
    context_.shmwin_id = handles_.window_id;
    context_.num_nps = handles_.num_nps;
    require_success("inline_svc_set_global_cntx", inline_svc_set_global_cntx(&context_));
}

void ServiceHost::prepare_shadow_db()
{
    require_success("inline_svc_shadow_db_initialized",
                    inline_svc_shadow_db_initialized(0, 0, 0, 0));
    // From here on every start keeps the main table. Before, a killed start's table is made again:
    // it is empty, since nothing is programmed until start() has returned.
    handles_.root->initialized = 1;
}

void ServiceHost::make_tables()
{
    // A table is zeroed before one store gives it to the root. What cannot be made is missed by its
    // users alone: a full window of a host without these tables is gone on with.
    shadow_db &root = *handles_.root;
    const auto make = [](auto *&place, auto *table) {
        std::atomic_ref(place).store(table, std::memory_order_release);
    };
    if (root.uidb_attr_table == nullptr)
        make(root.uidb_attr_table,
             static_cast<uidb_attribute *>(inline_svc_shared_mem_alloc(attribute_bytes)));
    if (root.vservice_db == nullptr)
        make(root.vservice_db, vservice_table_init());
}

void ServiceHost::connect()
{
    require_success("inline_svc_prm_init", inline_svc_prm_init());
    // conn_state outlives the process, so a root that was found says "up" of a dead host. What this
    // process has registered shows in NUM_LC_NPS, which registration sets and every process begins
    // with at 0.
    const auto connected = [this] {
        return NUM_LC_NPS == handles_.num_nps && (handles_.root->conn_state & SHADOW_DB_READY) != 0;
    };
    if (!handles_.run_until(connected))
        throw ServiceError("PRM's connection did not come up");
    // From here on every registration keeps the counter bitmaps.
    handles_.root->stats_state = 1;
}

} // namespace services
