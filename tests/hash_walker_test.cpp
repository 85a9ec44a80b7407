// The periodic walker of a hash table: slices, batches, the pause after a whole table, the cursor.
#include "hash_fixture.h"

using namespace test;

namespace {

using Lines = std::vector<std::string>;
using Sizes = std::vector<size_t>;

constexpr uint32_t period = 300;
constexpr uint32_t batch = 20;

class HashWalkerTest : public HashTest {
protected:
    static std::vector<HandedOver> walk(HashTable &table)
    {
        in_hash_periodic_walker(table.get());
        return handed_over();
    }
    // Calls that do nothing until the next one that does, which is made too.
    static uint32_t idle_calls(HashTable &table)
    {
        for (uint32_t calls = 0; calls < 10000; ++calls) {
            if (!walk(table).empty())
                return calls;
        }
        return 10000;
    }
    // A table that the walker is set up for, with entries of keys 0 to count - 1.
    std::unique_ptr<HashTable> walked_table(uint32_t buckets, uint32_t count,
                                            uint32_t scan_period = period,
                                            uint32_t scan_batch = batch)
    {
        auto table = std::make_unique<HashTable>(buckets);
        EXPECT_EQ(in_hash_set_scan_callback(table->get(), keep_scan, scan_period, scan_batch),
                  256u);
        fill(*table, count);
        return table;
    }
};

// ---- its settings ------------------------------------------------------------------------------

TEST_F(HashWalkerTest, TheSettingsAreStoredAndTheIntervalIs20)
{
    HashTable table(2);
    fill(table, 3);
    table->scan_cursor = 1;
    std::vector<uint64_t> expected = table.words();
    auto &header = *reinterpret_cast<in_hash_table *>(expected.data());
    header.scan_callback = keep_scan;
    header.scan_period = 0x11223344;
    header.scan_batch = 77;
    header.scan_interval = 20;
    EXPECT_EQ(in_hash_set_scan_callback(table.get(), keep_scan, 0x11223344, 77), 256u);
    EXPECT_EQ(table.words(), expected);
}

TEST_F(HashWalkerTest, ABatchOf0OrAbove256CountsAs256)
{
    HashTable table(2);
    const std::pair<uint32_t, uint32_t> cases[] = {{0, 256},   {1, 1},      {255, 255}, {256, 256},
                                                   {257, 256}, {1000, 256}, {~0u, 256}};
    for (const auto &[given, stored] : cases) {
        EXPECT_EQ(in_hash_set_scan_callback(table.get(), keep_scan, period, given), 256u);
        EXPECT_EQ(table->scan_batch, stored) << given;
    }
}

TEST_F(HashWalkerTest, SettingsWithoutATableAreRefusedWith22)
{
    EXPECT_EQ(in_hash_set_scan_callback(nullptr, keep_scan, period, batch), 22u);
    EXPECT_EQ(log(), Lines{"table is NULL in in_hash_set_scan_callback"});
}

// ---- when it does nothing ----------------------------------------------------------------------

TEST_F(HashWalkerTest, WithAPeriodOf0NothingIsVisited)
{
    const auto table = walked_table(4, 10, 0);
    EXPECT_TRUE(walk(*table).empty());
    EXPECT_EQ((*table)->scan_cursor, 0u);
}

TEST_F(HashWalkerTest, AnEmptyTableIsNotVisited)
{
    const auto table = walked_table(4, 0);
    (*table)->scan_cursor = 2;
    EXPECT_TRUE(walk(*table).empty());
    EXPECT_EQ((*table)->scan_cursor, 2u);
}

TEST_F(HashWalkerTest, WithoutACallbackNothingIsVisited)
{
    HashTable table(4);
    fill(table, 10);
    in_hash_set_scan_callback(table.get(), nullptr, period, batch);
    in_hash_periodic_walker(table.get());
    EXPECT_EQ(table->scan_cursor, 0u);
}

TEST_F(HashWalkerTest, WithoutBucketsNothingIsVisited)
{
    HashTable table(0);
    in_hash_set_scan_callback(table.get(), keep_scan, period, batch);
    table->count = 5;
    EXPECT_TRUE(walk(table).empty());
}

TEST_F(HashWalkerTest, WithoutATableTheCallIsRefused)
{
    in_hash_periodic_walker(nullptr);
    EXPECT_EQ(log(), Lines{"table is NULL in in_hash_periodic_walker"});
}

// ---- a table that one call sees whole ----------------------------------------------------------

TEST_F(HashWalkerTest, ATableOf10IsVisitedInOneCallAndTheNext14CallsDoNothing)
{
    const auto table = walked_table(64, 10);
    EXPECT_EQ(sizes(walk(*table)), Sizes{10});
    for (int call = 0; call < 14; ++call)
        EXPECT_TRUE(walk(*table).empty()) << call;
    EXPECT_EQ(sizes(walk(*table)), Sizes{10});
    EXPECT_EQ(idle_calls(*table), 14u);
}

TEST_F(HashWalkerTest, EntriesComeBucketByBucketAndTheNewestOfAChainFirst)
{
    const auto table = walked_table(4, 10);
    EXPECT_EQ(keys(walk(*table)), (std::vector<uint64_t>{8, 4, 0, 9, 5, 1, 6, 2, 7, 3}));
}

TEST_F(HashWalkerTest, ThePauseFollowsThePeriod)
{
    const std::pair<uint32_t, uint32_t> cases[] = {{20, 0}, {39, 0},   {40, 1},   {59, 1},
                                                   {60, 2}, {300, 14}, {319, 14}, {2000, 99}};
    for (const auto &[scan_period, pause] : cases) {
        const auto table = walked_table(4, 10, scan_period);
        ASSERT_EQ(walk(*table).size(), 1u) << scan_period;
        EXPECT_EQ(idle_calls(*table), pause) << scan_period;
        for (uint32_t call = 0; call < pause; ++call) // what the last visit left
            walk(*table);
    }
}

TEST_F(HashWalkerTest, APeriodBelowTheIntervalCountsAsOneCall)
{
    for (const uint32_t scan_period : {1u, 19u}) {
        const auto table = walked_table(4, 300, scan_period, 256);
        EXPECT_EQ(sizes(walk(*table)), (Sizes{256, 44})) << scan_period;
        EXPECT_EQ(idle_calls(*table), 0u) << scan_period;
    }
}

TEST_F(HashWalkerTest, ABlockWithoutAnIntervalIsWalkedAsIfOneCallWereAPeriod)
{
    const auto table = walked_table(4, 10);
    (*table)->scan_interval = 0;
    EXPECT_EQ(sizes(walk(*table)), Sizes{10});
    EXPECT_EQ(idle_calls(*table), 0u);
}

TEST_F(HashWalkerTest, ThePauseIsOneForAllTablesOfTheProcess)
{
    const auto table = walked_table(4, 10);
    const auto other = walked_table(4, 3);
    ASSERT_EQ(walk(*table).size(), 1u);
    for (int call = 0; call < 14; ++call)
        EXPECT_TRUE(walk(*other).empty()) << call;
    EXPECT_EQ(sizes(walk(*other)), Sizes{3});
}

TEST_F(HashWalkerTest, CallsForAnEmptyTableOrAPeriodOf0DoNotShortenThePause)
{
    const auto table = walked_table(4, 10);
    const auto empty = walked_table(4, 0);
    const auto unwalked = walked_table(4, 5, 0);
    ASSERT_EQ(walk(*table).size(), 1u);
    for (int call = 0; call < 30; ++call) {
        walk(*empty);
        walk(*unwalked);
    }
    EXPECT_EQ(idle_calls(*table), 14u);
}

TEST_F(HashWalkerTest, AnEmptyTableIsNotOneThatWasSeenWholeAndPausesNothing)
{
    const auto table = walked_table(4, 10);
    const auto empty = walked_table(4, 0);
    walk(*empty);
    EXPECT_EQ(idle_calls(*table), 0u);
}

TEST_F(HashWalkerTest, ACallThatSeesAWholeTableInBucketsBehindTheQuotaPausesToo)
{
    const auto table = walked_table(1, 5000);
    EXPECT_EQ(keys(walk(*table)).size(), 5000u);
    EXPECT_EQ(idle_calls(*table), 14u);
}

// ---- slices ------------------------------------------------------------------------------------

TEST_F(HashWalkerTest, ASliceIsAFifteenthAndOneOfTheTableAtTheFlowServicesSettings)
{
    const auto table = walked_table(15000, 15000, period, 256);
    EXPECT_EQ(keys(walk(*table)).size(), 1001u);
    EXPECT_EQ((*table)->scan_cursor, 1001u);
}

TEST_F(HashWalkerTest, ASliceIsAtLeast256Entries)
{
    const std::pair<uint32_t, uint32_t> cases[] = {// entries, of which a fifteenth and 1 is
                                                   {3000, 256},  // 201
                                                   {3825, 256},  // 256
                                                   {3824, 256},  // 255
                                                   {3840, 257}}; // 257
    for (const auto &[count, slice] : cases) {
        const auto table = walked_table(count, count);
        EXPECT_EQ(keys(walk(*table)).size(), slice) << count;
    }
}

TEST_F(HashWalkerTest, ChainsAreNeverSplitBetweenCalls)
{
    const auto table = walked_table(10, 1000); // chains of 100
    EXPECT_EQ(keys(walk(*table)).size(), 300u);
    EXPECT_EQ((*table)->scan_cursor, 3u);
    EXPECT_EQ(keys(walk(*table)).size(), 300u);
    EXPECT_EQ((*table)->scan_cursor, 6u);
}

TEST_F(HashWalkerTest, ASliceGoesOnWhereTheLastOneEndedAndWrapsRound)
{
    const auto table = walked_table(10, 1000);
    walk(*table);
    walk(*table);
    walk(*table);
    const std::vector<HandedOver> fourth = walk(*table); // buckets 9, 0 and 1
    ASSERT_EQ(sizes(fourth), Sizes(15, 20));
    EXPECT_EQ(fourth[0].entries[0]->key, 999u);
    EXPECT_EQ(fourth[5].entries[0]->key, 990u);
    EXPECT_EQ(fourth[14].entries[19]->key, 1u);
    EXPECT_EQ((*table)->scan_cursor, 2u);
}

TEST_F(HashWalkerTest, ASliceIsNotAWholeTableAndPausesNothing)
{
    const auto table = walked_table(10, 1000);
    walk(*table);
    EXPECT_EQ(idle_calls(*table), 0u);
}

TEST_F(HashWalkerTest, InOnePeriodEveryEntryIsVisited)
{
    const auto table = walked_table(4096, 8192, period, 256);
    std::vector<uint64_t> seen;
    for (int call = 0; call < 15; ++call) {
        for (const uint64_t key : keys(walk(*table)))
            seen.push_back(key);
    }
    std::sort(seen.begin(), seen.end());
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(seen.size(), 8192u);
}

TEST_F(HashWalkerTest, NoCallGoesRoundTwice)
{
    const auto table = walked_table(4, 10);
    (*table)->scan_cursor = 2;
    EXPECT_EQ(keys(walk(*table)), (std::vector<uint64_t>{6, 2, 7, 3, 8, 4, 0, 9, 5, 1}));
    EXPECT_EQ((*table)->scan_cursor, 2u);
}

TEST_F(HashWalkerTest, ACountAboveTheEntriesThatAreThereNeverPauses)
{
    const auto table = walked_table(4, 10);
    (*table)->count = 11;
    EXPECT_EQ(sizes(walk(*table)), Sizes{10});
    EXPECT_EQ(idle_calls(*table), 0u);
}

TEST_F(HashWalkerTest, ACursorPastTheEndRestartsAt0)
{
    for (const uint32_t cursor : {4u, 5u, 0xFFFFFFFFu}) {
        const auto table = walked_table(4, 10, 20);
        (*table)->scan_cursor = cursor;
        EXPECT_EQ(keys(walk(*table)), (std::vector<uint64_t>{8, 4, 0, 9, 5, 1, 6, 2, 7, 3}))
            << cursor;
        EXPECT_EQ((*table)->scan_cursor, 0u) << cursor;
    }
}

TEST_F(HashWalkerTest, TheCursorIsTheBucketUnderWayWhileTheCallbackRuns)
{
    const auto table = walked_table(4, 12, 20, 3); // chains of 3, as long as a batch
    std::vector<uint32_t> cursors;
    functions.during_callback = [&] { cursors.push_back((*table)->scan_cursor); };
    walk(*table);
    EXPECT_EQ(cursors, (std::vector<uint32_t>{0, 1, 2, 3}));
    EXPECT_EQ((*table)->scan_cursor, 0u);
}

// ---- batches -----------------------------------------------------------------------------------

TEST_F(HashWalkerTest, EntriesAreHandedOverABatchAtATimeAndTheRestAtTheEnd)
{
    const auto table = walked_table(8, 45, 20);
    EXPECT_EQ(sizes(walk(*table)), (Sizes{20, 20, 5}));
}

TEST_F(HashWalkerTest, WithoutARestThereIsNoLastCall)
{
    const auto table = walked_table(8, 40, 20);
    EXPECT_EQ(sizes(walk(*table)), (Sizes{20, 20}));
}

TEST_F(HashWalkerTest, ABatchMayBeOneEntryOr256)
{
    const auto ones = walked_table(8, 3, 20, 1);
    EXPECT_EQ(sizes(walk(*ones)), (Sizes{1, 1, 1}));
    const auto most = walked_table(300, 300, 20, 1000);
    EXPECT_EQ(sizes(walk(*most)), (Sizes{256, 44}));
}

TEST_F(HashWalkerTest, ABlockWhoseBatchIsOutOfRangeIsWalkedWithBatchesOf256)
{
    for (const uint32_t stored : {0u, 257u, 0xFFFFFFFFu}) {
        const auto table = walked_table(300, 300, 20);
        (*table)->scan_batch = stored;
        EXPECT_EQ(sizes(walk(*table)), (Sizes{256, 44})) << stored;
    }
}

TEST_F(HashWalkerTest, ALinkIsReadOnlyWhenTheCallbackForItsBatchHasReturned)
{
    const auto table = walked_table(1, 4, 20, 2);
    const Entries entries = chain(*table, 0);
    HashEntry *late = make(77);
    late->next = entries[2];
    functions.during_callback = [&] {
        if (functions.handed_over.size() == 1)
            entries[1]->next = late;
    };
    EXPECT_EQ(keys(walk(*table)), (std::vector<uint64_t>{3, 2, 77, 1, 0}));
}

TEST_F(HashWalkerTest, AWalkAsksNeitherHashNorMatchAndChangesTheCursorAlone)
{
    const auto table = walked_table(10, 1000);
    functions.hashed.clear();
    std::vector<uint64_t> expected = table->words();
    reinterpret_cast<in_hash_table *>(expected.data())->scan_cursor = 3;
    walk(*table);
    EXPECT_EQ(table->words(), expected);
    EXPECT_TRUE(functions.hashed.empty());
    EXPECT_TRUE(functions.compared.empty());
}

} // namespace
