// Deleting nodes: the order of hardware, list and memory, and what each failure leaves.
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77; // a code of PRM's own; its text is the system's
constexpr uint32_t no_counters = 0xFFFFFFFF;

class NodeDelete : public ShadowDbTest {};

TEST_F(NodeDelete, TheLastNodeOfTheKeyTakesItsListAndTheMainEntryWithIt)
{
    const uint64_t before = bytes();
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    Batch batch(5, 2);
    batch.remove(node);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(
        log(),
        joined({{" Query Main entry found for uidb_index 5", "MAIN entry updated",
                 "Table is present in the main", "Insert the node in shared_db "},
                printed_node("616263", 3, "30313233", 4, 0, 3, 7),
                {" enter to delete shadow_db entry", " Query Main entry found for uidb_index 5",
                 " table_array is present for the table 0", "SVC CONF delete enter: \n",
                 "SVC CONF delete successful: \n", "SVC CONF delete successful: \n",
                 "PRM node delete success\n", "since number of node is 0 so destoying the list 0",
                 "delete the noe is successful for  the list 0",
                 "shadow mem node action handled successfully"},
                printed_main_entry(5, 5, "1", "1", 0),
                {"Total node in shmem node 5 is 0 so freeing thefreeing the shared memory",
                 " DEL Main entry uidb_index 5"}}));
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(rows(0, 0) + rows(1, 0), 0u);
}

TEST_F(NodeDelete, TheHardwareComesFirstThenTheListThenTheMemory)
{
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    Batch batch(5);
    batch.remove(node);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(services.names(),
              (Lines{"prm_srh_service_config_del", "prm_srh_service_config_del",
                     "list_remove_default", "shmwin_free", "list_destroy", "shmwin_free"}));
}

TEST_F(NodeDelete, ANodeAmongOthersLeavesThemAndTheirList)
{
    store(5, 1, 0, "first");
    shmem_node *node = store(5, 7, 0, "abc");
    store(5, 9, 0, "last");
    Batch batch(5);
    batch.remove(node);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 2u);
    EXPECT_EQ(entry(5)->table_array[0].first->data, stored_node(5, 1));
    EXPECT_EQ(entry(5)->table_array[0].first->next->data, stored_node(5, 9));
    EXPECT_EQ(services.count("list_destroy"), 0u);
    EXPECT_EQ(log_count("since number of node is 0 so destoying the list 0"), 0u);
    EXPECT_EQ(log_count("delete the noe is successful for  the list 0"), 1u);
}

TEST_F(NodeDelete, TheLastNodeOfOneTableKeepsTheMainEntryForTheOther)
{
    store(5, 1, 0, "stays");
    shmem_node *node = store(5, 7, 1, "abc");
    Batch batch(5);
    batch.remove(node);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(entry(5)->num_elements[1], 0u);
    EXPECT_EQ(log_count("since number of node is 0 so destoying the list 1"), 1u);
    EXPECT_EQ(services.count("list_destroy"), 1u);
}

TEST_F(NodeDelete, CountersAreGivenBackOnEveryNp)
{
    shmem_node *node = store(5, 7, 1, "abc");
    EXPECT_EQ(counters_in_use(0), 0xC0000000u);
    Batch batch(5);
    batch.remove(node);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(counters_in_use(0), 0u);
    EXPECT_EQ(counters_in_use(1), 0u);
}

// ---- the hardware refuses

TEST_F(NodeDelete, ARefusedDeleteLeavesTheNodeInItsListHoldingTheRequest)
{
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    const list_link link = node->link;
    app_node request = make_node(70, 0, "abd", "45", SHADOW_DB_DELETE, no_counters);
    request.shmem_node = node;
    Batch batch(5, 2);
    batch.add(request);
    services.force("prm_srh_service_config_del", refusal);
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(memcmp(&node->app_node, &request, sizeof request), 0);
    EXPECT_EQ(memcmp(&node->link, &link, sizeof link), 0);
    EXPECT_EQ(entry(5)->table_array[0].first->data, node);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(log_from("SVC CONF delete enter: \n"),
              joined({{"SVC CONF delete enter: \n",
                       "SVC CONF delete failed:  rc=File descriptor in bad state (77)",
                       "SVC CONF delete failed:  rc=File descriptor in bad state (77)",
                       " PRM node delete failed\n", "shadow mem node deletion failed",
                       "shadow_db insert node failed"},
                      printed_main_entry(5, 5, "1", "1", 1)}));
    EXPECT_EQ(entry(5)->entry_version, 2u); // the entry is not empty
}

TEST_F(NodeDelete, ANodeWhoseDeleteWasRefusedCanBeDeletedAgain)
{
    const uint64_t before = bytes();
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    Batch batch(5);
    batch.remove(node);
    services.force("prm_srh_service_config_del", refusal);
    EXPECT_EQ(insert(batch), refusal);
    services.stop_forcing();
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(bytes(), before);
}

TEST_F(NodeDelete, ARefusalIsHiddenByTheFreeingOfTheCounters)
{
    const uint64_t before = bytes();
    shmem_node *node = store(5, 7, 0, "abc", 1); // with counters
    Batch batch(5);
    batch.remove(node);
    services.force("prm_srh_service_config_del", refusal);
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(rows(0, 0), 1u); // what the hardware kept
}

TEST_F(NodeDelete, ARefusalOnAnEarlierNpAloneGoesUnnoticed)
{
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    Batch batch(5);
    batch.remove(node);
    services.script("prm_srh_service_config_del", refused_on(0, refusal));
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(rows(0, 0), 1u);
    EXPECT_EQ(rows(1, 0), 0u);
}

TEST_F(NodeDelete, ARefusalOnTheLastNpIsTheResult)
{
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    Batch batch(5);
    batch.remove(node);
    services.script("prm_srh_service_config_del", refused_on(1, refusal));
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(rows(0, 0), 0u);
    EXPECT_EQ(rows(1, 0), 1u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
}

// ---- the list's removal

TEST_F(NodeDelete, ARemovalThatThePlatformCallsFailedGoesUnnoticed)
{
    const uint64_t before = bytes();
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5);
    batch.remove(node);
    services.script("list_remove_default", [](const vlc::ServiceCall &call) {
        list_remove_default(reinterpret_cast<list_record *>(call.args[0]),
                            reinterpret_cast<void *>(call.args[1]), nullptr);
        return std::optional<uint64_t>(0);
    });
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(log_count(" node removal failed \n"), 0u);
    EXPECT_EQ(bytes(), before);
}

void *removed_element = nullptr;
void *removed_data = nullptr;

uint32_t own_remove(list_record *list, void *element, void *data)
{
    removed_element = element;
    removed_data = data;
    return list_remove_default(list, element, data);
}

TEST_F(NodeDelete, TheTablesOwnRemoveIsUsedWhereItHasOne)
{
    shmem_node *node = store(5, 7, 0, "abc");
    entry(5)->table_array[0].remove = own_remove;
    Batch batch(5);
    batch.remove(node);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(removed_element, node);
    EXPECT_EQ(removed_data, node);
}

// ---- refusals and broken invariants

class RefusedDelete : public NodeDelete {
protected:
    void expect_refused(const app_node &request, const shmem_node *untouched)
    {
        const shmem_node before = *untouched;
        const uint64_t used = bytes();
        Batch batch(5);
        batch.add(request);
        EXPECT_EQ(insert(batch), 22u);
        EXPECT_EQ(memcmp(untouched, &before, sizeof before), 0);
        EXPECT_EQ(services.names(), Lines{});
        EXPECT_EQ(bytes(), used);
        const Lines lines = log_from(" enter to delete shadow_db entry");
        ASSERT_EQ(lines.size(), 6u + 5u);
        EXPECT_EQ(lines[2],
                  " table_array is present for the table " + std::to_string(request.table_type));
        EXPECT_EQ(lines[4], "shadow mem node deletion failed");
        EXPECT_EQ(lines[5], "shadow_db insert node failed");
    }
};

TEST_F(RefusedDelete, ATableAboveOneIsRefused)
{
    shmem_node *node = store(5, 7, 1, "abc");
    app_node request = node->app_node;
    request.action = SHADOW_DB_DELETE;
    request.table_type = 2;
    expect_refused(request, node);
}

TEST_F(RefusedDelete, AnotherTableThanTheNodesIsRefused)
{
    shmem_node *node = store(5, 7, 1, "abc");
    app_node request = node->app_node;
    request.action = SHADOW_DB_DELETE;
    request.table_type = 0;
    expect_refused(request, node);
}

TEST_F(RefusedDelete, ANodeThatDoesNotNameItselfIsNotLiveAndRefused)
{
    store(5, 7, 0, "abc");
    shmem_node stranger = {};
    stranger.app_node = make_node(7, 0, "abc", "0123", SHADOW_DB_CREATE);
    app_node request = stranger.app_node;
    request.action = SHADOW_DB_DELETE;
    request.shmem_node = &stranger;
    expect_refused(request, &stranger);
}

TEST_F(RefusedDelete, TheSameNodeTwiceInABatchIsRefusedTheSecondTime)
{
    store(5, 1, 0, "stays");
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5);
    batch.remove(node).remove(node);
    EXPECT_EQ(insert(batch), 22u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(services.count("prm_srh_service_config_del"), 2u); // once on each NP
}

TEST_F(NodeDelete, AMainEntryThatVanishedEndsTheProcess)
{
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5);
    batch.remove(node);
    when_said(" enter to delete shadow_db entry", [this] { root->main_table[5] = nullptr; });
    EXPECT_SHADOWDB_ASSERTION(insert(batch), "FALSE");
}

TEST_F(NodeDelete, ARequestWithoutANodeEndsTheProcessAfterItsTableWasNamed)
{
    store(5, 7, 0, "abc");
    Batch batch(5);
    batch.add(make_node(7, 2, "abc", "0123", SHADOW_DB_DELETE));
    EXPECT_SHADOWDB_ASSERTION(insert(batch), "shmem_node");
    EXPECT_EQ(log().back(), " table_array is present for the table 2");
}

} // namespace
