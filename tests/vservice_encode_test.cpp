// What an add makes of a record: the encoders' arguments, the entry, and how it is programmed.
#include <array>

#include "vservice_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;
constexpr uint64_t infra_card = 0x3C0266;
constexpr char key_encoder[] = "appl_construct_config_db_key";
constexpr char result_encoder[] = "appl_construct_sdn_encap_service_config_db_result";

using Input = std::array<uint8_t, 56>;

class VserviceEncoding : public VserviceTest {
protected:
    // The encoder's input for one record on a card of a type.
    Input input_of(const Vservice &service, uint64_t card_type)
    {
        Input input{};
        services.force("platform_get_my_card_type", card_type);
        services.script(result_encoder, [&input](const vlc::ServiceCall &call) {
            memcpy(input.data(), reinterpret_cast<const void *>(call.args[1]), input.size());
            return std::optional<uint64_t>();
        });
        add(service);
        services.stop_forcing();
        return input;
    }
    // The encoder writes these bytes instead, and says so many.
    void encode_as(const char *encoder, size_t output, std::vector<uint8_t> bytes, uint64_t length)
    {
        services.script(
            encoder, [output, bytes = std::move(bytes), length](const vlc::ServiceCall &call) {
                memcpy(reinterpret_cast<void *>(call.args[output]), bytes.data(), bytes.size());
                return std::optional<uint64_t>(length);
            });
    }
};

// As a sender's record of `Vservice{}` comes out, but for what depends on user and card.
Input expected_input(uint8_t user_2, uint8_t user_4, uint8_t known)
{
    Input input{1,    1,    0,    0,    17,   0,    0,    0,    0x01, 0x02,
                0x00, 0xC0, 0x05, 0x71, 0x00, 0xCB, 0x34, 0x12, 0xCD, 0xAB};
    input[24] = user_2;
    input[25] = user_4;
    input[30] = known;
    input[36] = known;
    input[37] = known != 0 ? 3 : 0;
    return input;
}

// ---- the encoders' arguments -------------------------------------------------------------------

TEST_F(VserviceEncoding, TheInputIs56BytesThatFollowUserAndCardType)
{
    struct Case {
        uint32_t user;
        uint64_t card_type;
        Input expected;
    };
    const Case cases[] = {
        {0, 0xD20001, expected_input(0, 0, 0)},   {1, 0xD20001, expected_input(0, 0, 1)},
        {2, 0xD20001, expected_input(1, 0, 1)},   {3, 0xD20001, expected_input(0, 0, 0)},
        {4, 0xD20001, expected_input(0, 1, 1)},   {5, 0xD20001, expected_input(0, 0, 0)},
        {6, 0xD20001, expected_input(0, 0, 0)},   {0xFFFFFFFF, 0xD20001, expected_input(0, 0, 0)},
        {1, infra_card, expected_input(0, 0, 1)}, {2, infra_card, expected_input(0, 0, 1)},
        {4, infra_card, expected_input(0, 1, 1)}, {2, 0, expected_input(1, 0, 1)},
        {2, 0x3C0265, expected_input(1, 0, 1)},
    };
    for (const Case &row : cases)
        EXPECT_EQ(input_of({.index = 9, .user = row.user}, row.card_type), row.expected)
            << row.user << " on " << row.card_type;
}

TEST_F(VserviceEncoding, TheDestinationIsThisHostForEncapsulation4Alone)
{
    Input expected = expected_input(0, 0, 1);
    EXPECT_EQ(input_of({.index = 9, .encap = 1}, infra_card), expected);
    const uint8_t local[] = {0x01, 0x00, 0x00, 0x7F};
    memcpy(&expected[12], local, sizeof local);
    EXPECT_EQ(input_of({.index = 9, .encap = 4}, infra_card), expected);
    EXPECT_EQ(stored_record(9), record_of(Vservice{.index = 9, .encap = 4}));
}

TEST_F(VserviceEncoding, TheKeysKindIs2ForUser2And1Otherwise)
{
    for (const auto &[user, kind] :
         {std::pair{0u, 1u}, {1u, 1u}, {2u, 2u}, {3u, 1u}, {4u, 1u}, {0x10002u, 1u}}) {
        add({.index = 0x5A, .user = user});
        const std::vector<uint64_t> args = services.calls_of(key_encoder).at(0).args;
        EXPECT_EQ(args[0], 0x5Au);
        EXPECT_EQ(args[1], 0u);
        EXPECT_EQ(args[3], kind) << user;
    }
}

TEST_F(VserviceEncoding, TheResultsEncoderIsGivenTheHandleOfTheInitialisation)
{
    services.force("ac_encode_init", 0x123456789A);
    plm_vservice_init(0, 0, 0, 0);
    add({.index = 9});
    EXPECT_EQ(services.calls_of(result_encoder).at(0).args[0], 0x123456789Au);
}

TEST_F(VserviceEncoding, CardTypeKeyAndResultComeBeforeTheListAndTheListBeforeTheHardware)
{
    add({.index = 9});
    EXPECT_EQ(services.names(), (Lines{"platform_get_my_card_type", key_encoder, result_encoder,
                                       "list_create", "list_enqueue_default", "shmwin_malloc",
                                       "list_create", "shmwin_malloc", "prm_srh_service_config_add",
                                       "prm_srh_service_config_add", "list_enqueue_default"}));
}

TEST_F(VserviceEncoding, EncodersMayWrite256BytesWhichBeginAsZeroes)
{
    std::vector<uint8_t> seen(512, 0xEE);
    const auto fill = [&seen](size_t at, uint64_t output) {
        memcpy(&seen[at], reinterpret_cast<const void *>(output), 256);
        memset(reinterpret_cast<void *>(output), 0xC5, 256);
    };
    services.script(key_encoder, [&](const vlc::ServiceCall &call) {
        fill(0, call.args[2]);
        return std::optional<uint64_t>(3);
    });
    services.script(result_encoder, [&](const vlc::ServiceCall &call) {
        fill(256, call.args[2]);
        return std::optional<uint64_t>(256);
    });
    add({.index = 9});
    EXPECT_EQ(seen, std::vector<uint8_t>(512));
    app_node expected = {};
    memset(expected.key, 0xC5, 3);
    expected.key_len = 3;
    memset(expected.result + 4, 0xC5, 28);
    expected.result_len = 32;
    expected.hw_index = no_hw_index;
    expected.action = SHADOW_DB_CREATE;
    expected.shmem_node = node_of(9);
    EXPECT_EQ(memcmp(&node_of(9)->app_node, &expected, sizeof expected), 0);
}

TEST_F(VserviceEncoding, AKeyOf32BytesFits)
{
    const std::vector<uint8_t> key(32, 0xA7);
    encode_as(key_encoder, 2, key, 32);
    add({.index = 9});
    const app_node &node = node_of(9)->app_node;
    EXPECT_EQ(node.key_len, 32u);
    EXPECT_EQ(std::vector<uint8_t>(node.key, node.key + 32), key);
    EXPECT_EQ(node.key[32], 0);
}

TEST_F(VserviceEncoding, ALongerKeyIsOneLineAndTheNextRecordIsHandled)
{
    services.force(key_encoder, 33, 1, 1);
    handle(add_message().record({.index = 9}).record({.index = 10}));
    EXPECT_EQ(log_count("vservice key too long: index 9 length 33"), 1u);
    EXPECT_EQ(services.count(result_encoder), 1u);
    EXPECT_EQ(entry(key_of(9)), nullptr);
    EXPECT_NE(node_of(10), nullptr);
    EXPECT_EQ(stored_record(9), record_of(Vservice{.index = 9}));
}

TEST_F(VserviceEncoding, AKeysLengthIsNotCutBeforeItIsCompared)
{
    services.force(key_encoder, 0x100);
    add({.index = 9});
    EXPECT_EQ(log().back(), "vservice key too long: index 9 length 256");
    services.force(key_encoder, 0xFFFFFFFF);
    add({.index = 9});
    EXPECT_EQ(log().back(), "vservice key too long: index 9 length -1");
    EXPECT_EQ(entry(key_of(9)), nullptr);
}

TEST_F(VserviceEncoding, WhatTheResultsEncoderSaysIsNotLookedAt)
{
    encode_as(result_encoder, 2, std::vector<uint8_t>(28, 0xB7), 0);
    add({.index = 9});
    EXPECT_EQ(node_of(9)->app_node.result_len, 32u);
    EXPECT_EQ(node_of(9)->app_node.result[31], 0xB7);
}

// ---- the entry ---------------------------------------------------------------------------------

TEST_F(VserviceEncoding, TheEntryIsNumber0OfTheServicesKeyWithZeroWords)
{
    add({.index = 0x5A});
    const main_entry *main = entry(0x35A);
    ASSERT_NE(main, nullptr);
    EXPECT_EQ(main->app_ID, 0u);
    EXPECT_EQ(main->entry_version, 0u);
    EXPECT_EQ(main->entry_tag, 0);
    EXPECT_EQ(main->num_elements[0], 1u);
    EXPECT_EQ(main->num_elements[1], 0u);
    EXPECT_NE(stored_node(0x35A, 0), nullptr);
}

TEST_F(VserviceEncoding, EveryNpGetsTheKeyAndFourZeroBytesInFrontOfTheEncodedResult)
{
    std::vector<std::vector<uint8_t>> sent;
    services.observe([&sent](const vlc::ServiceCall &call) {
        if (std::string(call.service) == "prm_srh_service_config_add") {
            const prm_config_record &record = test::record_of(call);
            sent.emplace_back(record.result, record.result + record.result_len);
            EXPECT_EQ(std::vector<uint8_t>(record.key, record.key + record.key_len),
                      (std::vector<uint8_t>{0x13, 0x03, 0x5A}));
        }
    });
    add({.index = 0x5A});
    services.observe({});
    const std::vector<uint8_t> expected = {0,    0,    0, 0, 2, 17,   1, 1,    0,    0,    0,
                                           0,    0xC0, 0, 2, 1, 0xCB, 0, 0x71, 0x05, 0x12, 0x34,
                                           0xAB, 0xCD, 1, 1, 3, 0,    0, 0,    0,    0};
    EXPECT_EQ(sent, (std::vector<std::vector<uint8_t>>{expected, expected}));
}

TEST_F(VserviceEncoding, TheEntryHasNoHardwareIndexAndTakesNoCounter)
{
    const uint32_t before = counters_in_use(0);
    add({.index = 9});
    EXPECT_EQ(node_of(9)->app_node.hw_index, no_hw_index);
    EXPECT_EQ(counters_in_use(0), before);
}

TEST_F(VserviceEncoding, ASecondAddModifiesTheEntryInItsPlace)
{
    add({.index = 9});
    const shmem_node *node = node_of(9);
    const uint64_t before = bytes();
    add({.index = 9, .user = 2, .source = 0x0A0B0C0D});
    EXPECT_EQ(node_of(9), node);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(services.count("prm_srh_service_config_mod"), 2u);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
    EXPECT_EQ(node->app_node.action, uint32_t{SHADOW_DB_MODIFY});
    const uint8_t source[] = {0x0A, 0x0B, 0x0C, 0x0D};
    EXPECT_EQ(memcmp(node->app_node.result + 12, source, sizeof source), 0);
    EXPECT_EQ(rows(0, 0), 1u);
}

TEST_F(VserviceEncoding, OneMessageMayAddAServiceTwice)
{
    handle(add_message().record({.index = 9}).record({.index = 9, .source = 0x0A0B0C0D}));
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 2u);
    EXPECT_EQ(services.count("prm_srh_service_config_mod"), 2u);
    EXPECT_EQ(node_of(9)->app_node.result[12], 0x0A);
    EXPECT_EQ(stored_record(9), record_of(Vservice{.index = 9, .source = 0x0A0B0C0D}));
}

TEST_F(VserviceEncoding, AServiceThatWasDeletedIsCreatedAgain)
{
    add({.index = 9});
    handle(delete_message().index(9));
    add({.index = 9});
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 2u);
    EXPECT_EQ(services.count("prm_srh_service_config_mod"), 0u);
    EXPECT_NE(node_of(9), nullptr);
}

// ---- failures ----------------------------------------------------------------------------------

TEST_F(VserviceEncoding, WhatCannotBeProgrammedGoesToTheErrorLogAndTheNextIsHandled)
{
    add({.index = 9});
    services.force("prm_srh_service_config_mod", refusal);
    services.force("prm_srh_service_config_del", refusal); // so that the clear fails too
    std::string text;
    services.script("zem_errmsg", [&text](const vlc::ServiceCall &call) {
        text += reinterpret_cast<const char *>(call.args[2]);
        return std::optional<uint64_t>(0);
    });
    handle(add_message().record({.index = 9, .source = 1}).record({.index = 10}));
    EXPECT_EQ(text, "Hardware programming failed rc 0x4d\n");
    EXPECT_NE(node_of(10), nullptr);
    EXPECT_EQ(stored_record(9), record_of(Vservice{.index = 9, .source = 1}));
}

TEST_F(VserviceEncoding, ANewServiceThatTheHardwareRefusesLeavesNoEntryAndItsRecordStays)
{
    const uint64_t before = bytes();
    services.force("prm_srh_service_config_add", refusal);
    add({.index = 9});
    EXPECT_EQ(entry(key_of(9)), nullptr);
    EXPECT_EQ(bytes(), before);
    EXPECT_EQ(stored_record(9), record_of(Vservice{.index = 9}));
    EXPECT_EQ(services.count("zem_errmsg"), 0u);
}

TEST_F(VserviceEncoding, AFullWindowLeavesNoEntryAndTheNextRecordIsHandled)
{
    services.force("shmwin_malloc", 12, 1, 1);
    handle(add_message().record({.index = 9}).record({.index = 10}));
    EXPECT_EQ(entry(key_of(9)), nullptr);
    EXPECT_NE(node_of(10), nullptr);
}

} // namespace
