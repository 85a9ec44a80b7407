// The three lookups, on entries made by hand where the platform's lists would not make them.
#include <cstdio>
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

class MainEntryQuery : public RunningCardTest {};

TEST_F(MainEntryQuery, AMissingRootEndsTheProcess)
{
    pshadow_db = nullptr;
    EXPECT_SHADOWDB_ASSERTION(inline_svc_shadow_db_query_main(1), "FALSE");
}

TEST_F(MainEntryQuery, AStoredEntryIsFoundWithItsLine)
{
    main_entry entry = {};
    root->main_table[5] = &entry;
    EXPECT_EQ(inline_svc_shadow_db_query_main(5), &entry);
    EXPECT_EQ(log(), Lines{" Query Main entry found for uidb_index 5"});
}

TEST_F(MainEntryQuery, AnEmptySlotIsNullWithItsLine)
{
    EXPECT_EQ(inline_svc_shadow_db_query_main(0x3FF), nullptr);
    EXPECT_EQ(log(), Lines{" Query Main entry  NULL for uind_index  1023"});
}

TEST_F(MainEntryQuery, AKeyOf1024IsRefusedWithItsLineAlthoughTheTableHasTheSlot)
{
    main_entry entry = {};
    root->main_table[1024] = &entry;
    EXPECT_EQ(inline_svc_shadow_db_query_main(0x400), nullptr);
    EXPECT_EQ(log(), Lines{"Invalid shadow db key 1024"});
}

TEST_F(MainEntryQuery, EveryBitOfFC00IsRefused)
{
    for (uint32_t bit = 10; bit < 16; ++bit) {
        forget_log();
        EXPECT_EQ(inline_svc_shadow_db_query_main(1u << bit), nullptr);
        EXPECT_EQ(log(), Lines{"Invalid shadow db key " + std::to_string(1u << bit)});
    }
}

TEST_F(MainEntryQuery, OnlyTheLowSixteenBitsAreTheKey)
{
    main_entry entry = {};
    root->main_table[5] = &entry;
    EXPECT_EQ(inline_svc_shadow_db_query_main(0x10005), &entry);
    EXPECT_EQ(log(), Lines{" Query Main entry found for uidb_index 5"});
}

TEST_F(MainEntryQuery, AMissingMainTableReadsAsEmpty)
{
    root->main_table = nullptr;
    EXPECT_EQ(inline_svc_shadow_db_query_main(5), nullptr);
    EXPECT_EQ(log(), Lines{" Query Main entry  NULL for uind_index  5"});
}

TEST_F(MainEntryQuery, CallsNoPlatformServiceAndChangesNothing)
{
    inline_svc_shadow_db_query_main(5);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(root->main_table[5], nullptr);
}

// A main entry with hand-linked nodes.
class NodeQuery : public RunningCardTest {
protected:
    shmem_node &add(shmem_node &node, uint32_t table, const std::string &key,
                    const std::string &result, uint32_t entry_id = 0)
    {
        node.app_node = make_node(entry_id, table, key, result, SHADOW_DB_CREATE);
        node.app_node.shmem_node = &node;
        append(node.link, table, &node);
        return node;
    }
    void append(list_link &link, uint32_t table, void *data)
    {
        link = {nullptr, nullptr, data, nullptr};
        list_link **last = &main.table_array[table].first;
        while (*last != nullptr)
            last = &(*last)->next;
        *last = &link;
    }
    shmem_node *query(const std::string &key, const std::string &result)
    {
        return inline_shadow_db_query_node(&main, key.data(), static_cast<uint32_t>(key.size()),
                                           result.data(), static_cast<uint32_t>(result.size()));
    }

    main_entry main{};
    shmem_node first{}, second{}, third{};
    list_link without_data{};
};

TEST_F(NodeQuery, WithoutAMainEntryItIsNullWithItsLine)
{
    EXPECT_EQ(inline_shadow_db_query_node(nullptr, "a", 1, "r", 1), nullptr);
    EXPECT_EQ(log(), Lines{"Query MAIN entry is NULL "});
}

TEST_F(NodeQuery, EmptyTablesAreBothVisitedAndNothingIsFound)
{
    EXPECT_EQ(query("a", "r"), nullptr);
    EXPECT_EQ(log(), (Lines{"Query MAIN entry ", "Table is present in the main",
                            "Table is present in the main", "NOT Found the node in the tables"}));
}

TEST_F(NodeQuery, EveryStepOfTheWalkSaysItsLine)
{
    add(first, 0, "other", "r");
    add(second, 0, "abc", "else");
    add(third, 1, "abc", "r");
    EXPECT_EQ(query("abc", "r"), &third);
    EXPECT_EQ(log(), (Lines{"Query MAIN entry ", "Table is present in the main",
                            "Compare the node in the table 0", "Compare the node in the table 0",
                            "Key is matched  But result is not matched",
                            "Table is present in the main", "Compare the node in the table 1",
                            "result is matched ", "Found the node in the table 1"}));
}

TEST_F(NodeQuery, ALinkWithoutANodeIsNamedAndPassedOver)
{
    append(without_data, 1, nullptr);
    add(first, 1, "abc", "r");
    EXPECT_EQ(query("abc", "r"), &first);
    EXPECT_EQ(log(), (Lines{"Query MAIN entry ", "Table is present in the main",
                            "Table is present in the main", "Node is not present in the table 1",
                            "Compare the node in the table 1", "result is matched ",
                            "Found the node in the table 1"}));
}

TEST_F(NodeQuery, BytesBehindAZeroByteThatBothSidesShareTakeNoPart)
{
    add(first, 0, std::string("ab\0x", 4), std::string("r\0p", 3));
    EXPECT_EQ(query(std::string("ab\0y", 4), std::string("r\0q", 3)), &first);
}

TEST_F(NodeQuery, BytesBeforeTheZeroByteDecide)
{
    add(first, 0, std::string("ab\0x", 4), "r");
    EXPECT_EQ(query(std::string("aB\0x", 4), "r"), nullptr);
    EXPECT_EQ(query(std::string("abc", 3), "r"), nullptr);
}

TEST_F(NodeQuery, StoredLengthsAreNotCompared)
{
    add(first, 0, "abc", "result");
    EXPECT_EQ(query("ab", "res"), &first);
    first.app_node.key_len = 0;
    first.app_node.result_len = 0;
    EXPECT_EQ(query("abc", "result"), &first);
}

TEST_F(NodeQuery, ALengthOfZeroMatchesAnyNode)
{
    add(first, 1, "abc", "r");
    EXPECT_EQ(query("", "r"), &first);
    EXPECT_EQ(query("abc", ""), &first);
    EXPECT_EQ(inline_shadow_db_query_node(&main, nullptr, 0, nullptr, 0), &first);
}

TEST_F(NodeQuery, TableZeroComesFirstAndWithinATableTheListsOrder)
{
    add(third, 1, "abc", "r");
    add(first, 0, "abc", "r");
    add(second, 0, "abc", "r");
    EXPECT_EQ(query("abc", "r"), &first);
}

TEST_F(NodeQuery, ComparisonsEndWithTheKeyAndResultFields)
{
    add(first, 0, std::string(48, 'k'), std::string(64, 'r'));
    first.app_node.key_len = 0x6B6B6B6B; // 'k's and 'r's of a neighbour must not be read
    first.app_node.result_len = 0x72727272;
    EXPECT_EQ(query(std::string(48, 'k') + "different", std::string(64, 'r') + "different"),
              &first);
}

TEST_F(NodeQuery, ANullKeyOrResultWithALengthMatchesNothing)
{
    add(first, 0, "abc", "r");
    EXPECT_EQ(inline_shadow_db_query_node(&main, nullptr, 3, "r", 1), nullptr);
    EXPECT_EQ(inline_shadow_db_query_node(&main, "abc", 3, nullptr, 1), nullptr);
}

TEST_F(NodeQuery, CallsNoPlatformServiceAndChangesNothing)
{
    add(first, 0, "abc", "r");
    const main_entry main_before = main;
    const shmem_node node_before = first;
    query("abc", "r");
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(memcmp(&main, &main_before, sizeof main), 0);
    EXPECT_EQ(memcmp(&first, &node_before, sizeof first), 0);
}

// ---- by entry id

class EntryIdQuery : public NodeQuery {};

TEST_F(EntryIdQuery, WithoutAMainEntryItIsNullWithItsLine)
{
    EXPECT_EQ(inline_shadow_db_query_entry_id(nullptr, 1), nullptr);
    EXPECT_EQ(log(), Lines{"Query MAIN entry is NULL "});
}

TEST_F(EntryIdQuery, PrintsTheMainEntryAndNamesTheFoundNodesAddress)
{
    main.uidb_index = 9;
    main.app_ID = 17;
    main.entry_version = 0xBEEF;
    main.timestamp = 1;
    main.num_elements[0] = 2;
    main.num_elements[1] = 3;
    add(first, 0, "a", "r", 1);
    add(second, 1, "b", "r", 2);
    EXPECT_EQ(inline_shadow_db_query_entry_id(&main, 2), &second);
    char found[64];
    snprintf(found, sizeof found, "Found the node in the table1 x%lx",
             reinterpret_cast<unsigned long>(&second));
    EXPECT_EQ(log(),
              joined({{"Query MAIN entry "},
                      printed_main_entry(9, 17, "beef", "1", 5),
                      {"Table is present in the main", "Table is present in the main", found}}));
}

TEST_F(EntryIdQuery, AnUnknownIdIsNullAfterBothTables)
{
    add(first, 0, "a", "r", 1);
    EXPECT_EQ(inline_shadow_db_query_entry_id(&main, 2), nullptr);
    EXPECT_EQ(log(), joined({{"Query MAIN entry "},
                             printed_main_entry(0, 0, "0", "0", 0),
                             {"Table is present in the main", "Table is present in the main",
                              "NOT Found the node in the tables"}}));
}

TEST_F(EntryIdQuery, ALinkWithoutANodeIsNamedAndPassedOver)
{
    append(without_data, 0, nullptr);
    add(first, 0, "a", "r", 7);
    EXPECT_EQ(inline_shadow_db_query_entry_id(&main, 7), &first);
    EXPECT_EQ(log_count("Node is not present in the table 0"), 1u);
}

TEST_F(EntryIdQuery, TheSameIdInBothTablesIsFoundInTableZero)
{
    add(second, 1, "b", "r", 7);
    add(first, 0, "a", "r", 7);
    EXPECT_EQ(inline_shadow_db_query_entry_id(&main, 7), &first);
}

TEST_F(EntryIdQuery, TheFirstOfTwoNodesWithTheIdWins)
{
    add(first, 1, "a", "r", 7);
    add(second, 1, "b", "r", 7);
    EXPECT_EQ(inline_shadow_db_query_entry_id(&main, 7), &first);
}

TEST_F(EntryIdQuery, CallsNoPlatformServiceAndChangesNothing)
{
    add(first, 0, "a", "r", 7);
    const main_entry before = main;
    inline_shadow_db_query_entry_id(&main, 7);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(memcmp(&main, &before, sizeof main), 0);
}

} // namespace
