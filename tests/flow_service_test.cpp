// The flow service's calls: add, lookup, delete, and delete with a last look at the statistics.
#include "flow_fixture.h"

using namespace test;

namespace {

constexpr char update_failed[] = "inline_flow_db_update_prm failed, rc: 0x";
constexpr char add_failed[] = "flowdb_add failed, rc: 0x";

class FlowServiceTest : public FlowTest {
protected:
    FlowServiceTest()
    {
        dpss_flow_table_init(0, 0, 0, 0);
        forget();
    }
    uint32_t add(uint64_t key, uint32_t np = FLOW_ALL_NPS, uint32_t with_stats = 0)
    {
        return dpss_flow_add_modify(key, np, with_stats, &flow_info);
    }
    flow_record *found(uint64_t key) const { return flowdb_lookup(table, key); }
    // What an encoder finds in the first 256 bytes that it is given.
    std::vector<uint8_t> given_to(const char *encoder)
    {
        std::vector<uint8_t> seen(256, 0xEE);
        services.script(encoder, [&seen](const vlc::ServiceCall &call) {
            memcpy(seen.data(), reinterpret_cast<const void *>(call.args[1]), seen.size());
            memset(reinterpret_cast<void *>(call.args[1]), 0xC5, seen.size());
            return std::optional<uint64_t>(0);
        });
        EXPECT_EQ(add(last_key_++), 0u);
        services.stop_forcing();
        return seen;
    }
    // The add fails with a code, nothing of it stays, and these are the last lines.
    void expect_add_fails(uint32_t code, const Lines &last_lines)
    {
        const uint64_t used = blocks();
        const uint32_t count = table->count;
        forget();
        EXPECT_EQ(add(99, FLOW_ALL_NPS, 1), code);
        const Lines lines = log();
        ASSERT_GE(lines.size(), last_lines.size());
        EXPECT_EQ(Lines(lines.end() - static_cast<ptrdiff_t>(last_lines.size()), lines.end()),
                  last_lines);
        EXPECT_EQ(found(99), nullptr);
        EXPECT_EQ(table->count, count);
        EXPECT_EQ(blocks(), used);
    }

    int flow_info = 0; // only the encoders look at it

private:
    uint64_t last_key_ = 1000;
};

// ---- add ---------------------------------------------------------------------------------------

TEST_F(FlowServiceTest, AnAddIsARecordEncodersAndRequestsInThisOrder)
{
    context.num_nps = 1;
    start_transcript();
    EXPECT_EQ(add(7, FLOW_ALL_NPS, 1), 0u);
    EXPECT_EQ(transcript(),
              (Lines{"shmwin_malloc", "dpss_flow_encoder_userdata", "dpss_flow_encoder_key",
                     "dpss_flow_encoder_result", "dpss_flow_is_policer_enabled",
                     begins(*found(7), "1", "0", "0"), "flow_prm_add: npnum 0\n",
                     "plm_dpss_get_stats_tbl_id", "prm_stats_cl_alloc",
                     "prm_stats_cl_get_phy_stats_ptr", "prm_srh_flow_db_add"}));
}

TEST_F(FlowServiceTest, ARecordOfAllNpsIsFilledByteForByte)
{
    EXPECT_EQ(add(0x1122334455667788, FLOW_ALL_NPS, 0), 0u);
    std::vector<uint8_t> expected(304);
    const auto put = [&](size_t at, const std::string &bytes) {
        std::copy(bytes.begin(), bytes.end(), expected.begin() + static_cast<ptrdiff_t>(at));
    };
    put(8, "\x88\x77\x66\x55\x44\x33\x22\x11");
    put(20, "\x01");
    put(24, "flow key");
    put(56, "\x08");
    put(57, "flow result");
    put(93, "\x20");
    put(100, "\x02");
    put(105, "user data");
    const auto *bytes = reinterpret_cast<const uint8_t *>(found(0x1122334455667788));
    EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 304), expected);
}

TEST_F(FlowServiceTest, FlagsAndNpFollowTheArguments)
{
    struct Case {
        uint32_t np, with_stats, flags;
        uint8_t stored_np;
    };
    const Case cases[] = {{0xFFFFFFFF, 0, 2, 0}, {0xFFFFFFFF, 1, 3, 0},   {0, 0, 0, 0},
                          {2, 1, 1, 2},          {2, 0xFF00, 1, 2},       {0x101, 0, 0, 1},
                          {0xFFFFFF02, 1, 1, 2}, {0xFFFFFFFE, 0, 0, 0xFE}};
    uint64_t key = 0;
    for (const Case &row : cases) {
        EXPECT_EQ(add(++key, row.np, row.with_stats), 0u);
        EXPECT_EQ(found(key)->flags, row.flags) << row.np;
        EXPECT_EQ(found(key)->np, row.stored_np) << row.np;
        EXPECT_EQ(found(key)->state, 1u);
    }
}

TEST_F(FlowServiceTest, NpFFFFFFFFProgramsEveryNpAndAnyOtherTheOneOfItsLowByte)
{
    const std::pair<uint32_t, std::vector<uint32_t>> cases[] = {
        {0xFFFFFFFF, {0, 1, 2}}, {1, {1}}, {0x1234502, {2}}, {0xFFFFFF00, {0}}, {0xFF, {255}}};
    uint64_t key = 0;
    for (const auto &[np, expected] : cases) {
        forget();
        EXPECT_EQ(add(++key, np), 0u);
        EXPECT_EQ(nps(), expected) << np;
    }
}

TEST_F(FlowServiceTest, TheSecondAddOfAKeyIs17AndProgramsNothing)
{
    EXPECT_EQ(add(7), 0u);
    const flow_record before = *found(7);
    const uint64_t used = blocks();
    platform.result = "another";
    forget();
    EXPECT_EQ(add(7, 1, 1), 17u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(memcmp(found(7), &before, sizeof before), 0);
    EXPECT_EQ(table->count, 1u);
    EXPECT_EQ(blocks(), used);
}

TEST_F(FlowServiceTest, AFlowWithAPolicerGetsTwoCounters)
{
    platform.has_policer = 1;
    EXPECT_EQ(add(7, 1, 1), 0u);
    EXPECT_EQ(platform.taken.at(0).count, 2u);
    EXPECT_EQ(found(7)->counter[1], 0xA1B2C3u);
    EXPECT_EQ(found(7)->drop_counter[1], 0xA1B2C4u);
    EXPECT_EQ(services.calls_of("dpss_flow_is_policer_enabled").at(0).args[0],
              reinterpret_cast<uint64_t>(&flow_info));
}

TEST_F(FlowServiceTest, APolicerOf2IsPassedOnAsItIs)
{
    platform.has_policer = 2;
    EXPECT_EQ(add(7, 1, 1), 0u);
    EXPECT_EQ(platform.taken.at(0).count, 1u);
}

TEST_F(FlowServiceTest, WithoutRoomForTheRecordAnAddIs12)
{
    services.force("shmwin_malloc", 12);
    expect_add_fails(12, {"shared memory alloc failed c 304"});
    EXPECT_EQ(services.names(), Lines{"shmwin_malloc"});
}

TEST_F(FlowServiceTest, AnAddThatTheHardwareRefusesLeavesNothingInTheStore)
{
    services.force("prm_srh_flow_db_add", 0xABC);
    expect_add_fails(0xABC, {std::string(update_failed) + "abc", std::string(add_failed) + "abc"});
    services.stop_forcing();
    EXPECT_EQ(add(99), 0u);
}

TEST_F(FlowServiceTest, AnAddWithoutACounterIs12AndLeavesNothingInTheStore)
{
    services.force("prm_stats_cl_alloc", 28, 2);
    expect_add_fails(12, {std::string(update_failed) + "c", std::string(add_failed) + "c"});
    EXPECT_EQ(nps(), std::vector<uint32_t>{0}) << "the first NP keeps the flow";
    EXPECT_EQ(services.count("prm_srh_flow_db_del"), 0u);
}

TEST_F(FlowServiceTest, AnAddWithoutAStatisticsTableIs22AndLeavesNothingInTheStore)
{
    platform.nps_without_table = {0};
    expect_add_fails(22, {std::string(update_failed) + "16", std::string(add_failed) + "16"});
}

TEST_F(FlowServiceTest, AnAddWithStatisticsOnAnNpPastTheEighthIs22)
{
    const uint64_t used = blocks();
    EXPECT_EQ(add(99, 8, 1), 22u);
    EXPECT_EQ(log().back(), std::string(add_failed) + "16");
    EXPECT_EQ(blocks(), used);
    EXPECT_EQ(add(99, 8, 0), 0u);
}

// ---- encoders ----------------------------------------------------------------------------------

TEST_F(FlowServiceTest, EncodersAreGivenTheFlowsInfo)
{
    add(7);
    for (const char *encoder :
         {"dpss_flow_encoder_userdata", "dpss_flow_encoder_key", "dpss_flow_encoder_result"})
        EXPECT_EQ(services.calls_of(encoder).at(0).args[0], reinterpret_cast<uint64_t>(&flow_info))
            << encoder;
}

TEST_F(FlowServiceTest, EncodersMayWrite256BytesWhichBeginAsZeroes)
{
    EXPECT_EQ(given_to("dpss_flow_encoder_userdata"), std::vector<uint8_t>(256));
    EXPECT_EQ(given_to("dpss_flow_encoder_key"), std::vector<uint8_t>(256));
    EXPECT_EQ(given_to("dpss_flow_encoder_result"), std::vector<uint8_t>(256));
}

TEST_F(FlowServiceTest, OfWhatAnEncoderWritesTheFieldsSizeIsKept)
{
    given_to("dpss_flow_encoder_userdata");
    const flow_record *record = found(1000);
    EXPECT_EQ(std::vector<uint8_t>(record->user_data, record->user_data + 131),
              std::vector<uint8_t>(131, 0xC5));
    EXPECT_EQ(record->counter[0], 0u);
    given_to("dpss_flow_encoder_key"); // which says no length
    record = found(1001);
    EXPECT_EQ(std::vector<uint8_t>(record->key, record->key + 32), std::vector<uint8_t>(32, 0xC5));
    EXPECT_EQ(record->key_len, 0u);
    given_to("dpss_flow_encoder_result");
    record = found(1002);
    EXPECT_EQ(std::vector<uint8_t>(record->result, record->result + 36),
              std::vector<uint8_t>(36, 0xC5));
    EXPECT_EQ(record->result_len, 32u);
    EXPECT_EQ(std::vector<uint8_t>(record->reserved_94, record->reserved_94 + 6),
              std::vector<uint8_t>(6));
}

TEST_F(FlowServiceTest, OfAResultThe32BytesOfItsLengthAreProgrammed)
{
    given_to("dpss_flow_encoder_result");
    const prm_config_record &record = platform.requests.at(0).record;
    EXPECT_EQ(record.result_len, 32u);
    EXPECT_EQ(record.result[31], 0xC5);
    EXPECT_EQ(record.result[32], 0);
}

TEST_F(FlowServiceTest, AKeyOf32BytesFits)
{
    platform.key = std::string(32, 'k');
    EXPECT_EQ(add(7), 0u);
    EXPECT_EQ(found(7)->key_len, 32u);
    EXPECT_EQ(platform.requests.at(0).record.key_len, 32u);
}

TEST_F(FlowServiceTest, AKeyAbove32BytesIs22TheRecordIsFreedAndPrmIsNotCalled)
{
    for (const size_t length : {size_t{33}, size_t{255}}) {
        platform.key = std::string(length, 'k');
        expect_add_fails(22, {"flow key too long: length " + std::to_string(length)});
        EXPECT_EQ(services.names(), (Lines{"shmwin_malloc", "dpss_flow_encoder_userdata",
                                           "dpss_flow_encoder_key", "shmwin_free"}));
    }
}

// ---- lookup ------------------------------------------------------------------------------------

TEST_F(FlowServiceTest, ALookupHasTheServiceFillItsOutputFromTheUserData)
{
    add(7);
    char out[FLOW_USER_DATA_BYTES] = {};
    forget();
    EXPECT_EQ(dpss_flow_lookup(7, out), 0u);
    EXPECT_STREQ(out, "user data");
    ASSERT_EQ(services.names(), Lines{"dpss_fill_flow_info_from_db"});
    EXPECT_EQ(services.calls()[0].args,
              (std::vector<uint64_t>{reinterpret_cast<uint64_t>(found(7)->user_data),
                                     reinterpret_cast<uint64_t>(out), 2}));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(FlowServiceTest, ALookupOfAnUnknownKeyIs2AndLeavesTheOutput)
{
    add(7);
    std::vector<char> out(FLOW_USER_DATA_BYTES, 'x');
    forget();
    EXPECT_EQ(dpss_flow_lookup(8, out.data()), 2u);
    EXPECT_EQ(out, std::vector<char>(FLOW_USER_DATA_BYTES, 'x'));
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(dpss_flow_lookup(8, nullptr), 2u);
}

TEST_F(FlowServiceTest, ALookupWithoutAnOutputIs22)
{
    add(7);
    forget();
    EXPECT_EQ(dpss_flow_lookup(7, nullptr), 22u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{"out is NULL in dpss_flow_lookup"});
}

// ---- delete ------------------------------------------------------------------------------------

TEST_F(FlowServiceTest, ADeleteTakesTheFlowOffTheNpsGivesItsCountersBackAndFreesTheRecord)
{
    const uint64_t used = blocks();
    add(7, 1, 1);
    const auto record = reinterpret_cast<uint64_t>(found(7));
    forget();
    EXPECT_EQ(dpss_flow_delete(7), 0u);
    EXPECT_EQ(services.names(), (Lines{"prm_srh_flow_db_del", "plm_dpss_get_stats_tbl_id",
                                       "prm_stats_cl_free", "shmwin_free"}));
    EXPECT_EQ(services.calls_of("shmwin_free").at(0).args[0], record);
    EXPECT_EQ(found(7), nullptr);
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(blocks(), used);
}

TEST_F(FlowServiceTest, AFlowIsGoneAlsoWhenPrmReportsAnError)
{
    const std::pair<const char *, uint32_t> cases[] = {{"plm_dpss_get_stats_tbl_id", 22},
                                                       {"prm_stats_cl_free", 0xABC}};
    for (const auto &[service, code] : cases) {
        add(7);
        const uint64_t used = blocks();
        services.force(service, code == 22 ? 0 : code);
        EXPECT_EQ(dpss_flow_delete(7), code);
        services.stop_forcing();
        EXPECT_EQ(found(7), nullptr);
        EXPECT_EQ(blocks(), used - 1);
    }
}

TEST_F(FlowServiceTest, DeletingAnUnknownKeyIs0AndDoesNothing)
{
    add(7);
    forget();
    EXPECT_EQ(dpss_flow_delete(8), 0u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
    EXPECT_EQ(table->count, 1u);
}

TEST_F(FlowServiceTest, ADeletedKeyCanBeAddedAgain)
{
    add(7);
    dpss_flow_delete(7);
    EXPECT_EQ(add(7, 2), 0u);
    EXPECT_EQ(found(7)->np, 2u);
    EXPECT_EQ(table->count, 1u);
}

TEST_F(FlowServiceTest, WhatFreeingTheRecordSaysIsNotLookedAt)
{
    add(7);
    services.force("shmwin_free", 22);
    EXPECT_EQ(dpss_flow_delete(7), 0u);
}

// ---- delete with statistics --------------------------------------------------------------------

TEST_F(FlowServiceTest, StatisticsAreReadWithOption0BeforeTheFlowIsDeleted)
{
    add(7, FLOW_ALL_NPS, 1);
    for (uint32_t np = 0; np < 3; ++np)
        platform.counts[{np, found(7)->counter[np]}] = {np + 1, 10 * (np + 1)};
    forget();
    uint64_t first = 0xAA;
    uint64_t second = 0xBB;
    EXPECT_EQ(dpss_flow_delete_with_stats_read(7, &first, &second), 0u);
    EXPECT_EQ(first, 6u);
    EXPECT_EQ(second, 60u);
    const Lines reads(3, "prm_stats_cl_read");
    const Lines one_np = {"prm_srh_flow_db_del", "plm_dpss_get_stats_tbl_id", "prm_stats_cl_free"};
    EXPECT_EQ(services.names(), joined({reads, one_np, one_np, one_np, {"shmwin_free"}}));
    EXPECT_EQ(services.calls_of("prm_stats_cl_read").at(0).args[6], 0u);
    EXPECT_EQ(found(7), nullptr);
}

TEST_F(FlowServiceTest, WithoutStatisticsBothCountsAre0)
{
    add(7);
    uint64_t first = 0xAA;
    uint64_t second = 0xBB;
    forget();
    EXPECT_EQ(dpss_flow_delete_with_stats_read(7, &first, &second), 0u);
    EXPECT_EQ(first, 0u);
    EXPECT_EQ(second, 0u);
    EXPECT_EQ(services.count("prm_stats_cl_read"), 0u);
    EXPECT_EQ(services.count("prm_srh_flow_db_del"), 3u);
    EXPECT_EQ(found(7), nullptr);
}

TEST_F(FlowServiceTest, WithStatisticsTheCodeIsThatOfTheDelete)
{
    add(7, 0, 1);
    platform.counts[{0, found(7)->counter[0]}] = {4, 5};
    services.force("prm_stats_cl_free", 0xABC);
    uint64_t first = 0;
    uint64_t second = 0;
    const uint64_t used = blocks();
    EXPECT_EQ(dpss_flow_delete_with_stats_read(7, &first, &second), 0xABCu);
    EXPECT_EQ(first, 4u);
    EXPECT_EQ(second, 5u);
    EXPECT_EQ(found(7), nullptr);
    EXPECT_EQ(blocks(), used - 1);
}

TEST_F(FlowServiceTest, StatisticsOfAnUnknownKeyAre0AndTheResultIs0)
{
    uint64_t first = 0xAA;
    uint64_t second = 0xBB;
    EXPECT_EQ(dpss_flow_delete_with_stats_read(8, &first, &second), 0u);
    EXPECT_EQ(first, 0u);
    EXPECT_EQ(second, 0u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
}

TEST_F(FlowServiceTest, WithoutAnOutputTheDeleteIs22AndTheFlowStays)
{
    add(7);
    uint64_t word = 0xAA;
    forget();
    EXPECT_EQ(dpss_flow_delete_with_stats_read(7, nullptr, &word), 22u);
    EXPECT_EQ(dpss_flow_delete_with_stats_read(7, &word, nullptr), 22u);
    EXPECT_EQ(word, 0xAAu);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_NE(found(7), nullptr);
    EXPECT_EQ(log(), (Lines{"first is NULL in dpss_flow_delete_with_stats_read",
                            "second is NULL in dpss_flow_delete_with_stats_read"}));
}

} // namespace
