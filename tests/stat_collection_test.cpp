// The pass that reads every entry's counters and tells the services.

#include <algorithm>
#include <csignal>
#include <cstring>

#include "card_fixture.h"
#include "prm_table.h"

namespace test {
namespace {

using Log = std::vector<std::string>;

struct Report {
    uint32_t uidb_index;
    uint32_t entry_id;
    uint32_t phase;
    uint32_t a;
    uint32_t b;
    bool operator==(const Report &) const = default;
};

void PrintTo(const Report &report, std::ostream *out)
{
    *out << '(' << report.uidb_index << ", " << report.entry_id << ", " << report.phase << ", "
         << report.a << ", " << report.b << ')';
}

using Reports = std::vector<Report>;
Reports reports;
Reports other_reports;

void report(uint32_t uidb_index, uint32_t entry_id, uint32_t phase, uint32_t a, uint32_t b)
{
    reports.push_back({uidb_index, entry_id, phase, a, b});
}

void report_to_other(uint32_t uidb_index, uint32_t entry_id, uint32_t phase, uint32_t a, uint32_t b)
{
    other_reports.push_back({uidb_index, entry_id, phase, a, b});
}

// A service that deletes every entry it hears of.
void report_and_delete(uint32_t uidb_index, uint32_t entry_id, uint32_t phase, uint32_t a,
                       uint32_t b)
{
    report(uidb_index, entry_id, phase, a, b);
    if (phase != 0 || entry_id == 79)
        return;
    Batch removed(static_cast<uint16_t>(uidb_index));
    removed.remove(stored_node(uidb_index, entry_id));
    EXPECT_EQ(inline_svc_shadow_db_insert_action_array(removed.get()), 0u);
}

constexpr uint32_t begin = 1;
constexpr uint32_t entry = 0;
constexpr uint32_t end = 2;

class StatCollection : public RunningCardTest {
protected:
    StatCollection()
    {
        reports.clear();
        other_reports.clear();
        context.app_stats_handler[1] = report;
    }
    void create(uint16_t key, uint32_t entry_id, uint32_t table = 0)
    {
        Batch batch(key);
        batch.create(entry_id, table, "key" + std::to_string(key) + std::to_string(entry_id),
                     "0123456789");
        ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
        run_events();
        services.forget();
        forget_log();
    }
    // Makes PRM read these words for every counter of an NP.
    void let_np_count(uint32_t np, uint64_t packets, uint64_t bytes)
    {
        counted_[np][0] = packets;
        counted_[np][1] = bytes;
        services.script("prm_stats_cl_read", [this](const vlc::ServiceCall &call) {
            memcpy(reinterpret_cast<void *>(call.args[4]), counted_[call.args[2]],
                   sizeof counted_[0]);
            return uint64_t{0};
        });
    }

private:
    uint64_t counted_[8][2] = {};
};

// ---- the callbacks -----------------------------------------------------------------------------

TEST_F(StatCollection, AnInterfaceIsFramedByABeginAndAnEndCall)
{
    create(1, 70);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports, (Reports{{1, 0, begin, 0, 0}, {1, 70, entry, 0, 0}, {1, 0, end, 1, 0}}));
}

TEST_F(StatCollection, EntriesComeTableByTableInTheOrderOfTheirLists)
{
    create(1, 70, 1);
    create(1, 71, 0);
    create(1, 72, 1);
    create(1, 73, 0);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports, (Reports{{1, 0, begin, 0, 0},
                                {1, 71, entry, 0, 0},
                                {1, 73, entry, 0, 0},
                                {1, 70, entry, 0, 0},
                                {1, 72, entry, 0, 0},
                                {1, 0, end, 1, 0}}));
}

TEST_F(StatCollection, InterfacesComeInTheOrderOfTheirKeys)
{
    create(200, 1);
    create(3, 2);
    create(255, 3);
    create(0, 4);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    std::vector<uint32_t> begun;
    for (const Report &made : reports)
        if (made.phase == begin)
            begun.push_back(made.uidb_index);
    EXPECT_EQ(begun, (std::vector<uint32_t>{0, 3, 200, 255}));
}

TEST_F(StatCollection, EachApplicationTypeHasItsOwnCallback)
{
    context.app_stats_handler[4] = report_to_other;
    create(0x000, 1);
    create(0x3FF, 2);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports.size(), 3u);
    EXPECT_EQ(other_reports,
              (Reports{{0x3FF, 0, begin, 0, 0}, {0x3FF, 2, entry, 0, 0}, {0x3FF, 0, end, 1, 0}}));
}

TEST_F(StatCollection, AnEntryWithoutAnIdHasNoCallAndIsNotRead)
{
    create(1, 0xFFFFFFFF);
    create(1, 0xFFFFFFFE);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports,
              (Reports{{1, 0, begin, 0, 0}, {1, 0xFFFFFFFE, entry, 0, 0}, {1, 0, end, 1, 0}}));
    EXPECT_EQ(services.count("prm_stats_cl_read"), 2u) << "one for each NP of the other entry";
}

TEST_F(StatCollection, AServiceMayDeleteAnEntryWhileItHearsOfIt)
{
    context.app_stats_handler[1] = report_and_delete;
    for (const uint32_t entry_id : {70u, 71u, 79u})
        create(1, entry_id);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports, (Reports{{1, 0, begin, 0, 0},
                                {1, 70, entry, 0, 0},
                                {1, 71, entry, 0, 0},
                                {1, 79, entry, 0, 0},
                                {1, 0, end, 1, 0}}));
    EXPECT_EQ(stored_node(1, 70), nullptr);
    EXPECT_NE(stored_node(1, 79), nullptr);
}

TEST_F(StatCollection, AServiceThatDeletesItsLastEntryHearsNoMoreOfThatKey)
{
    context.app_stats_handler[1] = report_and_delete;
    create(1, 70);
    create(2, 79);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports, (Reports{{1, 0, begin, 0, 0},
                                {1, 70, entry, 0, 0},
                                {2, 0, begin, 0, 0},
                                {2, 79, entry, 0, 0},
                                {2, 0, end, 1, 0}}));
    EXPECT_EQ(root->main_table[1], nullptr);
}

// A service that, hearing of its first key, deletes what the next ones hold.
void report_and_delete_next_keys(uint32_t uidb_index, uint32_t entry_id, uint32_t phase, uint32_t a,
                                 uint32_t b)
{
    report(uidb_index, entry_id, phase, a, b);
    if (uidb_index != 1 || entry_id != 70)
        return;
    for (const uint16_t key : {uint16_t{2}, uint16_t{3}}) {
        Batch removed(key);
        removed.remove(stored_node(key, 80));
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(removed.get()), 0u);
    }
}

TEST_F(StatCollection, WhatAServiceDeletesUnderALaterKeyIsNotReported)
{
    context.app_stats_handler[1] = report_and_delete_next_keys;
    create(1, 70);
    for (const uint32_t entry_id : {79u, 80u, 81u})
        create(2, entry_id);
    create(3, 80);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports, (Reports{{1, 0, begin, 0, 0},
                                {1, 70, entry, 0, 0},
                                {1, 0, end, 1, 0},
                                {2, 0, begin, 0, 0},
                                {2, 79, entry, 0, 0},
                                {2, 81, entry, 0, 0},
                                {2, 0, end, 1, 0}}));
}

// Nodes that lie far from each other, in lists that are longer than what is fetched at once.
TEST_F(StatCollection, LongScatteredListsComeInTheirOrder)
{
    constexpr size_t distance = 8;
    constexpr uint32_t length = 150;
    std::vector<shmem_node> nodes(distance * length);
    for (uint16_t key = 1; key <= 3; ++key)
        create(key, 1000);
    Reports expected;
    for (uint32_t key = 1; key <= 3; ++key) {
        expected.push_back({key, 0, begin, 0, 0});
        expected.push_back({key, 1000, entry, 0, 0});
        list_record &list = root->main_table[key]->table_array[0];
        for (uint32_t i = 0; i < length; ++i) {
            const size_t place = (i * 7 % length) * distance + key;
            shmem_node &node = nodes[place];
            node.app_node.entry_id = i;
            node.app_node.shmem_node = &node;
            std::fill_n(node.stat_index_rx, 2, 0xC00000 + i);
            ASSERT_EQ(list_enqueue_default(&list, &node, &node), uint32_t{LIST_OK});
            expected.push_back({key, i, entry, 0, 0});
        }
        expected.push_back({key, 0, end, 1, 0});
    }
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports, expected);
    for (uint16_t key = 1; key <= 3; ++key) { // the window's nodes alone are the card's to look at
        list_record &list = root->main_table[key]->table_array[0];
        while (list.first != list.last)
            list_remove_default(&list, list.last, list.last);
    }
}

TEST_F(StatCollection, WhatStandsBehindALinkWithoutANodeIsNotLookedAt)
{
    create(1, 70);
    create(2, 80);
    list_link *first = root->main_table[1]->table_array[0].first;
    void *const node = first->data;
    first->data = nullptr;
    first->next = reinterpret_cast<list_link *>(uintptr_t{16});
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports.at(0), (Report{1, 0, begin, 0, 0}));
    EXPECT_EQ(reports.at(1), (Report{2, 0, begin, 0, 0}));
    first->data = node;
    first->next = nullptr;
}

TEST_F(StatCollection, ListsOfAKeyWithoutACallbackAreNotLookedAt)
{
    main_entry damaged = {};
    damaged.table_array[0].first = reinterpret_cast<list_link *>(uintptr_t{16});
    create(1, 70);
    root->main_table[0x100] = &damaged; // a type without a callback
    root->main_table[1024] = &damaged;  // none
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports.size(), 3u);
    EXPECT_EQ(log(), (Log{"stat callback is not initialized", "Invalid app_type 0"}));
    root->main_table[0x100] = root->main_table[1024] = nullptr;
}

TEST_F(StatCollection, AnEmptyCardIsCollectedWithoutACall)
{
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_TRUE(reports.empty());
    EXPECT_TRUE(log().empty());
}

TEST_F(StatCollection, WithoutAMainTableThereIsNothingToCollect)
{
    main_entry **table = root->main_table;
    root->main_table = nullptr;
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    inline_svc_main_index_collect_stat(1);
    EXPECT_TRUE(reports.empty());
    root->main_table = table;
}

TEST_F(StatCollection, ASuccessfulPassSaysNothing)
{
    create(1, 70);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_TRUE(log().empty());
}

using StatCollectionDeathTest = StatCollection;

TEST_F(StatCollectionDeathTest, WithoutARootTheProcessEnds)
{
    pshadow_db = nullptr;
    EXPECT_EXIT(inline_svc_stats_collection(), ::testing::KilledBySignal(SIGSEGV),
                "^pellam/lc/inline-service/src/inline_service_stat.cpp: [0-9]+ FALSE -- assertion "
                "failed\n$");
}

// ---- the round ---------------------------------------------------------------------------------

TEST_F(StatCollection, EachCompletedPassRaisesTheRoundByOneAndReportsIt)
{
    create(1, 70);
    for (uint32_t round = 1; round <= 3; ++round) {
        reports.clear();
        inline_svc_stats_collection();
        EXPECT_EQ(reports.back(), (Report{1, 0, end, round, 0}));
        EXPECT_EQ(root->main_table[1]->stat_round, round);
    }
}

TEST_F(StatCollection, TheRoundAfter65535Is0)
{
    create(1, 70);
    root->main_table[1]->stat_round = 65535;
    inline_svc_stats_collection();
    EXPECT_EQ(reports.back(), (Report{1, 0, end, 0, 0}));
    EXPECT_EQ(root->main_table[1]->stat_round, 0u);
    EXPECT_EQ(root->main_table[1]->timestamp, 1u) << "the field behind it is untouched";
}

TEST_F(StatCollection, ALinkWithoutANodeEndsItsInterfaceWithoutAnEndCall)
{
    create(1, 70);
    create(1, 71);
    create(1, 72, 1);
    create(2, 80);
    list_link *second = root->main_table[1]->table_array[0].first->next;
    void *const node = second->data;
    second->data = nullptr;
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(reports, (Reports{{1, 0, begin, 0, 0},
                                {1, 70, entry, 0, 0},
                                {2, 0, begin, 0, 0},
                                {2, 80, entry, 0, 0},
                                {2, 0, end, 1, 0}}));
    EXPECT_EQ(root->main_table[1]->stat_round, 0u) << "the pass was not completed";
    second->data = node;
}

// ---- which interface ---------------------------------------------------------------------------

TEST_F(StatCollection, KeysOf1024AndMoreHaveNoApplicationType)
{
    main_entry foreign = {};
    root->main_table[1024] = &foreign;
    root->main_table[1279] = &foreign;
    context.app_stats_handler[5] = report;
    create(1, 70);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(log(), (Log{"Invalid app_type 0", "Invalid app_type 0"}));
    EXPECT_EQ(reports.size(), 3u) << "the others are collected";
    EXPECT_EQ(foreign.stat_round, 0u);
    root->main_table[1024] = root->main_table[1279] = nullptr;
}

TEST_F(StatCollection, AnyKeyWithoutApplicationTypeIsSaid)
{
    for (const uint32_t key : {1024u, 1279u, 1280u, 0xFFFFu, 0x8001u, 0xFFFF0400u}) {
        forget_log();
        inline_svc_main_index_collect_stat(key);
        EXPECT_EQ(log(), (Log{"Invalid app_type 0"})) << key;
    }
    EXPECT_TRUE(reports.empty());
}

TEST_F(StatCollection, WithoutACallbackTheInterfaceIsSkippedAndSaid)
{
    create(0x100, 70);
    create(0x001, 71);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(log(), (Log{"stat callback is not initialized"}));
    EXPECT_EQ(reports.size(), 3u);
    EXPECT_EQ(root->main_table[0x100]->stat_round, 0u);
}

TEST_F(StatCollection, WithoutAContextThereIsNoCallback)
{
    create(1, 70);
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(log(), (Log{"stat callback is not initialized"}));
}

TEST_F(StatCollection, OnlyTheLow16BitsOfAKeyAreLookedUpAndTheWholeIsReported)
{
    create(1, 70);
    inline_svc_main_index_collect_stat(0x30001);
    EXPECT_EQ(
        reports,
        (Reports{{0x30001, 0, begin, 0, 0}, {0x30001, 70, entry, 0, 0}, {0x30001, 0, end, 1, 0}}));
    EXPECT_EQ(root->main_table[1]->stat_round, 1u);
}

TEST_F(StatCollection, AnEmptySlotEndsBeforeTheBeginCall)
{
    inline_svc_main_index_collect_stat(1);
    inline_svc_main_index_collect_stat(0x10001);
    pshadow_db = nullptr;
    inline_svc_main_index_collect_stat(1);
    EXPECT_TRUE(reports.empty());
}

// ---- sums --------------------------------------------------------------------------------------

TEST_F(StatCollection, CountsOfAllNpsAreAddedWordByWord)
{
    create(1, 70);
    let_np_count(0, 3, 300);
    let_np_count(1, 4, 4000);
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 7, 4300}));
}

TEST_F(StatCollection, EachEntryStartsFromZero)
{
    create(1, 70);
    create(1, 71);
    let_np_count(0, 3, 300);
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 3, 300}));
    EXPECT_EQ(reports.at(2), (Report{1, 71, entry, 3, 300}));
}

TEST_F(StatCollection, SumsWrapAt32Bits)
{
    create(1, 70);
    let_np_count(0, 0xFFFFFFFF, 0x1FFFFFFFF);
    let_np_count(1, 3, 2);
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 2, 1}));
}

TEST_F(StatCollection, BitsAbove32OfACounterAreLost)
{
    create(1, 70);
    let_np_count(0, 0x100000005, 0xABCDEF0000000006);
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 5, 6}));
}

TEST_F(StatCollection, ANodeWithCountersOnOneNpReportsThatNpAndSaysTheOther)
{
    create(1, 70);
    stored_node(1, 70)->stat_index_rx[1] = 0;
    let_np_count(0, 3, 300);
    let_np_count(1, 4, 400);
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 3, 300}));
    EXPECT_EQ(log(), (Log{" Bad stat ptr : 0 "}));
}

TEST_F(StatCollection, AReadThatFailsOnOneNpLeavesTheOthersSum)
{
    create(1, 70);
    let_np_count(1, 4, 400);
    services.script("prm_stats_cl_read", [](const vlc::ServiceCall &call) {
        auto *words = reinterpret_cast<uint64_t *>(call.args[4]);
        words[0] = 4;
        words[1] = 400;
        return uint64_t{call.args[2] == 0 ? 5u : 0u};
    });
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 4, 400}));
    EXPECT_EQ(log(), (Log{" Cannot read stat  stats of chip 0 for , RC= Input/output error\n"}));
    EXPECT_EQ(reports.back(), (Report{1, 0, end, 1, 0}));
}

// ---- real counts -------------------------------------------------------------------------------

TEST_F(StatCollection, PacketsThatTheNpsCountedReachTheService)
{
    for (const PrmTable &table : prm_tables())
        create(1, 70 + table.table_type, table.table_type);
    // The second entry's received counter is the third of each NP.
    card->nps()[0].counters().add(0, 64);
    card->nps()[0].counters().add(0, 1500);
    card->nps()[1].counters().add(0, 100);
    card->nps()[1].counters().add(2, 9000);
    inline_svc_stats_collection();
    EXPECT_EQ(reports, (Reports{{1, 0, begin, 0, 0},
                                {1, 70, entry, 3, 1664},
                                {1, 71, entry, 1, 9000},
                                {1, 0, end, 1, 0}}));
}

TEST_F(StatCollection, ReadingDoesNotClear)
{
    create(1, 70);
    card->nps()[0].counters().add(0, 64);
    inline_svc_stats_collection();
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 1, 64}));
    EXPECT_EQ(reports.at(4), (Report{1, 70, entry, 1, 64}));
}

TEST_F(StatCollection, TheDropCounterIsNotReported)
{
    create(1, 70);
    card->nps()[0].counters().add(1, 64);
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 0, 0}));
}

TEST_F(StatCollection, AnEntryThatIsMadeAgainStartsFromZero)
{
    create(1, 70);
    card->nps()[0].counters().add(0, 64);
    Batch removed(1);
    removed.remove(stored_node(1, 70));
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(removed.get()), 0u);
    create(1, 71);
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 71, entry, 0, 0}));
}

TEST_F(StatCollection, AnEntryWithoutCountersReportsZeroes)
{
    Batch batch(1);
    batch.create(70, 0, "key", "0123456789", 0xFFFFFFFF);
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    forget_log();
    inline_svc_stats_collection();
    EXPECT_EQ(reports.at(1), (Report{1, 70, entry, 0, 0}));
    EXPECT_EQ(log(), (Log{" Bad stat ptr : 0 ", " Bad stat ptr : 0 "}));
}

// The stored number is exchanged by each encode, and is read as it is stored.
TEST_F(StatCollection, AfterAnOddNumberOfEncodesTheExchangedNumberIsRead)
{
    create(1, 70);
    inline_svc_stats_collection();
    EXPECT_EQ(services.calls_of("prm_stats_cl_read").at(0).args[1], 0x0000C0u);
    Batch modified(1);
    modified.modify(stored_node(1, 70), "abcdefghij");
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(modified.get()), 0u);
    services.forget();
    inline_svc_stats_collection();
    EXPECT_EQ(services.calls_of("prm_stats_cl_read").at(0).args[1], 0xC00000u);
    EXPECT_EQ(services.calls_of("prm_stats_cl_read").at(1).args[1], 0xC00000u);
}

} // namespace
} // namespace test
