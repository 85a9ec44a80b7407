#include "flow_service.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <string>
#include <utility>

#include "inline_service_context.h"
#include "platform_prm_stats.h"
#include "service_error.h"

namespace services {

namespace {

// Of the process's one table; the library gives its functions the record alone.
uint32_t bucket_count = 0;

const flow_record &record_at(const void *entry)
{
    return *static_cast<const flow_record *>(entry);
}

int32_t bucket_of(const void *entry)
{
    const uint64_t share = record_at(entry).flow_key >> 32;
    return static_cast<int32_t>(share * bucket_count >> 32);
}

int32_t has_number(const void *entry, const void *key_record)
{
    return record_at(entry).flow_key == record_at(key_record).flow_key ? 1 : 0;
}

bool is_of(const flow_record &record, const flow_layout::Tuple &tuple)
{
    const flow_layout::Key key = flow_layout::key_of(tuple);
    return std::ranges::equal(key, std::span(record.key, record.key_len));
}

flow_layout::FlowInfo info_of(const flow_record &record)
{
    if (const auto info = flow_layout::flow_in(record.user_data))
        return *info;
    flow_layout::FlowInfo unknown; // another owner's record: its key is what there is
    if (const auto tuple = flow_layout::tuple_in({record.key, record.key_len}))
        unknown.tuple = *tuple;
    return unknown;
}

struct Count {
    uint64_t packets = 0;
    uint64_t bytes = 0;
};

Count counted_on(const flow_record &record)
{
    Count count;
    flowdb_read_stats(const_cast<flow_record *>(&record), &count.packets, &count.bytes, 1);
    return count;
}

// The library reads a flow's first counters alone; the ones behind them count what is dropped.
Count dropped_from(const flow_record &record)
{
    Count count;
    for (uint32_t np = 0; np < SHADOW_DB_MAX_NPS; ++np) {
        uint64_t words[2] = {};
        uint32_t mode = PRM_STATS_MODE;
        if (record.drop_counter[np] == 0 ||
            prm_stats_cl_read(pgbl_ptr->prm_conn, record.drop_counter[np], np, &mode, words,
                              nullptr, PRM_STATS_READ) != 0)
            continue;
        count.packets += words[0];
        count.bytes += words[1];
    }
    return count;
}

constexpr uint64_t mixed(uint64_t word)
{
    word = (word ^ word >> 32) * 0xD6E8FEB86659FD93;
    word = (word ^ word >> 32) * 0xD6E8FEB86659FD93;
    return word ^ word >> 32;
}

} // namespace

uint64_t flow_number(const flow_layout::Tuple &tuple)
{
    const uint64_t addresses = uint64_t{tuple.source} << 32 | tuple.destination;
    const uint64_t rest =
        uint64_t{tuple.source_port} << 32 | uint64_t{tuple.destination_port} << 16 | tuple.protocol;
    return mixed(mixed(addresses) ^ std::rotl(mixed(rest + 1), 23));
}

FlowService::FlowService(const FlowOptions &options, FlowPlatform platform, OnEnd on_end)
    : options_(options), platform_(std::move(platform)), on_end_(std::move(on_end))
{
    find_or_make_table();
    sums_.found = table_->count;
    dpss_flow_table_init(0, 0, 0, 0);
}

// A table is whole before one store gives it to the root. A kill before that leaves its bytes
// taken.
void FlowService::find_or_make_table()
{
    table_ = dpss_flow_get_db_handle();
    if (table_ != nullptr) {
        bucket_count = table_->num_buckets;
        in_hash_init(bucket_count, table_, bucket_of, has_number);
        return;
    }
    bucket_count = options_.buckets;
    table_ = flowdb_init(bucket_count, bucket_of, has_number);
    if (table_ == nullptr || pshadow_db == nullptr)
        throw ServiceError("the window has no room for a flow table of " +
                           std::to_string(options_.buckets) + " buckets");
    std::atomic_ref(pshadow_db->flow_db).store(table_, std::memory_order_release);
}

void FlowService::add(const flow_layout::Tuple &tuple, uint32_t np, int64_t when)
{
    const uint64_t number = flow_number(tuple);
    if (const flow_record *present = flowdb_lookup(table_, number)) {
        ++(is_of(*present, tuple) ? sums_.rowless : sums_.collisions);
        return;
    }
    flow_layout::FlowInfo info{.tuple = tuple,
                               .first_packet = when,
                               .last_active = when,
                               .idle_time = options_.idle_time.count()};
    if (options_.policer) {
        info.policer = true;
        info.rate = options_.policer->rate;
        info.burst = options_.policer->burst;
    }
    const uint32_t rc =
        dpss_flow_add_modify(number, options_.on_all_nps ? FLOW_ALL_NPS : np, 1, &info);
    if (rc == 0)
        ++sums_.added;
    else
        ++sums_.refused[rc];
}

// The whole table is walked once in an idle time.
void FlowService::start_walking()
{
    constexpr uint32_t intervals = uint32_t{FLOW_SCAN_PERIOD} / IN_HASH_SCAN_INTERVAL;
    const auto interval = options_.idle_time / intervals;
    platform_.after(std::max(interval, std::chrono::nanoseconds(1)), [this] {
        walk();
        start_walking();
    });
}

void FlowService::walk()
{
    in_hash_periodic_walker(table_);
    for (const uint64_t number : idle_) // not within the walk, which must find its chains again
        end(number);
    idle_.clear();
}

void FlowService::look_at(std::span<void *const> records)
{
    for (void *entry : records) {
        auto &record = *static_cast<flow_record *>(entry);
        if (is_idle(record))
            idle_.push_back(record.flow_key);
    }
}

// Notes in the record when it has counted something new.
bool FlowService::is_idle(flow_record &record) const
{
    flow_layout::FlowInfo info = info_of(record);
    const int64_t now = platform_.now();
    const Count passed = counted_on(record);
    const uint64_t seen = passed.packets + dropped_from(record).packets;
    if (seen == info.seen_packets) {
        const int64_t idle = info.idle_time > 0 ? info.idle_time : options_.idle_time.count();
        return now - info.last_active >= idle;
    }
    info.seen_packets = seen;
    info.last_active = now;
    std::ranges::copy(flow_layout::user_data_of(info), record.user_data);
    return false;
}

FlowAccount FlowService::account_of(const flow_record &record) const
{
    const flow_layout::FlowInfo info = info_of(record);
    const Count passed = counted_on(record);
    const Count dropped = dropped_from(record);
    const auto last = platform_.last_packet ? platform_.last_packet(info.tuple) : std::nullopt;
    return {.tuple = info.tuple,
            .packets = passed.packets,
            .bytes = passed.bytes,
            .dropped_packets = dropped.packets,
            .dropped_bytes = dropped.bytes,
            .first_packet = info.first_packet,
            .last_packet = last.value_or(info.last_active)};
}

void FlowService::end(uint64_t flow_key)
{
    const flow_record *record = flowdb_lookup(table_, flow_key);
    if (record == nullptr)
        return;
    FlowAccount account = account_of(*record);
    account.end = FlowEnd::idle;
    const uint32_t rc =
        dpss_flow_delete_with_stats_read(flow_key, &account.packets, &account.bytes);
    if (rc != 0)
        ++sums_.undeleted[rc];
    ++sums_.ended;
    on_end_(account);
}

namespace {

std::vector<const flow_record *> *gathered = nullptr; // by the read of the whole table

uint32_t gather(void **entries, uint32_t count, uint32_t)
{
    for (uint32_t i = 0; i < count; ++i)
        gathered->push_back(static_cast<const flow_record *>(entries[i]));
    return 0;
}

} // namespace

std::vector<FlowAccount> FlowService::active() const
{
    std::vector<const flow_record *> records;
    records.reserve(table_->count);
    gathered = &records;
    flowdb_read_all(table_, gather, IN_HASH_BATCH_MAX);
    gathered = nullptr;
    std::vector<FlowAccount> accounts;
    accounts.reserve(records.size());
    for (const flow_record *record : records)
        accounts.push_back(account_of(*record));
    return accounts;
}

} // namespace services
