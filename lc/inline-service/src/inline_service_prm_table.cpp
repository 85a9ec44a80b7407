// Programming an entry into a table of every NP: one piece of code, two descriptions.

#include <cerrno>
#include <cstring>
#include <utility>

#include "inline_service_card_type.h"
#include "inline_service_log.h"
#include "inline_service_prm.h"
#include "inline_service_stat.h"
#include "platform_error_text.h"

using namespace inline_service;

namespace {

struct OperationDescription {
    uint32_t (*request)(void *handle, prm_config_record *record);
    void (*entered)();
    void (*succeeded)();
    void (*failed)(uint32_t rc);
};

struct TableDescription {
    uint32_t table_kind;
    bool has_entries_without_counters;  // those whose hw_index is SHADOW_DB_NO_HW_INDEX
    OperationDescription operations[3]; // by PRM_OP_ADD, PRM_OP_MODIFY, PRM_OP_DELETE
    void (*rx_counter_taken)(uint32_t index);
    void (*rx_counter_failed)(uint32_t rc);
    void (*drop_counter_taken)(uint32_t index);
    void (*drop_counter_failed)(uint32_t rc);
    void (*counter_free_failed)(uint32_t rc);
};

// A row's lines are log sites of their own and speak in the name of the exported function.
#define ROW_TRACE(...) INLINE_SVC_SITE(ED_EVENT_BUFFER, ROW_FUNCTION, __VA_ARGS__)
#define ROW_FAILURE(text)                                                                          \
    INLINE_SVC_SITE(ED_ERROR_BUFFER, ROW_FUNCTION, text, cerr_strerror(rc),                        \
                    static_cast<int32_t>(rc))

#define ROW_FUNCTION "inline_svc_prm_service_table_update"
constexpr TableDescription service_config_table = {
    .table_kind = PRM_TABLE_SERVICE_CONFIG,
    .has_entries_without_counters = true,
    .operations = {{prm_srh_service_config_add, [] { ROW_TRACE("SVC CONF add enter: \n"); },
                    [] { ROW_TRACE("SVC CONF add succesful: \n"); },
                    [](uint32_t rc) { ROW_FAILURE("SVC CONF add failed:  rc=%s (%d)"); }},
                   {prm_srh_service_config_mod, [] { ROW_TRACE("SVC CONF modify enter: \n"); },
                    [] { ROW_TRACE("SVC CONF modify successful: \n"); },
                    [](uint32_t rc) { ROW_FAILURE("SVC CONF modification failed:  rc=%s (%d)"); }},
                   {prm_srh_service_config_del, [] { ROW_TRACE("SVC CONF delete enter: \n"); },
                    [] { ROW_TRACE("SVC CONF delete successful: \n"); },
                    [](uint32_t rc) { ROW_FAILURE("SVC CONF delete failed:  rc=%s (%d)"); }}},
    .rx_counter_taken = [](uint32_t index) { ROW_TRACE("SVC CONF ADD stat RX index %x", index); },
    .rx_counter_failed =
        [](uint32_t rc) { ROW_FAILURE("SVC CONF ADD get stat failed:  rc=%s (%d)"); },
    .drop_counter_taken =
        [](uint32_t index) { ROW_TRACE("SVC CONF ADD stat DROP index %x", index); },
    .drop_counter_failed =
        [](uint32_t rc) { ROW_FAILURE("SVC CONF ADD get stat failed:  rc=%s (%d)"); },
    .counter_free_failed =
        [](uint32_t rc) { ROW_FAILURE("SVC CONF DEL free stat failed:  rc=%s (%d)"); },
};
#undef ROW_FUNCTION

#define ROW_FUNCTION "inline_svc_prm_ext_table_update"
constexpr TableDescription ext_conf_table = {
    .table_kind = PRM_TABLE_EXT_CONF,
    .has_entries_without_counters = false,
    .operations = {{prm_srh_ext_service_db_add, [] { ROW_TRACE("SVC EXT_DB add enter"); },
                    [] { ROW_TRACE("SVC EXT_DB add succesful: \n"); },
                    [](uint32_t rc) { ROW_FAILURE("SVC EXT_DB add failed:  rc=%s (%d)"); }},
                   {prm_srh_ext_service_db_mod, [] { ROW_TRACE("SVC EXT_DB modify enter"); },
                    [] { ROW_TRACE("SVC EXT_DB modify successful: \n"); },
                    [](uint32_t rc) {
                        ROW_FAILURE("SVC EXT_DB modification failed:  rc=%s (%d)");
                    }},
                   {prm_srh_ext_service_db_del, [] { ROW_TRACE("SVC EXT_DB delete enter"); },
                    [] { ROW_TRACE("SVC EXT_DB delete successful: \n"); },
                    [](uint32_t rc) { ROW_FAILURE("SVC EXT_DB delete failed:  rc=%s (%d)"); }}},
    .rx_counter_taken = [](uint32_t index) { ROW_TRACE("SVC EXT_DB ADD stat RX index %x", index); },
    .rx_counter_failed =
        [](uint32_t rc) { ROW_FAILURE("SVC EXT_DB ADD get rx stat failed:  rc=%s (%d)"); },
    .drop_counter_taken =
        [](uint32_t index) { ROW_TRACE("SVC EXT_DB ADD stat DROP index %x", index); },
    .drop_counter_failed =
        [](uint32_t rc) { ROW_FAILURE("SVC EXT_DB ADD get drop stat failed:  rc=%s (%d)"); },
    .counter_free_failed =
        [](uint32_t rc) { ROW_FAILURE("SVC EXT_DB DEL free stat failed:  rc=%s (%d)"); },
};
#undef ROW_FUNCTION

// All zero, in pieces so short that compilers write their stores out: at once they would make a
// loop of bytes of it, which costs more than all else that is done to the record.
void clear(prm_config_record &record)
{
    constexpr size_t piece = 64;
    constexpr size_t pieces = sizeof record / piece;
    auto *bytes = reinterpret_cast<uint8_t *>(&record);
#pragma GCC unroll 16
    for (size_t i = 0; i < pieces; ++i)
        memset(bytes + i * piece, 0, piece);
    memset(bytes + pieces * piece, 0, sizeof record % piece);
}

// The request that goes to every NP, as far as it is the same for all.
void fill(prm_config_record &record, const app_node &entry, uint32_t refnum)
{
    clear(record);
    record.kind = PRM_RECORD_KIND;
    record.refnum = refnum;
    record.key_len = entry.key_len;
    memcpy(record.key, entry.key, entry.key_len);
    record.result_len = entry.result_len;
    memcpy(record.result, entry.result, entry.result_len);
}

// One entry on its way to one table, NP after NP. Table and operation are known where it is
// compiled, so that a step is little more than the call of PRM; the record is not part of it, since
// PRM is given that, and what PRM could reach would be read anew for each NP.
template <const TableDescription &table, uint32_t operation>
class TableUpdate {
public:
    TableUpdate(shmem_node &node, prm_config_record &record)
        : node_(node), record_(record), handle_(pgbl_ptr->shadow_db->prm_srh_hdl)
    {
    }

    uint32_t run()
    {
        description.entered();
        return has_counters() ? for_each_np<true>() : for_each_np<false>();
    }

private:
    static constexpr const OperationDescription &description = table.operations[operation];

    bool has_counters() const
    {
        return !table.has_entries_without_counters ||
               node_.app_node.hw_index != SHADOW_DB_NO_HW_INDEX;
    }

    template <bool with_counters>
    uint32_t for_each_np()
    {
        uint32_t rc = 0;
        const uint32_t nps = pgbl_ptr->num_nps;
        for (uint32_t np = 0; np < nps; ++np) {
            if constexpr (operation == PRM_OP_ADD)
                rc = add<with_counters>(np);
            else if constexpr (operation == PRM_OP_MODIFY)
                rc = modify<with_counters>(np);
            else
                rc = remove<with_counters>(np);
        }
        return rc; // Kept: that of the last NP, whatever the others said
    }

    template <bool with_counters>
    uint32_t add(uint32_t np)
    {
        if constexpr (with_counters) {
            take_counters(np);
            encode_counter(np);
        } else if (np < SHADOW_DB_MAX_NPS) {
            node_.stat_index_rx[np] = 0;
            node_.stat_index_drop[np] = 0;
        }
        return request(np); // Kept: counters taken for a failed add stay taken
    }

    template <bool with_counters>
    uint32_t modify(uint32_t np)
    {
        if constexpr (with_counters)
            encode_counter(np);
        return request(np);
    }

    template <bool with_counters>
    uint32_t remove(uint32_t np)
    {
        encode_counter(np); // Kept: also for an entry without counters
        const uint32_t rc = request(np);
        if constexpr (!with_counters)
            return rc;
        // Kept: the counters go even when the delete failed, and the last free hides its code.
        free_counter(counter(node_.stat_index_rx, np), np);
        return free_counter(counter(node_.stat_index_drop, np), np);
    }

    // NPs that the node has no room for share a word that always says "no counter".
    uint32_t &counter(uint32_t (&per_np)[SHADOW_DB_MAX_NPS], uint32_t np)
    {
        no_counter_ = 0;
        return np < SHADOW_DB_MAX_NPS ? per_np[np] : no_counter_;
    }

    void take_counters(uint32_t np)
    {
        uint32_t &rx = counter(node_.stat_index_rx, np);
        uint32_t rc = inline_svc_alloc_counter(&rx, np, 1);
        table.rx_counter_taken(rx);
        if (rc != 0)
            table.rx_counter_failed(rc);

        uint32_t &drop = counter(node_.stat_index_drop, np);
        rc = inline_svc_alloc_counter(&drop, np, 1);
        if (rc != 0)
            table.drop_counter_failed(rc);
        table.drop_counter_taken(drop);
    }

    // Puts the received-packets counter into the result's bytes 1 to 3, for the NP to count on.
    void encode_counter(uint32_t np)
    {
        uint32_t &rx = counter(node_.stat_index_rx, np);
        uint8_t bytes[sizeof rx];
        memcpy(bytes, &rx, sizeof rx);
        if (card_takes_counters_unswapped()) {
            memcpy(record_.result + 1, bytes + 1, 3);
            return;
        }
        // Kept: bytes 0 and 2 change places in the stored node and stay so, so that every encode
        // turns the stored order round again.
        std::swap(bytes[0], bytes[2]);
        memcpy(&rx, bytes, sizeof rx);
        memcpy(record_.result + 1, bytes, 3);
    }

    uint32_t request(uint32_t np)
    {
        record_.np = np;
        const uint32_t rc = description.request(handle_, &record_);
        if (rc == 0)
            description.succeeded();
        else
            description.failed(rc);
        return rc;
    }

    static uint32_t free_counter(uint32_t index, uint32_t np)
    {
        const uint32_t rc = inline_svc_free_counter(index, np);
        if (rc != 0)
            table.counter_free_failed(rc);
        return rc;
    }

    shmem_node &node_;
    prm_config_record &record_;
    void *handle_;
    uint32_t no_counter_ = 0;
};

template <const TableDescription &table, uint32_t operation>
uint32_t update_nps(shmem_node &node)
{
    prm_config_record record;
    fill(record, node.app_node, operation << PRM_REFNUM_OP_SHIFT | table.table_kind);
    return TableUpdate<table, operation>(node, record).run();
}

template <const TableDescription &table>
uint32_t update_table(shmem_node &node)
{
    switch (node.app_node.action) {
    case SHADOW_DB_CREATE:
        return update_nps<table, PRM_OP_ADD>(node);
    case SHADOW_DB_MODIFY:
        return update_nps<table, PRM_OP_MODIFY>(node);
    default:
        return update_nps<table, PRM_OP_DELETE>(node);
    }
}

// Whether the node can be sent; 22 when not.
uint32_t check(const shmem_node *node)
{
    if (node == nullptr || pgbl_ptr == nullptr || pgbl_ptr->shadow_db == nullptr) {
        static constexpr char text[] = "table update without node or context";
        INLINE_SVC_SITE(ED_ERROR_BUFFER, "update_table", text);
        return EINVAL;
    }
    const app_node &entry = node->app_node;
    if (entry.key_len > SHADOW_DB_KEY_BYTES || entry.result_len > SHADOW_DB_RESULT_BYTES) {
        static constexpr char text[] = "key_len %d or result_len %d is too long";
        INLINE_SVC_SITE(ED_ERROR_BUFFER, "update_table", text, entry.key_len, entry.result_len);
        return EINVAL;
    }
    if (entry.action != SHADOW_DB_CREATE && entry.action != SHADOW_DB_MODIFY &&
        entry.action != SHADOW_DB_DELETE) {
        // Kept: the text names this table for the other one too.
        static constexpr char text[] = "action for service config prm table is INVALID \n";
        INLINE_SVC_SITE(ED_ERROR_BUFFER, "update_table", text);
        return EINVAL;
    }
    return 0;
}

} // namespace

uint32_t inline_svc_prm_service_table_update(shmem_node *node)
{
    const uint32_t rc = check(node);
    return rc != 0 ? rc : update_table<service_config_table>(*node);
}

uint32_t inline_svc_prm_ext_table_update(shmem_node *node)
{
    const uint32_t rc = check(node);
    return rc != 0 ? rc : update_table<ext_conf_table>(*node);
}

uint32_t inline_svc_prm_update(shmem_node *node)
{
    if (pgbl_ptr == nullptr) {
        inline_svc_trace_error("pgbl_ptr is NULL in prm update \n");
        return EINVAL;
    }
    if (pshadow_db == nullptr) {
        inline_svc_trace_error("shemem ptr is NULL in prm update \n");
        return EINVAL;
    }
    if (node == nullptr) {
        inline_svc_trace_error("node pass NUL in prm update \n");
        return EINVAL;
    }
    switch (node->app_node.table_type) {
    case SHADOW_DB_SERVICE_CONFIG:
        return inline_svc_prm_service_table_update(node);
    case SHADOW_DB_EXT_CONF:
        return inline_svc_prm_ext_table_update(node);
    default:
        inline_svc_trace_error("node pass INCORRECT Table in prm update \n");
        return EINVAL;
    }
}
