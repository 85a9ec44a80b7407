// Thousands of random batches over both tables and several keys while PRM, the lists and the window
// fail at random: after each, shadow, hardware, counters and memory must be what the reference
// says.
#include <random>

#include "shadow_fixture.h"
#include "shadow_model.h"

using namespace test;

namespace {

constexpr uint16_t keys[] = {1, 2, 0x105, 0x2FF, 0x3FF, 1024};
const std::string texts[] = {"a",       "b",   "key three", "0xaaaa",
                             "longest", "e e", "\x01\xff",  std::string(48, 'k')};

class RandomBatches : public ShadowDbTest, public testing::WithParamInterface<uint32_t> {
protected:
    RandomBatches() : random_(GetParam()), blocks_before_(blocks()) {}

    uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_()) % bound; }
    bool one_in(uint32_t times) { return below(times) == 0; }

    // ---- what to do

    app_node new_content(uint32_t action)
    {
        const std::string &key = texts[below(std::size(texts))];
        const std::string result(1 + below(64), static_cast<char>('0' + below(10)));
        app_node content =
            make_node(++last_id_, below(2), key, result, action, one_in(3) ? 0xFFFFFFFF : below(9));
        if (one_in(40))
            content.table_type = 2;
        if (one_in(40))
            content.key_len = 49;
        if (one_in(60))
            content.result_len = 65;
        return content;
    }

    std::vector<NodePointer> nodes_of(uint16_t key)
    {
        std::vector<NodePointer> nodes;
        if (const auto found = model_.entries.find(key); found != model_.entries.end()) {
            for (const ModelTable &table : found->second.tables) {
                nodes.insert(nodes.end(), table.listed.begin(), table.listed.end());
                nodes.insert(nodes.end(), table.lost.begin(), table.lost.end());
            }
        }
        return nodes;
    }

    void add_change(ModelBatch &batch, const NodePointer &node)
    {
        ModelRequest request = {node->content, node};
        request.content.action = 2 + below(2);
        request.content.shmem_node = node->address;
        if (request.content.action == 2 || one_in(10)) {
            const uint32_t length = 1 + below(64);
            memset(request.content.result, 'A' + static_cast<int>(below(26)), length);
            request.content.result_len = length;
        }
        if (one_in(8))
            request.content.hw_index = one_in(2) ? 0xFFFFFFFF : 3;
        if (one_in(20))
            request.content.table_type ^= 1;
        batch.requests.push_back(request);
        if (request.content.action == 3 && one_in(10))
            batch.requests.push_back(request); // the same node twice
    }

    ModelBatch new_batch()
    {
        ModelBatch batch;
        batch.key = keys[below(std::size(keys))];
        batch.tag = static_cast<uint16_t>(random_());
        batch.app_ID = static_cast<uint32_t>(random_());
        batch.app_param = static_cast<uint32_t>(random_());
        batch.action = one_in(25) ? 3 : below(3);
        std::vector<NodePointer> nodes = nodes_of(batch.key);
        std::shuffle(nodes.begin(), nodes.end(), random_);
        for (uint32_t left = one_in(30) ? 0 : 1 + below(4); left > 0; --left) {
            if (!nodes.empty() && !one_in(3)) {
                add_change(batch, nodes.back());
                nodes.pop_back();
            } else {
                batch.requests.push_back({new_content(one_in(50) ? 4 : 1), nullptr});
            }
        }
        batch.num_node = static_cast<uint32_t>(batch.requests.size());
        return batch;
    }

    Failures new_failures()
    {
        Failures failures;
        if (one_in(6))
            failures.refusing_nps = 1 + below(3);
        failures.list_create = one_in(15);
        failures.enqueue = one_in(15);
        if (one_in(12))
            failures.failing_malloc = 1 + below(3);
        return failures;
    }

    // ---- doing it

    void arm(const Failures &failures)
    {
        for (const char *service : {"prm_srh_service_config_add", "prm_srh_service_config_mod",
                                    "prm_srh_service_config_del", "prm_srh_ext_service_db_add",
                                    "prm_srh_ext_service_db_mod", "prm_srh_ext_service_db_del"}) {
            services.script(service, [failures](const vlc::ServiceCall &call) {
                return (failures.refusing_nps >> record_of(call).np & 1) != 0
                           ? std::optional<uint64_t>(prm_refusal)
                           : std::nullopt;
            });
        }
        if (failures.list_create)
            services.force("list_create", 0);
        if (failures.enqueue)
            services.force("list_enqueue_default", 0);
        if (failures.failing_malloc != 0)
            services.force("shmwin_malloc", 12, failures.failing_malloc, 1);
    }

    uint32_t apply(const ModelBatch &model, const Failures &failures)
    {
        Batch batch(model.key, model.app_param);
        batch->app_ID = model.app_ID;
        batch->entry_tag = model.tag;
        batch->action = model.action;
        for (const ModelRequest &request : model.requests)
            batch.add(request.content);
        batch->num_node = model.num_node;
        arm(failures);
        const uint32_t rc = inline_svc_shadow_db_insert_action_array(batch.get());
        services.stop_forcing();
        services.forget();
        run_events();
        return rc;
    }

    // ---- what must hold

    void check_node(const ModelNode &node)
    {
        ASSERT_NE(node.address, nullptr);
        app_node expected = node.content;
        expected.shmem_node = node.address;
        EXPECT_EQ(memcmp(&node.address->app_node, &expected, sizeof expected), 0);
        for (uint32_t np = 0; np < SHADOW_DB_MAX_NPS; ++np) {
            EXPECT_EQ(node.address->stat_index_rx[np], np < model_nps ? node.rx[np] : 0);
            EXPECT_EQ(node.address->stat_index_drop[np], np < model_nps ? node.drop[np] : 0);
        }
        EXPECT_EQ(node.address->reserved_240, 0u);
    }

    void check_table(const list_record &list, const ModelTable &table)
    {
        const list_link *link = list.first;
        for (const NodePointer &node : table.listed) {
            ASSERT_NE(link, nullptr);
            auto *stored = static_cast<shmem_node *>(link->data);
            if (node->address == nullptr)
                node->address = stored; // made by this batch
            EXPECT_EQ(node->address, stored);
            EXPECT_EQ(&stored->link, link);
            check_node(*node);
            link = link->next;
        }
        EXPECT_EQ(link, nullptr);
        for (const NodePointer &node : table.lost)
            check_node(*node);
    }

    void check_shadow()
    {
        for (const uint16_t key : keys) {
            const main_entry *main = entry(key);
            const auto expected = model_.entries.find(key);
            ASSERT_EQ(main != nullptr, expected != model_.entries.end()) << "key " << key;
            if (main == nullptr)
                continue;
            EXPECT_EQ(main->uidb_index, key);
            EXPECT_EQ(main->app_ID, expected->second.app_ID);
            EXPECT_EQ(main->entry_tag, expected->second.tag);
            EXPECT_EQ(main->entry_version, expected->second.version);
            EXPECT_EQ(main->timestamp, expected->second.timestamp);
            for (uint32_t table = 0; table < 2; ++table) {
                EXPECT_EQ(main->num_elements[table], expected->second.tables[table].count());
                check_table(main->table_array[table], expected->second.tables[table]);
            }
        }
    }

    std::set<uint32_t> taken_counters(uint32_t np)
    {
        std::set<uint32_t> taken;
        for (uint32_t word = 0; word <= counter_count / 32; ++word) {
            for (uint32_t bit = 0; root->counters[np][word] != 0 && bit < 32; ++bit) {
                if ((root->counters[np][word] << bit & 0x80000000) != 0)
                    taken.insert(taken.end(), 32 * word + bit);
            }
        }
        return taken;
    }

    void check_hardware()
    {
        for (uint32_t np = 0; np < model_nps; ++np) {
            for (uint32_t table = 0; table < 2; ++table) {
                const ShadowModel::HardwareTable &expected = model_.hardware[np][table];
                ShadowModel::HardwareTable rows;
                card->nps()[np]
                    .table(static_cast<vlc::TableKind>(table))
                    .for_each([&rows](const vlc::TableRow &row) {
                        rows[{reinterpret_cast<const char *>(row.key), row.key_len}] = {
                            reinterpret_cast<const char *>(row.result), row.result_len};
                    });
                EXPECT_EQ(rows, expected) << "np " << np << " table " << table;
            }
            EXPECT_EQ(taken_counters(np), model_.counters[np]) << "np " << np;
        }
    }

    std::mt19937 random_;
    uint64_t blocks_before_;
    uint32_t last_id_ = 0;
    ShadowModel model_;
};

TEST_P(RandomBatches, LeaveWhatTheReferenceSays)
{
    for (int step = 0; step < 1500; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        const ModelBatch batch = new_batch();
        const Failures failures = new_failures();
        const uint32_t expected = model_.apply(batch, failures);
        EXPECT_EQ(apply(batch, failures), expected);
        check_shadow();
        EXPECT_EQ(blocks(), blocks_before_ + model_.blocks());
        check_hardware();
        if (HasFailure())
            return; // what follows would only repeat it
    }
}

TEST_P(RandomBatches, EveryKeyCanBeClearedAfterwards)
{
    for (int step = 0; step < 300; ++step) {
        const ModelBatch batch = new_batch();
        const Failures failures = new_failures();
        ASSERT_EQ(apply(batch, failures), model_.apply(batch, failures)) << step;
        check_shadow(); // learns the addresses of the new nodes
    }
    for (const uint16_t key : keys) {
        ModelBatch batch;
        batch.key = key;
        batch.action = 3;
        // A node with lengths that the hardware does not take refuses its delete and is left
        // behind, one for each clear.
        for (uint32_t rc = 1; rc != 0;) {
            rc = model_.apply(batch, {});
            ASSERT_EQ(apply(batch, {}), rc);
        }
        EXPECT_EQ(entry(key), nullptr);
    }
    EXPECT_EQ(blocks(), blocks_before_ + model_.leaked_nodes);
    check_hardware();
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomBatches, testing::Values(1u, 2u, 3u, 20261121u));

} // namespace
