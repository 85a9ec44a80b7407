// Clearing a key: everything it holds leaves hardware and shadow, or the clear stops where it was.
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;
constexpr uint32_t no_counters = 0xFFFFFFFF;

class Clear : public ShadowDbTest {
protected:
    uint32_t clear(uint16_t key)
    {
        action_array batch = {};
        batch.uidb_index = key;
        services.forget();
        forget_log();
        return inline_shadow_db_clear_main(&batch);
    }
};

TEST_F(Clear, ANullRequestIsZeroAndSaysNothing)
{
    EXPECT_EQ(inline_shadow_db_clear_main(nullptr), 0u);
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(Clear, AKeyThatHoldsNothingIsZeroAndChangesNothing)
{
    store(6, 1, 0, "a");
    const uint64_t before = bytes();
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(log(),
              (Lines{" Query Main entry  NULL for uind_index  5", "Query MAIN entry is NULL "}));
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(bytes(), before);
    EXPECT_NE(entry(6), nullptr);
}

TEST_F(Clear, AKeyOf1024HoldsNothingForTheLookup)
{
    EXPECT_EQ(clear(1024), 0u);
    EXPECT_EQ(log(), (Lines{"Invalid shadow db key 1024", "Query MAIN entry is NULL "}));
}

TEST_F(Clear, AMissingRootEndsTheProcess)
{
    pshadow_db = nullptr;
    EXPECT_SHADOWDB_ASSERTION(clear(5), "FALSE");
}

TEST_F(Clear, AnEntryWithEmptyTablesIsFreed)
{
    const uint64_t before = bytes();
    auto *main = static_cast<main_entry *>(inline_svc_shared_mem_alloc(sizeof(main_entry)));
    main->uidb_index = 5;
    root->main_table[5] = main;
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(log(), (Lines{" Query Main entry found for uidb_index 5", "Delete MAIN entry ",
                            " DEL Main entry uidb_index 5"}));
    EXPECT_EQ(services.names(), Lines{"shmwin_free"});
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
}

TEST_F(Clear, ATableThatCountsNoNodesIsNotWalked)
{
    shmem_node *node = store(5, 1, 0, "a");
    entry(5)->num_elements[0] = 0;
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(services.names(), Lines{"shmwin_free"});
    EXPECT_EQ(node->app_node.action, 1u);
}

TEST_F(Clear, EveryNodeLeavesTheHardwareOnceTableZeroFirst)
{
    const uint64_t before = bytes();
    store(5, 1, 1, "one", no_counters);
    store(5, 2, 0, "two", no_counters);
    store(5, 3, 0, "three", no_counters);
    Lines deleted;
    const auto note = [&deleted](const vlc::ServiceCall &call) {
        const prm_config_record &record = record_of(call);
        deleted.push_back(std::to_string(record.np) + ":" +
                          std::string(reinterpret_cast<const char *>(record.key), record.key_len));
        return std::optional<uint64_t>();
    };
    services.script("prm_srh_service_config_del", note);
    services.script("prm_srh_ext_service_db_del", note);
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(deleted, (Lines{"0:two", "1:two", "0:three", "1:three", "0:one", "1:one"}));
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
    for (uint32_t np = 0; np < 2; ++np)
        EXPECT_EQ(rows(np, 0) + rows(np, 1), 0u);
    EXPECT_EQ(counters_in_use(0), 0u);
}

TEST_F(Clear, SaysItsLinesInOrder)
{
    store(5, 1, 0, "a", no_counters);
    store(5, 2, 0, "b", no_counters);
    EXPECT_EQ(clear(5), 0u);
    const Lines deleted = {" enter to delete shadow_db entry",
                           " Query Main entry found for uidb_index 5",
                           " table_array is present for the table 0",
                           "SVC CONF delete enter: \n",
                           "SVC CONF delete successful: \n",
                           "SVC CONF delete successful: \n",
                           "PRM node delete success\n"};
    EXPECT_EQ(
        log(),
        joined({{" Query Main entry found for uidb_index 5", "Delete MAIN entry ",
                 "Delete the node in the table 0"},
                deleted,
                {"delete the noe is successful for  the list 0", "Delete the node in the table 0"},
                deleted,
                {"since number of node is 0 so destoying the list 0",
                 "delete the noe is successful for  the list 0", " DEL Main entry uidb_index 5"}}));
}

TEST_F(Clear, NodesAreTakenOffTheListBeforeTheHardwareIsAsked)
{
    store(5, 1, 0, "a", no_counters);
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(services.names(),
              (Lines{"list_dequeue_default", "prm_srh_service_config_del",
                     "prm_srh_service_config_del", "list_remove_default", "shmwin_free",
                     "list_destroy", "list_dequeue_default", "shmwin_free"}));
}

TEST_F(Clear, OtherKeysStayAsTheyAre)
{
    store(5, 1, 0, "a");
    shmem_node *other = store(6, 1, 0, "b");
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(stored_node(6, 1), other);
    EXPECT_EQ(rows(0, 0), 1u);
}

TEST_F(Clear, NothingButTheKeyOfTheRequestIsRead)
{
    store(5, 1, 0, "a");
    action_array batch;
    memset(&batch, 0xFF, sizeof batch);
    batch.uidb_index = 5;
    EXPECT_EQ(inline_shadow_db_clear_main(&batch), 0u);
    EXPECT_EQ(entry(5), nullptr);
}

// ---- a refusal stops the clear

TEST_F(Clear, ARefusedDeleteStopsTheClearWithThatNodeOffItsListButCounted)
{
    shmem_node *refused = store(5, 1, 0, "a", no_counters);
    shmem_node *second = store(5, 2, 0, "b", no_counters);
    store(5, 3, 1, "c", no_counters);
    const uint64_t before = bytes();
    services.force("prm_srh_service_config_del", refusal);
    EXPECT_EQ(clear(5), refusal);
    ASSERT_NE(entry(5), nullptr);
    EXPECT_EQ(entry(5)->num_elements[0], 2u);
    EXPECT_EQ(entry(5)->table_array[0].first, &second->link);
    EXPECT_EQ(second->link.next, nullptr);
    EXPECT_EQ(entry(5)->num_elements[1], 1u);
    EXPECT_NE(stored_node(5, 3), nullptr);
    EXPECT_EQ(refused->app_node.action, 3u);
    EXPECT_EQ(second->app_node.action, 1u);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(rows(1, 0), 2u);
    EXPECT_EQ(rows(1, 1), 1u);
    EXPECT_EQ(log_from("Delete MAIN entry "),
              (Lines{"Delete MAIN entry ", "Delete the node in the table 0",
                     " enter to delete shadow_db entry", " Query Main entry found for uidb_index 5",
                     " table_array is present for the table 0", "SVC CONF delete enter: \n",
                     "SVC CONF delete failed:  rc=File descriptor in bad state (77)",
                     "SVC CONF delete failed:  rc=File descriptor in bad state (77)",
                     " PRM node delete failed\n", "node removal failed table 0"}));
}

TEST_F(Clear, ARefusalOnTheSecondNodeLeavesTheFirstDeleted)
{
    store(5, 1, 0, "a", no_counters);
    store(5, 2, 0, "b", no_counters);
    services.force("prm_srh_service_config_del", refusal, 3); // both NPs of the first are through
    EXPECT_EQ(clear(5), refusal);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(entry(5)->table_array[0].first, nullptr);
    EXPECT_EQ(rows(0, 0), 1u);
}

TEST_F(Clear, ARefusalOnTheLastNpIsTheResultAndOnAnEarlierOneGoesUnnoticed)
{
    store(5, 1, 0, "a", no_counters);
    store(6, 1, 0, "b", no_counters);
    services.script("prm_srh_service_config_del", refused_on(1, refusal));
    EXPECT_EQ(clear(5), refusal);
    services.script("prm_srh_service_config_del", refused_on(0, refusal));
    EXPECT_EQ(clear(6), 0u);
    EXPECT_EQ(entry(6), nullptr);
}

TEST_F(Clear, ARefusalIsHiddenByTheFreeingOfTheCounters)
{
    const uint64_t before = bytes();
    store(5, 1, 1, "a", no_counters); // table 1 always has counters
    services.force("prm_srh_ext_service_db_del", refusal);
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
}

TEST_F(Clear, ASecondClearAfterARefusalFreesTheEntryButNotTheNodeItLost)
{
    shmem_node *lost = store(5, 1, 0, "a", no_counters);
    store(5, 2, 0, "b", no_counters);
    const uint64_t before = blocks(); // with two nodes and their main entry
    services.force("prm_srh_service_config_del", refusal, 1, 2);
    EXPECT_EQ(clear(5), refusal);
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(blocks(), before - 2);
    EXPECT_EQ(lost->app_node.entry_id, 1u);
    EXPECT_EQ(rows(0, 0), 1u); // the lost node's row
}

// ---- the table's own dequeue

uint32_t own_dequeues = 0;

void *own_dequeue(list_record *list)
{
    ++own_dequeues;
    return list_dequeue_default(list);
}

TEST_F(Clear, TheTablesOwnDequeueIsUsedWhereItHasOne)
{
    store(5, 1, 0, "a");
    store(5, 2, 0, "b");
    entry(5)->table_array[0].dequeue = own_dequeue;
    own_dequeues = 0;
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(own_dequeues, 2u); // the emptied list's record has none any more
    EXPECT_EQ(entry(5), nullptr);
}

TEST_F(Clear, AMainEntryThatVanishedDuringADeleteEndsTheProcess)
{
    store(5, 1, 0, "a");
    when_said("Delete the node in the table %d", [this] { root->main_table[5] = nullptr; });
    EXPECT_SHADOWDB_ASSERTION(clear(5), "FALSE");
}

TEST_F(Clear, ADequeueThatYieldsNothingEndsTheTableAndTheEntryGoes)
{
    store(5, 1, 0, "a");
    services.force("list_dequeue_default", 0);
    EXPECT_EQ(clear(5), 0u);
    EXPECT_EQ(log(), (Lines{" Query Main entry found for uidb_index 5", "Delete MAIN entry ",
                            " DEL Main entry uidb_index 5"}));
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(rows(0, 0), 1u);
}

} // namespace
