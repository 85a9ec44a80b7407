// The dynamic counters of a flow: taken from PRM when it is added, given back when it is deleted.
#include "flow_fixture.h"

using namespace test;

namespace {

constexpr char no_table[] = "dpss stats tble id is NULL";
using Given = std::vector<std::pair<uint64_t, uint64_t>>;

class DynamicFlowTest : public FlowTest {
protected:
    uint32_t add(flow_record &record, uint32_t policer = 0)
    {
        return inline_flow_db_update_prm(FLOW_ADD, &record, policer);
    }
    static uint32_t remove(flow_record &record)
    {
        return inline_flow_db_update_prm(FLOW_DELETE, &record, 0);
    }
    static std::vector<uint32_t> words(const uint32_t (&counters)[8])
    {
        return {counters, counters + 8};
    }
    // The three bytes of a counter's address, most significant first.
    static std::vector<uint8_t> address_bytes(uint32_t counter)
    {
        const uint32_t address = FlowPlatform::address_of(counter);
        return {static_cast<uint8_t>(address >> 16), static_cast<uint8_t>(address >> 8),
                static_cast<uint8_t>(address)};
    }
};

// ---- add ---------------------------------------------------------------------------------------

TEST_F(DynamicFlowTest, AnAddWithStatisticsTakesACounterBeforeEachRequest)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    context.num_nps = 2;
    start_transcript();
    EXPECT_EQ(add(record), 0u);
    EXPECT_EQ(
        transcript(),
        (Lines{begins(record, "1", "0", "1"), "flow_prm_add: npnum 0\n",
               "plm_dpss_get_stats_tbl_id", "prm_stats_cl_alloc", "prm_stats_cl_get_phy_stats_ptr",
               "prm_srh_flow_db_add", "flow_prm_add: npnum 1\n", "plm_dpss_get_stats_tbl_id",
               "prm_stats_cl_alloc", "prm_stats_cl_get_phy_stats_ptr", "prm_srh_flow_db_add"}));
}

TEST_F(DynamicFlowTest, ACounterIsAskedOfTheNpsOwnTableInTheNameOfTheConnection)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record);
    const auto client = reinterpret_cast<uint64_t>(context.prm_conn);
    EXPECT_EQ(platform.taken, (std::vector<CounterRun>{{client, 0x7100, 27, 2, 1},
                                                       {client, 0x7101, 27, 2, 1},
                                                       {client, 0x7102, 27, 2, 1}}));
    EXPECT_NE(client, 0u);
    EXPECT_EQ(services.calls_of("plm_dpss_get_stats_tbl_id").at(1).args, std::vector<uint64_t>{1});
}

TEST_F(DynamicFlowTest, EachNpsCounterIsKeptInTheRecord)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record);
    EXPECT_EQ(words(record.counter),
              (std::vector<uint32_t>{0xA1B2C3, 0xA1B3C3, 0xA1B4C3, 0, 0, 0, 0, 0}));
    EXPECT_EQ(words(record.drop_counter), std::vector<uint32_t>(8));
}

TEST_F(DynamicFlowTest, ResultBytes3To5CarryTheCountersAddressMostSignificantFirst)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    services.force("prm_stats_cl_get_phy_stats_ptr", 0x44AABBCC);
    add(record);
    const std::vector<uint8_t> expected = {0x10, 0x11, 0x12, 0xAA, 0xBB, 0xCC, 0x16, 0x17};
    ASSERT_EQ(platform.requests.size(), 3u);
    for (const FlowRequest &request : platform.requests)
        EXPECT_EQ(request.result(0, 8), expected);
}

TEST_F(DynamicFlowTest, EachNpsRequestCarriesTheAddressOfItsOwnCounter)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record, 1);
    ASSERT_EQ(platform.requests.size(), 3u);
    for (uint32_t np = 0; np < 3; ++np) {
        EXPECT_EQ(services.calls_of("prm_stats_cl_get_phy_stats_ptr").at(np).args[0],
                  record.counter[np]);
        EXPECT_EQ(platform.requests[np].result(3, 3), address_bytes(record.counter[np]));
    }
}

TEST_F(DynamicFlowTest, AFlowOfNp1WithAPolicerGetsTwoCountersInARowThere)
{
    flow_record record = make(FLOW_HAS_STATS, 1);
    EXPECT_EQ(add(record, 1), 0u);
    ASSERT_EQ(platform.taken.size(), 1u);
    EXPECT_EQ(platform.taken[0].table_id, 0x7101u);
    EXPECT_EQ(platform.taken[0].count, 2u);
    EXPECT_EQ(words(record.counter), (std::vector<uint32_t>{0, 0xA1B2C3, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(words(record.drop_counter), (std::vector<uint32_t>{0, 0xA1B2C4, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(platform.requests.at(0).result(3, 3), address_bytes(0xA1B2C3));
}

TEST_F(DynamicFlowTest, OnlyAPolicerOf1BringsASecondCounter)
{
    for (const uint32_t policer : {0u, 2u, 0xFFFFFFFFu}) {
        flow_record record = make(FLOW_HAS_STATS);
        record.drop_counter[0] = 77;
        forget();
        EXPECT_EQ(add(record, policer), 0u);
        EXPECT_EQ(platform.taken.at(0).count, 1u) << policer;
        EXPECT_EQ(record.drop_counter[0], 77u) << policer;
    }
}

TEST_F(DynamicFlowTest, WithoutStatisticsNoCounterIsTakenAlsoWithAPolicer)
{
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(add(record, 1), 0u);
    EXPECT_EQ(services.names(), Lines(3, "prm_srh_flow_db_add"));
    EXPECT_EQ(words(record.counter), std::vector<uint32_t>(8));
    EXPECT_EQ(words(record.drop_counter), std::vector<uint32_t>(8));
}

TEST_F(DynamicFlowTest, TheEighthNpHasCountersToo)
{
    flow_record record = make(FLOW_HAS_STATS, 7);
    EXPECT_EQ(add(record, 1), 0u);
    EXPECT_EQ(record.counter[7], 0xA1B2C3u);
    EXPECT_EQ(record.drop_counter[7], 0xA1B2C4u);
    EXPECT_EQ(record.reserved_300, 0u);
}

TEST_F(DynamicFlowTest, AFlowOfAllOf9NpsWithStatisticsEndsWith22AtTheNinth)
{
    context.num_nps = 9;
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    EXPECT_EQ(add(record), 22u);
    EXPECT_EQ(nps(), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(record.reserved_300, 0u);
}

TEST_F(DynamicFlowTest, CountersOfAnAddThatPrmRefusesStayWithTheRecord)
{
    services.force("prm_srh_flow_db_add", 5);
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    EXPECT_EQ(add(record), 5u);
    EXPECT_EQ(record.counter[2], 0xA1B4C3u);
    EXPECT_EQ(services.count("prm_stats_cl_free"), 0u);
    EXPECT_EQ(services.count("prm_srh_flow_db_del"), 0u);
}

TEST_F(DynamicFlowTest, AnAddWithoutAStatisticsTableIs22AtOnce)
{
    platform.nps_without_table = {1};
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    start_transcript();
    EXPECT_EQ(add(record), 22u);
    EXPECT_EQ(transcript(),
              (Lines{begins(record, "1", "0", "2"), "flow_prm_add: npnum 0\n",
                     "plm_dpss_get_stats_tbl_id", "prm_stats_cl_alloc",
                     "prm_stats_cl_get_phy_stats_ptr", "prm_srh_flow_db_add",
                     "flow_prm_add: npnum 1\n", "plm_dpss_get_stats_tbl_id", no_table}));
    EXPECT_EQ(words(record.counter), (std::vector<uint32_t>{0xA1B2C3, 0, 0, 0, 0, 0, 0, 0}))
        << "the first NP's stays as it is";
}

TEST_F(DynamicFlowTest, AnAddWithoutStatisticsNeedsNoStatisticsTable)
{
    platform.nps_without_table = {0, 1, 2};
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(add(record), 0u);
}

TEST_F(DynamicFlowTest, AnAddForWhichPrmHasNoCounterIs12AtOnce)
{
    services.force("prm_stats_cl_alloc", 28, 2); // the second NP's
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    start_transcript();
    EXPECT_EQ(add(record, 1), 12u);
    EXPECT_EQ(
        transcript(),
        (Lines{begins(record, "1", "0", "2"), "flow_prm_add: npnum 0\n",
               "plm_dpss_get_stats_tbl_id", "prm_stats_cl_alloc", "prm_stats_cl_get_phy_stats_ptr",
               "prm_srh_flow_db_add", "flow_prm_add: npnum 1\n", "plm_dpss_get_stats_tbl_id",
               "prm_stats_cl_alloc", "prm_stats_err_string",
               "Failed to allocate dpss dynamic stats counter of chip 1, RC= No space left "
               "on device\n"}));
    EXPECT_EQ(words(record.counter), (std::vector<uint32_t>{0xA1B2C3, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(words(record.drop_counter), (std::vector<uint32_t>{0xA1B2C4, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(services.count("prm_stats_cl_free"), 0u);
}

TEST_F(DynamicFlowTest, TheTextOfAFailedAllocationIsPrms)
{
    services.force("prm_stats_cl_alloc", 0x2D41);
    const std::string text = "out of dynamic counters";
    services.force("prm_stats_err_string", reinterpret_cast<uint64_t>(text.c_str()));
    flow_record record = make(FLOW_HAS_STATS, 2);
    EXPECT_EQ(add(record), 12u);
    EXPECT_EQ(services.calls_of("prm_stats_err_string").at(0).args, std::vector<uint64_t>{0x2D41});
    EXPECT_EQ(log().back(),
              "Failed to allocate dpss dynamic stats counter of chip 2, RC= " + text + "\n");
}

// ---- modify ------------------------------------------------------------------------------------

TEST_F(DynamicFlowTest, AModifyNeitherTakesNorGivesBackCounters)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record, 1);
    const flow_record before = record;
    forget();
    EXPECT_EQ(inline_flow_db_update_prm(FLOW_MODIFY, &record, 1), 0u);
    EXPECT_EQ(services.names(), Lines(3, "prm_srh_flow_db_mod"));
    EXPECT_EQ(memcmp(&record, &before, sizeof before), 0);
}

// The add tells an NP where the counter lies, the modify its number, at other bytes.
TEST_F(DynamicFlowTest, AModifyCarriesTheNumberOfTheCounterInPlaceOfItsAddress)
{
    flow_record record = make(FLOW_HAS_STATS);
    add(record);
    inline_flow_db_update_prm(FLOW_MODIFY, &record, 0);
    ASSERT_EQ(platform.requests.size(), 2u);
    const std::vector<uint8_t> address = address_bytes(0xA1B2C3);
    EXPECT_EQ(platform.requests[0].result(1, 5),
              (std::vector<uint8_t>{0x11, 0x12, address[0], address[1], address[2]}));
    EXPECT_EQ(platform.requests[1].result(1, 5),
              (std::vector<uint8_t>{0xB2, 0xA1, 0x00, 0x14, 0x15}));
}

// ---- delete ------------------------------------------------------------------------------------

TEST_F(DynamicFlowTest, ADeleteGivesEachNpsCounterBackAfterItsRequest)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    context.num_nps = 2;
    add(record, 1);
    start_transcript();
    EXPECT_EQ(remove(record), 0u);
    EXPECT_EQ(
        transcript(),
        (Lines{begins(record, "3", "0", "1"), "flow_prm_del: npnum 0\n",
               "prm_update: delete called\n", "prm_srh_flow_db_del", "plm_dpss_get_stats_tbl_id",
               "prm_stats_cl_free", "flow_prm_del: npnum 1\n", "prm_update: delete called\n",
               "prm_srh_flow_db_del", "plm_dpss_get_stats_tbl_id", "prm_stats_cl_free"}));
    EXPECT_EQ(platform.given_back, (Given{{0x7100, 0xA1B2C3}, {0x7101, 0xA1B3C3}}))
        << "the first of each run alone";
    EXPECT_EQ(services.calls_of("prm_stats_cl_free").at(0).args[0],
              reinterpret_cast<uint64_t>(context.prm_conn));
}

TEST_F(DynamicFlowTest, ADeleteLeavesTheCountersInTheRecord)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record, 1);
    const flow_record before = record;
    remove(record);
    EXPECT_EQ(memcmp(&record, &before, sizeof before), 0);
}

TEST_F(DynamicFlowTest, ADeleteGivesBackTheStoredCounterAlsoWithoutStatistics)
{
    flow_record record = make(FLOW_ON_ALL_NPS);
    record.counter[2] = 9;
    EXPECT_EQ(remove(record), 0u);
    EXPECT_EQ(platform.given_back, (Given{{0x7100, 0}, {0x7101, 0}, {0x7102, 9}}));
}

TEST_F(DynamicFlowTest, ADeleteOnAnNpPastTheEighthGivesBackCounter0)
{
    flow_record record = make(FLOW_HAS_STATS, 8);
    record.drop_counter[0] = 77;
    EXPECT_EQ(remove(record), 0u);
    EXPECT_EQ(platform.given_back, (Given{{0x7108, 0}}));
}

TEST_F(DynamicFlowTest, TheCodeOfADeleteIsThatOfGivingTheLastCounterBack)
{
    flow_record record = make(FLOW_ON_ALL_NPS);
    services.force("prm_stats_cl_free", 61, 3, 1);
    EXPECT_EQ(remove(record), 61u);
    services.force("prm_stats_cl_free", 61, 1, 1); // the first NP's
    forget();
    EXPECT_EQ(remove(record), 0u);
    EXPECT_EQ(nps(), (std::vector<uint32_t>{0, 1, 2}));
}

TEST_F(DynamicFlowTest, WhatPrmSaysOfADeleteIsNotLookedAt)
{
    services.force("prm_srh_flow_db_del", 5);
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record);
    forget();
    EXPECT_EQ(remove(record), 0u);
    EXPECT_EQ(platform.given_back.size(), 3u);
}

TEST_F(DynamicFlowTest, ADeleteWithoutAStatisticsTableIs22AtOnceWithTheFlowOffThatNp)
{
    platform.nps_without_table = {1};
    flow_record record = make(FLOW_ON_ALL_NPS);
    start_transcript();
    EXPECT_EQ(remove(record), 22u);
    EXPECT_EQ(transcript(), (Lines{begins(record, "3", "0", "2"), "flow_prm_del: npnum 0\n",
                                   "prm_update: delete called\n", "prm_srh_flow_db_del",
                                   "plm_dpss_get_stats_tbl_id", "prm_stats_cl_free",
                                   "flow_prm_del: npnum 1\n", "prm_update: delete called\n",
                                   "prm_srh_flow_db_del", "plm_dpss_get_stats_tbl_id", no_table}));
}

} // namespace
