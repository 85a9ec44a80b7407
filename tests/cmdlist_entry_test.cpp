// One entry programmed by itself, and the tests whether a pair has anything stored.
#include "cmdlist_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;

class CommandListSingle : public CommandListTest {
protected:
    CommandListSingle()
    {
        node = store(key, 7, 0, "a", no_hw_index);
        entry(key)->app_ID = 0x11223344;
        entry(key)->entry_version = 0x55667788;
        entry(key)->entry_tag = 0x99AA;
        node_before = node->app_node;
        bytes_before = bytes();
        forget_history();
    }

    void program(uint32_t entry_id, const command_input *in, uint32_t app_id = id)
    {
        plm_inline_program_entry_in_hardware_list(type, app_id, entry_id, in);
    }
    void expect_nothing_changed()
    {
        EXPECT_EQ(memcmp(&node->app_node, &node_before, sizeof node_before), 0);
        EXPECT_EQ(bytes(), bytes_before);
        EXPECT_EQ(log_count(" action array present "), 0u);
        for (const std::string &name : services.names())
            EXPECT_FALSE(name.starts_with("prm_srh_") || name.starts_with("shmwin_")) << name;
    }
    shmem_node *node;
    app_node node_before;
    uint64_t bytes_before;
};

TEST_F(CommandListSingle, AnEntryThatIsNotThereIsCreatedUnderItsIdAsHardwareIndex)
{
    const command_input in = command(1, "new", "0123456789");
    program(0x01020304, &in);
    const shmem_node *created = stored_node(key, 0x01020304);
    ASSERT_NE(created, nullptr);
    app_node expected = make_node(0x01020304, 1, "new", "0123456789", SHADOW_DB_CREATE, 0x01020304);
    expected.shmem_node = const_cast<shmem_node *>(created);
    EXPECT_EQ(memcmp(&created->app_node, &expected, sizeof expected), 0);
    EXPECT_EQ(services.count("prm_srh_ext_service_db_add"), 2u);
}

TEST_F(CommandListSingle, TheMainEntryKeepsItsIdVersionAndTag)
{
    const command_input in = command(1, "new", "0123456789");
    program(8, &in);
    EXPECT_EQ(entry(key)->app_ID, 0x11223344u);
    EXPECT_EQ(entry(key)->entry_version, 0x55667788u);
    EXPECT_EQ(entry(key)->entry_tag, 0x99AA);
}

TEST_F(CommandListSingle, AnEntryThatIsThereIsModified)
{
    const command_input in = command(0, "a", "new");
    program(7, &in);
    EXPECT_EQ(stored_node(key, 7), node);
    app_node expected = make_node(7, 0, "a", "new", SHADOW_DB_MODIFY, 7);
    expected.shmem_node = node;
    EXPECT_EQ(memcmp(&node->app_node, &expected, sizeof expected), 0);
    EXPECT_EQ(services.count("prm_srh_service_config_mod"), 2u);
    EXPECT_EQ(bytes(), bytes_before);
}

TEST_F(CommandListSingle, KeyAndResultAreCopiedWholeWithTheirZeroBytes)
{
    command_input in;
    memset(&in, 0xEE, sizeof in);
    in.table_type = 1;
    in.key_len = 32;
    memset(in.key, 0, sizeof in.key);
    in.key[31] = 'k';
    in.result_len = 36;
    memset(in.result, 0, sizeof in.result);
    in.result[35] = 'r';
    program(8, &in);
    const app_node &created = stored_node(key, 8)->app_node;
    EXPECT_EQ(created.key_len, 32u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(created.key), 34),
              std::string(31, '\0') + "k" + std::string(2, '\0'));
    EXPECT_EQ(created.result_len, 36u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(created.result), 38),
              std::string(35, '\0') + "r" + std::string(2, '\0'));
}

TEST_F(CommandListSingle, AnInputThatIsTooLongIsLoggedAndNothingIsDone)
{
    command_input in = command(0, "a", "new");
    in.key_len = 33;
    program(7, &in);
    in.key_len = 1;
    in.result_len = 37;
    program(7, &in);
    EXPECT_EQ(
        log(),
        (Lines{" Query Main entry found for uidb_index 261", "entry too long: key 33 result 3",
               " Query Main entry found for uidb_index 261", "entry too long: key 1 result 37"}));
    expect_nothing_changed();
}

TEST_F(CommandListSingle, ANullInputDeletesTheEntryByItsOwnKeyAndTable)
{
    store(key, 8, 1, "in ext conf");
    program(8, nullptr);
    ASSERT_EQ(services.count("prm_srh_ext_service_db_del"), 2u);
    EXPECT_EQ(stored_node(key, 8), nullptr);
    EXPECT_EQ(rows(0, 1), 0u);
    EXPECT_NE(stored_node(key, 7), nullptr);
}

TEST_F(CommandListSingle, TheRequestOfADeletionCarriesTheStoredContent)
{
    std::string key_text;
    services.script("prm_srh_service_config_del", [&](const vlc::ServiceCall &call) {
        const prm_config_record &record = record_of(call);
        key_text.assign(reinterpret_cast<const char *>(record.key), record.key_len);
        EXPECT_EQ(record.result_len, 4u);
        return std::optional<uint64_t>();
    });
    program(7, nullptr);
    EXPECT_EQ(key_text, "a");
    EXPECT_EQ(services.count("prm_srh_service_config_del"), 2u);
}

TEST_F(CommandListSingle, DeletingTheLastEntryFreesTheMainEntry)
{
    program(7, nullptr);
    EXPECT_EQ(entry(key), nullptr);
    EXPECT_LT(bytes(), bytes_before);
}

TEST_F(CommandListSingle, ANullInputForAnEntryThatIsNotThereDoesNothing)
{
    program(8, nullptr);
    expect_nothing_changed();
}

TEST_F(CommandListSingle, WithoutAMainEntryNothingIsDone)
{
    const command_input in = command(0, "a", "new");
    program(7, &in, id + 1);
    program(7, nullptr, id + 1);
    expect_nothing_changed();
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(entry(key + 1), nullptr);
}

TEST_F(CommandListSingle, AnUnboundPairDoesNothingAndSaysNothing)
{
    const command_input in = command(0, "a", "new");
    for (const auto &[app_type, app_id] :
         {std::pair{0u, 1u}, {6u, 1u}, {2u, 0x105u}, {1u, 0x10105u}})
        plm_inline_program_entry_in_hardware_list(app_type, app_id, 7, &in);
    expect_nothing_changed();
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListSingle, TheBatchIsForThePairsKeyWhateverTheEntrySaysOfItself)
{
    store(key + 1, 9, 0, "of another key");
    entry(key)->uidb_index = key + 1;
    const command_input in = command(0, "new", "0123");
    program(8, &in);
    EXPECT_NE(stored_node(key, 8), nullptr);
    EXPECT_EQ(stored_node(key + 1, 8), nullptr);
    EXPECT_EQ(entry(key)->uidb_index, key);
}

TEST_F(CommandListSingle, AnotherTableThanTheEntrysIsAFailedInsertionThatClearsTheKey)
{
    const command_input in = command(1, "a", "new");
    program(7, &in);
    EXPECT_EQ(entry(key), nullptr);
    EXPECT_EQ(log_count(" shadow_db insertion  failed "), 1u);
}

TEST_F(CommandListSingle, AFailureIsNotReportedToTheErrorLog)
{
    services.force("prm_srh_service_config_mod", refusal);
    services.force("prm_srh_service_config_del", refusal);
    const command_input in = command(0, "a", "new");
    program(7, &in);
    EXPECT_EQ(log().back(), " shadow_db clear  failed ");
    EXPECT_EQ(services.count("zem_errmsg"), 0u);
}

TEST_F(CommandListSingle, TheNodeListIsMadeBeforeTheEntryIsLookedUpAndThenEnqueued)
{
    Lines said;
    services.script("list_create", [&](const vlc::ServiceCall &) {
        said = log();
        return std::optional<uint64_t>();
    });
    const command_input in = command(0, "a", "new");
    program(7, &in);
    EXPECT_EQ(said, Lines{" Query Main entry found for uidb_index 261"});
    ASSERT_GE(services.calls().size(), 3u);
    const Lines first_two = {services.calls()[0].service, services.calls()[1].service};
    EXPECT_EQ(first_two, (Lines{"list_create", "list_enqueue_default"}));
    EXPECT_EQ(services.calls()[0].args[0], services.calls()[1].args[0]);
}

TEST_F(CommandListSingle, TheOpenListStaysAsItIs)
{
    open();
    insert_create(9, "abc");
    const action_array before = batch();
    const command_input in = command(0, "a", "new");
    program(7, &in);
    EXPECT_EQ(memcmp(&batch(), &before, sizeof before), 0);
}

// ---- presence ----------------------------------------------------------------------------------

class CommandListPresence : public CommandListTest {
protected:
    CommandListPresence()
    {
        root->uidb_attr_table = static_cast<uidb_attribute *>(inline_svc_shared_mem_alloc(65536));
        store(key, 7, 0, "a");
        entry(key)->entry_version = 0x55667788;
        entry(key)->entry_tag = 10;
        inline_api_set_uidb_to_vqi(10, 0x1234);
    }

    using Presence = uint32_t (*)(uint32_t, uint32_t, uint32_t *, uint16_t *);
    static constexpr Presence both[] = {plm_inline_is_list_in_hardware_uidb,
                                        plm_inline_is_list_in_hardware};
    uint32_t word = 0xEEEEEEEE;
    uint16_t number = 0xEEEE;
};

TEST_F(CommandListPresence, APairWithAMainEntryGivesItsVersionAndItsTag)
{
    EXPECT_EQ(plm_inline_is_list_in_hardware_uidb(type, id, &word, &number), 1u);
    EXPECT_EQ(word, 0x55667788u);
    EXPECT_EQ(number, 10);
}

TEST_F(CommandListPresence, TheOtherVariantGivesTheVqiOfTheInterfaceThatTheTagNames)
{
    EXPECT_EQ(plm_inline_is_list_in_hardware(type, id, &word, &number), 1u);
    EXPECT_EQ(word, 0x55667788u);
    EXPECT_EQ(number, 0x1234);
}

TEST_F(CommandListPresence, AnUnknownVqiIsCutTo16Bits)
{
    entry(key)->entry_tag = 4096;
    EXPECT_EQ(plm_inline_is_list_in_hardware(type, id, &word, &number), 1u);
    EXPECT_EQ(number, 0xFFFF);
}

TEST_F(CommandListPresence, APairWithoutAMainEntryIsZeroAndTheOutputsStay)
{
    for (const Presence presence : both)
        EXPECT_EQ(presence(type, id + 1, &word, &number), 0u);
    EXPECT_EQ(word, 0xEEEEEEEEu);
    EXPECT_EQ(number, 0xEEEE);
}

TEST_F(CommandListPresence, AnUnboundPairIsZeroAndNothingIsSaid)
{
    store(0, 1, 0, "a");
    for (const Presence presence : both) {
        for (const auto &[app_type, app_id] :
             {std::pair{0u, 1u}, {6u, 1u}, {2u, 0x105u}, {1u, 0x10105u}, {1u, 0x10000u}})
            EXPECT_EQ(presence(app_type, app_id, &word, &number), 0u);
    }
    EXPECT_EQ(word, 0xEEEEEEEEu);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListPresence, OutputsMayBeNull)
{
    for (const Presence presence : both) {
        EXPECT_EQ(presence(type, id, nullptr, nullptr), 1u);
        number = 0xEEEE;
        EXPECT_EQ(presence(type, id, nullptr, &number), 1u);
        EXPECT_NE(number, 0xEEEE);
        word = 0;
        EXPECT_EQ(presence(type, id, &word, nullptr), 1u);
        EXPECT_EQ(word, 0x55667788u);
    }
}

TEST_F(CommandListPresence, NothingIsAskedOfThePlatform)
{
    forget_history();
    for (const Presence presence : both)
        presence(type, id, &word, &number);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), (Lines{" Query Main entry found for uidb_index 261",
                            " Query Main entry found for uidb_index 261"}));
}

} // namespace
