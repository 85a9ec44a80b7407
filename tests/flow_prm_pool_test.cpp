// The older way of programming a flow: two counters of the pool for each NP.
#include "flow_fixture.h"

using namespace test;

namespace {

constexpr uint32_t start = 0xC00000; // of the pool's region

class PoolFlowTest : public FlowTest {
protected:
    static uint32_t add(flow_record &record) { return inline_flow_update_prm(FLOW_ADD, &record); }
    static uint32_t remove(flow_record &record)
    {
        return inline_flow_update_prm(FLOW_DELETE, &record);
    }
    // The pool of an NP begins with these 32 counters in use.
    void use(uint32_t np, uint32_t bits) { root->counters[np][0] = bits; }
};

// ---- add ---------------------------------------------------------------------------------------

TEST_F(PoolFlowTest, AnAddWithStatisticsTakesTwoCountersOfEachNpsPoolInARow)
{
    use(1, 0x80000000);
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    EXPECT_EQ(add(record), 0u);
    EXPECT_EQ(record.counter[0], start);
    EXPECT_EQ(record.drop_counter[0], start + 1);
    EXPECT_EQ(record.counter[1], start + 1);
    EXPECT_EQ(record.drop_counter[1], start + 2);
    EXPECT_EQ(record.counter[2], start);
    EXPECT_EQ(record.drop_counter[2], start + 1);
    EXPECT_EQ(record.counter[3], 0u);
    EXPECT_EQ(counters_in_use(0), 0xC0000000u);
    EXPECT_EQ(counters_in_use(1), 0xE0000000u);
}

TEST_F(PoolFlowTest, BothCountersAreTakenAndClearedBeforeTheRequest)
{
    flow_record record = make(FLOW_HAS_STATS, 1);
    start_transcript();
    EXPECT_EQ(add(record), 0u);
    const Lines taking = {"prm_stats_cl_get_stateless_double_size",
                          "max_long_counter 10000",
                          "prm_stats_cl_get_stateless_double_start",
                          "counter_start c00000",
                          "Found free counter at word 0",
                          "Found free counter at word 0",
                          "prm_stats_cl_read"};
    EXPECT_EQ(transcript(), joined({{begins(record, "1", "1", "1"), "flow_prm_add: npnum 1\n"},
                                    taking,
                                    taking,
                                    {"prm_srh_flow_db_add"}}));
    const auto reads = services.calls_of("prm_stats_cl_read");
    EXPECT_EQ(reads.at(0).args[1], start);
    EXPECT_EQ(reads.at(1).args[1], start + 1);
    for (const RecordedCall &read : reads) {
        EXPECT_EQ(read.args[2], 1u) << "the NP";
        EXPECT_EQ(read.args[6], 2u) << "reads and clears";
    }
}

TEST_F(PoolFlowTest, ResultBytes3To5CarryThreeBytesOfTheStoredCounter)
{
    root->counters[0][0] = 0xFFFFFFFF;
    root->counters[0][1] = 0xC0000000; // so that the next one is 0xC00022
    flow_record record = make(FLOW_HAS_STATS);
    EXPECT_EQ(add(record), 0u);
    EXPECT_EQ(record.counter[0], start + 0x22);
    EXPECT_EQ(platform.requests.at(0).result(0, 8),
              (std::vector<uint8_t>{0x10, 0x11, 0x12, 0x00, 0xC0, 0x00, 0x16, 0x17}));
}

TEST_F(PoolFlowTest, NoDynamicCounterIsAskedFor)
{
    platform.nps_without_table = {0, 1, 2};
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    EXPECT_EQ(add(record), 0u);
    EXPECT_EQ(inline_flow_update_prm(FLOW_MODIFY, &record), 0u);
    EXPECT_EQ(remove(record), 0u);
    for (const char *service : {"plm_dpss_get_stats_tbl_id", "prm_stats_cl_alloc",
                                "prm_stats_cl_free", "prm_stats_cl_get_phy_stats_ptr"})
        EXPECT_EQ(services.count(service), 0u) << service;
}

TEST_F(PoolFlowTest, AnAddGoesOnWithoutTheCountersThatThePoolDoesNotHave)
{
    root->counters[0] = nullptr;
    flow_record record = make(FLOW_HAS_STATS);
    record.counter[0] = 0x44332211; // as it was
    EXPECT_EQ(add(record), 0u);
    EXPECT_EQ(log_count("Shared memory context NULL"), 2u);
    EXPECT_EQ(record.counter[0], 0x44332211u);
    EXPECT_EQ(record.drop_counter[0], 0u);
    EXPECT_EQ(platform.requests.at(0).result(3, 3), (std::vector<uint8_t>{0x22, 0x33, 0x44}));
}

TEST_F(PoolFlowTest, AnNpThatTheContextDoesNotCountHasNoCounters)
{
    flow_record record = make(FLOW_HAS_STATS, 7);
    EXPECT_EQ(add(record), 0u);
    EXPECT_EQ(log_count("NP id out of bounds"), 2u);
    EXPECT_EQ(nps(), std::vector<uint32_t>{7});
}

TEST_F(PoolFlowTest, WithoutStatisticsNothingIsTaken)
{
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(add(record), 0u);
    EXPECT_EQ(services.names(), Lines(3, "prm_srh_flow_db_add"));
    EXPECT_EQ(counters_in_use(0), 0u);
}

TEST_F(PoolFlowTest, CountersOfAnAddThatPrmRefusesStayTaken)
{
    services.force("prm_srh_flow_db_add", 5);
    flow_record record = make(FLOW_HAS_STATS);
    EXPECT_EQ(add(record), 5u);
    EXPECT_EQ(record.counter[0], start);
    EXPECT_EQ(counters_in_use(0), 0xC0000000u);
}

// ---- modify and delete -------------------------------------------------------------------------

TEST_F(PoolFlowTest, AModifyLeavesTheCountersAlone)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record);
    const flow_record before = record;
    forget();
    EXPECT_EQ(inline_flow_update_prm(FLOW_MODIFY, &record), 0u);
    EXPECT_EQ(services.names(), Lines(3, "prm_srh_flow_db_mod"));
    EXPECT_EQ(memcmp(&record, &before, sizeof before), 0);
    EXPECT_EQ(counters_in_use(0), 0xC0000000u);
}

TEST_F(PoolFlowTest, ADeleteGivesBothCountersBackAfterTheRequestAndForgetsThem)
{
    flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
    add(record);
    forget();
    EXPECT_EQ(remove(record), 0u);
    const Lines one_np = {"prm_srh_flow_db_del", "prm_stats_cl_get_stateless_double_size",
                          "prm_stats_cl_get_stateless_double_start",
                          "prm_stats_cl_get_stateless_double_size",
                          "prm_stats_cl_get_stateless_double_start"};
    EXPECT_EQ(services.names(), joined({one_np, one_np, one_np}));
    for (uint32_t np = 0; np < 3; ++np) {
        EXPECT_EQ(record.counter[np], 0u);
        EXPECT_EQ(record.drop_counter[np], 0u);
        EXPECT_EQ(counters_in_use(np), 0u);
    }
}

TEST_F(PoolFlowTest, ADeleteCarriesTheCountersThatItThenGivesBack)
{
    flow_record record = make(FLOW_HAS_STATS);
    add(record);
    remove(record);
    EXPECT_EQ(platform.requests.at(1).result(0, 6),
              (std::vector<uint8_t>{0x10, 0x00, 0xC0, 0x00, 0x14, 0x15}));
}

TEST_F(PoolFlowTest, ADeleteGivesBackWhatIsStoredAlsoWithoutStatistics)
{
    flow_record record = make(FLOW_HAS_STATS);
    add(record);
    record.flags = 0;
    EXPECT_EQ(remove(record), 0u);
    EXPECT_EQ(counters_in_use(0), 0u);
}

TEST_F(PoolFlowTest, OnlyCountersOtherThan0AreGivenBack)
{
    flow_record record = make(FLOW_HAS_STATS);
    use(0, 0xC0000000);
    record.drop_counter[0] = start + 1;
    EXPECT_EQ(remove(record), 0u);
    EXPECT_EQ(counters_in_use(0), 0x80000000u);
    EXPECT_EQ(services.count("prm_stats_cl_get_stateless_double_start"), 1u);
}

TEST_F(PoolFlowTest, WithoutCountersTheCodeOfADeleteIsPrms)
{
    services.script("prm_srh_flow_db_del", refused_on(2, 5));
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(remove(record), 5u);
    services.script("prm_srh_flow_db_del", refused_on(1, 5));
    EXPECT_EQ(remove(record), 0u);
}

TEST_F(PoolFlowTest, WithCountersTheCodeOfADeleteIsThatOfTheLastOneGivenBack)
{
    services.force("prm_srh_flow_db_del", 5);
    flow_record record = make(FLOW_HAS_STATS);
    add(record);
    EXPECT_EQ(remove(record), 0u) << "PRM's code is hidden";
    record.counter[0] = start;
    record.drop_counter[0] = 1; // of no pool
    EXPECT_EQ(remove(record), 22u);
    EXPECT_EQ(record.drop_counter[0], 0u) << "forgotten all the same";
    record.counter[0] = 1;
    record.drop_counter[0] = start + 1;
    EXPECT_EQ(remove(record), 0u);
    record.counter[0] = 1;
    EXPECT_EQ(remove(record), 22u) << "the only one";
}

} // namespace
