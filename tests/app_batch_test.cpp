// The front end: a whole batch, one appended node, and an application's registration.
#include <cstdlib>
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;
constexpr uint32_t no_counters = 0xFFFFFFFF;

class ActionArray : public ShadowDbTest {
protected:
    uint32_t apply(Batch &batch)
    {
        services.forget();
        forget_log();
        return inline_svc_shadow_db_insert_action_array(batch.get());
    }
};

TEST_F(ActionArray, ANullBatchIsZeroAfterItsLine)
{
    EXPECT_EQ(inline_svc_shadow_db_insert_action_array(nullptr), 0u);
    EXPECT_EQ(log(), Lines{" no update action is not present "});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(ActionArray, AnAppliedBatchIsZeroAndNeverReachesTheClear)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(log()[0], " action array present ");
    EXPECT_EQ(log()[1], " Query Main entry  NULL for uind_index  5");
    EXPECT_EQ(log_count("Delete MAIN entry "), 0u);
    EXPECT_NE(stored_node(5, 7), nullptr);
}

TEST_F(ActionArray, AnyBatchActionButThreeAppliesTheNodes)
{
    for (const uint32_t action : {0u, 1u, 2u, 4u, 0xFFFFFFFFu}) {
        Batch batch(5);
        batch->action = action;
        batch.create(action, 0, std::to_string(action), "0123");
        EXPECT_EQ(apply(batch), 0u);
        EXPECT_NE(stored_node(5, action), nullptr);
    }
}

TEST_F(ActionArray, ADeleteAllBatchClearsTheKeyAndAppliesNothing)
{
    const uint64_t before = bytes();
    store(5, 1, 0, "a");
    store(5, 2, 1, "b");
    Batch batch(5);
    batch->action = 3;
    batch.create(7, 0, "abc", "0123").create(8, 0, "def", "0123");
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(log()[0], " action array present ");
    EXPECT_EQ(log()[1], " app wants to delet the index 5 num_node 2");
    EXPECT_EQ(log()[2], " Query Main entry found for uidb_index 5");
    EXPECT_EQ(log()[3], "Delete MAIN entry ");
    EXPECT_EQ(log_count("Table is present in the main"), 0u);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
}

TEST_F(ActionArray, ADeleteAllBatchForAKeyThatHoldsNothingIsZero)
{
    Batch batch(5);
    batch->action = 3;
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(log(),
              (Lines{" action array present ", " app wants to delet the index 5 num_node 0",
                     " Query Main entry  NULL for uind_index  5", "Query MAIN entry is NULL "}));
}

TEST_F(ActionArray, ADeleteAllBatchGivesTheClearsCode)
{
    store(5, 1, 0, "a", no_counters);
    Batch batch(5);
    batch->action = 3;
    services.force("prm_srh_service_config_del", refusal);
    EXPECT_EQ(apply(batch), refusal);
    EXPECT_EQ(log().back(), " shadow_db clear  failed ");
}

TEST_F(ActionArray, AFailedInsertionIsUndoneByClearingTheKeyAndReportsTheClear)
{
    const uint64_t before = bytes();
    store(5, 1, 1, "held before");
    Batch batch(5);
    batch.create(7, 0, "abc", "0123").create(8, 0, "def", "0123");
    services.force("prm_srh_service_config_add", refusal, 3); // the second entry, on both NPs
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(log_count(" shadow_db insertion  failed "), 1u);
    EXPECT_EQ(log_from(" shadow_db insertion  failed ")[1],
              " Query Main entry found for uidb_index 5");
    EXPECT_EQ(log_count("Delete the node in the table 0"), 1u);
    EXPECT_EQ(log_count("Delete the node in the table 1"), 1u);
    EXPECT_EQ(log_count(" shadow_db clear  failed "), 0u);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(rows(0, 0) + rows(0, 1) + rows(1, 0) + rows(1, 1), 0u);
}

TEST_F(ActionArray, AFailedInsertionWhoseClearFailsTooGivesTheClearsCode)
{
    store(5, 1, 0, "a", no_counters);
    Batch batch(5);
    batch.add(make_node(7, 0, "abc", "0123", 4)); // 22 by itself
    services.force("prm_srh_service_config_del", refusal);
    EXPECT_EQ(apply(batch), refusal);
    EXPECT_EQ(log_count(" shadow_db insertion  failed "), 1u);
    EXPECT_EQ(log().back(), " shadow_db clear  failed ");
    EXPECT_NE(entry(5), nullptr);
}

TEST_F(ActionArray, AnUndoneInsertionOfANewKeyLeavesNothingBehind)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("shmwin_malloc", 12);
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(log(),
              (Lines{" action array present ", " Query Main entry  NULL for uind_index  5",
                     " CREATE: Main entry  5", "shared memory alloc failed c 576",
                     " shadow_db insertion  failed ", " Query Main entry  NULL for uind_index  5",
                     "Query MAIN entry is NULL "}));
    EXPECT_EQ(bytes(), before);
}

TEST_F(ActionArray, AKeyOf1024ComesBackAsTheClearsZero)
{
    Batch batch(1024);
    batch.create(7, 0, "abc", "0123");
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(log(), (Lines{" action array present ", "Invalid shadow db key 1024",
                            " shadow_db insertion  failed ", "Invalid shadow db key 1024",
                            "Query MAIN entry is NULL "}));
}

TEST_F(ActionArray, ARefusedModifyClearsTheWholeKey)
{
    shmem_node *node = store(5, 1, 0, "a");
    store(5, 2, 1, "b");
    app_node request = node->app_node;
    request.action = SHADOW_DB_MODIFY;
    request.table_type = 1;
    Batch batch(5);
    batch.add(request);
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(entry(5), nullptr);
}

TEST_F(ActionArray, AnElementWithoutDataClearsWhatTheBatchHadApplied)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(1, 0, "a", "0123").create(2, 0, "b", "0123");
    batch->node_list.first->next->data = nullptr;
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
    batch->node_list.first->next->data = batch->node_list.first->next;
}

TEST_F(ActionArray, ABatchWithoutNodesFreesTheEntryAndIsZero)
{
    store(5, 1, 0, "a");
    Batch batch(5);
    EXPECT_EQ(apply(batch), 0u);
    EXPECT_EQ(entry(5), nullptr);
}

TEST_F(ActionArray, TheBatchItselfIsNotChanged)
{
    Batch batch(5, 3);
    batch.create(7, 0, "abc", "0123");
    const action_array before = *batch.get();
    apply(batch);
    EXPECT_EQ(memcmp(batch.get(), &before, sizeof before), 0);
}

// ---- appending a node

class NodeInsert : public CardTest {
protected:
    NodeInsert()
    {
        list_create(&list, 0, 0, 0);
        memset(&node, 0x5A, sizeof node);
        services.forget();
        forget_log();
    }
    ~NodeInsert() override
    {
        while (void *element = list_dequeue_default(&list))
            free(element);
    }

    list_record list{};
    app_node_element node;
};

TEST_F(NodeInsert, AppendsACopyWithItsLinkZeroedBeforeTheEnqueue)
{
    bool link_was_zero = false;
    services.script("list_enqueue_default", [&link_was_zero](const vlc::ServiceCall &call) {
        const list_link zero = {};
        link_was_zero =
            memcmp(reinterpret_cast<const void *>(call.args[1]), &zero, sizeof zero) == 0;
        return std::optional<uint64_t>();
    });
    EXPECT_EQ(inline_svc_app_node_insert(&list, node), 0u);
    EXPECT_TRUE(link_was_zero);
    const auto *copy = static_cast<app_node_element *>(list.first->data);
    EXPECT_NE(copy, &node);
    EXPECT_EQ(memcmp(&copy->app_node, &node.app_node, sizeof node.app_node), 0);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(NodeInsert, TheElementIsItsOwnData)
{
    inline_svc_app_node_insert(&list, node);
    ASSERT_EQ(services.names(), Lines{"list_enqueue_default"});
    const std::vector<uint64_t> &args = services.calls()[0].args;
    EXPECT_EQ(args[0], reinterpret_cast<uint64_t>(&list));
    EXPECT_EQ(args[1], args[2]);
}

TEST_F(NodeInsert, NodesFollowEachOtherAtTheTail)
{
    for (uint32_t id = 1; id <= 3; ++id) {
        node.app_node.entry_id = id;
        EXPECT_EQ(inline_svc_app_node_insert(&list, node), 0u);
    }
    uint32_t expected = 1;
    for (list_link *link = list.first; link != nullptr; link = link->next)
        EXPECT_EQ(static_cast<app_node_element *>(link->data)->app_node.entry_id, expected++);
    EXPECT_EQ(expected, 4u);
}

TEST_F(NodeInsert, OnlyTheValueOneIsASuccessfulEnqueue)
{
    for (const uint64_t result : {uint64_t{0}, uint64_t{2}, uint64_t{0xFFFFFFFF}}) {
        forget_log();
        services.force("list_enqueue_default", result);
        EXPECT_EQ(inline_svc_app_node_insert(&list, node), 12u);
        EXPECT_EQ(log(), Lines{" enqueue failed \n"});
        EXPECT_EQ(list.first, nullptr);
    }
}

uint32_t own_enqueues = 0;
uint32_t own_result = LIST_OK;

uint32_t own_enqueue(list_record *list, void *element, void *data)
{
    ++own_enqueues;
    return own_result == LIST_OK ? list_enqueue_default(list, element, data) : own_result;
}

TEST_F(NodeInsert, TheListsOwnEnqueueIsUsedWhereItHasOne)
{
    list.enqueue = own_enqueue;
    own_result = LIST_OK;
    EXPECT_EQ(inline_svc_app_node_insert(&list, node), 0u);
    EXPECT_EQ(own_enqueues, 1u);
    EXPECT_NE(list.first, nullptr);
}

TEST_F(NodeInsert, AFailureOfTheListsOwnEnqueueIs12)
{
    list.enqueue = own_enqueue;
    own_result = 0;
    EXPECT_EQ(inline_svc_app_node_insert(&list, node), 12u);
    EXPECT_EQ(log(), Lines{" enqueue failed \n"});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(NodeInsert, ANullListIs22WithItsLine)
{
    EXPECT_EQ(inline_svc_app_node_insert(nullptr, node), 22u);
    EXPECT_EQ(log(), Lines{"node_list is NULL in inline_svc_app_node_insert"});
    EXPECT_EQ(services.names(), Lines{});
}

// ---- registration

void some_handler() {}
void some_stats_handler(uint32_t, uint32_t, uint32_t, uint32_t, uint32_t) {}

class Registration : public CardTest {
protected:
    Registration()
    {
        attach_context();
        set_context();
        forget_log();
        services.forget();
    }
    app_registration registration = {2, 0, some_handler, some_stats_handler, this};
};

TEST_F(Registration, StoresTheThreePointersUnderTheType)
{
    for (const uint32_t type : {0u, 2u, 5u}) {
        registration.app_type = type;
        EXPECT_EQ(inline_svc_app_register(&registration), 0u);
        EXPECT_EQ(context.app_handler[type], &some_handler);
        EXPECT_EQ(context.app_stats_handler[type], &some_stats_handler);
        EXPECT_EQ(context.app_data[type], this);
    }
    EXPECT_EQ(context.app_handler[1], nullptr);
    EXPECT_EQ(context.app_handler[3], nullptr);
    EXPECT_EQ(context.app_handler[4], nullptr);
}

TEST_F(Registration, ASecondOneForTheTypeIs13AndChangesNothing)
{
    ASSERT_EQ(inline_svc_app_register(&registration), 0u);
    const inline_svc_global_cntx before = context;
    registration.data = nullptr;
    EXPECT_EQ(inline_svc_app_register(&registration), 13u);
    EXPECT_EQ(memcmp(&context, &before, sizeof before), 0);
}

TEST_F(Registration, AnyOneOfTheThreeTakesTheType)
{
    context.app_handler[1] = some_handler;
    context.app_stats_handler[2] = some_stats_handler;
    context.app_data[3] = this;
    const inline_svc_global_cntx before = context;
    for (uint32_t type = 1; type <= 3; ++type) {
        registration.app_type = type;
        EXPECT_EQ(inline_svc_app_register(&registration), 13u) << type;
    }
    EXPECT_EQ(memcmp(&context, &before, sizeof before), 0);
}

TEST_F(Registration, ARegistrationOfNothingButNullsDoesNotTakeTheType)
{
    const app_registration empty = {2, 0, nullptr, nullptr, nullptr};
    EXPECT_EQ(inline_svc_app_register(&empty), 0u);
    EXPECT_EQ(inline_svc_app_register(&registration), 0u);
}

TEST_F(Registration, TypesAboveFiveAre22AndChangeNothing)
{
    const inline_svc_global_cntx before = context;
    for (const uint32_t type : {6u, 0xFFFFFFFFu}) {
        registration.app_type = type;
        EXPECT_EQ(inline_svc_app_register(&registration), 22u);
    }
    EXPECT_EQ(memcmp(&context, &before, sizeof before), 0);
}

TEST_F(Registration, ANullRecordOrContextIs22)
{
    EXPECT_EQ(inline_svc_app_register(nullptr), 22u);
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_app_register(&registration), 22u);
}

TEST_F(Registration, RefusalsAndSuccessesLogNothing)
{
    inline_svc_app_register(nullptr);
    inline_svc_app_register(&registration);
    inline_svc_app_register(&registration);
    registration.app_type = 6;
    inline_svc_app_register(&registration);
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
}

} // namespace
