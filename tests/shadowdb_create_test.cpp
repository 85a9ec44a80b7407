// Creating nodes: what is stored, what is said, and what every failure leaves behind.
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77; // a code of PRM's own
constexpr uint32_t no_counters = 0xFFFFFFFF;

class NodeCreate : public ShadowDbTest {};

TEST_F(NodeCreate, StoresTheRequestInABlockOfItsOwnThatNamesItself)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123", 0xFFFFFFFF);
    ASSERT_EQ(insert(batch), 0u);
    shmem_node *node = stored_node(5, 7);
    ASSERT_NE(node, nullptr);
    EXPECT_TRUE(card->window().contains(node));
    app_node expected = make_node(7, 0, "abc", "0123", SHADOW_DB_CREATE, 0xFFFFFFFF);
    expected.shmem_node = node;
    EXPECT_EQ(memcmp(&node->app_node, &expected, sizeof expected), 0);
    EXPECT_EQ(node->reserved_240, 0u);
}

TEST_F(NodeCreate, TheNodesLinkIsTheListsAndNotTheRequests)
{
    Batch batch(5);
    batch.create(7, 1, "abc", "0123");
    ASSERT_EQ(insert(batch), 0u);
    const shmem_node *node = stored_node(5, 7);
    EXPECT_EQ(node->link.data, node);
    EXPECT_EQ(node->link.owner, &entry(5)->table_array[1]);
    EXPECT_EQ(node->link.next, nullptr);
}

TEST_F(NodeCreate, NodesStandInTheOrderOfTheirRequestsAndAreCounted)
{
    Batch batch(5);
    batch.create(1, 1, "a", "0123").create(2, 1, "b", "0123").create(3, 0, "c", "0123");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(entry(5)->num_elements[1], 2u);
    const list_link *first = entry(5)->table_array[1].first;
    EXPECT_EQ(first->data, stored_node(5, 1));
    EXPECT_EQ(first->next->data, stored_node(5, 2));
}

TEST_F(NodeCreate, TheListIsMadeForTheFirstNodeOnly)
{
    Batch batch(5);
    batch.create(1, 0, "a", "0123").create(2, 0, "b", "0123").create(3, 1, "c", "0123");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(log_count(" list is created"), 2u);
    EXPECT_EQ(log_count("table_array is created for the table 0"), 1u);
    EXPECT_EQ(log_count(" table_array is present for the table 0"), 1u);
    EXPECT_EQ(log_count("table_array is created for the table 1"), 1u);
    EXPECT_EQ(services.count("list_create"), 2u);
}

TEST_F(NodeCreate, TheHardwareIsProgrammedBeforeTheNodeIsEnqueued)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123", no_counters);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(services.names(),
              (Lines{"shmwin_malloc", "list_create", "shmwin_malloc", "prm_srh_service_config_add",
                     "prm_srh_service_config_add", "list_enqueue_default"}));
    EXPECT_EQ(services.calls()[0].args[1], 576u);
    EXPECT_EQ(services.calls()[2].args[1], 248u);
}

TEST_F(NodeCreate, BatchElementsAreCopiedAndStayTheirOwners)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    const auto *element = static_cast<app_node_element *>(batch->node_list.first->data);
    const app_node_element before = *element;
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(memcmp(element, &before, sizeof before), 0);
    EXPECT_NE(static_cast<const void *>(stored_node(5, 7)), element);
}

// ---- the list cannot be made

TEST_F(NodeCreate, AListThatCannotBeMadeIs12AndNothingIsLeft)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("list_create", 0);
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(
        log_from(" enter to create shadow_db entry"),
        joined({{" enter to create shadow_db entry", " Query Main entry found for uidb_index 5",
                 " list create failed\n", "app_main list create failed\n",
                 "shadow mem node creation failed", "shadow_db insert node failed"},
                printed_main_entry(5, 5, "0", "0", 0),
                {"Total node in shmem node 5 is 0 so freeing thefreeing the shared memory",
                 " DEL Main entry uidb_index 5"}}));
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
}

// ---- the window is full

TEST_F(NodeCreate, ANodeThatCannotBeAllocatedIs12AndNothingIsLeft)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("shmwin_malloc", 12, 2);
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log_from(" list is created"),
              joined({{" list is created", "table_array is created for the table 0",
                       "shared memory alloc failed c 248", "shared mem node allocation failed",
                       "shadow mem node creation failed", "shadow_db insert node failed"},
                      printed_main_entry(5, 5, "0", "0", 0),
                      {"Total node in shmem node 5 is 0 so freeing thefreeing the shared memory",
                       " DEL Main entry uidb_index 5"}}));
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
}

TEST_F(NodeCreate, AListMadeForANodeThatCannotBeAllocatedStays)
{
    store(5, 1, 1, "a");
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("shmwin_malloc", 12, 1, 1);
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(services.count("list_create"), 1u);
    EXPECT_EQ(services.count("list_destroy"), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 0u);
    EXPECT_EQ(insert(batch), 0u); // and does not stand in the way
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
}

TEST_F(NodeCreate, AnAllocationThatSucceedsWithoutABlockIs12)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("shmwin_malloc", 0, 2);
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log_count("shared mem node allocation failed"), 1u);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
}

// ---- PRM refuses

TEST_F(NodeCreate, ARefusalOnTheLastNpLeavesNoListAndNoNode)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(7, 0, "abc", "0123", no_counters);
    services.script("prm_srh_service_config_add", refused_on(1, refusal));
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(log_from("SVC CONF add enter: \n"),
              joined({{"SVC CONF add enter: \n", "SVC CONF add succesful: \n",
                       "SVC CONF add failed:  rc=File descriptor in bad state (77)",
                       " PRM node insertion failed\n", "PRM failed deleting the list\n",
                       "shadow mem node creation failed", "shadow_db insert node failed"},
                      printed_main_entry(5, 5, "0", "0", 0),
                      {"Total node in shmem node 5 is 0 so freeing thefreeing the shared memory",
                       " DEL Main entry uidb_index 5"}}));
    EXPECT_EQ(services.count("list_destroy"), 1u);
    EXPECT_EQ(services.count("list_enqueue_default"), 0u);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
}

TEST_F(NodeCreate, WhatAnEarlierNpTookBeforeARefusalStaysInItsTable)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.script("prm_srh_service_config_add", refused_on(1, refusal));
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(rows(0, 0), 1u);
    EXPECT_EQ(rows(1, 0), 0u);
    EXPECT_EQ(services.count("prm_srh_service_config_del"), 0u);
}

TEST_F(NodeCreate, ARefusalOnAnEarlierNpAloneGoesUnnoticed)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.script("prm_srh_service_config_add", refused_on(0, refusal));
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(rows(0, 0), 0u);
    EXPECT_EQ(rows(1, 0), 1u);
}

TEST_F(NodeCreate, ARefusalOnEveryNpGivesPrmsCodeUnchanged)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(7, 1, "abc", "0123");
    services.force("prm_srh_ext_service_db_add", 0x257C5403);
    EXPECT_EQ(insert(batch), 0x257C5403u);
    EXPECT_EQ(log_count("SVC EXT_DB add failed:  rc=PRM: not connected (628904963)"), 2u);
    EXPECT_EQ(bytes(), before);
}

TEST_F(NodeCreate, CountersOfARefusedEntryStayTaken)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("prm_srh_service_config_add", refusal);
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(counters_in_use(0), 0xC0000000u);
    EXPECT_EQ(counters_in_use(1), 0xC0000000u);
}

TEST_F(NodeCreate, ARefusalInATableThatHoldsNodesKeepsItsList)
{
    store(5, 1, 0, "a");
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("prm_srh_service_config_add", refusal);
    const uint64_t before = bytes();
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(log_count(" PRM node insertion failed\n"), 1u);
    EXPECT_EQ(log_count("PRM failed deleting the list\n"), 0u);
    EXPECT_EQ(services.count("list_destroy"), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_NE(stored_node(5, 1), nullptr);
    EXPECT_EQ(bytes(), before);
}

TEST_F(NodeCreate, ATooLongKeyOrResultIs22BeforeAnyCounterIsTaken)
{
    for (const bool key_too_long : {true, false}) {
        Batch batch(5);
        app_node node = make_node(7, 0, "abc", "0123", SHADOW_DB_CREATE);
        (key_too_long ? node.key_len : node.result_len) = key_too_long ? 49 : 65;
        batch.add(node);
        EXPECT_EQ(insert(batch), 22u);
        EXPECT_EQ(services.names(), (Lines{"shmwin_malloc", "list_create", "shmwin_malloc",
                                           "shmwin_free", "list_destroy", "shmwin_free"}));
        EXPECT_EQ(counters_in_use(0), 0u);
    }
}

// ---- the node cannot be enqueued

TEST_F(NodeCreate, AFailedEnqueueIs12FreesTheNodeAndDestroysTheListMadeForIt)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("list_enqueue_default", 0);
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log_from(" enqueue failed \n"),
              joined({{" enqueue failed \n", "list enqueue failed deleting the list\n",
                       "enqueue failed \n", "shadow mem node creation failed",
                       "shadow_db insert node failed"},
                      printed_main_entry(5, 5, "0", "0", 0),
                      {"Total node in shmem node 5 is 0 so freeing thefreeing the shared memory",
                       " DEL Main entry uidb_index 5"}}));
    EXPECT_EQ(services.count("list_destroy"), 1u);
    EXPECT_EQ(bytes(), before);
}

TEST_F(NodeCreate, WhatTheHardwareTookBeforeAFailedEnqueueStaysThere)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("list_enqueue_default", 2);
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(rows(0, 0), 1u);
    EXPECT_EQ(rows(1, 0), 1u);
    EXPECT_EQ(counters_in_use(0), 0xC0000000u);
    EXPECT_EQ(services.count("prm_srh_service_config_del"), 0u);
}

TEST_F(NodeCreate, AFailedEnqueueInATableThatHoldsNodesKeepsItsList)
{
    store(5, 1, 0, "a");
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("list_enqueue_default", 0);
    const uint64_t before = bytes();
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log_count("list enqueue failed deleting the list\n"), 0u);
    EXPECT_EQ(log_count("enqueue failed \n"), 1u);
    EXPECT_EQ(services.count("list_destroy"), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(bytes(), before);
}

uint32_t own_enqueues = 0;

uint32_t own_enqueue(list_record *list, void *element, void *data)
{
    ++own_enqueues;
    return list_enqueue_default(list, element, data);
}

TEST_F(NodeCreate, TheTablesOwnEnqueueIsUsedWhereItHasOne)
{
    services.script("list_create", [](const vlc::ServiceCall &call) {
        auto *list = reinterpret_cast<list_record *>(call.args[0]);
        list_create(list, 0, 0, 0);
        list->enqueue = own_enqueue;
        return std::optional<uint64_t>(call.args[0]);
    });
    Batch batch(5);
    batch.create(7, 0, "abc", "0123").create(8, 0, "def", "0123");
    own_enqueues = 0;
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(own_enqueues, 2u);
    EXPECT_NE(stored_node(5, 8), nullptr);
}

// ---- what is refused, and what vanishes

TEST_F(NodeCreate, ATableAboveOneIs22BeforeAnyListIsTouched)
{
    const uint64_t before = bytes();
    for (const uint32_t table : {2u, 0xFFFFFFFFu}) {
        Batch batch(5);
        batch.create(7, table, "abc", "0123");
        EXPECT_EQ(insert(batch), 22u);
        EXPECT_EQ(services.names(), (Lines{"shmwin_malloc", "shmwin_free"})); // the main entry's
        Lines lines = log_from(" enter to create shadow_db entry");
        lines.resize(5);
        EXPECT_EQ(
            lines,
            (Lines{" enter to create shadow_db entry", " Query Main entry found for uidb_index 5",
                   "node pass INCORRECT Table in prm update \n", "shadow mem node creation failed",
                   "shadow_db insert node failed"}));
        EXPECT_EQ(bytes(), before);
    }
}

TEST_F(NodeCreate, AMainEntryThatVanishedIs12WithItsLine)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    when_said(" enter to create shadow_db entry", [this] { root->main_table[5] = nullptr; });
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log_from(" enter to create shadow_db entry"),
              joined({{" enter to create shadow_db entry",
                       " Query Main entry  NULL for uind_index  5", " shmem main entry is NULL\n",
                       "shadow mem node creation failed", "shadow_db insert node failed"},
                      printed_main_entry(5, 5, "0", "0", 0),
                      {"Total node in shmem node 5 is 0 so freeing thefreeing the shared memory",
                       " DEL Main entry is NULL for  5"}}));
    EXPECT_EQ(services.count("list_create"), 0u);
}

} // namespace
