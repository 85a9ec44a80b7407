// Programming a flow into the flow table of its NPs: one loop, and two ways to come by counters.

#include <cerrno>
#include <cstring>
#include <optional>

#include "inline_service_context.h"
#include "inline_service_flowdb.h"
#include "inline_service_log.h"
#include "inline_service_stat.h"
#include "platform_card.h"
#include "platform_prm_stats.h"

using namespace inline_service;

namespace {

// The request's number; the table's is the ext conf table's here too.
constexpr uint32_t refnum_of(uint32_t operation)
{
    return operation << PRM_REFNUM_OP_SHIFT | PRM_TABLE_EXT_CONF;
}

bool has_stats(const flow_record &record)
{
    return (record.flags & FLOW_HAS_STATS) != 0;
}

bool has_fitting_lengths(const flow_record &record)
{
    return record.key_len <= FLOW_KEY_BYTES && record.result_len <= FLOW_RESULT_BYTES;
}

struct NpRange {
    int32_t first;
    int32_t last;
};

NpRange nps_of(const flow_record &record)
{
    if ((record.flags & FLOW_ON_ALL_NPS) != 0)
        return {0, pgbl_ptr->num_nps - 1};
    return {record.np, record.np};
}

// A flow has no counter on an NP that its record has no room for.
uint32_t counter_of(const flow_record &record, uint32_t np)
{
    return np < SHADOW_DB_MAX_NPS ? record.counter[np] : 0;
}

// 0 with a context and its root.
uint32_t refuse_without_context(const char *function)
{
    if (pgbl_ptr == nullptr)
        return refuse_null("pgbl_ptr", function);
    return pgbl_ptr->shadow_db == nullptr ? refuse_null("pgbl_ptr->shadow_db", function) : 0;
}

// --- the two ways to come by counters ---------------------------------------------------------

// A step may give the code that ends the update; `rc` is what the update returns without that.
using Ended = std::optional<uint32_t>;
struct CounterSource {
    Ended (*take)(flow_record &record, uint32_t np, uint32_t policer);
    void (*write_address)(uint32_t counter, uint8_t *address); // 3 bytes, as the NPs read them
    Ended (*give_back)(flow_record &record, uint32_t np, uint32_t &rc);
};

// PRM's dynamic allocation.

const uint32_t *statistics_table(uint32_t np)
{
    const uint32_t *table_id = plm_dpss_get_stats_tbl_id(np);
    if (table_id == nullptr)
        inline_svc_trace_error("dpss stats tble id is NULL");
    return table_id;
}

Ended take_dynamic(flow_record &record, uint32_t np, uint32_t policer)
{
    static constexpr char failed[] =
        "Failed to allocate dpss dynamic stats counter of chip %d, RC= %s\n";
    uint32_t count = policer == 1 ? 2 : 1;
    const uint32_t *table_id = statistics_table(np);
    if (table_id == nullptr)
        return EINVAL;
    uint32_t counter = 0;
    const uint32_t rc = prm_stats_cl_alloc(pgbl_ptr->prm_conn, *table_id, PRM_STATS_DPSS_CLIENT,
                                           PRM_STATS_DPSS_KIND, &count, &counter);
    if (rc != 0) {
        inline_svc_trace_error(failed, np, prm_stats_err_string(rc));
        return ENOMEM;
    }
    record.counter[np] = counter;
    if (policer == 1)
        record.drop_counter[np] = counter + 1;
    return {};
}

void write_physical_address(uint32_t counter, uint8_t *address)
{
    const uint32_t physical = prm_stats_cl_get_phy_stats_ptr(counter);
    address[0] = static_cast<uint8_t>(physical >> 16);
    address[1] = static_cast<uint8_t>(physical >> 8);
    address[2] = static_cast<uint8_t>(physical);
}

Ended give_back_dynamic(flow_record &record, uint32_t np, uint32_t &rc)
{
    const uint32_t *table_id = statistics_table(np); // Kept: also for a flow without statistics
    if (table_id == nullptr)
        return EINVAL;
    rc = prm_stats_cl_free(pgbl_ptr->prm_conn, *table_id, counter_of(record, np));
    return {};
}

constexpr CounterSource dynamic_counters = {take_dynamic, write_physical_address,
                                            give_back_dynamic};

// The counter pool.

Ended take_from_pool(flow_record &record, uint32_t np, uint32_t)
{
    // Kept: nobody looks whether the pool had any, or whether there is a policer.
    inline_svc_alloc_counter(&record.counter[np], np, 1);
    inline_svc_alloc_counter(&record.drop_counter[np], np, 1);
    return {};
}

void write_stored_bytes(uint32_t counter, uint8_t *address)
{
    uint8_t bytes[sizeof counter];
    memcpy(bytes, &counter, sizeof bytes);
    memcpy(address, bytes + 1, 3);
}

Ended give_back_to_pool(flow_record &record, uint32_t np, uint32_t &rc)
{
    if (np >= SHADOW_DB_MAX_NPS)
        return {};
    for (uint32_t *counter : {&record.counter[np], &record.drop_counter[np]}) {
        if (*counter == 0)
            continue;
        rc = inline_svc_free_counter(*counter, np);
        *counter = 0;
    }
    return {};
}

constexpr CounterSource pool_counters = {take_from_pool, write_stored_bytes, give_back_to_pool};

// --- one flow on its way to its NPs -----------------------------------------------------------

class FlowUpdate {
public:
    FlowUpdate(const CounterSource &counters, flow_record &record, uint32_t policer)
        : counters_(counters), flow_(record), policer_(policer),
          handle_(pgbl_ptr->shadow_db->prm_srh_hdl)
    {
        inline_flow_make_prm_entry(&record, &entry_);
    }

    uint32_t run(uint32_t action)
    {
        static constexpr char begin[] = "prm_update: dbp %p act %d startnp %d endnp %d\n";
        const NpRange nps = nps_of(flow_);
        const void *address = &flow_;
        inline_svc_trace(begin, address, action, nps.first, nps.last);
        const Step step = step_of(action);
        if (step == nullptr || nps.first > nps.last)
            return EINVAL;
        uint32_t rc = 0;
        for (int32_t np = nps.first; np <= nps.last; ++np) {
            entry_.np = static_cast<uint32_t>(np);
            if (const Ended ended = (this->*step)(entry_.np, rc))
                return *ended; // Kept: NPs before this one stay as they are now
        }
        return rc; // Kept: that of the last NP, whatever the others said
    }

private:
    using Step = Ended (FlowUpdate::*)(uint32_t np, uint32_t &rc);

    Step step_of(uint32_t action)
    {
        switch (action) {
        case FLOW_ADD:
            entry_.refnum = refnum_of(PRM_OP_ADD);
            return &FlowUpdate::add;
        case FLOW_MODIFY:
            entry_.refnum = refnum_of(PRM_OP_MODIFY);
            return &FlowUpdate::modify;
        case FLOW_DELETE:
            entry_.refnum = refnum_of(PRM_OP_DELETE);
            return &FlowUpdate::remove;
        default:
            return nullptr;
        }
    }

    Ended add(uint32_t np, uint32_t &rc)
    {
        inline_svc_trace("flow_prm_add: npnum %d\n", np);
        if (has_stats(flow_)) {
            if (np >= SHADOW_DB_MAX_NPS) {
                inline_svc_trace_error("flow_prm_add: npnum %d has no counters", np);
                return EINVAL;
            }
            if (const Ended ended = counters_.take(flow_, np, policer_))
                return ended;
            counters_.write_address(flow_.counter[np], entry_.result + 3);
        }
        rc = prm_srh_flow_db_add(handle_, &entry_);
        if (rc != 0) // Kept: the text names another operation
            inline_svc_trace_error("Error in prm_srh_ext_service_db_add(), rc: 0x%x", rc);
        return {};
    }

    Ended modify(uint32_t np, uint32_t &rc)
    {
        inline_svc_trace("flow_prm_modify: npnum %d\n", np);
        write_stored_counter(np);
        inline_svc_trace("prm_update: modify called\n");
        rc = prm_srh_flow_db_mod(handle_, &entry_);
        return {};
    }

    Ended remove(uint32_t np, uint32_t &rc)
    {
        inline_svc_trace("flow_prm_del: npnum %d\n", np);
        write_stored_counter(np);
        inline_svc_trace("prm_update: delete called\n");
        rc = prm_srh_flow_db_del(handle_, &entry_); // Kept: what giving back says hides this
        return counters_.give_back(flow_, np, rc);
    }

    // Kept: other bytes of the result than in an add, and the counter's number in place of its
    // address.
    void write_stored_counter(uint32_t np)
    {
        if (has_stats(flow_))
            write_stored_bytes(counter_of(flow_, np), entry_.result + 1);
    }

    const CounterSource &counters_;
    flow_record &flow_;
    uint32_t policer_;
    void *handle_;
    prm_config_record entry_;
};

uint32_t update_flow(const CounterSource &counters, uint32_t action, flow_record *record,
                     uint32_t policer, const char *function = __builtin_FUNCTION())
{
    if (record == nullptr)
        return refuse_null("record", function);
    if (const uint32_t rc = refuse_without_context(function))
        return rc;
    if (!has_fitting_lengths(*record)) {
        static constexpr char text[] = "flow too long: key %d result %d";
        inline_svc_trace_error(text, record->key_len, record->result_len);
        return EINVAL;
    }
    return FlowUpdate(counters, *record, policer).run(action);
}

} // namespace

void inline_flow_make_prm_entry(const flow_record *record, prm_config_record *entry)
{
    if (record == nullptr || entry == nullptr) {
        refuse_null(record == nullptr ? "record" : "entry");
        return;
    }
    if (!has_fitting_lengths(*record)) {
        static constexpr char text[] = "flow entry too long: key %d result %d";
        inline_svc_trace_error(text, record->key_len, record->result_len);
        return;
    }
    *entry = {};
    entry->kind = PRM_RECORD_KIND;
    entry->key_len = record->key_len;
    memcpy(entry->key, record->key, record->key_len);
    entry->result_len = record->result_len;
    memcpy(entry->result, record->result, record->result_len);
}

uint32_t inline_flow_db_update_prm(uint32_t action, flow_record *record, uint32_t policer)
{
    return update_flow(dynamic_counters, action, record, policer);
}

uint32_t inline_flow_update_prm(uint32_t action, flow_record *record)
{
    return update_flow(pool_counters, action, record, 0);
}

uint32_t inline_flow_read_stats(flow_record *record, uint64_t *first, uint64_t *second,
                                int32_t flag)
{
    if (record == nullptr || first == nullptr || second == nullptr)
        return refuse_null(record == nullptr ? "record" : first == nullptr ? "first" : "second");
    *first = 0;
    *second = 0;
    if (!has_stats(*record))
        return 0;
    if (pgbl_ptr == nullptr)
        return refuse_null("pgbl_ptr");
    const NpRange nps = nps_of(*record);
    for (int32_t place = nps.first; place <= nps.last; ++place) {
        const auto np = static_cast<uint32_t>(place);
        const uint32_t counter = counter_of(*record, np);
        if (counter == 0)
            continue;
        uint32_t mode = PRM_STATS_MODE;
        uint64_t words[2] = {};
        const uint32_t option = flag == 0 ? PRM_STATS_READ_OTHER : PRM_STATS_READ;
        if (prm_stats_cl_read(pgbl_ptr->prm_conn, counter, np, &mode, words, nullptr, option) != 0)
            continue;
        *first += words[0];
        *second += words[1];
    }
    return 0;
}
