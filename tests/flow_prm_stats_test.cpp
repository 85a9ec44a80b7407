// Reading the statistics of a flow.
#include "flow_fixture.h"

using namespace test;

namespace {

class FlowStatsTest : public FlowTest {
protected:
    using Sums = std::pair<uint64_t, uint64_t>;

    // A flow of all NPs whose NPs 0 to 2 have the counters 100 to 102.
    FlowStatsTest() : record(make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS))
    {
        for (uint32_t np = 0; np < 3; ++np)
            record.counter[np] = 100 + np;
        platform.counts = {{{0, 100}, {1, 10}}, {{1, 101}, {2, 20}}, {{2, 102}, {4, 40}}};
    }
    // What is read into words that are not 0; the result must be 0.
    Sums read(int32_t flag = 1)
    {
        Sums sums = {0xAA, 0xBB};
        EXPECT_EQ(inline_flow_read_stats(&record, &sums.first, &sums.second, flag), 0u);
        return sums;
    }

    flow_record record;
};

TEST_F(FlowStatsTest, TheTwoWordsAreSummedOverTheNps)
{
    EXPECT_EQ(read(), Sums(7, 70));
    EXPECT_EQ(services.names(), Lines(3, "prm_stats_cl_read"));
}

TEST_F(FlowStatsTest, EachNpsCounterIsReadThroughTheConnectionAscending)
{
    std::vector<uint32_t> modes;
    platform.also = [&](const vlc::ServiceCall &call) {
        modes.push_back(*reinterpret_cast<const uint32_t *>(call.args[3]));
    };
    read();
    const auto calls = services.calls_of("prm_stats_cl_read");
    ASSERT_EQ(calls.size(), 3u);
    for (uint64_t np = 0; np < 3; ++np) {
        EXPECT_EQ(calls[np].args[0], reinterpret_cast<uint64_t>(context.prm_conn));
        EXPECT_EQ(calls[np].args[1], 100 + np);
        EXPECT_EQ(calls[np].args[2], np);
        EXPECT_EQ(calls[np].args[5], 0u) << "the second output is not wanted";
    }
    EXPECT_EQ(modes, (std::vector<uint32_t>{2, 2, 2}));
}

TEST_F(FlowStatsTest, TheOptionIs1ForFlag0And0ForAnyOther)
{
    const std::pair<int32_t, uint64_t> cases[] = {{0, 1}, {1, 0}, {2, 0}, {-1, 0}};
    for (const auto &[flag, option] : cases) {
        forget();
        EXPECT_EQ(read(flag), Sums(7, 70));
        for (const RecordedCall &call : services.calls_of("prm_stats_cl_read"))
            EXPECT_EQ(call.args[6], option) << flag;
    }
}

TEST_F(FlowStatsTest, EachReadIsGivenAModeOf2WhateverTheLastOneLeft)
{
    services.script("prm_stats_cl_read", [](const vlc::ServiceCall &call) {
        auto &mode = *reinterpret_cast<uint32_t *>(call.args[3]);
        EXPECT_EQ(mode, 2u);
        mode = 99;
        return std::optional<uint64_t>(5);
    });
    EXPECT_EQ(read(), Sums(0, 0));
    EXPECT_EQ(services.count("prm_stats_cl_read"), 3u);
}

TEST_F(FlowStatsTest, AReadThatFailsCountsAsNothingAndIsNotLogged)
{
    platform.counts.erase({1, 101});
    EXPECT_EQ(read(), Sums(5, 50));
    EXPECT_EQ(log(), Lines{});
    platform.counts.clear();
    EXPECT_EQ(read(), Sums(0, 0));
}

TEST_F(FlowStatsTest, AnNpWithoutACounterIsNotRead)
{
    record.counter[1] = 0;
    record.drop_counter[1] = 101;
    EXPECT_EQ(read(), Sums(5, 50));
    EXPECT_EQ(services.count("prm_stats_cl_read"), 2u);
}

TEST_F(FlowStatsTest, AFlowOfOneNpIsReadThereAlone)
{
    record.flags = FLOW_HAS_STATS;
    record.np = 2;
    EXPECT_EQ(read(), Sums(4, 40));
    EXPECT_EQ(services.count("prm_stats_cl_read"), 1u);
}

TEST_F(FlowStatsTest, SumsHave64Bits)
{
    platform.counts[{0, 100}] = {UINT64_C(0xFFFFFFFF00000000), UINT64_C(1) << 40};
    platform.counts[{1, 101}] = {UINT64_C(0x00000000FFFFFFFF), UINT64_C(1) << 40};
    platform.counts[{2, 102}] = {0, 3};
    EXPECT_EQ(read(), Sums(UINT64_MAX, (UINT64_C(1) << 41) + 3));
}

TEST_F(FlowStatsTest, WithoutStatisticsBothAre0AndPrmIsNotAsked)
{
    record.flags = FLOW_ON_ALL_NPS;
    EXPECT_EQ(read(), Sums(0, 0));
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(FlowStatsTest, WithoutNpsBothAre0)
{
    context.num_nps = 0;
    EXPECT_EQ(read(), Sums(0, 0));
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(FlowStatsTest, AnNpPastTheEighthHasNoStatistics)
{
    record.flags = FLOW_HAS_STATS;
    record.np = 8;
    record.drop_counter[0] = 100; // where a ninth counter would lie
    EXPECT_EQ(read(), Sums(0, 0));
    record.flags |= FLOW_ON_ALL_NPS;
    context.num_nps = 20;
    EXPECT_EQ(read(), Sums(7, 70));
    EXPECT_EQ(services.count("prm_stats_cl_read"), 3u);
}

TEST_F(FlowStatsTest, AReadNeedsNoRootAndSaysNothing)
{
    context.shadow_db = nullptr;
    EXPECT_EQ(read(), Sums(7, 70));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(FlowStatsTest, TheStoresReadPassesItsFlagOn)
{
    for (const uint32_t flag : {0u, 1u, 0xFFFFFFFFu}) {
        Sums sums;
        forget();
        EXPECT_EQ(flowdb_read_stats(&record, &sums.first, &sums.second, flag), 0u);
        EXPECT_EQ(sums, Sums(7, 70));
        EXPECT_EQ(services.calls_of("prm_stats_cl_read").at(2).args[6], flag == 0 ? 1u : 0u);
    }
}

TEST_F(FlowStatsTest, ANullArgumentIs22AndTheOtherWordStays)
{
    uint64_t word = 0xAA;
    EXPECT_EQ(inline_flow_read_stats(nullptr, &word, &word, 1), 22u);
    EXPECT_EQ(inline_flow_read_stats(&record, nullptr, &word, 1), 22u);
    EXPECT_EQ(inline_flow_read_stats(&record, &word, nullptr, 1), 22u);
    EXPECT_EQ(word, 0xAAu);
    EXPECT_EQ(flowdb_read_stats(nullptr, &word, &word, 1), 22u);
    EXPECT_EQ(log(), (Lines{"record is NULL in inline_flow_read_stats",
                            "first is NULL in inline_flow_read_stats",
                            "second is NULL in inline_flow_read_stats",
                            "record is NULL in inline_flow_read_stats"}));
}

TEST_F(FlowStatsTest, WithoutAContextItIs22AndBothAre0)
{
    pgbl_ptr = nullptr;
    Sums sums = {1, 2};
    EXPECT_EQ(inline_flow_read_stats(&record, &sums.first, &sums.second, 1), 22u);
    EXPECT_EQ(sums, Sums(0, 0));
    EXPECT_EQ(log(), Lines{"pgbl_ptr is NULL in inline_flow_read_stats"});
}

} // namespace
