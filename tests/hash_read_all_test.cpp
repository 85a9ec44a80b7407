// Reading a whole hash table: batches, the one last call, and its result.
#include "hash_fixture.h"

using namespace test;

namespace {

using Lines = std::vector<std::string>;

class HashReadAllTest : public HashTest {
protected:
    // Count and `last` of each call.
    using Calls = std::vector<std::pair<size_t, uint32_t>>;

    static uint32_t read(HashTable &table, uint32_t batch)
    {
        return in_hash_read_all(table.get(), keep_read, batch);
    }
    static Calls calls()
    {
        Calls made;
        for (const HandedOver &call : handed_over())
            made.emplace_back(call.entries.size(), call.last);
        return made;
    }
};

TEST_F(HashReadAllTest, FortyFiveEntriesInBatchesOf20AreTwoFullCallsAndALastOneOf5)
{
    HashTable table(8);
    fill(table, 45);
    read(table, 20);
    EXPECT_EQ(calls(), (Calls{{20, 0}, {20, 0}, {5, 1}}));
}

TEST_F(HashReadAllTest, FortyEntriesInBatchesOf20AreTwoFullCallsAndALastOneOfNone)
{
    HashTable table(8);
    fill(table, 40);
    read(table, 20);
    EXPECT_EQ(calls(), (Calls{{20, 0}, {20, 0}, {0, 1}}));
}

TEST_F(HashReadAllTest, AnEmptyTableIsOneLastCallOfNone)
{
    HashTable table(8);
    read(table, 20);
    EXPECT_EQ(calls(), (Calls{{0, 1}}));
}

TEST_F(HashReadAllTest, ATableWithoutBucketsIsOneLastCallOfNoneAndItsResult)
{
    HashTable table(0);
    functions.read_results = {0xDEADBEEF};
    EXPECT_EQ(read(table, 20), 0xDEADBEEF);
    EXPECT_EQ(calls(), (Calls{{0, 1}}));
}

TEST_F(HashReadAllTest, EntriesComeBucketByBucketAndTheNewestOfAChainFirst)
{
    HashTable table(4);
    fill(table, 10);
    read(table, 3);
    EXPECT_EQ(keys(handed_over()), (std::vector<uint64_t>{8, 4, 0, 9, 5, 1, 6, 2, 7, 3}));
}

TEST_F(HashReadAllTest, TheResultIsThatOfTheLastCallAlone)
{
    HashTable table(4);
    fill(table, 5);
    functions.read_results = {7, 8, 9};
    EXPECT_EQ(read(table, 2), 9u);
    functions.read_results = {7, 8, 0};
    EXPECT_EQ(read(table, 2), 0u);
}

TEST_F(HashReadAllTest, ACallThatFailsDoesNotEndTheRead)
{
    HashTable table(4);
    fill(table, 5);
    functions.read_results = {22, 22, 0};
    read(table, 2);
    EXPECT_EQ(calls(), (Calls{{2, 0}, {2, 0}, {1, 1}}));
}

TEST_F(HashReadAllTest, ABatchMayBeOneEntryOr256)
{
    HashTable table(50);
    fill(table, 300);
    read(table, 256);
    EXPECT_EQ(calls(), (Calls{{256, 0}, {44, 1}}));
    HashTable small(2);
    fill(small, 2);
    read(small, 1);
    EXPECT_EQ(calls(), (Calls{{1, 0}, {1, 0}, {0, 1}}));
}

TEST_F(HashReadAllTest, ABatchOf0OrAbove256CountsAs256)
{
    HashTable table(50);
    fill(table, 600);
    for (const uint32_t batch : {0u, 257u, 1000u, 0xFFFFFFFFu}) {
        read(table, batch);
        EXPECT_EQ(calls(), (Calls{{256, 0}, {256, 0}, {88, 1}})) << batch;
    }
}

TEST_F(HashReadAllTest, ALinkIsReadOnlyWhenTheCallbackForItsBatchHasReturned)
{
    HashTable table(1);
    fill(table, 4);
    const Entries entries = chain(table, 0);
    HashEntry *late = make(77);
    late->next = entries[2];
    functions.during_callback = [&] {
        if (functions.handed_over.size() == 1)
            entries[1]->next = late;
    };
    read(table, 2);
    EXPECT_EQ(keys(handed_over()), (std::vector<uint64_t>{3, 2, 77, 1, 0}));
}

TEST_F(HashReadAllTest, AReadFromAScanCallbackLeavesTheWalkersEntriesAlone)
{
    static HashTable *table;
    HashTable ten(4);
    table = &ten;
    fill(ten, 10);
    const auto read_then_keep = [](void **entries, uint32_t count) {
        in_hash_read_all(
            table->get(), [](void **, uint32_t, uint32_t) { return 0u; }, 256);
        keep_scan(entries, count);
    };
    in_hash_set_scan_callback(ten.get(), read_then_keep, 20, 4);
    in_hash_periodic_walker(ten.get());
    EXPECT_EQ(keys(handed_over()), (std::vector<uint64_t>{8, 4, 0, 9, 5, 1, 6, 2, 7, 3}));
}

TEST_F(HashReadAllTest, AReadChangesNothingAndAsksNeitherHashNorMatch)
{
    HashTable table(4);
    fill(table, 10);
    table->scan_cursor = 3;
    functions.hashed.clear();
    const std::vector<uint64_t> before = table.words();
    read(table, 3);
    EXPECT_EQ(table.words(), before);
    EXPECT_TRUE(functions.hashed.empty());
    EXPECT_TRUE(functions.compared.empty());
}

TEST_F(HashReadAllTest, AReadNeedsNoScanSettingsAndNoFunctions)
{
    HashTable table(4);
    fill(table, 10);
    in_hash_init(4, table.get(), nullptr, nullptr);
    read(table, 20);
    EXPECT_EQ(calls(), (Calls{{10, 1}}));
}

TEST_F(HashReadAllTest, WithoutATableOrCallbackItIsRefusedWith22)
{
    HashTable table(4);
    fill(table, 10);
    EXPECT_EQ(in_hash_read_all(nullptr, keep_read, 20), 22u);
    EXPECT_EQ(in_hash_read_all(table.get(), nullptr, 20), 22u);
    EXPECT_TRUE(functions.handed_over.empty());
    EXPECT_EQ(log(),
              (Lines{"table is NULL in in_hash_read_all", "callback is NULL in in_hash_read_all"}));
}

} // namespace
