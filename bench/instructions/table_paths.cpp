// The library as it ships, on a platform of stand-ins.
#include "hot_path.h"
#include "inline_service_flowdb.h"
#include "insert_paths.h"
#include "numbered_flows.h"
#include "platform_list.h"
#include "stand_in_platform.h"

#include <cstdint>
#include <vector>

namespace {

// ---- the flow table ----------------------------------------------------------------------------

constexpr uint32_t flows = 10'000;

in_hash_table *table_of_flows()
{
    bench::flow_buckets = flows;
    return flowdb_init(flows, bench::bucket_of_flow, bench::has_flow_key);
}

// Ten thousand flows in as many buckets.
class Flows {
public:
    Flows() : table_(table_of_flows())
    {
        for (uint64_t number = 0; number < flows; ++number) {
            flow_record *record = flowdb_alloc();
            record->flow_key = bench::flow_key_of(number);
            in_hash_insert(table_, record);
            records_.push_back(record);
        }
    }
    in_hash_table *table() const { return table_; }
    const std::vector<flow_record *> &records() const { return records_; }

private:
    bench::StandInHost host_{1};
    in_hash_table *table_;
    std::vector<flow_record *> records_;
};

void hash_hit()
{
    const Flows made;
    uint64_t missed = 0;
    const auto look_up_all = [&] {
        for (const flow_record *record : made.records())
            missed += in_hash_lookup(made.table(), record) != record;
    };
    look_up_all();
    bench::count_instructions(flows, look_up_all);
    if (missed != 0)
        bench::why_unavailable = "lookups missed";
}

// Each flow goes and comes again, so that the chains stay as they are, in another order.
void hash_delete_or_insert(bool count_deletes)
{
    const Flows made;
    constexpr uint64_t at_once = 100;
    for (size_t begin = 0; begin + at_once <= flows; begin += at_once) {
        const auto for_some = [&](auto operation) {
            return [&made, operation, begin] {
                for (size_t i = begin; i < begin + at_once; ++i)
                    operation(made.table(), made.records()[i]);
            };
        };
        const auto remove = for_some(in_hash_delete);
        const auto insert = for_some(in_hash_insert);
        if (count_deletes) {
            bench::count_instructions(at_once, remove);
            insert();
        } else {
            remove();
            bench::count_instructions(at_once, insert);
        }
    }
}

uint64_t flows_read = 0;

void hash_read_all()
{
    const Flows made;
    constexpr auto look = [](void **, uint32_t count, uint32_t) {
        flows_read += count;
        return uint32_t{0};
    };
    bench::count_instructions(flows,
                              [&] { in_hash_read_all(made.table(), look, IN_HASH_BATCH_MAX); });
    if (flows_read != flows)
        bench::why_unavailable = "not all flows were read";
}

// A flow on all of eight NPs, with counters, and its lines.
void flow_life()
{
    bench::StandInHost host(8);
    host.root().flow_db = table_of_flows();
    dpss_flow_table_init(0, 0, 0, 0);
    const auto live = [](uint64_t begin, uint64_t end) {
        for (uint64_t number = begin; number < end; ++number) {
            uint64_t info = bench::flow_key_of(number);
            dpss_flow_add_modify(bench::flow_key_of(number), FLOW_ALL_NPS, 1, &info);
            dpss_flow_delete(bench::flow_key_of(number));
        }
    };
    live(0, 200); // more than a stream's first lines, each of which asks for its position
    bench::count_instructions(100, [&] { live(200, 300); });
}

// ---- the statistics pass -----------------------------------------------------------------------

uint64_t entries_told = 0;

void statistics_pass()
{
    constexpr uint32_t lists = 16;
    constexpr uint32_t nodes_a_list = 64;
    bench::StandInHost host(8);
    for (inline_svc_app_stats_fn &handler : host.context().app_stats_handler)
        handler = [](uint32_t, uint32_t, uint32_t phase, uint32_t, uint32_t) {
            entries_told += phase == 0;
        };
    for (uint32_t list = 0; list < lists; ++list) {
        auto *main =
            static_cast<main_entry *>(inline_svc_shared_mem_alloc(int32_t{sizeof(main_entry)}));
        host.root().main_table[list] = main;
        for (uint32_t i = 0; i < nodes_a_list; ++i) {
            auto *node =
                static_cast<shmem_node *>(inline_svc_shared_mem_alloc(int32_t{sizeof(shmem_node)}));
            for (uint32_t &counter : node->stat_index_rx)
                counter = 0xC00000 + i;
            list_enqueue_default(&main->table_array[0], node, node);
        }
    }
    inline_svc_stats_collection();
    bench::count_instructions(lists * nodes_a_list, [] { inline_svc_stats_collection(); });
    if (entries_told != 2 * lists * nodes_a_list)
        bench::why_unavailable = "not all entries were told";
}

constexpr bench::HotPath paths[] = {
    {"hash lookup, hit", hash_hit},
    {"hash insert at head", [] { hash_delete_or_insert(false); }},
    {"hash delete", [] { hash_delete_or_insert(true); }},
    {"hash read-all in 256s, a flow", hash_read_all},
    {"flow added and deleted, 8 NPs", flow_life},
    {"statistics pass, a node, 8 NPs", statistics_pass},
    {"insert, 8 NPs", [] { bench::count_inserts(false); }},
};

} // namespace

const std::span<const bench::HotPath> bench::hot_paths = paths;
