// Opening the command list, and looking up what is stored under it.
#include "cmdlist_fixture.h"

using namespace test;

namespace {

class CommandListOpen : public CommandListTest {};

struct Pair {
    uint32_t app_type;
    uint32_t app_id;
};
constexpr Pair unbound[] = {{0, 1},       {6, 1},          {0x80000001, 1}, {0xFFFFFFFF, 1},
                            {2, 0x100},   {2, 0xFFFF},     {1, 0x10000},    {5, 0x10000},
                            {1, 0x10005}, {1, 0xFFFF0000}, {0, 0},          {6, 0x10000}};

TEST_F(CommandListOpen, TheBatchHasThePairsKeyAndTheGivenWords)
{
    plm_inline_init_cmd_list(0, 2, 5, 0x11223344, 0x55667788, 0x99AA);
    ASSERT_EQ(services.names(), Lines{"list_create"});
    const std::vector<uint64_t> args = services.calls()[0].args;
    EXPECT_EQ(std::vector<uint64_t>(args.begin() + 1, args.end()),
              (std::vector<uint64_t>{0, 0, 0}));
    const auto &opened =
        *reinterpret_cast<action_array *>(args[0] - offsetof(action_array, node_list));
    EXPECT_EQ(opened.uidb_index, 0x105);
    EXPECT_EQ(opened.app_ID, 0x11223344u);
    EXPECT_EQ(opened.app_param, 0x55667788u);
    EXPECT_EQ(opened.entry_tag, 0x99AA);
    EXPECT_EQ(opened.num_node, 0u);
    EXPECT_EQ(opened.action, 0u);
    EXPECT_EQ(log(), Lines{" Query Main entry  NULL for uind_index  261"});
}

TEST_F(CommandListOpen, ThePlatformsResultIsReturnedInAll64Bits)
{
    for (const uint64_t handle : {UINT64_C(0x123456789ABCDEF0), UINT64_C(1), UINT64_C(0)}) {
        services.force("list_create", handle);
        EXPECT_EQ(plm_inline_init_cmd_list(0, 2, 5, 1, 1, 1), handle);
    }
}

TEST_F(CommandListOpen, TheMainEntryIsLookedUpBeforeTheListIsMade)
{
    store(key, 1, 0, "a");
    Lines said;
    services.script("list_create", [&](const vlc::ServiceCall &) {
        said = log();
        return std::optional<uint64_t>();
    });
    plm_inline_init_cmd_list(0, type, id, 1, 1, 1);
    EXPECT_EQ(said, Lines{" Query Main entry found for uidb_index 261"});
}

TEST_F(CommandListOpen, TheRecordIsZeroWhenTheListIsMade)
{
    open();
    insert_create(1, "a");
    list_record made;
    memset(&made, 0xEE, sizeof made);
    services.script("list_create", [&](const vlc::ServiceCall &call) {
        memcpy(&made, reinterpret_cast<const void *>(call.args[0]), sizeof made);
        return std::optional<uint64_t>();
    });
    plm_inline_init_cmd_list(0, type, id, 1, 1, 1);
    const list_record zero = {};
    EXPECT_EQ(memcmp(&made, &zero, sizeof zero), 0);
    EXPECT_EQ(batch().num_node, 0u);
}

TEST_F(CommandListOpen, EveryBoundPairOpensItsOwnKey)
{
    for (uint32_t app_type = 1; app_type <= 5; ++app_type) {
        for (const uint32_t app_id : {0u, 1u, 255u}) {
            open(app_type, app_id);
            EXPECT_EQ(batch().uidb_index, (app_type - 1) << 8 | app_id);
        }
    }
}

TEST_F(CommandListOpen, APairOfType5OpensAKeyUnderWhichNothingIsEverFound)
{
    EXPECT_NE(plm_inline_init_cmd_list(0, 5, 3, 1, 1, 1), 0xFFFFu);
    EXPECT_EQ(log(), Lines{"Invalid shadow db key 1027"});
    EXPECT_EQ(plm_inline_get_hw_entry(0, 0), nullptr);
}

TEST_F(CommandListOpen, AnUnboundPairGives0xFFFFAndLeavesTheListAsItWas)
{
    open();
    insert_create(1, "a");
    const action_array before = batch();
    forget_history();
    for (const Pair &pair : unbound) {
        EXPECT_EQ(plm_inline_init_cmd_list(0, pair.app_type, pair.app_id, 1, 2, 3), 0xFFFFu)
            << pair.app_type << ", " << pair.app_id;
    }
    EXPECT_EQ(memcmp(&batch(), &before, sizeof before), 0);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
    plm_inline_program_list_to_hardware(0);
    EXPECT_NE(stored_node(key, 1), nullptr);
}

TEST_F(CommandListOpen, AnUnboundPairDoesNotOpenAListThatNeverWas)
{
    plm_inline_init_cmd_list(0, 6, 1, 1, 2, 3);
    plm_inline_program_list_to_hardware(0);
    EXPECT_EQ(log(), Lines{"command list was never opened"});
}

TEST_F(CommandListOpen, OpeningAgainForgetsTheCommands)
{
    open();
    insert_create(1, "a");
    insert_create(2, "b");
    open(type, id + 1);
    EXPECT_EQ(batch().num_node, 0u);
    EXPECT_EQ(batch().node_list.first, nullptr);
    insert_create(3, "c");
    plm_inline_program_list_to_hardware(0);
    EXPECT_EQ(entry(key), nullptr);
    EXPECT_NE(stored_node(key + 1, 3), nullptr);
    EXPECT_EQ(rows(0, 0), 1u);
}

TEST_F(CommandListOpen, AListThatThePlatformCouldNotMakeIsOpenAllTheSame)
{
    services.force("list_create", 0);
    EXPECT_EQ(plm_inline_init_cmd_list(0, type, id, 1, 1, 1), 0u);
    insert_create(1, "a");
    services.stop_forcing();
    plm_inline_program_list_to_hardware(0);
    EXPECT_EQ(log_count("command list was never opened"), 0u);
    EXPECT_NE(stored_node(key, 1), nullptr);
}

TEST_F(CommandListOpen, TheListIdIsNotLookedAt)
{
    plm_inline_init_cmd_list(7, type, id, 1, 1, 1);
    const command_input in = command(0, "a", "0123");
    EXPECT_EQ(plm_inline_insert_cmd_to_list(8, 1, 0, &in, 1, 0, nullptr), 1u);
    plm_inline_program_list_to_hardware(0xFFFFFFFF);
    plm_inline_init_cmd_list(1, type, id, 1, 1, 1);
    EXPECT_EQ(plm_inline_get_hw_entry(9, 1), stored_node(key, 1));
    EXPECT_NE(stored_node(key, 1), nullptr);
}

TEST_F(CommandListOpen, AMissingRootEndsTheProcess)
{
    pshadow_db = nullptr;
    EXPECT_SHADOWDB_ASSERTION(plm_inline_init_cmd_list(0, type, id, 1, 1, 1), "FALSE");
}

// ---- the stored entry --------------------------------------------------------------------------

class CommandListEntry : public CommandListTest {};

TEST_F(CommandListEntry, AStoredEntryIsTheNodeItself)
{
    shmem_node *in_table_0 = store(key, 7, 0, "a");
    shmem_node *in_table_1 = store(key, 8, 1, "b");
    open();
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), in_table_0);
    EXPECT_EQ(plm_inline_get_hw_entry(0, 8), in_table_1);
    EXPECT_EQ(log()[0], "Query MAIN entry ");
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(CommandListEntry, AnEntryThatIsNotStoredIsNull)
{
    store(key, 7, 0, "a");
    open();
    EXPECT_EQ(plm_inline_get_hw_entry(0, 8), nullptr);
    EXPECT_EQ(log().back(), "NOT Found the node in the tables");
}

TEST_F(CommandListEntry, WithoutAMainEntryItIsNullAndNothingIsSaid)
{
    store(key + 1, 7, 0, "a");
    open();
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), nullptr);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListEntry, BeforeAListWasOpenedItIsNullAndNothingIsSaid)
{
    store(0, 7, 0, "a");
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), nullptr);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListEntry, AMainEntryThatCameAfterTheOpeningIsNotSeen)
{
    open();
    store(key, 7, 0, "a");
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), nullptr);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListEntry, AMainEntryThatWasFreedIsNotRead)
{
    store(key, 7, 0, "a");
    open();
    plm_inline_delete_list_from_hardware(type, id);
    forget_history();
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), nullptr);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListEntry, AnotherMainEntryInItsPlaceIsNotTheLists)
{
    store(key, 7, 0, "a");
    store(key + 1, 8, 0, "b");
    open();
    main_entry *opened_on = entry(key);
    root->main_table[key] = entry(key + 1);
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), nullptr);
    EXPECT_EQ(plm_inline_get_hw_entry(0, 8), nullptr);
    root->main_table[key] = opened_on;
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), stored_node(key, 7));
}

TEST_F(CommandListEntry, WithoutAMainTableOrARootItIsNull)
{
    store(key, 7, 0, "a");
    open();
    main_entry **main_table = root->main_table;
    root->main_table = nullptr;
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), nullptr);
    root->main_table = main_table;
    pshadow_db = nullptr;
    EXPECT_EQ(plm_inline_get_hw_entry(0, 7), nullptr);
    EXPECT_EQ(log(), Lines{});
}

} // namespace
