// The store of flows and the flow service's entry points.

#include "inline_service_flowdb.h"

#include <cerrno>
#include <climits>
#include <cstring>

#include "inline_service_context.h"
#include "inline_service_hash_bucket.h"
#include "inline_service_log.h"
#include "platform_encoders.h"
#include "platform_flow.h"

using namespace inline_service;

namespace {

// The flow service's, as of dpss_flow_table_init.
void *flow_encoder = nullptr;
in_hash_table *flow_table = nullptr;

// Looks flows up; only its key is ever set. One is enough for the one thread.
flow_record key_record;

// Encoders write as much as they like into a scratch; what fits is taken from there.
template <size_t Size, typename Encoder>
void encode(uint8_t (&field)[Size], Encoder encoder)
{
    static_assert(Size <= ENCODER_SCRATCH_BYTES);
    uint8_t scratch[ENCODER_SCRATCH_BYTES] = {};
    encoder(scratch);
    memcpy(field, scratch, Size);
}

uint32_t encode_flow(flow_record &record, const void *flow_info)
{
    encode(record.user_data,
           [&](uint8_t *scratch) { dpss_flow_encoder_userdata(flow_info, scratch); });
    encode(record.key,
           [&](uint8_t *scratch) { dpss_flow_encoder_key(flow_info, scratch, &record.key_len); });
    if (record.key_len > FLOW_KEY_BYTES) {
        inline_svc_trace_error("flow key too long: length %d", record.key_len);
        return EINVAL;
    }
    encode(record.result, [&](uint8_t *scratch) { dpss_flow_encoder_result(flow_info, scratch); });
    record.result_len = FLOW_RESULT_LENGTH;
    return 0;
}

void fill(flow_record &record, uint64_t flow_key, uint32_t np, uint32_t with_stats)
{
    record.flow_key = flow_key;
    record.flags = 0;
    if (np == FLOW_ALL_NPS)
        record.flags |= FLOW_ON_ALL_NPS;
    else
        record.np = static_cast<uint8_t>(np);
    if (with_stats != 0)
        record.flags |= FLOW_HAS_STATS;
    record.state = FLOW_STATE_BUILT;
}

} // namespace

in_hash_table *flowdb_init(uint32_t num_buckets, in_hash_fn hash, in_hash_match_fn match)
{
    const uint64_t bytes = sizeof(in_hash_table) + sizeof(HashLink *) * uint64_t{num_buckets};
    if (bytes > INT32_MAX) {
        inline_svc_trace_error("flow table of %u buckets is too large", num_buckets);
        return nullptr;
    }
    void *block = inline_svc_shared_mem_alloc(static_cast<int32_t>(bytes));
    if (block == nullptr)
        return nullptr;
    return in_hash_init(num_buckets, static_cast<in_hash_table *>(block), hash, match);
}

uint32_t flowdb_set_scan_callback(in_hash_table *table, in_hash_scan_fn callback, uint32_t period,
                                  uint32_t batch)
{
    return in_hash_set_scan_callback(table, callback, period, batch);
}

uint32_t flowdb_read_all(in_hash_table *table, in_hash_read_fn callback, uint32_t batch)
{
    return in_hash_read_all(table, callback, batch);
}

flow_record *flowdb_alloc(void)
{
    return static_cast<flow_record *>(inline_svc_shared_mem_alloc(sizeof(flow_record)));
}

uint32_t flowdb_free(flow_record *record)
{
    return inline_svc_shared_mem_free(record);
}

flow_record *flowdb_lookup(in_hash_table *table, uint64_t flow_key)
{
    key_record.flow_key = flow_key;
    return static_cast<flow_record *>(in_hash_lookup(table, &key_record));
}

uint32_t flowdb_add(in_hash_table *table, flow_record *record, uint32_t policer)
{
    if (table == nullptr || record == nullptr)
        return refuse_null(table == nullptr ? "table" : "record");
    if (bucket_of(table, record) == nullptr) { // it could not be entered when it is programmed
        inline_svc_trace_error("hash of flow %016lx is outside the table", record->flow_key);
        return EINVAL;
    }
    const uint32_t rc = inline_flow_db_update_prm(FLOW_ADD, record, policer);
    if (rc != 0) {
        inline_svc_trace_error("inline_flow_db_update_prm failed, rc: 0x%x", rc);
        return rc;
    }
    in_hash_insert(table, record);
    return 0;
}

uint32_t flowdb_modify(in_hash_table *, flow_record *record)
{
    return inline_flow_db_update_prm(FLOW_MODIFY, record, 0);
}

uint32_t flowdb_delete(in_hash_table *table, flow_record *record)
{
    if (table == nullptr || record == nullptr)
        return refuse_null(table == nullptr ? "table" : "record");
    const uint32_t rc = inline_flow_db_update_prm(FLOW_DELETE, record, 0);
    in_hash_delete(table, record);
    return rc;
}

uint32_t flowdb_read_stats(flow_record *record, uint64_t *first, uint64_t *second, uint32_t flag)
{
    return inline_flow_read_stats(record, first, second, static_cast<int32_t>(flag));
}

in_hash_table *dpss_flow_get_db_handle(void)
{
    return pshadow_db != nullptr ? pshadow_db->flow_db : nullptr;
}

uint32_t dpss_flow_table_init(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4)
{
    flow_encoder = ac_encode_init(arg1, arg2, arg3, arg4);
    flow_table = dpss_flow_get_db_handle();
    flowdb_set_scan_callback(flow_table, dpss_flow_scan_callback, FLOW_SCAN_PERIOD,
                             FLOW_SCAN_BATCH);
    return 0;
}

uint32_t dpss_flow_add_modify(uint64_t flow_key, uint32_t np, uint32_t with_stats, void *flow_info)
{
    if (flowdb_lookup(flow_table, flow_key) != nullptr)
        return EEXIST; // Kept: an existing flow is never modified, whatever the name says
    flow_record *record = flowdb_alloc();
    if (record == nullptr)
        return ENOMEM;
    fill(*record, flow_key, np, with_stats);
    uint32_t rc = encode_flow(*record, flow_info);
    if (rc == 0) {
        rc = flowdb_add(flow_table, record, dpss_flow_is_policer_enabled(flow_info));
        if (rc == 0)
            return 0;
        inline_svc_trace_error("flowdb_add failed, rc: 0x%x", rc);
    }
    flowdb_free(record);
    return rc;
}

uint32_t dpss_flow_lookup(uint64_t flow_key, void *out)
{
    const flow_record *record = flowdb_lookup(flow_table, flow_key);
    if (record == nullptr)
        return ENOENT;
    if (out == nullptr)
        return refuse_null("out");
    dpss_fill_flow_info_from_db(record->user_data, out, DPSS_FILL_FROM_USER_DATA);
    return 0;
}

namespace {

uint32_t delete_and_free(flow_record *record)
{
    const uint32_t rc = flowdb_delete(flow_table, record);
    flowdb_free(record);
    return rc;
}

} // namespace

uint32_t dpss_flow_delete(uint64_t flow_key)
{
    flow_record *record = flowdb_lookup(flow_table, flow_key);
    return record != nullptr ? delete_and_free(record) : 0;
}

uint32_t dpss_flow_delete_with_stats_read(uint64_t flow_key, uint64_t *first, uint64_t *second)
{
    if (first == nullptr || second == nullptr)
        return refuse_null(first == nullptr ? "first" : "second");
    *first = 0;
    *second = 0;
    flow_record *record = flowdb_lookup(flow_table, flow_key);
    if (record == nullptr)
        return 0;
    flowdb_read_stats(record, first, second, 1);
    return delete_and_free(record);
}
