// The pass that reads every entry's counters and tells the services, against a bare loop that makes
// the same reads and calls over the same nodes in the order in which they lie in the window.
//
// Where a node lies is what counts: a list's nodes follow each other as they came, or anywhere.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "paired.h"
#include "platform_list.h"
#include "platform_prm_stats.h"
#include "platform_shared_window.h"
#include "stand_in_platform.h"

namespace {

constexpr uint16_t num_nps = 8;
constexpr uint32_t first_counter = 0xC00000;

struct Told {
    uint64_t entries = 0;
    uint64_t packets = 0;
};
Told told; // by the pass or the loop, whose callback this is

void tell(uint32_t, uint32_t entry_id, uint32_t phase, uint32_t packets, uint32_t)
{
    told.entries += phase == 0;
    told.packets += packets + entry_id;
}

// Lists of so many nodes each, two a key.
class StoredNodes {
public:
    StoredNodes(uint32_t lists, uint32_t nodes_a_list, bool scattered)
    {
        for (uint32_t i = 0; i < lists * nodes_a_list; ++i)
            nodes_.push_back(new_node(i));
        std::vector<shmem_node *> listed = nodes_;
        if (scattered)
            std::shuffle(listed.begin(), listed.end(), std::mt19937(1));
        for (uint32_t i = 0; i < listed.size(); ++i)
            append(i / nodes_a_list, listed[i]);
        for (inline_svc_app_stats_fn &handler : host_.context().app_stats_handler)
            handler = tell;
        expect_the_same();
    }

    void pass() const { inline_svc_stats_collection(); }

    void bare_loop() const
    {
        for (const shmem_node *node : nodes_) {
            stats_sum sum = {};
            for (uint32_t np = 0; np < num_nps; ++np) {
                uint32_t mode = PRM_STATS_MODE;
                uint64_t words[2] = {};
                uint64_t unused = 0;
                if (prm_stats_cl_read(connection_, node->stat_index_rx[np], np, &mode, words,
                                      &unused, PRM_STATS_READ) != 0)
                    continue;
                sum.first += static_cast<uint32_t>(words[0]);
                sum.second += static_cast<uint32_t>(words[1]);
            }
            call_(0, node->app_node.entry_id, 0, sum.first, sum.second);
        }
    }

    size_t count() const { return nodes_.size(); }

private:
    static shmem_node *new_node(uint32_t number)
    {
        auto *node =
            static_cast<shmem_node *>(inline_svc_shared_mem_alloc(int32_t{sizeof(shmem_node)}));
        node->app_node.entry_id = number;
        node->app_node.shmem_node = node;
        for (uint32_t &counter : node->stat_index_rx)
            counter = first_counter + number;
        return node;
    }

    void append(uint32_t list, shmem_node *node)
    {
        main_entry *&main = host_.root().main_table[list / SHADOW_DB_TABLES];
        if (main == nullptr)
            main =
                static_cast<main_entry *>(inline_svc_shared_mem_alloc(int32_t{sizeof(main_entry)}));
        list_record &table = main->table_array[list % SHADOW_DB_TABLES];
        ++main->num_elements[list % SHADOW_DB_TABLES];
        list_enqueue_default(&table, node, node);
    }

    void expect_the_same() const
    {
        told = {};
        pass();
        const Told by_pass = told;
        told = {};
        bare_loop();
        if (by_pass.entries != told.entries || by_pass.entries != count())
            throw std::logic_error("the pass and the loop tell of different nodes");
    }

    bench::StandInHost host_{num_nps};
    std::vector<shmem_node *> nodes_;
    void *connection_ = host_.context().prm_conn;
    inline_svc_app_stats_fn volatile call_ = tell;
};

struct Row {
    const char *what;
    uint32_t lists;
    uint32_t nodes_a_list;
    bool scattered;
    double gate;
    double aim;
};

// A card has 2,048 lists at most, so lists of 8 are fewer nodes.
constexpr Row rows[] = {
    {"statistics pass, a node, in allocation order", 2048, 10, false, 1.2, 1.05},
    {"statistics pass, a node, scattered, 8 a list", 2048, 8, true, 1.4, 1.15},
    {"statistics pass, a node, scattered, 64 a list", 320, 64, true, 2.2, 1.7},
};

// One set of nodes at a time, made when its row is measured.
const StoredNodes &nodes_of(const Row &row)
{
    static std::unique_ptr<StoredNodes> nodes;
    static const Row *made = nullptr;
    if (made != &row) {
        nodes.reset();
        nodes = std::make_unique<StoredNodes>(row.lists, row.nodes_a_list, row.scattered);
        made = &row;
    }
    return *nodes;
}

void add_row(const Row &row)
{
    bench::add_pair({.what = row.what,
                     .reference = "bare loop",
                     .ours = [&row](size_t) { nodes_of(row).pass(); },
                     .other = [&row](size_t) { nodes_of(row).bare_loop(); },
                     .operations = size_t{row.lists} * row.nodes_a_list,
                     .gate = row.gate,
                     .aim = row.aim,
                     .long_slices = true});
}

} // namespace

int main(int argc, char **argv)
{
    for (const Row &row : rows)
        add_row(row);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
