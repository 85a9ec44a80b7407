// Applying the command list, deleting a pair's key, and the switch that turns both off.
#include <array>

#include "cmdlist_fixture.h"
#include "inline_service_app.h"
#include "vlc/error_log.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;

class CommandListProgram : public CommandListTest {
protected:
    CommandListProgram() { forget_history(); }

    void program()
    {
        services.forget();
        forget_log();
        plm_inline_program_list_to_hardware(0);
    }
    void add(uint32_t entry_id, uint32_t action, shmem_node *hw_entry, const std::string &result)
    {
        const command_input in = command(0, "a", result);
        EXPECT_EQ(plm_inline_insert_cmd_to_list(0, entry_id, 0, &in, action, 0, hw_entry), 1u);
    }
};

// ---- what is applied ---------------------------------------------------------------------------

TEST_F(CommandListProgram, TheListIsAppliedAsOneBatchWithItsWords)
{
    open();
    insert_create(7, "abc", 0);
    insert_create(8, "def", 1);
    program();
    ASSERT_NE(entry(key), nullptr);
    EXPECT_EQ(entry(key)->uidb_index, key);
    EXPECT_EQ(entry(key)->app_ID, 17u);
    EXPECT_EQ(entry(key)->entry_version, 0x111u);
    EXPECT_EQ(entry(key)->entry_tag, 0x222);
    EXPECT_EQ(entry(key)->num_elements[0], 1u);
    EXPECT_EQ(entry(key)->num_elements[1], 1u);
    EXPECT_EQ(log_count(" action array present "), 1u);
    EXPECT_EQ(services.count("zem_errmsg"), 0u);
}

TEST_F(CommandListProgram, EachNpGetsTheCommandsInTheirOrder)
{
    open();
    insert_create(7, "abc", 0);
    insert_create(8, "def", 1);
    Lines requests;
    services.observe([&requests](const vlc::ServiceCall &call) {
        const std::string service = call.service;
        if (service.starts_with("prm_srh_"))
            requests.push_back(service + " " + std::to_string(record_of(call).np));
    });
    program();
    EXPECT_EQ(requests, (Lines{"prm_srh_service_config_add 0", "prm_srh_service_config_add 1",
                               "prm_srh_ext_service_db_add 0", "prm_srh_ext_service_db_add 1"}));
    services.observe({});
}

TEST_F(CommandListProgram, AnEntryWithoutAHardwareIndexTakesNoCounter)
{
    const uint32_t before = counters_in_use(0);
    open();
    insert_create(7, "abc");
    program();
    EXPECT_EQ(stored_node(key, 7)->app_node.hw_index, no_hw_index);
    EXPECT_EQ(counters_in_use(0), before);
}

TEST_F(CommandListProgram, AnEntryWithAHardwareIndexTakesCounters)
{
    const uint32_t before = counters_in_use(0);
    open();
    const command_input in = command(0, "abc", "0123456789");
    plm_inline_insert_cmd_to_list(0, 7, 7, &in, SHADOW_DB_CREATE, 1, nullptr);
    program();
    EXPECT_EQ(stored_node(key, 7)->app_node.hw_index, 7u);
    EXPECT_NE(counters_in_use(0), before);
}

TEST_F(CommandListProgram, AModifyAndADeleteMeanTheEntryThatWasLookedUp)
{
    shmem_node *kept = store(key, 7, 0, "a", no_hw_index);
    open();
    add(7, SHADOW_DB_MODIFY, plm_inline_get_hw_entry(0, 7), "new result");
    program();
    EXPECT_EQ(stored_node(key, 7), kept);
    EXPECT_EQ(kept->app_node.result_len, 10u);
    EXPECT_EQ(memcmp(kept->app_node.result, "new result", 10), 0);
    open();
    add(7, SHADOW_DB_DELETE, plm_inline_get_hw_entry(0, 7), "");
    program();
    EXPECT_EQ(entry(key), nullptr);
    EXPECT_EQ(rows(0, 0) + rows(1, 0), 0u);
}

TEST_F(CommandListProgram, AListOf32CommandsIsAppliedWhole)
{
    open();
    for (uint32_t i = 0; i < COMMAND_LIST_SLOTS; ++i)
        insert_create(i, "key " + std::to_string(i), i % 2);
    program();
    for (uint32_t i = 0; i < COMMAND_LIST_SLOTS; ++i)
        EXPECT_NE(stored_node(key, i), nullptr) << i;
    EXPECT_EQ(rows(0, 0), 16u);
    EXPECT_EQ(rows(1, 1), 16u);
}

TEST_F(CommandListProgram, TheListStaysSoThatItCanBeAppliedAgain)
{
    open();
    insert_create(7, "abc");
    program();
    plm_inline_delete_list_from_hardware(type, id);
    ASSERT_EQ(entry(key), nullptr);
    program();
    EXPECT_NE(stored_node(key, 7), nullptr);
    EXPECT_EQ(batch().num_node, 1u);
}

TEST_F(CommandListProgram, AnEmptyListFreesTheEntryAsAnyBatchWithoutNodesDoes)
{
    store(key, 7, 0, "a");
    open();
    program();
    EXPECT_EQ(entry(key), nullptr);
}

TEST_F(CommandListProgram, AListWhoseOnlyCommandWasNotEnqueuedLeavesNoEntry)
{
    open();
    services.force("list_enqueue_default", 0, 1, 1);
    insert_create(7, "abc");
    program();
    EXPECT_EQ(entry(key), nullptr);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
    EXPECT_EQ(services.count("zem_errmsg"), 0u);
}

TEST_F(CommandListProgram, AListThatWasNeverOpenedIsNotApplied)
{
    insert_create(7, "abc");
    program();
    EXPECT_EQ(log(), Lines{"command list was never opened"});
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(entry(0), nullptr);
}

// ---- a failure ---------------------------------------------------------------------------------

TEST_F(CommandListProgram, AFailureGoesToThePlatformsErrorLog)
{
    store(key, 1, 0, "held", no_hw_index);
    open();
    insert_create(7, "abc");
    services.force("prm_srh_service_config_add", refusal);
    services.force("prm_srh_service_config_del", 0xAB); // so that the clear fails too
    std::string text;
    services.script("zem_errmsg", [&](const vlc::ServiceCall &call) {
        text = reinterpret_cast<const char *>(call.args[2]);
        return std::optional<uint64_t>(5); // which nobody looks at
    });
    program();
    ASSERT_EQ(services.count("zem_errmsg"), 1u);
    const std::vector<uint64_t> args = services.calls_of("zem_errmsg")[0].args;
    EXPECT_EQ(args[0], reinterpret_cast<uint64_t>(&zem_msg_rec_plat_error_log));
    EXPECT_EQ(args[1], 3u);
    EXPECT_EQ(text, "Hardware programming failed rc 0xab\n");
    EXPECT_EQ(services.names().back(), "zem_errmsg");
}

TEST_F(CommandListProgram, TheLargestCodeIsSaidWhole)
{
    store(key, 1, 0, "held", no_hw_index);
    open();
    insert_create(7, "abc");
    services.force("prm_srh_service_config_add", refusal);
    services.force("prm_srh_service_config_del", 0xFFFFFFFE);
    program();
    ASSERT_EQ(vlc::ErrorLog::instance().messages().size(), 1u);
    EXPECT_EQ(vlc::ErrorLog::instance().messages()[0].text,
              "Hardware programming failed rc 0xfffffffe\n");
}

TEST_F(CommandListProgram, AFailedInsertionThatWasClearedIsNoFailure)
{
    open();
    insert_create(7, "abc");
    services.force("prm_srh_service_config_add", refusal);
    program();
    EXPECT_EQ(log_count(" shadow_db insertion  failed "), 1u);
    EXPECT_EQ(services.count("zem_errmsg"), 0u);
    EXPECT_EQ(entry(key), nullptr);
}

TEST_F(CommandListProgram, TheErrorLogsRecordIsNineConstantWords)
{
    static_assert(sizeof zem_msg_rec_plat_error_log == 72);
    std::array<uint64_t, 9> words;
    memcpy(words.data(), &zem_msg_rec_plat_error_log, sizeof words);
    const auto text = [&words](size_t place) {
        return std::string(reinterpret_cast<const char *>(words[place]));
    };
    EXPECT_EQ(words[0], 0u);
    EXPECT_EQ(text(1), "%s");
    EXPECT_EQ(words[2], 0u);
    EXPECT_EQ(text(3), "PLAT");
    EXPECT_EQ(text(4), "PLATFORM");
    EXPECT_EQ(text(5), "ERROR_LOG");
    EXPECT_EQ(words[6], 0x30000u);
    EXPECT_EQ(words[7], 0u);
    EXPECT_EQ(words[8], 0x136B0000u);
}

// ---- a pair's key deleted ----------------------------------------------------------------------

TEST_F(CommandListProgram, DeletingAPairClearsItsKeyAlone)
{
    store(key, 1, 0, "a");
    store(key, 2, 1, "b");
    store(key + 1, 3, 0, "c");
    plm_inline_delete_list_from_hardware(type, id);
    EXPECT_EQ(log()[0], " action array present ");
    EXPECT_EQ(log()[1], " app wants to delet the index 261 num_node 0");
    EXPECT_EQ(entry(key), nullptr);
    EXPECT_NE(stored_node(key + 1, 3), nullptr);
    EXPECT_EQ(rows(0, 0), 1u);
    EXPECT_EQ(rows(0, 1), 0u);
    EXPECT_EQ(services.count("list_create"), 0u);
}

TEST_F(CommandListProgram, DeletingAPairThatHoldsNothingChangesNothing)
{
    const uint64_t before = bytes();
    plm_inline_delete_list_from_hardware(type, id);
    EXPECT_EQ(log().back(), "Query MAIN entry is NULL ");
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(bytes(), before);
}

TEST_F(CommandListProgram, DeletingAnUnboundPairDoesNothing)
{
    store(0xFF, 1, 0, "a");
    for (const auto &[app_type, app_id] :
         {std::pair{0u, 1u}, {6u, 1u}, {2u, 0x100u}, {1u, 0x10000u}, {1u, 0xFFFF0000u}})
        plm_inline_delete_list_from_hardware(app_type, app_id);
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_NE(entry(0xFF), nullptr);
}

TEST_F(CommandListProgram, WhatADeletionCameToIsNotReported)
{
    store(key, 1, 0, "a", no_hw_index);
    services.force("prm_srh_service_config_del", refusal);
    plm_inline_delete_list_from_hardware(type, id);
    EXPECT_EQ(log().back(), " shadow_db clear  failed ");
    EXPECT_EQ(services.count("zem_errmsg"), 0u);
}

TEST_F(CommandListProgram, DeletingLeavesTheOpenListAsItIs)
{
    open();
    insert_create(7, "abc");
    const action_array before = batch();
    plm_inline_delete_list_from_hardware(type, id + 1);
    EXPECT_EQ(memcmp(&batch(), &before, sizeof before), 0);
}

// ---- the switch --------------------------------------------------------------------------------

TEST_F(CommandListProgram, WithTheSwitchOffNothingIsProgrammedDeletedOrSaid)
{
    store(key, 1, 0, "a");
    const command_input in = command(0, "b", "0123");
    open();
    insert_create(7, "abc");
    const uint64_t before = bytes();
    forget_history();
    plm_inline_disable_hardware_programming();
    plm_inline_program_list_to_hardware(0);
    plm_inline_delete_list_from_hardware(type, id);
    plm_inline_program_entry_in_hardware_list(type, id, 1, nullptr);
    plm_inline_program_entry_in_hardware_list(type, id, 2, &in);
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(bytes(), before);
    EXPECT_NE(stored_node(key, 1), nullptr);
}

TEST_F(CommandListProgram, WithTheSwitchOffAListThatWasNeverOpenedIsNotMentioned)
{
    plm_inline_disable_hardware_programming();
    program();
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListProgram, TheSwitchTurnsProgrammingOnAgain)
{
    plm_inline_disable_hardware_programming();
    plm_inline_disable_hardware_programming();
    open();
    insert_create(7, "abc");
    program();
    ASSERT_EQ(entry(key), nullptr);
    plm_inline_enable_hardware_programming();
    program();
    EXPECT_NE(stored_node(key, 7), nullptr);
    plm_inline_delete_list_from_hardware(type, id);
    EXPECT_EQ(entry(key), nullptr);
}

TEST_F(CommandListProgram, TheSwitchDoesNotStopOpeningAddingAndAsking)
{
    store(key, 1, 0, "a");
    plm_inline_disable_hardware_programming();
    open();
    EXPECT_EQ(batch().uidb_index, key);
    EXPECT_EQ(insert_create(7, "abc"), 1u);
    EXPECT_EQ(batch().num_node, 1u);
    EXPECT_NE(plm_inline_get_hw_entry(0, 1), nullptr);
    EXPECT_EQ(plm_inline_is_list_in_hardware(type, id, nullptr, nullptr), 1u);
}

} // namespace
