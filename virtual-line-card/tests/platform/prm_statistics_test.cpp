#include <cerrno>

#include "test_card.h"

namespace {

constexpr uint32_t first = 0xC00000;
constexpr uint32_t size = 65536;

class PrmStatistics : public card_test::InEachDeployment<card_test::CardTest> {
protected:
    uint32_t read(uint32_t counter, uint32_t np, uint32_t option = PRM_STATS_READ)
    {
        uint32_t mode = PRM_STATS_MODE;
        return prm_stats_cl_read(nullptr, counter, np, &mode, words, nullptr, option);
    }
    void expect_words(uint64_t packets, uint64_t bytes) const
    {
        EXPECT_EQ(packets, words[0]);
        EXPECT_EQ(bytes, words[1]);
    }
    uint64_t words[2] = {77, 78};
};

TEST_P(PrmStatistics, TheRegionIsPrms)
{
    EXPECT_EQ(first, prm_stats_cl_get_stateless_double_start());
    EXPECT_EQ(size, prm_stats_cl_get_stateless_double_size());
}

TEST_P(PrmStatistics, ACounterIsPacketsAndBytesOfItsNp)
{
    nps()[1].counters().add(5, 60);
    nps()[1].counters().add(5, 1500);
    EXPECT_EQ(0u, read(first + 5, 1));
    expect_words(2, 1560);
    EXPECT_EQ(0u, read(first + 5, 0));
    expect_words(0, 0);
}

TEST_P(PrmStatistics, OnlyReadAndClearClears)
{
    nps()[0].counters().add(5, 60);
    for (const uint32_t option : {0u, 1u, 2u}) {
        EXPECT_EQ(0u, read(first + 5, 0, option));
        expect_words(1, 60);
    }
    EXPECT_EQ(0u, read(first + 5, 0));
    expect_words(0, 0);
}

TEST_P(PrmStatistics, ANullDoubleCounterStillClears)
{
    uint32_t mode = PRM_STATS_MODE;
    nps()[0].counters().add(5, 60);
    EXPECT_EQ(0u, prm_stats_cl_read(nullptr, first + 5, 0, &mode, nullptr, nullptr,
                                    PRM_STATS_READ_AND_CLEAR));
    EXPECT_EQ(0u, read(first + 5, 0));
    expect_words(0, 0);
}

TEST_P(PrmStatistics, ANumberIsUnderstoodInEitherByteOrder)
{
    nps()[0].counters().add(0x1234, 60);
    EXPECT_EQ(0u, read(0x3412C0, 0));
    expect_words(1, 60);
}

TEST_P(PrmStatistics, TheRegionsEndsAreKept)
{
    EXPECT_EQ(0u, read(first, 0));
    EXPECT_EQ(0u, read(first + size - 1, 0));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, read(first - 1, 0));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, read(first + size, 0));
}

TEST_P(PrmStatistics, ABadCounterNpModeOrOptionLeavesTheWordsAlone)
{
    uint32_t other_mode = 1;
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, read(0, 0));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, read(first, 2));
    EXPECT_EQ(uint32_t{EINVAL}, read(first, 0, 3));
    EXPECT_EQ(uint32_t{EINVAL},
              prm_stats_cl_read(nullptr, first, 0, &other_mode, words, nullptr, 0));
    EXPECT_EQ(uint32_t{EINVAL}, prm_stats_cl_read(nullptr, first, 0, nullptr, words, nullptr, 0));
    expect_words(77, 78);
}

TEST_P(PrmStatistics, ABrokenConnectionReadsNothing)
{
    prm().go_down();
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, read(first, 0));
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, prm_stats_cl_pre_init());
    expect_words(77, 78);
    prm().come_up();
    EXPECT_EQ(0u, prm_stats_cl_pre_init());
    EXPECT_EQ(0u, read(first, 0));
}

TEST_P(PrmStatistics, CountersOutliveTheProcessAndARestartOfPrm)
{
    nps()[0].counters().add(5, 60);
    prm().restart(false);
    restart_process();
    EXPECT_EQ(0u, read(first + 5, 0));
    expect_words(1, 60);
}

IN_BOTH_DEPLOYMENTS(PrmStatistics);

} // namespace
