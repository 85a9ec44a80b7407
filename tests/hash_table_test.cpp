// The hash table: how it is set up, and lookup, insert and delete in its chains.
#include "hash_fixture.h"

using namespace test;

namespace {

using Lines = std::vector<std::string>;

class HashTableTest : public HashTest {};

// ---- setting up --------------------------------------------------------------------------------

TEST_F(HashTableTest, InitialisationStoresBucketsAndFunctionsAndReturnsTheMemory)
{
    std::vector<uint64_t> block(7 + 3);
    auto *memory = reinterpret_cast<in_hash_table *>(block.data());
    EXPECT_EQ(in_hash_init(3, memory, hash_of_entry, match_of_entries), memory);
    const std::vector<uint64_t> expected = {3,
                                            reinterpret_cast<uint64_t>(hash_of_entry),
                                            reinterpret_cast<uint64_t>(match_of_entries),
                                            0,
                                            0,
                                            0,
                                            0,
                                            0,
                                            0,
                                            0};
    EXPECT_EQ(block, expected);
}

TEST_F(HashTableTest, InitialisationKeepsChainsCountAndTheWalkersSettings)
{
    HashTable table(3);
    in_hash_set_scan_callback(table.get(), keep_scan, 300, 20);
    fill(table, 7);
    table->scan_cursor = 2;
    std::vector<uint64_t> expected = table.words();
    reinterpret_cast<in_hash_table *>(expected.data())->scan_cursor = 0;
    EXPECT_EQ(in_hash_init(3, table.get(), hash_of_entry, match_of_entries), table.get());
    EXPECT_EQ(table.words(), expected);
    EXPECT_EQ(table->count, 7u);
}

TEST_F(HashTableTest, InitialisationWithoutMemoryGivesNothing)
{
    EXPECT_EQ(in_hash_init(3, nullptr, hash_of_entry, match_of_entries), nullptr);
    EXPECT_EQ(log(), Lines{"mem is NULL in in_hash_init"});
}

TEST_F(HashTableTest, NothingButARefusalIsLogged)
{
    HashTable table(3);
    fill(table, 7);
    lookup(table, 1);
    lookup(table, 99);
    remove(table, 1);
    remove(table, 99);
    in_hash_set_scan_callback(table.get(), keep_scan, 300, 20);
    in_hash_periodic_walker(table.get());
    in_hash_read_all(table.get(), keep_read, 20);
    EXPECT_EQ(log(), Lines{});
    EXPECT_TRUE(services.calls().empty());
}

// ---- lookup ------------------------------------------------------------------------------------

TEST_F(HashTableTest, ALookupGivesTheEntryWithTheKey)
{
    HashTable table(4);
    Entries entries;
    for (uint64_t key = 0; key < 12; ++key)
        entries.push_back(insert(table, key));
    for (uint64_t key = 0; key < 12; ++key)
        EXPECT_EQ(lookup(table, key), entries[key]);
}

TEST_F(HashTableTest, ALookupOfAKeyThatIsNotThereGivesNothing)
{
    HashTable table(4);
    fill(table, 12);
    EXPECT_EQ(lookup(table, 12), nullptr);
    EXPECT_EQ(table->count, 12u);
}

TEST_F(HashTableTest, ALookupInAnEmptyBucketDoesNotCallMatch)
{
    HashTable table(4);
    insert(table, 0);
    EXPECT_EQ(lookup(table, 1), nullptr);
    EXPECT_TRUE(functions.compared.empty());
}

TEST_F(HashTableTest, ALookupComparesFromTheNewestEntryToTheFirstThatMatches)
{
    HashTable table(4);
    const HashEntry *oldest = insert(table, 1);
    const HashEntry *middle = insert(table, 5);
    const HashEntry *newest = insert(table, 9);
    functions.hashed.clear();
    const HashEntry record = key_record(5);
    EXPECT_EQ(in_hash_lookup(table.get(), &record), middle);
    EXPECT_EQ(functions.hashed, (std::vector<const void *>{&record}));
    const std::vector<std::pair<const void *, const void *>> expected = {{newest, &record},
                                                                         {middle, &record}};
    EXPECT_EQ(functions.compared, expected);
    EXPECT_EQ(lookup(table, 1), oldest);
}

TEST_F(HashTableTest, OnlyAMatchThatSays1IsOne)
{
    HashTable table(4);
    HashEntry *entry = insert(table, 1);
    for (const int32_t answer : {2, -1, 256, 0}) {
        functions.found = answer;
        EXPECT_EQ(lookup(table, 1), nullptr) << answer;
        remove(table, 1);
        EXPECT_EQ(table->count, 1u) << answer;
    }
    functions.found = 1;
    EXPECT_EQ(lookup(table, 1), entry);
}

TEST_F(HashTableTest, ALookupOrDeleteDoesNotReadTheLinkOfItsKeyRecord)
{
    HashTable table(4);
    HashEntry *entry = insert(table, 1);
    HashEntry record = {reinterpret_cast<HashEntry *>(0xBAD), 1, 0};
    EXPECT_EQ(in_hash_lookup(table.get(), &record), entry);
    in_hash_delete(table.get(), &record);
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(record.next, reinterpret_cast<HashEntry *>(0xBAD));
}

// ---- insert ------------------------------------------------------------------------------------

TEST_F(HashTableTest, AnInsertedEntryIsTheFirstOfItsChain)
{
    HashTable table(4);
    HashEntry *oldest = insert(table, 2);
    EXPECT_EQ(oldest->next, nullptr);
    HashEntry *middle = insert(table, 6);
    HashEntry *newest = insert(table, 10);
    EXPECT_EQ(chain(table, 2), (Entries{newest, middle, oldest}));
    for (const uint32_t other : {0u, 1u, 3u})
        EXPECT_EQ(table.head(other), nullptr);
    EXPECT_EQ(table->count, 3u);
}

TEST_F(HashTableTest, AnInsertAsksTheHashOnceAndComparesNothing)
{
    HashTable table(4);
    insert(table, 2);
    functions.hashed.clear();
    const HashEntry *entry = insert(table, 2);
    EXPECT_EQ(functions.hashed, (std::vector<const void *>{entry}));
    EXPECT_TRUE(functions.compared.empty());
}

TEST_F(HashTableTest, InsertAndDeleteChangeOfEntriesTheLinkAlone)
{
    HashTable table(1);
    const HashEntry *first = insert(table, 1);
    const HashEntry *second = insert(table, 2);
    const HashEntry *third = insert(table, 3);
    remove(table, 2);
    for (const HashEntry *entry : {first, second, third})
        EXPECT_EQ(entry->own, 0xC0FFEEu);
    EXPECT_EQ(first->key + second->key + third->key, 6u);
}

TEST_F(HashTableTest, TwoEntriesWithOneKeyAreBothInsertedAndTheNewerOneIsFound)
{
    HashTable table(4);
    HashEntry *older = insert(table, 7);
    HashEntry *newer = insert(table, 7);
    EXPECT_EQ(table->count, 2u);
    EXPECT_EQ(lookup(table, 7), newer);
    EXPECT_EQ(chain(table, 3), (Entries{newer, older}));
}

TEST_F(HashTableTest, TheLastBucketIsOneLikeTheOthers)
{
    HashTable table(4);
    functions.bucket = 3;
    HashEntry *entry = insert(table, 100);
    EXPECT_EQ(table.head(3), entry);
    EXPECT_EQ(lookup(table, 100), entry);
    remove(table, 100);
    EXPECT_EQ(table.head(3), nullptr);
}

// ---- delete ------------------------------------------------------------------------------------

TEST_F(HashTableTest, ADeleteUnlinksFromFrontMiddleAndEndOfAChain)
{
    for (const uint64_t removed : {0u, 1u, 2u}) {
        HashTable table(1);
        Entries entries;
        for (const uint64_t key : {2u, 1u, 0u}) // so that key 0 is the first of the chain
            entries.insert(entries.begin(), insert(table, key));
        remove(table, removed);
        entries.erase(entries.begin() + static_cast<ptrdiff_t>(removed));
        EXPECT_EQ(chain(table, 0), entries) << removed;
        EXPECT_EQ(table->count, 2u) << removed;
    }
}

TEST_F(HashTableTest, ADeleteGoesByKeyAndTakesACopyForTheEntry)
{
    HashTable table(4);
    const HashEntry copy = *insert(table, 7);
    in_hash_delete(table.get(), &copy);
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(table.head(3), nullptr);
}

TEST_F(HashTableTest, ADeleteOfAKeyThatTwoEntriesHaveTakesTheNewerOneFirst)
{
    HashTable table(4);
    HashEntry *older = insert(table, 7);
    insert(table, 7);
    in_hash_delete(table.get(), older); // names the older one, and means its key
    EXPECT_EQ(chain(table, 3), Entries{older});
    remove(table, 7);
    EXPECT_EQ(chain(table, 3), Entries{});
    EXPECT_EQ(table->count, 0u);
}

TEST_F(HashTableTest, ADeleteComparesChainEntriesWithTheGivenRecord)
{
    HashTable table(1);
    const HashEntry *older = insert(table, 1);
    const HashEntry *newer = insert(table, 2);
    functions.hashed.clear();
    const HashEntry record = key_record(1);
    in_hash_delete(table.get(), &record);
    const std::vector<std::pair<const void *, const void *>> expected = {{newer, &record},
                                                                         {older, &record}};
    EXPECT_EQ(functions.compared, expected);
    EXPECT_EQ(functions.hashed, (std::vector<const void *>{&record}));
}

TEST_F(HashTableTest, ADeleteOfAKeyThatIsNotThereChangesNothing)
{
    HashTable table(2);
    fill(table, 5);
    const std::vector<uint64_t> before = table.words();
    remove(table, 5);
    remove(table, 6);
    EXPECT_EQ(table.words(), before);
    EXPECT_EQ(table->count, 5u);
}

TEST_F(HashTableTest, AnEntryCanBeInsertedAgainAfterItsDelete)
{
    HashTable table(2);
    HashEntry *entry = insert(table, 1);
    HashEntry *other = insert(table, 3);
    in_hash_delete(table.get(), entry);
    in_hash_insert(table.get(), entry);
    EXPECT_EQ(chain(table, 1), (Entries{entry, other}));
    EXPECT_EQ(table->count, 2u);
}

// ---- a hash outside the table ------------------------------------------------------------------

TEST_F(HashTableTest, AnEntryWhoseHashIsOutsideTheTableIsNotInserted)
{
    HashTable table(4);
    fill(table, 4);
    const std::vector<uint64_t> before = table.words();
    for (const int32_t outside : {4, 5, -1, INT32_MAX, INT32_MIN}) {
        functions.bucket = outside;
        HashEntry *entry = make(9);
        in_hash_insert(table.get(), entry);
        EXPECT_EQ(table.words(), before) << outside;
        EXPECT_EQ(entry->next, reinterpret_cast<HashEntry *>(0xBAD)) << outside;
    }
    ASSERT_EQ(log().size(), 5u);
    EXPECT_EQ(log()[0].substr(0, 16), "hash of entry 0x");
    EXPECT_NE(log()[0].find(" is outside the table"), std::string::npos);
}

TEST_F(HashTableTest, NothingIsFoundOrDeletedUnderAHashOutsideTheTable)
{
    HashTable table(4);
    fill(table, 4);
    const std::vector<uint64_t> before = table.words();
    for (const int32_t outside : {4, 5, -1, INT32_MAX, INT32_MIN}) {
        functions.bucket = outside;
        EXPECT_EQ(lookup(table, 3), nullptr) << outside;
        remove(table, 3);
        EXPECT_EQ(table.words(), before) << outside;
    }
    EXPECT_TRUE(functions.compared.empty());
}

TEST_F(HashTableTest, ATableWithoutBucketsHoldsNothing)
{
    HashTable table(0);
    functions.bucket = 0;
    insert(table, 0);
    EXPECT_EQ(lookup(table, 0), nullptr);
    remove(table, 0);
    EXPECT_EQ(table->count, 0u);
}

TEST_F(HashTableTest, ATableWithoutFunctionsHoldsNothing)
{
    HashTable table(4);
    insert(table, 1);
    in_hash_init(4, table.get(), nullptr, match_of_entries);
    insert(table, 2);
    EXPECT_EQ(lookup(table, 1), nullptr);
    remove(table, 1);
    in_hash_init(4, table.get(), hash_of_entry, nullptr);
    EXPECT_EQ(lookup(table, 1), nullptr);
    remove(table, 1);
    EXPECT_EQ(table->count, 1u);
}

// ---- null arguments ----------------------------------------------------------------------------

TEST_F(HashTableTest, ALookupWithoutTableOrKeyFindsNothing)
{
    HashTable table(4);
    insert(table, 1);
    const HashEntry record = key_record(1);
    EXPECT_EQ(in_hash_lookup(nullptr, &record), nullptr);
    EXPECT_EQ(in_hash_lookup(table.get(), nullptr), nullptr);
    EXPECT_EQ(in_hash_lookup(nullptr, nullptr), nullptr);
}

TEST_F(HashTableTest, AnInsertWithoutTableOrEntryIsRefused)
{
    HashTable table(4);
    in_hash_insert(nullptr, make(1));
    in_hash_insert(table.get(), nullptr);
    EXPECT_EQ(log(), (Lines{"table is NULL in in_hash_insert", "entry is NULL in in_hash_insert"}));
    EXPECT_EQ(table->count, 0u);
}

TEST_F(HashTableTest, ADeleteWithoutTableOrRecordIsRefused)
{
    HashTable table(4);
    const HashEntry *entry = insert(table, 1);
    in_hash_delete(nullptr, entry);
    in_hash_delete(table.get(), nullptr);
    EXPECT_EQ(log(), (Lines{"table is NULL in in_hash_delete",
                            "entry_or_key_record is NULL in in_hash_delete"}));
    EXPECT_EQ(table->count, 1u);
}

} // namespace
