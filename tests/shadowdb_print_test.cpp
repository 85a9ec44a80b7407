// The prints: a node, a main entry, the whole database.
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

std::string hex_of(const void *bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char two[3];
        snprintf(two, sizeof two, "%02x", static_cast<const uint8_t *>(bytes)[i]);
        text += two;
    }
    return text;
}

class Print : public ShadowDbTest {
protected:
    Print()
    {
        // Every byte of the node its own, so that a byte too many or too few would show.
        auto *byte = reinterpret_cast<uint8_t *>(&node);
        for (size_t i = 0; i < sizeof node; ++i)
            byte[i] = static_cast<uint8_t>(i ^ 0xA5);
        node.app_node.table_type = 1;
        node.app_node.action = 3;
        node.app_node.entry_id = 42;
    }

    shmem_node node{};
};

TEST_F(Print, ANodeIsEightLinesWithKeyAndResultInHexadecimal)
{
    memcpy(node.app_node.key, "\x00\x0f\xf0\xff", 4);
    memcpy(node.app_node.result, "\xde\xad", 2);
    node.app_node.key_len = 4;
    node.app_node.result_len = 2;
    EXPECT_EQ(inline_svc_shadow_db_print_node(&node), 0u);
    EXPECT_EQ(log(), (Lines{"*********Node *********\n", "*******key 000ff0ff\n",
                            "*******key_len 4\n", "*******result dead\n", "*******result_len 2\n",
                            "*******table_type 1\n", "*******action 3\n", "*******entry_id 42\n"}));
}

TEST_F(Print, ALengthOfZeroPrintsAnEmptyString)
{
    node.app_node.key_len = 0;
    node.app_node.result_len = 0;
    EXPECT_EQ(inline_svc_shadow_db_print_node(&node), 0u);
    EXPECT_EQ(log(), printed_node("", 0, "", 0, 1, 3, 42));
}

TEST_F(Print, NumbersAreSignedDecimal)
{
    node.app_node.key_len = 1;
    node.app_node.result_len = 1;
    node.app_node.entry_id = 0xFFFFFFFF;
    node.app_node.table_type = 0x80000000;
    inline_svc_shadow_db_print_node(&node);
    EXPECT_EQ(log()[5], "*******table_type -2147483648\n");
    EXPECT_EQ(log()[7], "*******entry_id -1\n");
}

TEST_F(Print, AFullKeyAndResultAreShownWhole)
{
    node.app_node.key_len = 48;
    node.app_node.result_len = 64;
    inline_svc_shadow_db_print_node(&node);
    EXPECT_EQ(log(), printed_node(hex_of(node.app_node.key, 48), 48,
                                  hex_of(node.app_node.result, 64), 64, 1, 3, 42));
}

TEST_F(Print, AtMost127BytesOfAKeyShowAndTheyLieInTheRequest)
{
    for (const uint32_t length : {127u, 128u, 0x7FFFFFFFu}) {
        forget_log();
        node.app_node.key_len = length;
        node.app_node.result_len = 0;
        inline_svc_shadow_db_print_node(&node);
        const auto *key = reinterpret_cast<const uint8_t *>(&node) + 32;
        EXPECT_EQ(log()[1], "*******key " + hex_of(key, 127) + "\n");
    }
}

TEST_F(Print, AtMost92BytesOfAResultShowTheLastOfTheRequest)
{
    for (const uint32_t length : {92u, 93u, 127u, 0xFFFFFFFFu}) {
        forget_log();
        node.app_node.key_len = 0;
        node.app_node.result_len = length;
        inline_svc_shadow_db_print_node(&node);
        const auto *result = reinterpret_cast<const uint8_t *>(&node) + 84;
        EXPECT_EQ(log()[3], "*******result " + hex_of(result, 92) + "\n");
    }
}

TEST_F(Print, ARequestPrintsLikeANodeAndNothingBehindItIsRead)
{
    // Alone on the heap, so that a sanitizer would see a byte too many.
    auto request = std::make_unique<app_node_element>();
    request->app_node = node.app_node;
    request->app_node.key_len = 10000;
    request->app_node.result_len = 10000;
    EXPECT_EQ(inline_svc_shadow_db_print_node(reinterpret_cast<shmem_node *>(request.get())), 0u);
    EXPECT_EQ(log().size(), 8u);
}

TEST_F(Print, AMainEntryIsFiveLinesWithTheSumOfItsTables)
{
    main_entry main = {};
    main.uidb_index = 0x3FF;
    main.app_ID = 17;
    main.entry_version = 0xDEADBEEF;
    main.timestamp = 0x1F;
    main.num_elements[0] = 2;
    main.num_elements[1] = 5;
    EXPECT_EQ(inline_svc_shadow_db_print_main_entry(&main), 0u);
    EXPECT_EQ(log(),
              (Lines{"************main entry uidb_index 1023*********\n", "****Entry AppID 17\n",
                     "****Entry Version deadbeef\n", "****Entry Timestamp 1f\n",
                     "****Entry total Number of elemenets 7\n"}));
}

TEST_F(Print, NullIs22WithItsLineAndPrintsNothing)
{
    EXPECT_EQ(inline_svc_shadow_db_print_node(nullptr), 22u);
    EXPECT_EQ(inline_svc_shadow_db_print_main_entry(nullptr), 22u);
    EXPECT_EQ(log(), (Lines{"node is NULL in inline_svc_shadow_db_print_node",
                            "main_entry is NULL in inline_svc_shadow_db_print_main_entry"}));
    EXPECT_EQ(services.names(), Lines{});
}

// ---- the dump

class Dump : public ShadowDbTest {};

TEST_F(Dump, AMissingRootEndsTheProcess)
{
    pshadow_db = nullptr;
    EXPECT_SHADOWDB_ASSERTION(inline_svc_shadow_db_dump(), "FALSE");
}

TEST_F(Dump, AnEmptyDatabaseIsExactlyTheOpeningAndTheClosingLine)
{
    EXPECT_EQ(inline_svc_shadow_db_dump(), 0u);
    EXPECT_EQ(log(), (Lines{"****************shadow_dump*********\n",
                            "****************shadow_dump Done*********\n"}));
}

TEST_F(Dump, AMissingMainTableDumpsAsEmpty)
{
    root->main_table = nullptr;
    EXPECT_EQ(inline_svc_shadow_db_dump(), 0u);
    EXPECT_EQ(log().size(), 2u);
}

TEST_F(Dump, EntriesComeInTheOrderOfTheirSlotsWithTableZeroBeforeTableOne)
{
    store(0x207, 1, 1, "b");
    store(0x207, 2, 0, "a");
    store(5, 3, 0, "c");
    EXPECT_EQ(inline_svc_shadow_db_dump(), 0u);
    EXPECT_EQ(log(), joined({{"****************shadow_dump*********\n"},
                             printed_main_entry(5, 5, "1", "1", 1),
                             printed_node("63", 1, "30313233", 4, 0, 1, 3),
                             printed_main_entry(0x207, 0x207, "1", "1", 2),
                             printed_node("61", 1, "30313233", 4, 0, 1, 2),
                             printed_node("62", 1, "30313233", 4, 1, 1, 1),
                             {"****************shadow_dump Done*********\n"}}));
}

TEST_F(Dump, VisitsTheSlotsThatLookupsRefuse)
{
    main_entry first = {}, last = {};
    first.uidb_index = 1024;
    last.uidb_index = 1279;
    root->main_table[1024] = &first;
    root->main_table[1279] = &last;
    EXPECT_EQ(inline_svc_shadow_db_dump(), 0u);
    EXPECT_EQ(log(), joined({{"****************shadow_dump*********\n"},
                             printed_main_entry(1024, 0, "0", "0", 0),
                             printed_main_entry(1279, 0, "0", "0", 0),
                             {"****************shadow_dump Done*********\n"}}));
}

TEST_F(Dump, ALinkWithoutANodeEndsItWith22AndNoClosingLine)
{
    shmem_node *node = store(5, 1, 0, "a");
    store(5, 2, 1, "b");
    store(6, 3, 0, "c");
    node->link.data = nullptr;
    EXPECT_EQ(inline_svc_shadow_db_dump(), 22u);
    EXPECT_EQ(log(), joined({{"****************shadow_dump*********\n"},
                             printed_main_entry(5, 5, "1", "1", 2)}));
}

TEST_F(Dump, NodesAreWalkedByTheirLinksWhateverIsCounted)
{
    store(5, 1, 0, "a");
    entry(5)->num_elements[0] = 0;
    EXPECT_EQ(inline_svc_shadow_db_dump(), 0u);
    EXPECT_EQ(log_count("*******entry_id 1\n"), 1u);
}

TEST_F(Dump, ChangesNothingAndCallsNoPlatformService)
{
    store(5, 1, 0, "a");
    const main_entry before = *entry(5);
    inline_svc_shadow_db_dump();
    EXPECT_EQ(memcmp(entry(5), &before, sizeof before), 0);
    EXPECT_EQ(services.names(), Lines{});
}

} // namespace
