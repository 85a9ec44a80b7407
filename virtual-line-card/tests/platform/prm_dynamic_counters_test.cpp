// Counters that PRM gives out while it runs, as its clients call for them.
#include <cerrno>
#include <set>

#include "platform_card.h"
#include "test_card.h"

namespace {

constexpr uint32_t count_of_small_card = 8;

class DynamicCounters : public card_test::InEachDeployment<card_test::CardTest> {
protected:
    static uint32_t table(uint32_t np) { return *plm_dpss_get_stats_tbl_id(np); }
    uint32_t take(uint32_t np, uint32_t count, uint32_t client_kind = PRM_STATS_DPSS_CLIENT,
                  uint32_t kind = PRM_STATS_DPSS_KIND)
    {
        return prm_stats_cl_alloc(nullptr, table(np), client_kind, kind, &count, &counter);
    }
    uint32_t taken(uint32_t np, uint32_t count)
    {
        EXPECT_EQ(0u, take(np, count));
        return counter;
    }
    uint32_t read(uint32_t number, uint32_t np, uint32_t option = PRM_STATS_READ)
    {
        uint32_t mode = PRM_STATS_MODE;
        return prm_stats_cl_read(nullptr, number, np, &mode, words, nullptr, option);
    }
    // As an NP would, that finds the address in a result.
    void count_at(uint32_t np, uint32_t address, uint32_t bytes)
    {
        vlc::DynamicCounters &counters = nps()[np].dynamic_counters();
        const int64_t place = counters.place_of_address(address);
        ASSERT_GE(place, 0);
        counters.add(static_cast<uint32_t>(place), bytes);
    }
    void expect_words(uint64_t packets, uint64_t bytes) const
    {
        EXPECT_EQ(packets, words[0]);
        EXPECT_EQ(bytes, words[1]);
    }
    uint32_t counter = 77;
    uint64_t words[2] = {77, 78};
};

TEST_P(DynamicCounters, EveryNpHasATableOfItsOwn)
{
    ASSERT_NE(nullptr, plm_dpss_get_stats_tbl_id(0));
    ASSERT_NE(nullptr, plm_dpss_get_stats_tbl_id(1));
    EXPECT_NE(table(0), table(1));
    EXPECT_EQ(table(0), table(0));
    EXPECT_EQ(nullptr, plm_dpss_get_stats_tbl_id(2));
    EXPECT_EQ(nullptr, plm_dpss_get_stats_tbl_id(UINT32_MAX));
}

TEST_P(DynamicCounters, TwoInARowAreReadEachByItsNumberAndCountedEachAtItsAddress)
{
    const uint32_t first = taken(1, 2);
    count_at(1, prm_stats_cl_get_phy_stats_ptr(first), 60);
    count_at(1, prm_stats_cl_get_phy_stats_ptr(first) + 1, 70);
    count_at(1, prm_stats_cl_get_phy_stats_ptr(first + 1), 80);
    EXPECT_EQ(0u, read(first, 1));
    expect_words(1, 60);
    EXPECT_EQ(0u, read(first + 1, 1));
    expect_words(2, 150);
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, read(first, 0)) << "of another NP";
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, read(first + 2, 1));
}

TEST_P(DynamicCounters, OnlyReadAndClearClears)
{
    const uint32_t first = taken(0, 1);
    count_at(0, prm_stats_cl_get_phy_stats_ptr(first), 60);
    for (const uint32_t option : {0u, 1u, 2u}) {
        EXPECT_EQ(0u, read(first, 0, option));
        expect_words(1, 60);
    }
    EXPECT_EQ(0u, read(first, 0));
    expect_words(0, 0);
}

TEST_P(DynamicCounters, AnAddressHas24BitsAndANumberOfNoneHasNone)
{
    const uint32_t address = prm_stats_cl_get_phy_stats_ptr(taken(0, 1));
    EXPECT_NE(0u, address);
    EXPECT_EQ(0u, address >> 24);
    EXPECT_EQ(0u, prm_stats_cl_get_phy_stats_ptr(0));
    EXPECT_EQ(0u, prm_stats_cl_get_phy_stats_ptr(0xC00001));
}

TEST_P(DynamicCounters, NumbersAreUniqueOnAnNpAndWhenAllAreTakenACodeSaysSo)
{
    std::set<uint32_t> numbers;
    for (uint32_t i = 0; i < count_of_small_card; i++)
        EXPECT_TRUE(numbers.insert(taken(0, 1)).second);
    EXPECT_EQ(0u, numbers.count(0));
    counter = 77;
    EXPECT_EQ(uint32_t{vlc::prm_no_counter}, take(0, 1));
    EXPECT_EQ(77u, counter);
    EXPECT_EQ(0u, take(1, 2)) << "the other NP has some";
    EXPECT_STREQ("PRM: no dynamic counter left", prm_stats_err_string(vlc::prm_no_counter));
}

TEST_P(DynamicCounters, FreeingTheFirstOfARunFreesTheRun)
{
    uint32_t runs[count_of_small_card / 2];
    for (uint32_t &run : runs)
        run = taken(0, 2);
    EXPECT_EQ(uint32_t{vlc::prm_no_counter}, take(0, 1));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, prm_stats_cl_free(nullptr, table(0), runs[1] + 1));
    EXPECT_EQ(0u, prm_stats_cl_free(nullptr, table(0), runs[1]));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, prm_stats_cl_free(nullptr, table(0), runs[1]));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, read(runs[1] + 1, 0));
    EXPECT_EQ(runs[1], taken(0, 2));
}

TEST_P(DynamicCounters, FreeingCounterZeroIsFine)
{
    EXPECT_EQ(0u, prm_stats_cl_free(nullptr, table(0), 0));
    EXPECT_EQ(0u, nps()[0].dynamic_counters().in_use());
}

TEST_P(DynamicCounters, BadArgumentsTakeAndFreeNothing)
{
    const uint32_t einval = EINVAL;
    const uint32_t bad_table = vlc::prm_bad_statistics_table;
    uint32_t one = 1;
    EXPECT_EQ(einval, take(0, 0));
    EXPECT_EQ(einval, take(0, 3));
    EXPECT_EQ(einval, take(0, 1, 26));
    EXPECT_EQ(einval, take(0, 1, 27, 1));
    EXPECT_EQ(einval, prm_stats_cl_alloc(nullptr, table(0), 27, 2, nullptr, &counter));
    EXPECT_EQ(einval, prm_stats_cl_alloc(nullptr, table(0), 27, 2, &one, nullptr));
    EXPECT_EQ(bad_table, prm_stats_cl_alloc(nullptr, 0, 27, 2, &one, &counter));
    EXPECT_EQ(bad_table, prm_stats_cl_alloc(nullptr, table(1) + 1, 27, 2, &one, &counter));
    EXPECT_EQ(77u, counter);
    const uint32_t first = taken(0, 1);
    EXPECT_EQ(bad_table, prm_stats_cl_free(nullptr, 0, first));
    EXPECT_EQ(bad_table, prm_stats_cl_free(nullptr, table(1) + 1, 0));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, prm_stats_cl_free(nullptr, table(1), first));
    EXPECT_EQ(uint32_t{vlc::prm_bad_counter}, prm_stats_cl_free(nullptr, table(0), 0xC00001));
    EXPECT_EQ(1u, nps()[0].dynamic_counters().in_use());
}

TEST_P(DynamicCounters, ABrokenConnectionTakesAndFreesNothing)
{
    const uint32_t first = taken(0, 1);
    prm().go_down();
    counter = 77;
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, take(0, 1));
    EXPECT_EQ(77u, counter);
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, prm_stats_cl_free(nullptr, table(0), first));
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, read(first, 0));
    prm().come_up();
    EXPECT_EQ(0u, prm_stats_cl_free(nullptr, table(0), first));
}

TEST_P(DynamicCounters, OutliveTheProcessARestartOfPrmAndAResetOfTheNps)
{
    const uint32_t first = taken(0, 2);
    count_at(0, prm_stats_cl_get_phy_stats_ptr(first + 1), 60);
    prm().restart(false);
    prm().np_reset();
    restart_process();
    EXPECT_EQ(0u, read(first + 1, 0));
    expect_words(1, 60);
    EXPECT_NE(first, taken(0, 2));
}

IN_BOTH_DEPLOYMENTS(DynamicCounters);

TEST(NpsWithoutDynamicCounters, HaveNoStatisticsTable)
{
    const card_test::ScratchDirectory directory;
    vlc::CardConfig config = card_test::small_card();
    uint32_t table = 0;
    {
        const vlc::VirtualLineCard card(config, directory.path() / "with");
        table = *plm_dpss_get_stats_tbl_id(0);
    }
    config.dynamic_counters = 0;
    const vlc::VirtualLineCard card(config, directory.path() / "without");
    EXPECT_EQ(nullptr, plm_dpss_get_stats_tbl_id(0));
    uint32_t one = 1;
    uint32_t counter = 77;
    EXPECT_EQ(uint32_t{vlc::prm_bad_statistics_table},
              prm_stats_cl_alloc(nullptr, table, 27, 2, &one, &counter));
    EXPECT_EQ(uint32_t{vlc::prm_bad_statistics_table}, prm_stats_cl_free(nullptr, table, 0));
    EXPECT_EQ(77u, counter);
}

} // namespace
