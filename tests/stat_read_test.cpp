// Reading one node's counters, and one counter of one NP.

#include <cstring>

#include "card_fixture.h"

namespace test {
namespace {

using Log = std::vector<std::string>;

class StatRead : public RunningCardTest {
protected:
    stats_sum sum{10, 20};
    bool is_untouched() const { return sum.first == 10 && sum.second == 20; }
};

// ---- one counter of one NP ---------------------------------------------------------------------

TEST_F(StatRead, ACounterIsReadWithExactlyTheseArguments)
{
    uint32_t mode = 0;
    services.script("prm_stats_cl_read", [&](const vlc::ServiceCall &call) {
        mode = *reinterpret_cast<const uint32_t *>(call.args[3]);
        return std::nullopt;
    });
    inline_svc_get_stat_per_np(1, 0xC00005, &sum);
    const RecordedCall read = services.calls_of("prm_stats_cl_read").at(0);
    ASSERT_EQ(read.args.size(), 7u);
    EXPECT_EQ(read.args[0], reinterpret_cast<uintptr_t>(context.prm_conn));
    EXPECT_EQ(read.args[1], 0xC00005u);
    EXPECT_EQ(read.args[2], 1u);
    EXPECT_EQ(mode, 2u);
    EXPECT_NE(read.args[4], 0u);
    EXPECT_NE(read.args[5], 0u);
    EXPECT_EQ(read.args[6], 0u);
}

TEST_F(StatRead, WhatIsReadIsAddedToTheSum)
{
    card->nps()[1].counters().add(5, 64);
    card->nps()[1].counters().add(5, 36);
    inline_svc_get_stat_per_np(1, 0xC00005, &sum);
    EXPECT_EQ(sum.first, 12u);
    EXPECT_EQ(sum.second, 120u);
    EXPECT_TRUE(log().empty());
}

TEST_F(StatRead, AnNpThatTheCardDoesNotHaveIsSaidAndNotRead)
{
    for (const auto &[np, line] :
         {std::pair{2u, " Bad chan_id : 2 "}, std::pair{100u, " Bad chan_id : 100 "},
          std::pair{0xFFFFFFFFu, " Bad chan_id : -1 "}}) {
        forget_log();
        inline_svc_get_stat_per_np(np, 0xC00005, &sum);
        EXPECT_EQ(log(), (Log{line}));
    }
    EXPECT_TRUE(is_untouched());
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(StatRead, WithoutNpsEveryNumberIsBad)
{
    NUM_LC_NPS = 0;
    inline_svc_get_stat_per_np(0, 0xC00005, &sum);
    EXPECT_EQ(log(), (Log{" Bad chan_id : 0 "}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(StatRead, TheNpIsLookedAtBeforeTheCounter)
{
    inline_svc_get_stat_per_np(2, 0, &sum);
    EXPECT_EQ(log(), (Log{" Bad chan_id : 2 "}));
}

TEST_F(StatRead, CounterZeroIsSaidAndNotRead)
{
    inline_svc_get_stat_per_np(0, 0, &sum);
    EXPECT_EQ(log(), (Log{" Bad stat ptr : 0 "}));
    EXPECT_TRUE(is_untouched());
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(StatRead, AFailedReadIsSaidAndAddsNothing)
{
    services.script("prm_stats_cl_read", [](const vlc::ServiceCall &call) {
        memset(reinterpret_cast<void *>(call.args[4]), 0xFF, 16);
        return uint64_t{5};
    });
    inline_svc_get_stat_per_np(1, 0xC00005, &sum);
    EXPECT_EQ(log(), (Log{" Cannot read stat  stats of chip 1 for , RC= Input/output error\n"}));
    EXPECT_TRUE(is_untouched());
    EXPECT_EQ(services.count("prm_stats_err_string"), 1u);
    EXPECT_EQ(services.calls_of("prm_stats_err_string").at(0).args.at(0), 5u);
}

TEST_F(StatRead, ACounterThatTheCardDoesNotHaveIsAFailedRead)
{
    inline_svc_get_stat_per_np(0, 0x123456, &sum);
    EXPECT_EQ(log(), (Log{" Cannot read stat  stats of chip 0 for , RC= PRM: no such counter\n"}));
    EXPECT_TRUE(is_untouched());
}

TEST_F(StatRead, NullArgumentsAndNoContextNeverFault)
{
    inline_svc_get_stat_per_np(0, 0xC00005, nullptr);
    inline_svc_node_get_stat(nullptr, nullptr);
    shmem_node node = {};
    node.stat_index_rx[0] = 0xC00005;
    inline_svc_node_get_stat(&node, nullptr);
    pgbl_ptr = nullptr;
    inline_svc_get_stat_per_np(0, 0xC00005, &sum);
    EXPECT_TRUE(is_untouched());
}

// ---- one node ----------------------------------------------------------------------------------

TEST_F(StatRead, ANodesCountersAreReadNpByNp)
{
    shmem_node node = {};
    node.stat_index_rx[0] = 0xC00005;
    node.stat_index_rx[1] = 0xC00006;
    node.stat_index_rx[2] = 0xC00007;
    node.stat_index_drop[0] = 0xC00008;
    card->nps()[0].counters().add(5, 64);
    card->nps()[1].counters().add(6, 36);
    inline_svc_node_get_stat(&node, &sum);
    EXPECT_EQ(sum.first, 12u);
    EXPECT_EQ(sum.second, 120u);
    const std::vector<RecordedCall> reads = services.calls_of("prm_stats_cl_read");
    ASSERT_EQ(reads.size(), 2u);
    EXPECT_EQ(reads[0].args[1], 0xC00005u);
    EXPECT_EQ(reads[0].args[2], 0u);
    EXPECT_EQ(reads[1].args[1], 0xC00006u);
    EXPECT_EQ(reads[1].args[2], 1u);
}

TEST_F(StatRead, ANullNodeIsNotReadAndNotSpokenOf)
{
    inline_svc_node_get_stat(nullptr, &sum);
    EXPECT_TRUE(is_untouched());
    EXPECT_TRUE(log().empty());
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(StatRead, WithoutNpsANodeIsNotRead)
{
    NUM_LC_NPS = 0;
    shmem_node node = {};
    node.stat_index_rx[0] = 0xC00005;
    inline_svc_node_get_stat(&node, &sum);
    EXPECT_TRUE(log().empty());
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(StatRead, NpsPastTheEighthAreNotReadFromTheNode)
{
    NUM_LC_NPS = 10;
    shmem_node node = {};
    std::fill(std::begin(node.stat_index_rx), std::end(node.stat_index_rx), 0xC00005);
    std::fill(std::begin(node.stat_index_drop), std::end(node.stat_index_drop), 0xC00006);
    services.force("prm_stats_cl_read", 0);
    inline_svc_node_get_stat(&node, &sum);
    const std::vector<RecordedCall> reads = services.calls_of("prm_stats_cl_read");
    EXPECT_EQ(reads.size(), 8u);
    for (const RecordedCall &read : reads)
        EXPECT_EQ(read.args[1], 0xC00005u);
}

// ---- delayed deletion --------------------------------------------------------------------------

TEST_F(StatRead, TheHandlerOfDelayedDeletionDoesNothing)
{
    root->counters[0][0] = 0xFFFFFFFF;
    EXPECT_EQ(inline_svc_stats_delay_delete_handler(), 0u);
    EXPECT_EQ(root->counters[0][0], 0xFFFFFFFFu);
    EXPECT_TRUE(log().empty());
    EXPECT_TRUE(services.calls().empty());
}

} // namespace
} // namespace test
