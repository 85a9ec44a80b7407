// Thousands of random batches over both tables and several keys while PRM, the lists and the window
// fail at random: after each, shadow, hardware, counters and memory must be what the reference
// says.
#include <random>

#include "inline_service_attributes.h"
#include "inline_service_vservice.h"
#include "reference_model.h"
#include "shadow_fixture.h"
#include "state_comparison.h"

using namespace test;

namespace {

constexpr uint32_t prm_refusal = 77;

// Which services fail while one batch is applied.
struct Failures {
    uint32_t refusing_nps = 0; // bit np: PRM refuses every request for it
    bool list_create = false;
    bool enqueue = false;
    uint32_t failing_malloc = 0; // the n-th allocation fails; 0 for none
};

constexpr Service requests[] = {
    Service::prm_srh_service_config_add, Service::prm_srh_service_config_mod,
    Service::prm_srh_service_config_del, Service::prm_srh_ext_service_db_add,
    Service::prm_srh_ext_service_db_mod, Service::prm_srh_ext_service_db_del};

constexpr uint16_t keys[] = {1, 2, 0x105, 0x2FF, 0x3FF, 1024};
const std::string texts[] = {"a",       "b",   "key three", "0xaaaa",
                             "longest", "e e", "\x01\xff",  std::string(48, 'k')};

class RandomBatches : public ShadowDbTest, public testing::WithParamInterface<uint32_t> {
protected:
    RandomBatches() : random_(GetParam()), model_({})
    {
        model_.start_host(); // which makes the root's tables too
        root->uidb_attr_table = static_cast<uidb_attribute *>(
            inline_svc_shared_mem_alloc(UIDB_ATTRIBUTES * sizeof(uidb_attribute)));
        root->vservice_db = vservice_table_init();
    }

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
        for (const Service service : requests) {
            services.script(std::string(name_of(service)),
                            [failures](const vlc::ServiceCall &call) {
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

    // The same failures, as the reference is told of them.
    static CallRule rule_of(const Failures &failures)
    {
        return [failures, left = failures.failing_malloc](
                   Service service, uint32_t np) mutable -> std::optional<uint64_t> {
            if (std::find(std::begin(requests), std::end(requests), service) != std::end(requests))
                return (failures.refusing_nps >> np & 1) != 0 ? std::optional<uint64_t>(prm_refusal)
                                                              : std::nullopt;
            const bool fails = (service == Service::list_create && failures.list_create) ||
                               (service == Service::list_enqueue_default && failures.enqueue) ||
                               (service == Service::shmwin_malloc && left > 0 && --left == 0);
            return fails ? std::optional<uint64_t>(12) : std::nullopt;
        };
    }

    uint32_t expected_code(const ModelBatch &batch, const Failures &failures)
    {
        model_.set_rule(rule_of(failures));
        return model_.apply(batch);
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

    Lines differences()
    {
        for (const uint16_t key : keys)
            learn_addresses(model_, *root, key);
        return test::differences(model_, root, *card);
    }

    std::mt19937 random_;
    uint32_t last_id_ = 0;
    ReferenceModel model_;
};

TEST_P(RandomBatches, LeaveWhatTheReferenceSays)
{
    for (int step = 0; step < 1500; ++step) {
        SCOPED_TRACE("step " + std::to_string(step));
        const ModelBatch batch = new_batch();
        const Failures failures = new_failures();
        const uint32_t expected = expected_code(batch, failures);
        EXPECT_EQ(apply(batch, failures), expected);
        ASSERT_EQ(differences(), Lines()); // what follows would only repeat them
    }
}

TEST_P(RandomBatches, EveryKeyCanBeClearedAfterwards)
{
    for (int step = 0; step < 300; ++step) {
        const ModelBatch batch = new_batch();
        const Failures failures = new_failures();
        ASSERT_EQ(apply(batch, failures), expected_code(batch, failures)) << step;
        ASSERT_EQ(differences(), Lines());
    }
    model_.set_rule({});
    for (const uint16_t key : keys) {
        ModelBatch batch;
        batch.key = key;
        batch.action = INLINE_SVC_BATCH_DELETE_ALL;
        // A node with lengths that the hardware does not take refuses its delete and is left
        // behind, one for each clear.
        for (uint32_t rc = 1; rc != 0;) {
            rc = model_.apply(batch);
            ASSERT_EQ(apply(batch, {}), rc);
        }
        EXPECT_EQ(entry(key), nullptr);
    }
    EXPECT_EQ(differences(), Lines());
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomBatches, testing::Values(1u, 2u, 3u, 20261121u));

} // namespace
