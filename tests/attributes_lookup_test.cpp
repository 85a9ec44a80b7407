// Lookups behind the attributes: a slot's infrastructure endpoint, an interface's PIC, a VRF's
// table.
#include <cstdlib>
#include <malloc.h>

#include "attribute_fixture.h"
#include "platform_interfaces.h"

using namespace test;

namespace {

using Lines = std::vector<std::string>;
using Words = std::vector<uint64_t>;
constexpr uint64_t refusal = 77;

template <typename Pointer>
uint64_t address(Pointer pointer)
{
    return reinterpret_cast<uint64_t>(pointer);
}

// ---- rows of the slots' endpoints --------------------------------------------------------------

class InfraSlots : public AttributeTest {
protected:
    struct Row {
        uint16_t key;
        uint32_t ip;
        uint32_t value;
        bool operator==(const Row &) const = default;
    };

    std::vector<Row> rows() const
    {
        std::vector<Row> all;
        for (size_t row = 0; row < 6; ++row)
            all.push_back({root->infra_slot_key[row], root->infra_ip[row], root->infra_value[row]});
        return all;
    }
    void put(size_t row, Row content)
    {
        root->infra_slot_key[row] = content.key;
        root->infra_ip[row] = content.ip;
        root->infra_value[row] = content.value;
    }
    void fill_with_keys(std::vector<uint16_t> keys)
    {
        for (size_t row = 0; row < keys.size(); ++row)
            put(row, {keys[row], static_cast<uint32_t>(100 + row), static_cast<uint32_t>(row)});
    }
};

TEST_F(InfraSlots, ANewSlotGoesIntoRow0UnderItsOwnKeyNotTheNewOne)
{
    inline_api_set_infra_slot_infra_ip(1, 3, 9, 0x0A000001, 5);
    EXPECT_EQ(rows(), (std::vector<Row>{{3, 0x0A000001, 5}, {}, {}, {}, {}, {}}));
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(InfraSlots, AKeyOf22IsFreeInEveryRow)
{
    for (size_t row = 0; row < 6; ++row) {
        fill_with_keys({11, 12, 13, 14, 15, 16});
        put(row, {22, 8, 8});
        std::vector<Row> expected = rows();
        expected[row] = {3, 0x0A000001, 5};
        inline_api_set_infra_slot_infra_ip(0, 3, 9, 0x0A000001, 5);
        EXPECT_EQ(rows(), expected) << row;
    }
}

TEST_F(InfraSlots, AKeyOf0IsFreeInEveryRow)
{
    for (size_t row = 0; row < 6; ++row) {
        fill_with_keys({11, 12, 13, 14, 15, 16});
        put(row, {0, 8, 8});
        std::vector<Row> expected = rows();
        expected[row] = {3, 0x0A000001, 5};
        inline_api_set_infra_slot_infra_ip(0, 3, 9, 0x0A000001, 5);
        EXPECT_EQ(rows(), expected) << row;
    }
}

TEST_F(InfraSlots, ASlotThatHasARowGetsTheNewSlotAsItsKey)
{
    for (size_t row = 0; row < 6; ++row) {
        fill_with_keys({11, 12, 13, 14, 15, 16});
        std::vector<Row> expected = rows();
        expected[row] = {9, 0x0A000001, 5};
        inline_api_set_infra_slot_infra_ip(0, static_cast<uint16_t>(11 + row), 9, 0x0A000001, 5);
        EXPECT_EQ(rows(), expected) << row;
    }
}

TEST_F(InfraSlots, ARowOfTheSlotComesBeforeAFreeOneThatStandsInFront)
{
    fill_with_keys({0, 22, 13, 14, 15, 3});
    std::vector<Row> expected = rows();
    expected[5] = {9, 0x0A000001, 5};
    inline_api_set_infra_slot_infra_ip(0, 3, 9, 0x0A000001, 5);
    EXPECT_EQ(rows(), expected);
}

TEST_F(InfraSlots, OfTwoRowsOfOneSlotTheFirstIsWritten)
{
    fill_with_keys({11, 3, 13, 3, 15, 16});
    std::vector<Row> expected = rows();
    expected[1] = {9, 0x0A000001, 5};
    inline_api_set_infra_slot_infra_ip(0, 3, 9, 0x0A000001, 5);
    EXPECT_EQ(rows(), expected);
}

TEST_F(InfraSlots, OfTwoFreeRowsTheFirstIsWritten)
{
    fill_with_keys({11, 12, 22, 0, 15, 16});
    std::vector<Row> expected = rows();
    expected[2] = {3, 0x0A000001, 5};
    inline_api_set_infra_slot_infra_ip(0, 3, 9, 0x0A000001, 5);
    EXPECT_EQ(rows(), expected);
}

TEST_F(InfraSlots, SlotZeroMatchesAnEmptyRowSoThatTheNewSlotBecomesItsKey)
{
    inline_api_set_infra_slot_infra_ip(0, 0, 9, 0x0A000001, 5);
    EXPECT_EQ(rows(), (std::vector<Row>{{9, 0x0A000001, 5}, {}, {}, {}, {}, {}}));
}

TEST_F(InfraSlots, ASeventhSlotIsDroppedWithoutAWord)
{
    for (uint16_t slot = 1; slot <= 6; ++slot)
        inline_api_set_infra_slot_infra_ip(0, slot, slot, slot, slot);
    const std::vector<Row> six = {{1, 1, 1}, {2, 2, 2}, {3, 3, 3}, {4, 4, 4}, {5, 5, 5}, {6, 6, 6}};
    EXPECT_EQ(rows(), six);
    inline_api_set_infra_slot_infra_ip(0, 7, 7, 7, 7);
    EXPECT_EQ(rows(), six);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(InfraSlots, WithoutARootNothingIsStoredOrSaid)
{
    pshadow_db = nullptr;
    inline_api_set_infra_slot_infra_ip(0, 3, 9, 0x0A000001, 5);
    EXPECT_EQ(rows(), std::vector<Row>(6));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(InfraSlots, RowsAreStoredWithoutAnAttributeTableToo)
{
    root->uidb_attr_table = nullptr;
    inline_api_set_infra_slot_infra_ip(0, 3, 9, 0x0A000001, 5);
    EXPECT_EQ(rows()[0], (Row{3, 0x0A000001, 5}));
}

// ---- a slot's endpoint -------------------------------------------------------------------------

class InfraIp : public InfraSlots {
protected:
    uint32_t get(uint16_t slot)
    {
        ip = value = untouched;
        return inline_api_get_infra_ip(slot, &ip, &value);
    }

    static constexpr uint32_t untouched = 0xEEEEEEEE;
    uint32_t ip = untouched;
    uint32_t value = untouched;
};

TEST_F(InfraIp, ASlotsRowIsFoundInEveryPlace)
{
    for (size_t row = 0; row < 6; ++row) {
        fill_with_keys({11, 12, 13, 14, 15, 16});
        put(row, {slot_with_infra, 0xC0000201, 0x80000005});
        EXPECT_EQ(get(slot_with_infra), 0u);
        EXPECT_EQ(ip, 0xC0000201u) << row;
        EXPECT_EQ(value, 0x80000005u) << row;
    }
    EXPECT_EQ(log(), Lines{});
}

TEST_F(InfraIp, OfTwoRowsOfOneSlotTheFirstIsGiven)
{
    fill_with_keys({11, 3, 3, 3, 15, 16});
    EXPECT_EQ(get(slot_with_infra), 0u);
    EXPECT_EQ(ip, 101u);
}

TEST_F(InfraIp, ASlotWithoutARowIs2AndTheOutputsStay)
{
    EXPECT_EQ(get(slot_with_infra), 2u);
    EXPECT_EQ(ip, untouched);
    EXPECT_EQ(value, untouched);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(InfraIp, AnotherCardTypeGivesZeroAndOneWhateverTheRowSays)
{
    put(0, {other_slot, 0xC0000201, 5});
    EXPECT_EQ(get(other_slot), 0u);
    EXPECT_EQ(ip, 0u);
    EXPECT_EQ(value, 1u);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(InfraIp, ASlotWithoutANodeIs2AndLogged)
{
    put(0, {unknown_slot, 0xC0000201, 5});
    EXPECT_EQ(get(unknown_slot), 2u);
    EXPECT_EQ(ip, untouched);
    EXPECT_EQ(value, untouched);
    EXPECT_EQ(log(), Lines{"No nodeid found for slot = 5"});
    EXPECT_EQ(services.names(), Lines{"plm_slot_to_nodeid"});
}

TEST_F(InfraIp, AnyCodeOfTheSlotsNodeIs2)
{
    services.force("plm_slot_to_nodeid", refusal);
    EXPECT_EQ(get(0xFFFF), 2u);
    EXPECT_EQ(log(), Lines{"No nodeid found for slot = 65535"});
}

TEST_F(InfraIp, ThePlatformIsAskedForTheSlotsNodeAndThenForThatNodesType)
{
    get(slot_with_infra);
    ASSERT_EQ(services.names(), (Lines{"plm_slot_to_nodeid", "platform_node_get_card_type"}));
    EXPECT_EQ(services.calls()[0].args[0], slot_with_infra);
    EXPECT_EQ(services.calls()[1].args, Words{0x31});
}

TEST_F(InfraIp, OnlyTheOneCardTypeHasRows)
{
    put(0, {slot_with_infra, 0xC0000201, 5});
    for (const uint64_t type : Words{0x3C0265, 0x3C0267, 0, 0x3C0266}) {
        services.force("platform_node_get_card_type", type);
        EXPECT_EQ(get(slot_with_infra), 0u);
        EXPECT_EQ(ip, type == 0x3C0266 ? 0xC0000201u : 0u);
        EXPECT_EQ(value, type == 0x3C0266 ? 5u : 1u);
    }
}

TEST_F(InfraIp, ANullOutputIs22AndNothingIsAsked)
{
    EXPECT_EQ(inline_api_get_infra_ip(slot_with_infra, nullptr, &value), 22u);
    EXPECT_EQ(inline_api_get_infra_ip(slot_with_infra, &ip, nullptr), 22u);
    EXPECT_EQ(log(), (Lines{"ip is NULL in inline_api_get_infra_ip",
                            "value is NULL in inline_api_get_infra_ip"}));
    EXPECT_EQ(ip, untouched);
    EXPECT_EQ(value, untouched);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(InfraIp, WithoutARootItIs2)
{
    pshadow_db = nullptr;
    EXPECT_EQ(get(slot_with_infra), 2u);
    EXPECT_EQ(get(other_slot), 2u);
    EXPECT_EQ(ip, untouched);
}

// ---- an interface's endpoint -------------------------------------------------------------------

TEST_F(InfraIp, AnInterfaceHasTheEndpointOfItsSlot)
{
    inline_api_set_slot_iftype(10, slot_with_infra, 0);
    put(2, {slot_with_infra, 0xC0000201, 5});
    EXPECT_EQ(inline_api_get_infra_ip_from_uidb(10, &ip, &value), 0u);
    EXPECT_EQ(ip, 0xC0000201u);
    EXPECT_EQ(value, 5u);
    EXPECT_EQ(services.names(), (Lines{"plm_slot_to_nodeid", "platform_node_get_card_type"}));
}

TEST_F(InfraIp, AnInterfaceOfSlot22Is2AndNothingIsAsked)
{
    put(0, {22, 0xC0000201, 5}); // which the platform knows, and which has a row
    inline_api_set_slot_iftype(10, 22, 0);
    EXPECT_EQ(inline_api_get_infra_ip_from_uidb(10, &ip, &value), 2u);
    EXPECT_EQ(ip, untouched);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
}

TEST_F(InfraIp, AnInterfaceOutOfRangeIs2AndNothingIsAsked)
{
    EXPECT_EQ(inline_api_get_infra_ip_from_uidb(4096, &ip, &value), 2u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
}

TEST_F(InfraIp, AnInterfaceIs2WithoutATableAndWithoutARoot)
{
    root->uidb_attr_table = nullptr;
    EXPECT_EQ(inline_api_get_infra_ip_from_uidb(10, &ip, &value), 2u);
    pshadow_db = nullptr;
    EXPECT_EQ(inline_api_get_infra_ip_from_uidb(10, &ip, &value), 2u);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(InfraIp, AnInterfacesSlotWithoutANodeIs2AndLogged)
{
    EXPECT_EQ(inline_api_get_infra_ip_from_uidb(10, &ip, &value), 2u); // slot 0
    EXPECT_EQ(log(), Lines{"No nodeid found for slot = 0"});
}

// ---- an interface's PIC ------------------------------------------------------------------------

class Pic : public AttributeTest {
protected:
    imc_pic pic = 0xEEEEEEEE;
};

TEST_F(Pic, TheFirstCallBindsThenQueriesAndTakesThePicOut)
{
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    EXPECT_EQ(pic, 0x0A0B0C0Du);
    EXPECT_EQ(services.names(), (Lines{"imc_db_bind", "imc_s_attr_query", "imc_gdp_pic_get"}));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Pic, TheBindRecordIsTheNumber10InEightBytes)
{
    uint8_t record[8] = {};
    uint64_t length = 0;
    services.script("imc_db_bind", [&](const vlc::ServiceCall &call) {
        memcpy(record, reinterpret_cast<const void *>(call.args[0]), sizeof record);
        length = call.args[1];
        return std::optional<uint64_t>();
    });
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    const uint8_t expected[8] = {10};
    EXPECT_EQ(memcmp(record, expected, sizeof record), 0);
    EXPECT_EQ(length, 8u);
}

TEST_F(Pic, TheBindIsOnceAProcess)
{
    inline_api_get_pic(known_interface, &pic);
    services.forget();
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    EXPECT_EQ(services.names(), (Lines{"imc_s_attr_query", "imc_gdp_pic_get"}));
}

TEST_F(Pic, AFailedBindGivesItsCodeAndTheNextCallTriesAgain)
{
    // A refusing manager may leave anything in the handle.
    services.script("imc_db_bind", [](const vlc::ServiceCall &call) {
        *reinterpret_cast<uint64_t *>(call.args[2]) = 0x1234;
        return std::optional<uint64_t>(refusal);
    });
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), refusal);
    EXPECT_EQ(services.names(), Lines{"imc_db_bind"});
    EXPECT_EQ(pic, 0xEEEEEEEEu);
    services.stop_forcing();
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    EXPECT_EQ(services.count("imc_db_bind"), 2u);
    EXPECT_EQ(pic, 0x0A0B0C0Du);
}

TEST_F(Pic, TheQueryAsksForAttribute60OnceIntoTwoZeroWords)
{
    constexpr uint64_t handle = 0x7700;
    Words before;
    services.script("imc_db_bind", [](const vlc::ServiceCall &call) {
        *reinterpret_cast<uint64_t *>(call.args[2]) = handle;
        return std::optional<uint64_t>(0);
    });
    services.script("imc_s_attr_query", [&](const vlc::ServiceCall &call) {
        const auto *words = reinterpret_cast<const uint64_t *>(call.args[6]);
        before = {words[0], words[1]};
        return std::optional<uint64_t>(refusal);
    });
    EXPECT_EQ(inline_api_get_pic(0x89ABCDEF, &pic), refusal);
    const std::vector<uint64_t> args = services.calls_of("imc_s_attr_query").at(0).args;
    EXPECT_EQ(Words(args.begin(), args.begin() + 6), (Words{handle, 0x89ABCDEF, 0, 0, 60, 1}));
    EXPECT_EQ(before, (Words{0, 0}));
}

TEST_F(Pic, AFailedQueryGivesItsCodeAndNothingIsTakenOut)
{
    EXPECT_EQ(inline_api_get_pic(0x101, &pic), 2u);
    EXPECT_EQ(services.names(), (Lines{"imc_db_bind", "imc_s_attr_query"}));
    EXPECT_EQ(pic, 0xEEEEEEEEu);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(Pic, ThePicIsTakenOutOfTheQuerysWordsIntoTheCallersOutput)
{
    Words words;
    services.script("imc_gdp_pic_get", [&](const vlc::ServiceCall &call) {
        const auto *given = reinterpret_cast<const uint64_t *>(call.args[0]);
        words = {given[0]};
        EXPECT_NE(given[1], 0u);
        EXPECT_EQ(call.args[1], 0u);
        EXPECT_NE(call.args[2], 0u);
        EXPECT_EQ(call.args[3], address(&pic));
        return std::optional<uint64_t>(0);
    });
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    EXPECT_EQ(words, Words{1});
}

TEST_F(Pic, WhatTakingItOutCameToIsNotLookedAt)
{
    services.force("imc_gdp_pic_get", refusal);
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    EXPECT_EQ(pic, 0xEEEEEEEEu);
}

TEST_F(Pic, TheQuerysBufferIsGivenBack)
{
    constexpr size_t buffer_bytes = 65536;
    services.script("imc_s_attr_query", [](const vlc::ServiceCall &call) {
        auto *words = reinterpret_cast<uint64_t *>(call.args[6]);
        words[0] = 1;
        words[1] = address(calloc(1, buffer_bytes));
        return std::optional<uint64_t>(0);
    });
    const size_t before = mallinfo2().uordblks;
    for (int call = 0; call < 100; ++call)
        EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    EXPECT_LT(mallinfo2().uordblks, before + 10 * buffer_bytes);
}

TEST_F(Pic, AnAnswerWithoutABufferIsTaken)
{
    services.force("imc_s_attr_query", 0);
    EXPECT_EQ(inline_api_get_pic(known_interface, &pic), 0u);
    EXPECT_EQ(services.count("imc_gdp_pic_get"), 1u);
}

TEST_F(Pic, ANullOutputIs22BeforeAnythingIsBound)
{
    EXPECT_EQ(inline_api_get_pic(known_interface, nullptr), 22u);
    EXPECT_EQ(log(), Lines{"pic_out is NULL in inline_api_get_pic"});
    EXPECT_EQ(services.names(), Lines{});
}

// ---- a VRF's table -----------------------------------------------------------------------------

class HardwareTable : public AttributeTest {
protected:
    uint32_t table_id = 0xEEEEEEEE;
};

TEST_F(HardwareTable, AVrfsTableIsLookedUpAndDecoded)
{
    EXPECT_EQ(inline_api_get_hw_table_id(known_vrf, &table_id), 0u);
    EXPECT_EQ(table_id, 0xABCDEFu);
    ASSERT_EQ(services.names(), (Lines{"ital_shm_lookup_vrf", "rsi_c_tbl_id_decode2"}));
    const Words &lookup = services.calls()[0].args;
    EXPECT_EQ(Words(lookup.begin(), lookup.begin() + 3), (Words{known_vrf, 1, 1}));
    EXPECT_EQ(services.calls()[1].args, (Words{0x1AABCDEF, 0, 0, address(&table_id)}));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(HardwareTable, TheRecordIsZeroedAndItsFirstWordIsWhatIsDecoded)
{
    services.script("ital_shm_lookup_vrf", [](const vlc::ServiceCall &call) {
        auto *record = reinterpret_cast<vrf_record *>(call.args[3]);
        const vrf_record zero = {};
        EXPECT_EQ(memcmp(record, &zero, sizeof zero), 0);
        memset(record->platform_words, 0xFF, sizeof record->platform_words);
        record->table_id = 0x1A000007;
        return std::optional<uint64_t>(0);
    });
    EXPECT_EQ(inline_api_get_hw_table_id(1, &table_id), 0u);
    EXPECT_EQ(services.calls_of("rsi_c_tbl_id_decode2").at(0).args[0], 0x1A000007u);
    EXPECT_EQ(table_id, 7u);
}

TEST_F(HardwareTable, AFailedLookupGivesItsCodeAndNothingIsDecoded)
{
    EXPECT_EQ(inline_api_get_hw_table_id(known_vrf + 1, &table_id), 2u);
    services.force("ital_shm_lookup_vrf", refusal);
    EXPECT_EQ(inline_api_get_hw_table_id(known_vrf, &table_id), refusal);
    EXPECT_EQ(services.count("rsi_c_tbl_id_decode2"), 0u);
    EXPECT_EQ(table_id, 0xEEEEEEEEu);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(HardwareTable, AFailedDecodingGivesItsCode)
{
    services.force("rsi_c_tbl_id_decode2", refusal);
    EXPECT_EQ(inline_api_get_hw_table_id(known_vrf, &table_id), refusal);
    EXPECT_EQ(table_id, 0xEEEEEEEEu);
}

TEST_F(HardwareTable, ANullOutputIs22AndNothingIsAsked)
{
    EXPECT_EQ(inline_api_get_hw_table_id(known_vrf, nullptr), 22u);
    EXPECT_EQ(log(), Lines{"table_id_out is NULL in inline_api_get_hw_table_id"});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(HardwareTable, NoRootIsNeededForIt)
{
    pshadow_db = nullptr;
    EXPECT_EQ(inline_api_get_hw_table_id(known_vrf, &table_id), 0u);
    EXPECT_EQ(table_id, 0xABCDEFu);
}

} // namespace
