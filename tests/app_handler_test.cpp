// The app handler: a batch from what key 1 holds, or else the four samples.
#include <cstdlib>
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

// Frees a batch that the handler built.
void free_batch(action_array *batch)
{
    while (void *element = list_dequeue_default(&batch->node_list))
        free(element);
    free(batch);
}

std::vector<app_node> nodes_of(const action_array &batch)
{
    std::vector<app_node> nodes;
    for (const list_link *link = batch.node_list.first; link != nullptr; link = link->next)
        nodes.push_back(static_cast<const app_node_element *>(link->data)->app_node);
    return nodes;
}

bool same(const app_node &left, const app_node &right)
{
    return memcmp(&left, &right, sizeof left) == 0;
}

class AppHandler : public ShadowDbTest {
protected:
    ~AppHandler() override
    {
        if (result.batch != nullptr)
            free_batch(result.batch);
    }
    uint32_t run()
    {
        forget_history();
        return inline_svc_app_handler(0, &result);
    }

    app_handler_result result{};
};

TEST_F(AppHandler, WithoutAnEntryForKeyOneItYieldsTheFourSamples)
{
    ASSERT_EQ(run(), 0u);
    const action_array &batch = *result.batch;
    EXPECT_EQ(batch.uidb_index, 1u);
    EXPECT_EQ(batch.app_ID, 17u);
    EXPECT_EQ(batch.app_param, 273u);
    EXPECT_EQ(batch.entry_tag, 0u);
    EXPECT_EQ(batch.num_node, 4u);
    EXPECT_EQ(batch.action, 0u);
    const std::vector<app_node> nodes = nodes_of(batch);
    ASSERT_EQ(nodes.size(), 4u);
    EXPECT_TRUE(same(nodes[0], make_node(1, 0, "0xaaaa", "0xaaaaaaaa", 1)));
    EXPECT_TRUE(same(nodes[1], make_node(2, 0, "0xbbbb", "0xbbbbbbbb", 1)));
}

TEST_F(AppHandler, TheThirdAndFourthSampleCarryAKeyButNoKeyLength)
{
    ASSERT_EQ(run(), 0u);
    const std::vector<app_node> nodes = nodes_of(*result.batch);
    ASSERT_EQ(nodes.size(), 4u);
    app_node third = make_node(3, 1, "0xcccc", "0xcccccccc", 1);
    app_node fourth = make_node(4, 1, "0xdddd", "0xdddddddd", 1);
    third.key_len = 0;
    fourth.key_len = 0;
    EXPECT_TRUE(same(nodes[2], third));
    EXPECT_TRUE(same(nodes[3], fourth));
}

TEST_F(AppHandler, SaysItsLinesInOrderForTheSamples)
{
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(log(), (Lines{" app handler \n", " created handler \n",
                            " Query Main entry  NULL for uind_index  1", " app handler finish\n"}));
    EXPECT_EQ(services.names(),
              (Lines{"list_create", "list_enqueue_default", "list_enqueue_default",
                     "list_enqueue_default", "list_enqueue_default"}));
    EXPECT_EQ(
        services.calls()[0].args,
        (std::vector<uint64_t>{reinterpret_cast<uint64_t>(&result.batch->node_list), 0, 0, 0}));
}

TEST_F(AppHandler, TheFirstArgumentIsNotRead)
{
    EXPECT_EQ(inline_svc_app_handler(UINT64_MAX, &result), 0u);
    EXPECT_EQ(result.batch->num_node, 4u);
}

TEST_F(AppHandler, StoredEntriesAreReplayedAsADeleteAllBatch)
{
    {
        Batch stored(1, 5);
        stored->app_ID = 99;
        stored->entry_tag = 7;
        stored.create(1, 0, "a", "ra").create(2, 0, "b", "rb").create(3, 1, "c", "rc");
        stored.create(4, 1, "d", "rd", 6);
        ASSERT_EQ(inline_svc_shadow_db_insert_action_array(stored.get()), 0u);
    }
    ASSERT_EQ(run(), 0u);
    const action_array &batch = *result.batch;
    EXPECT_EQ(batch.uidb_index, 1u);
    EXPECT_EQ(batch.app_ID, 99u);
    EXPECT_EQ(batch.app_param, 2u);
    EXPECT_EQ(batch.entry_tag, 0u);
    EXPECT_EQ(batch.action, 3u);
    EXPECT_EQ(batch.num_node, 5u);
    const std::vector<app_node> nodes = nodes_of(batch);
    ASSERT_EQ(nodes.size(), 5u);
    const std::vector<std::pair<uint32_t, uint32_t>> ids_and_actions = {
        {1, 2}, {2, 3}, {3, 3}, {4, 2}, {4, 3}};
    for (size_t i = 0; i < nodes.size(); ++i) {
        app_node expected = stored_node(1, ids_and_actions[i].first)->app_node;
        expected.action = ids_and_actions[i].second;
        EXPECT_TRUE(same(nodes[i], expected)) << i;
    }
}

TEST_F(AppHandler, EntriesThatAreMissingAreLeftOutAndNotCounted)
{
    store(1, 2, 0, "b");
    store(1, 9, 0, "x");
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(result.batch->num_node, 1u);
    const std::vector<app_node> nodes = nodes_of(*result.batch);
    ASSERT_EQ(nodes.size(), 1u);
    EXPECT_EQ(nodes[0].entry_id, 2u);
    EXPECT_EQ(nodes[0].action, 3u);
}

TEST_F(AppHandler, EntryFourAloneIsReplayedTwice)
{
    store(1, 4, 1, "d");
    ASSERT_EQ(run(), 0u);
    const std::vector<app_node> nodes = nodes_of(*result.batch);
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].action, 2u);
    EXPECT_EQ(nodes[1].action, 3u);
    EXPECT_EQ(nodes[0].shmem_node, stored_node(1, 4));
}

TEST_F(AppHandler, TheReplayLooksUpOneTwoThreeFourAndFourAgain)
{
    store(1, 9, 0, "x");
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(log_count("NOT Found the node in the tables"), 5u);
    EXPECT_EQ(log()[2], " Query Main entry found for uidb_index 1");
    EXPECT_EQ(log().back(), " app handler finish\n");
    EXPECT_EQ(result.batch->num_node, 0u);
    EXPECT_EQ(result.batch->action, 3u);
}

TEST_F(AppHandler, AReplayChangesNothingThatIsStored)
{
    shmem_node *node = store(1, 1, 0, "a");
    const shmem_node before = *node;
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(memcmp(node, &before, sizeof before), 0);
}

TEST_F(AppHandler, AReplayHandedBackClearsTheKey)
{
    store(1, 1, 0, "a");
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(inline_svc_shadow_db_insert_action_array(result.batch), 0u);
    EXPECT_EQ(entry(1), nullptr);
}

TEST_F(AppHandler, AListThatCannotBeMadeIs12WithItsLineAndTheResultStaysDangling)
{
    services.force("list_create", 0);
    EXPECT_EQ(run(), 12u);
    EXPECT_EQ(log(), (Lines{" app handler \n", " app_main list create failed\n"}));
    EXPECT_NE(result.batch, nullptr); // freed memory: the code comes first
    result.batch = nullptr;
}

TEST_F(AppHandler, TheFirst32BytesOfTheListAreZeroedWhateverThePlatformLeft)
{
    services.script("list_create", [](const vlc::ServiceCall &call) {
        memset(reinterpret_cast<void *>(call.args[0]), 0xDD, 32);
        return std::optional<uint64_t>(1); // any non-null result
    });
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(nodes_of(*result.batch).size(), 4u);
    EXPECT_EQ(result.batch->node_list.count, 4u);
    EXPECT_EQ(result.batch->node_list.reserved, 0u);
}

uint32_t own_enqueues = 0;

uint32_t own_enqueue(list_record *list, void *element, void *data)
{
    ++own_enqueues;
    return list_enqueue_default(list, element, data);
}

TEST_F(AppHandler, AnOperationThatThePlatformPutIntoTheListIsUsedAndKept)
{
    services.script("list_create", [](const vlc::ServiceCall &call) {
        auto *list = reinterpret_cast<list_record *>(call.args[0]);
        *list = {};
        list->enqueue = own_enqueue;
        return std::optional<uint64_t>(call.args[0]);
    });
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(own_enqueues, 4u);
    EXPECT_EQ(result.batch->node_list.enqueue, &own_enqueue);
}

TEST_F(AppHandler, FailedAppendsAreNotLookedAtAndSamplesStayCounted)
{
    services.force("list_enqueue_default", 0, 2, 2);
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(result.batch->num_node, 4u);
    const std::vector<app_node> nodes = nodes_of(*result.batch);
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[0].entry_id, 1u);
    EXPECT_EQ(nodes[1].entry_id, 4u);
    EXPECT_EQ(log_count(" enqueue failed \n"), 2u);
    EXPECT_EQ(log().back(), " app handler finish\n");
}

TEST_F(AppHandler, FailedAppendsOfAReplayStayCounted)
{
    store(1, 1, 0, "a");
    services.force("list_enqueue_default", 0);
    ASSERT_EQ(run(), 0u);
    EXPECT_EQ(result.batch->num_node, 1u);
    EXPECT_EQ(result.batch->node_list.first, nullptr);
}

TEST_F(AppHandler, ANullResultIs22WithItsLineAndCallsNothing)
{
    forget_history();
    EXPECT_EQ(inline_svc_app_handler(0, nullptr), 22u);
    EXPECT_EQ(log(), Lines{"out is NULL in inline_svc_app_handler"});
    EXPECT_EQ(services.names(), Lines{});
}

} // namespace
