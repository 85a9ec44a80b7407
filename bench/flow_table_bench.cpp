// Flows by the million: what one operation costs as the table fills, with as many buckets as flows.
//
// Flows lie in the window in the order in which they came, and are met in another one, as packets
// would. Lookups depend on each other: the flow that was found says which one is next. The peer is
// std::unordered_map with records of the same size, filled and met in the same orders.
#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench_card.h"
#include "flow_layout.h"
#include "inline_service_context.h"
#include "inline_service_flowdb.h"
#include "numbered_flows.h"

namespace {

constexpr int64_t fewest = 1000;
constexpr int64_t most = 1'024'000;

// The order in which flows are met: one round through all, each naming the next.
std::vector<uint64_t> round_of(uint64_t flows)
{
    std::vector<uint64_t> order(flows);
    for (uint64_t number = 0; number < flows; ++number)
        order[number] = number;
    std::shuffle(order.begin(), order.end(), std::mt19937_64(1));
    std::vector<uint64_t> next(flows);
    for (uint64_t place = 0; place < flows; ++place)
        next[order[place]] = bench::flow_key_of(order[(place + 1) % flows]);
    return next;
}

void set_next(flow_record &record, uint64_t key)
{
    memcpy(record.user_data, &key, sizeof key);
}
uint64_t next_of(const flow_record &record)
{
    uint64_t key = 0;
    memcpy(&key, record.user_data, sizeof key);
    return key;
}

vlc::CardConfig large_card()
{
    vlc::CardConfig config;
    config.num_nps = 1;
    config.window_bytes = uint64_t{1} << 30;
    return config;
}

// The one card and, on it, the table that the last measurement filled.
class FlowTable {
public:
    in_hash_table *filled(uint64_t flows)
    {
        if (flows == flows_)
            return table_;
        card_.reset(); // one at a time
        card_ = std::make_unique<bench::BenchCard>(large_card());
        flows_ = flows;
        bench::flow_buckets = static_cast<uint32_t>(flows);
        table_ = flowdb_init(bench::flow_buckets, bench::bucket_of_flow, bench::has_flow_key);
        const std::vector<uint64_t> next = round_of(flows);
        for (uint64_t number = 0; number < flows; ++number) {
            flow_record *record = flowdb_alloc();
            record->flow_key = bench::flow_key_of(number);
            set_next(*record, next[number]);
            in_hash_insert(table_, record);
        }
        return table_;
    }

    void run_events() { card_->run_events(); }

private:
    std::unique_ptr<bench::BenchCard> card_;
    in_hash_table *table_ = nullptr;
    uint64_t flows_ = 0;
};

FlowTable flow_table;

void lookup(benchmark::State &state)
{
    in_hash_table *table = flow_table.filled(static_cast<uint64_t>(state.range(0)));
    uint64_t key = bench::flow_key_of(0);
    for (auto _ : state)
        key = next_of(*flowdb_lookup(table, key));
    benchmark::DoNotOptimize(key);
}

void lookup_unordered_map(benchmark::State &state)
{
    const auto flows = static_cast<uint64_t>(state.range(0));
    std::unordered_map<uint64_t, flow_record> map;
    map.max_load_factor(1);
    map.reserve(flows);
    const std::vector<uint64_t> next = round_of(flows);
    for (uint64_t number = 0; number < flows; ++number)
        set_next(map[bench::flow_key_of(number)], next[number]);
    uint64_t key = bench::flow_key_of(0);
    for (auto _ : state)
        key = next_of(map.find(key)->second);
    benchmark::DoNotOptimize(key);
}

void delete_and_insert(benchmark::State &state)
{
    in_hash_table *table = flow_table.filled(static_cast<uint64_t>(state.range(0)));
    uint64_t key = bench::flow_key_of(0);
    for (auto _ : state) {
        flow_record *record = flowdb_lookup(table, key);
        key = next_of(*record);
        in_hash_delete(table, record);
        in_hash_insert(table, record);
    }
}

uint64_t seen = 0;

void read_all(benchmark::State &state)
{
    in_hash_table *table = flow_table.filled(static_cast<uint64_t>(state.range(0)));
    seen = 0;
    for (auto _ : state)
        in_hash_read_all(
            table,
            [](void **, uint32_t count, uint32_t) {
                seen += count;
                return uint32_t{0};
            },
            IN_HASH_BATCH_MAX);
    state.SetItemsProcessed(static_cast<int64_t>(seen));
}

// Ageing: the walker's next slice, and a look at each flow in it.
void walk(benchmark::State &state)
{
    in_hash_table *table = flow_table.filled(static_cast<uint64_t>(state.range(0)));
    in_hash_set_scan_callback(
        table,
        [](void **records, uint32_t count) {
            for (uint32_t i = 0; i < count; ++i)
                seen += static_cast<const flow_record *>(records[i])->state + 1;
        },
        FLOW_SCAN_PERIOD, FLOW_SCAN_BATCH);
    seen = 0;
    for (auto _ : state)
        in_hash_periodic_walker(table);
    state.SetItemsProcessed(static_cast<int64_t>(seen));
}

// The flow service's own operations, with the request to one NP, its answer and their log lines.
void add_and_delete(benchmark::State &state)
{
    const auto flows = static_cast<uint64_t>(state.range(0));
    in_hash_table *table = flow_table.filled(flows);
    pshadow_db->flow_db = table;
    dpss_flow_table_init(0, 0, 0, 0);
    uint64_t number = flows;
    for (auto _ : state) {
        flow_layout::FlowInfo info;
        info.tuple.source = static_cast<uint32_t>(number);
        dpss_flow_add_modify(bench::flow_key_of(number), FLOW_ALL_NPS, 1, &info);
        dpss_flow_delete(bench::flow_key_of(number));
        if (++number % 256 == 0)
            flow_table.run_events(); // the answers
    }
}

void sizes(benchmark::internal::Benchmark *family)
{
    for (int64_t flows = fewest; flows <= most; flows *= 4)
        family->Arg(flows);
    family->ArgName("flows");
}

BENCHMARK(lookup)->Name("curve/lookup")->Apply(sizes);
BENCHMARK(lookup_unordered_map)->Name("curve/lookup_unordered_map")->Apply(sizes);
BENCHMARK(delete_and_insert)->Name("curve/delete_and_insert")->Apply(sizes);
BENCHMARK(read_all)->Name("curve/read_all")->Apply(sizes);
BENCHMARK(walk)->Name("curve/walk")->Apply(sizes);
BENCHMARK(add_and_delete)->Name("curve/add_and_delete")->Apply(sizes);

} // namespace

BENCHMARK_MAIN();
