// A batch on its way into the shadow DB: finding or making the main entry, walking the elements,
// and what is left after each way of ending.
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;

class BatchInsert : public ShadowDbTest {};

TEST_F(BatchInsert, ANewKeyGetsAMainEntryWithTheBatchsWords)
{
    Batch batch(0x105, 0xABCD1234);
    batch->app_ID = 0x11223344;
    batch->entry_tag = 0x5566;
    batch.create(7, 0, "abc", "0123");
    ASSERT_EQ(insert(batch), 0u);
    const main_entry *main = entry(0x105);
    ASSERT_NE(main, nullptr);
    EXPECT_TRUE(card->window().contains(main));
    EXPECT_EQ(main->uidb_index, 0x105u);
    EXPECT_EQ(main->app_ID, 0x11223344u);
    EXPECT_EQ(main->entry_tag, 0x5566u);
    EXPECT_EQ(main->entry_version, 0xABCD1234u);
    EXPECT_EQ(main->timestamp, 1u);
    EXPECT_EQ(main->stat_round, 0u);
    EXPECT_EQ(log()[0], " Query Main entry  NULL for uind_index  261");
    EXPECT_EQ(log()[1], " CREATE: Main entry  261");
    EXPECT_EQ(log()[2], "Table is present in the main");
}

TEST_F(BatchInsert, AStoredKeyKeepsItsMainEntryAndTakesTheNewWords)
{
    store(5, 1, 0, "a");
    main_entry *const main = entry(5);
    main->stat_round = 9;
    Batch batch(5, 0x22);
    batch->app_ID = 0x33;
    batch->entry_tag = 0x44;
    batch.create(7, 0, "abc", "0123");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5), main);
    EXPECT_EQ(main->app_ID, 0x33u);
    EXPECT_EQ(main->entry_tag, 0x44u);
    EXPECT_EQ(main->entry_version, 0x22u);
    EXPECT_EQ(main->stat_round, 9u);
    EXPECT_EQ(log()[0], " Query Main entry found for uidb_index 5");
    EXPECT_EQ(log()[1], "MAIN entry updated");
    EXPECT_EQ(log_count(" CREATE: Main entry  5"), 0u);
}

TEST_F(BatchInsert, TheLargestKeyIs1023)
{
    Batch batch(1023);
    batch.create(7, 0, "abc", "0123");
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_NE(entry(1023), nullptr);
}

TEST_F(BatchInsert, KeysOf1024AndMoreAreRefusedAfterTheLookupsLine)
{
    for (const uint16_t key : {uint16_t{1024}, uint16_t{1279}, uint16_t{0xFFFF}}) {
        Batch batch(key);
        batch.create(7, 0, "abc", "0123");
        EXPECT_EQ(insert(batch), 22u);
        EXPECT_EQ(log(), Lines{"Invalid shadow db key " + std::to_string(key)});
        EXPECT_EQ(services.names(), Lines{});
    }
    EXPECT_EQ(entry(1024), nullptr);
}

TEST_F(BatchInsert, AMainEntryThatCannotBeAllocatedIs12AndTheSlotStaysEmpty)
{
    const uint64_t before = bytes();
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    services.force("shmwin_malloc", 28);
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log(), (Lines{" Query Main entry  NULL for uind_index  5", " CREATE: Main entry  5",
                            "shared memory alloc failed 1c 576"}));
    EXPECT_EQ(services.names(), Lines{"shmwin_malloc"});
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
}

TEST_F(BatchInsert, AWindowThatIsReallyFullIs12WithThePlatformsCode)
{
    std::vector<void *> taken;
    for (void *block = nullptr; card->window().allocate(256, &block) == 0;)
        taken.push_back(block);
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log().back(), "shared memory alloc failed c 576");
    for (void *block : taken)
        card->window().release(block);
    EXPECT_EQ(insert(batch), 0u);
}

TEST_F(BatchInsert, MemoryOfAMainEntryIsZeroedAlsoWhenItWasUsedBefore)
{
    services.script("shmwin_malloc", [](const vlc::ServiceCall &call) {
        void **out = reinterpret_cast<void **>(call.args[2]);
        void *block = nullptr;
        vlc::VirtualLineCard::current()->window().allocate(static_cast<int64_t>(call.args[1]),
                                                           &block);
        memset(block, 0xEE, call.args[1]);
        *out = block;
        return std::optional<uint64_t>(0);
    });
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->stat_round, 0u);
    EXPECT_EQ(entry(5)->num_elements[1], 0u);
    EXPECT_EQ(entry(5)->table_array[1].first, nullptr);
    EXPECT_EQ(stored_node(5, 7)->stat_index_rx[7], 0u);
    EXPECT_EQ(stored_node(5, 7)->reserved_240, 0u);
}

TEST_F(BatchInsert, AMissingMainTableIs12WithOneLineOfItsOwn)
{
    root->main_table = nullptr;
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log().size(), 2u);
    EXPECT_EQ(log()[0], " Query Main entry  NULL for uind_index  5");
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(BatchInsert, ANullBatchIs22WithItsLine)
{
    EXPECT_EQ(inline_shadow_db_insert_main(nullptr), 22u);
    EXPECT_EQ(log(), Lines{"batch is NULL in inline_shadow_db_insert_main"});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(BatchInsert, AMissingRootEndsTheProcess)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    pshadow_db = nullptr;
    EXPECT_SHADOWDB_ASSERTION(insert(batch), "FALSE");
}

TEST_F(BatchInsert, ASlotFilledBetweenLookupAndCheckEndsTheProcess)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    main_entry intruder = {};
    intruder.uidb_index = 5;
    when_said(" Query Main entry  NULL for uind_index  %d",
              [this, &intruder] { root->main_table[5] = &intruder; });
    EXPECT_SHADOWDB_ASSERTION(insert(batch), "FALSE");
    EXPECT_EQ(log(), (Lines{" Query Main entry  NULL for uind_index  5",
                            " CREATE: Main entry is found for uidb_index 5"}));
    root->main_table[5] = nullptr;
}

// ---- batches without nodes

TEST_F(BatchInsert, ABatchWithoutNodesForANewKeyMakesAndFreesAMainEntry)
{
    const uint64_t before = bytes();
    Batch batch(5);
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(log(), (Lines{" Query Main entry  NULL for uind_index  5", " CREATE: Main entry  5",
                            "Table is NOT present in the main",
                            "Total node in shmem node 5 is 0 so freeing thefreeing the shared "
                            "memory",
                            " DEL Main entry uidb_index 5"}));
    EXPECT_EQ(services.names(), (Lines{"shmwin_malloc", "shmwin_free"}));
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(bytes(), before);
}

TEST_F(BatchInsert, ABatchWithoutNodesFreesTheMainEntryEvenWhenItsTablesHoldNodes)
{
    store(5, 1, 0, "a");
    store(5, 2, 1, "b");
    const uint64_t before = blocks();
    Batch batch(5);
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(log(), (Lines{" Query Main entry found for uidb_index 5", "MAIN entry updated",
                            "Table is NOT present in the main",
                            "Total node in shmem node 5 is 0 so freeing thefreeing the shared "
                            "memory",
                            " DEL Main entry uidb_index 5"}));
    EXPECT_EQ(services.names(), Lines{"shmwin_free"});
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(blocks(), before - 1); // the nodes stay behind
    EXPECT_EQ(rows(0, 0), 1u);       // and so does the hardware
}

TEST_F(BatchInsert, ZeroNodesCountAlsoWhenTheListHoldsSome)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    batch->num_node = 0;
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
    EXPECT_EQ(entry(5), nullptr);
}

TEST_F(BatchInsert, TheNumberOfNodesIsOnlyTestedForZero)
{
    Batch batch(5);
    batch.create(1, 0, "a", "0123").create(2, 0, "b", "0123").create(3, 0, "c", "0123");
    batch->num_node = 1;
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->num_elements[0], 3u);

    Batch shorter(6);
    shorter.create(1, 0, "d", "0123");
    shorter->num_node = 99;
    EXPECT_EQ(insert(shorter), 0u);
    EXPECT_EQ(entry(6)->num_elements[0], 1u);
}

TEST_F(BatchInsert, AnEmptyListWithANumberOfNodesFreesTheEntryAfterItsPrint)
{
    Batch batch(5);
    batch->num_node = 1;
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(log_from("Table is present in the main"),
              joined({{"Table is present in the main"},
                      printed_main_entry(5, 5, "0", "0", 0),
                      {"Total node in shmem node 5 is 0 so freeing thefreeing the shared memory",
                       " DEL Main entry uidb_index 5"}}));
    EXPECT_EQ(entry(5), nullptr);
}

// ---- the walk

TEST_F(BatchInsert, TheThreeActionsWorkInOneBatch)
{
    shmem_node *changed = store(5, 1, 0, "a");
    shmem_node *removed = store(5, 2, 1, "b");
    Batch batch(5, 7);
    batch.modify(changed, "9876").remove(removed).create(3, 1, "c", "0123");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(log_count("shadow mem node action handled successfully"), 3u);
    EXPECT_EQ(stored_node(5, 2), nullptr);
    EXPECT_NE(stored_node(5, 3), nullptr);
    EXPECT_EQ(memcmp(stored_node(5, 1)->app_node.result, "9876", 4), 0);
}

TEST_F(BatchInsert, AFailureInTheMiddleKeepsTheFirstAndNeverTriesTheThird)
{
    Batch batch(5, 0xBEEF);
    batch.create(1, 0, "a", "0123").create(2, 1, "b", "0123").create(3, 0, "c", "0123");
    services.force("prm_srh_ext_service_db_add", refusal);
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_NE(stored_node(5, 1), nullptr);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(entry(5)->num_elements[1], 0u);
    EXPECT_EQ(entry(5)->entry_version, 0xBEEFu);
    EXPECT_EQ(entry(5)->timestamp, 1u);
    EXPECT_EQ(log_count("Insert the node in shared_db "), 2u);
    EXPECT_EQ(log_count("shadow_db insert node failed"), 1u);
    EXPECT_EQ(log_from("shadow_db insert node failed"),
              joined({{"shadow_db insert node failed"}, printed_main_entry(5, 5, "0", "0", 1)}));
}

TEST_F(BatchInsert, UnknownActionsAre22WithTheirOwnLine)
{
    for (const uint32_t action : {0u, 4u, 0xFFFFFFFFu}) {
        Batch batch(5);
        batch.add(make_node(7, 0, "abc", "0123", action));
        EXPECT_EQ(insert(batch), 22u);
        EXPECT_EQ(log_from("shadow mem node unknown action"),
                  joined({{"shadow mem node unknown action", "shadow_db insert node failed"},
                          printed_main_entry(5, 5, "0", "0", 0),
                          {"Total node in shmem node 5 is 0 so freeing thefreeing the shared "
                           "memory",
                           " DEL Main entry uidb_index 5"}}));
        EXPECT_EQ(entry(5), nullptr);
    }
}

TEST_F(BatchInsert, TheRequestIsPrintedBeforeItIsApplied)
{
    Batch batch(5);
    batch.add(make_node(7, 1, "abc", "0123", 4));
    EXPECT_EQ(insert(batch), 22u);
    const Lines lines = log_from("Insert the node in shared_db ");
    EXPECT_EQ(Lines(lines.begin() + 1, lines.begin() + 9),
              printed_node("616263", 3, "30313233", 4, 1, 4, 7));
    EXPECT_EQ(lines[9], "shadow mem node unknown action");
}

TEST_F(BatchInsert, AnElementWithoutDataEndsTheBatchAtOnceAndLeavesAnEmptyMainEntry)
{
    Batch batch(5, 0xBEEF);
    list_link without_data = {};
    batch->num_node = 1;
    batch->node_list.first = &without_data;
    EXPECT_EQ(insert(batch), 22u);
    EXPECT_EQ(log(), (Lines{" Query Main entry  NULL for uind_index  5", " CREATE: Main entry  5",
                            "Table is present in the main",
                            "APP Node is not present in the main array "}));
    ASSERT_NE(entry(5), nullptr);
    EXPECT_EQ(entry(5)->entry_version, 0u);
    EXPECT_EQ(entry(5)->timestamp, 0u);
    batch->node_list.first = nullptr;
}

TEST_F(BatchInsert, AnElementWithoutDataKeepsWhatCameBeforeWithoutANewVersion)
{
    Batch batch(5, 0xBEEF);
    batch.create(1, 0, "a", "0123").create(2, 0, "b", "0123");
    batch->node_list.first->next->data = nullptr;
    EXPECT_EQ(insert(batch), 22u);
    EXPECT_EQ(entry(5)->num_elements[0], 1u);
    EXPECT_EQ(entry(5)->entry_version, 0u);
    EXPECT_EQ(log().back(), "APP Node is not present in the main array ");
    batch->node_list.first->next->data = batch->node_list.first->next;
}

TEST_F(BatchInsert, TheWordsOfAFailedBatchStayInAnEntryThatHoldsNodes)
{
    store(5, 1, 0, "a");
    Batch batch(5, 0x99);
    batch->app_ID = 0x88;
    batch->entry_tag = 0x77;
    batch.add(make_node(7, 0, "abc", "0123", 4));
    EXPECT_EQ(insert(batch), 22u);
    EXPECT_EQ(entry(5)->app_ID, 0x88u);
    EXPECT_EQ(entry(5)->entry_tag, 0x77u);
    EXPECT_EQ(entry(5)->entry_version, 0x99u);
    EXPECT_EQ(entry(5)->timestamp, 1u);
}

TEST_F(BatchInsert, TheTimestampIsOneAfterEverySuccessfulRequest)
{
    store(5, 1, 0, "a");
    entry(5)->timestamp = 1234;
    Batch batch(5);
    batch.create(2, 0, "b", "0123");
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->timestamp, 1u);
}

TEST_F(BatchInsert, KeysOfDifferentTypesWithOneIndexStayApart)
{
    store(0x005, 1, 0, "a");
    store(0x105, 1, 0, "b");
    EXPECT_NE(entry(0x005), entry(0x105));
    EXPECT_EQ(entry(0x105)->uidb_index, 0x105u);
    EXPECT_EQ(entry(0x005)->num_elements[0], 1u);
}

// ---- two roots, and none

TEST_F(BatchInsert, GoesIntoTheRootThatWasSetLastWithTheHandleOfTheContextsRoot)
{
    std::vector<main_entry *> table(1280);
    shadow_db other = {};
    other.main_table = table.data();
    pshadow_db = &other;
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_NE(table[5], nullptr);
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(services.calls_of("prm_srh_service_config_add")[0].args[0],
              reinterpret_cast<uint64_t>(root->prm_srh_hdl));
    EXPECT_EQ(counters_in_use(0), 0xC0000000u);
}

TEST_F(BatchInsert, WithoutAContextAModifyStaysInTheShadowAndIs22)
{
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5);
    batch.modify(node, "4567");
    pgbl_ptr = nullptr;
    EXPECT_EQ(insert(batch), 22u);
    EXPECT_EQ(memcmp(node->app_node.result, "4567", 4), 0);
    EXPECT_EQ(log_from("pgbl_ptr is NULL in prm update \n")[1], "PRM node modification failed\n");
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(BatchInsert, WithoutAContextANewKeyIs12)
{
    Batch batch(5);
    batch.create(7, 0, "abc", "0123");
    pgbl_ptr = nullptr;
    EXPECT_EQ(insert(batch), 12u);
    EXPECT_EQ(log().back(), "shared memory alloc failed c 576");
    EXPECT_EQ(entry(5), nullptr);
    EXPECT_EQ(services.names(), Lines{});
}

// ---- which trace buffer a refusal goes to

TEST_F(BatchInsert, RefusalsAreFailureMessagesAndGoToTheErrorBuffer)
{
    const ed_component *component = vlc::EventDebug::instance().component("inlc");
    ASSERT_NE(component, nullptr);
    services.record_debug_services(true);
    root->main_table = nullptr;
    Batch batch(5);
    batch->num_node = 1;
    EXPECT_EQ(insert(batch), 12u);
    const std::vector<RecordedCall> events = services.calls_of("_ltrace");
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].args[0], reinterpret_cast<uint64_t>(component->buffer_handles[0]));
    EXPECT_EQ(events[1].args[0], reinterpret_cast<uint64_t>(component->buffer_handles[1]));
}

} // namespace
