// The bitmaps of counters in use: one for each NP, made once and kept by a restarted host.

#include <cstring>

#include "card_fixture.h"

namespace test {
namespace {

using Names = std::vector<std::string>;
using Log = std::vector<std::string>;

class StatsInit : public CardTest {
protected:
    explicit StatsInit(uint16_t num_nps = 3) : CardTest(num_nps)
    {
        attach_context();
        set_context();
        initialize_shadow_db();
        forget();
    }
    void forget()
    {
        services.forget();
        forget_log();
    }
    std::vector<uint64_t> allocated_sizes() const
    {
        std::vector<uint64_t> sizes;
        for (const RecordedCall &call : services.calls_of("shmwin_malloc"))
            sizes.push_back(call.args[1]);
        return sizes;
    }
};

TEST_F(StatsInit, TheBitmapsAreMadeInOrderAndSaid)
{
    EXPECT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_EQ(services.names(),
              (Names{"prm_stats_cl_pre_init", "prm_stats_cl_get_stateless_double_size",
                     "prm_stats_cl_get_stateless_double_size", "shmwin_malloc", "shmwin_malloc",
                     "shmwin_malloc"}));
    EXPECT_EQ(log(), (Log{"Total counters available for inline service on this LC65536",
                          "counter_word_per_np 65568"}));
    for (const RecordedCall &call : services.calls_of("shmwin_malloc")) {
        EXPECT_EQ(call.args[0], context.shmwin_id);
        EXPECT_EQ(call.args[1], 65576u);
    }
}

TEST_F(StatsInit, EveryNpGetsABitmapOfItsOwnInTheWindow)
{
    ASSERT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_EQ(NUM_LC_NPS, 3u);
    for (uint32_t np = 0; np < 3; ++np)
        EXPECT_TRUE(card->window().contains(root->counters[np])) << np;
    EXPECT_NE(root->counters[0], root->counters[1]);
    EXPECT_NE(root->counters[1], root->counters[2]);
    for (uint32_t np = 3; np < 8; ++np)
        EXPECT_EQ(root->counters[np], nullptr);
}

TEST_F(StatsInit, AFreshBitmapIsZeroAlsoWhereTheWindowWasUsedBefore)
{
    void *used[3] = {};
    for (void *&block : used) {
        ASSERT_EQ(card->window().allocate(65576, &block), 0u);
        memset(block, 0xFF, 65576);
    }
    for (void *block : used)
        ASSERT_EQ(card->window().release(block), 0u);
    ASSERT_EQ(inline_svc_stats_init(), 0u);
    for (uint32_t np = 0; np < 3; ++np) {
        const std::vector<uint32_t> words(root->counters[np], root->counters[np] + 65576 / 4);
        EXPECT_EQ(words, std::vector<uint32_t>(65576 / 4, 0u));
    }
}

// ---- the size of the region --------------------------------------------------------------------

struct Region {
    uint32_t size;
    int words;
};

class StatsInitOfRegion : public StatsInit, public ::testing::WithParamInterface<Region> {};

void PrintTo(const Region &region, std::ostream *out)
{
    *out << region.size << " counters";
}

INSTANTIATE_TEST_SUITE_P(Sizes, StatsInitOfRegion,
                         ::testing::Values(Region{0, 32}, Region{1, 32}, Region{31, 32},
                                           Region{32, 64}, Region{33, 64}, Region{64, 96},
                                           Region{65535, 65536}, Region{65536, 65568}));

TEST_P(StatsInitOfRegion, ABitmapHasAByteForEachCounterRoundedDownAndFortyMore)
{
    services.force("prm_stats_cl_get_stateless_double_size", GetParam().size);
    EXPECT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_EQ(log(), (Log{"Total counters available for inline service on this LC" +
                              std::to_string(GetParam().size),
                          "counter_word_per_np " + std::to_string(GetParam().words)}));
    EXPECT_EQ(allocated_sizes(),
              (std::vector<uint64_t>(3, static_cast<uint64_t>(GetParam().words) + 8)));
}

TEST_F(StatsInit, TheSizeIsAskedTwiceAndTheSecondAnswerCounts)
{
    services.force("prm_stats_cl_get_stateless_double_size", 100, 1, 1);
    EXPECT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_EQ(log(), (Log{"Total counters available for inline service on this LC100",
                          "counter_word_per_np 65568"}));
}

TEST_F(StatsInit, ARegionThatNoBitmapCanCoverIsAFailedAllocation)
{
    for (const uint32_t size : {0x7FFFFFE0u, 0x80000000u, 0xFFFFFFE0u, 0xFFFFFFFFu}) {
        services.force("prm_stats_cl_get_stateless_double_size", size);
        forget();
        EXPECT_EQ(inline_svc_stats_init(), 22u) << size;
        EXPECT_EQ(log_count("counter alloc failed: chip:0,Success"), 1u);
        EXPECT_EQ(log_count("counter alloc failed: chip:2,Invalid argument"), 1u);
        EXPECT_EQ(root->counters[0], nullptr);
    }
}

TEST_F(StatsInit, ARegionAboveTheSignedRangeIsShownNegative)
{
    services.force("prm_stats_cl_get_stateless_double_size", 0x80000000);
    inline_svc_stats_init();
    EXPECT_EQ(log().at(0), "Total counters available for inline service on this LC-2147483648");
    EXPECT_EQ(log().at(1), "counter_word_per_np -2147483616");
}

// ---- what was there before ---------------------------------------------------------------------

TEST_F(StatsInit, BitmapsOfAnEarlierRunAreKeptWhenTheRootSaysSo)
{
    ASSERT_EQ(inline_svc_stats_init(), 0u);
    root->counters[1][3] = 0x12345678;
    uint32_t *const kept[3] = {root->counters[0], root->counters[1], root->counters[2]};
    root->stats_state = 1;
    NUM_LC_NPS = 0;
    forget();
    EXPECT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_EQ(services.names(), (Names{"prm_stats_cl_pre_init"}));
    EXPECT_TRUE(log().empty());
    EXPECT_EQ(NUM_LC_NPS, 3u) << "the number of NPs is this process's own";
    for (uint32_t np = 0; np < 3; ++np)
        EXPECT_EQ(root->counters[np], kept[np]);
    EXPECT_EQ(root->counters[1][3], 0x12345678u);
}

TEST_F(StatsInit, AnyOtherStateMakesNewBitmapsEachTime)
{
    for (const uint32_t state : {0u, 2u, 0xFFFFFFFFu}) {
        root->stats_state = state;
        ASSERT_EQ(inline_svc_stats_init(), 0u);
        uint32_t *const before = root->counters[0];
        before[0] = 0xFFFFFFFF;
        ASSERT_EQ(inline_svc_stats_init(), 0u);
        EXPECT_NE(root->counters[0], before) << state;
        EXPECT_EQ(root->counters[0][0], 0u);
        EXPECT_EQ(root->stats_state, state) << "the host's to set";
    }
}

// ---- failures ----------------------------------------------------------------------------------

TEST_F(StatsInit, TheFirstFailedAllocationPrintsTheTextOfSuccessAndLaterOnesThatOf22)
{
    services.force("shmwin_malloc", 12);
    EXPECT_EQ(inline_svc_stats_init(), 22u);
    EXPECT_EQ(
        log(),
        (Log{"Total counters available for inline service on this LC65536",
             "counter_word_per_np 65568", "shared memory alloc failed c 65576",
             "counter alloc failed: chip:0,Success", "shared memory alloc failed c 65576",
             "counter alloc failed: chip:1,Invalid argument", "shared memory alloc failed c 65576",
             "counter alloc failed: chip:2,Invalid argument"}));
    for (uint32_t np = 0; np < 3; ++np)
        EXPECT_EQ(root->counters[np], nullptr);
}

TEST_F(StatsInit, AFailureOnOneNpIsReturnedAndTheOthersAreMade)
{
    for (uint32_t failing = 0; failing < 3; ++failing) {
        memset(root->counters, 0, sizeof root->counters);
        services.force("shmwin_malloc", 12, failing + 1, 1);
        forget();
        EXPECT_EQ(inline_svc_stats_init(), 22u);
        EXPECT_EQ(services.count("shmwin_malloc"), 3u);
        for (uint32_t np = 0; np < 3; ++np)
            EXPECT_EQ(root->counters[np] == nullptr, np == failing) << np;
        EXPECT_EQ(log_count("counter alloc failed: chip:" + std::to_string(failing) + ",Success"),
                  1u);
    }
}

TEST_F(StatsInit, AFailedAllocationForgetsTheBitmapThatWasThere)
{
    ASSERT_EQ(inline_svc_stats_init(), 0u);
    services.force("shmwin_malloc", 12, 2, 1);
    EXPECT_EQ(inline_svc_stats_init(), 22u);
    EXPECT_NE(root->counters[0], nullptr);
    EXPECT_EQ(root->counters[1], nullptr);
}

TEST_F(StatsInit, AStatisticsClientThatDoesNotPrepareChangesNothing)
{
    services.force("prm_stats_cl_pre_init", 5);
    EXPECT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_NE(root->counters[2], nullptr);
}

TEST_F(StatsInit, WithoutNpsTheResultIsSuccess)
{
    context.num_nps = 0;
    NUM_LC_NPS = 5;
    EXPECT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_EQ(NUM_LC_NPS, 0u);
    EXPECT_EQ(services.count("shmwin_malloc"), 0u);
    EXPECT_EQ(log(), (Log{"Total counters available for inline service on this LC65536",
                          "counter_word_per_np 65568"}));
}

TEST_F(StatsInit, EachNpPastTheEighthIsAFailureAndNothingIsWrittenPastTheArray)
{
    context.num_nps = 10;
    root->prm_srh_hdl = &context; // stands right behind the array
    EXPECT_EQ(inline_svc_stats_init(), 22u);
    EXPECT_EQ(services.count("shmwin_malloc"), 8u);
    EXPECT_EQ(log(), (Log{"Total counters available for inline service on this LC65536",
                          "counter_word_per_np 65568", "counter alloc failed: chip:8,Success",
                          "counter alloc failed: chip:9,Invalid argument"}));
    for (uint32_t np = 0; np < 8; ++np)
        EXPECT_NE(root->counters[np], nullptr);
    EXPECT_EQ(root->prm_srh_hdl, &context);
    EXPECT_EQ(NUM_LC_NPS, 10u);
}

TEST_F(StatsInit, WithoutAContextOrARootItIs12WithItsLine)
{
    NUM_LC_NPS = 7;
    context.shadow_db = nullptr;
    EXPECT_EQ(inline_svc_stats_init(), 12u);
    EXPECT_EQ(log(), (Log{"pgbl_ptr->shadow_db is NULL in inline_svc_stats_init"}));
    forget_log();
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_stats_init(), 12u);
    EXPECT_EQ(log(), (Log{"pgbl_ptr is NULL in inline_svc_stats_init"}));
    EXPECT_TRUE(services.calls().empty());
    EXPECT_EQ(NUM_LC_NPS, 7u);
}

TEST_F(StatsInit, TheBitmapsBelongToTheContextsRoot)
{
    shadow_db other = {};
    context.shadow_db = &other;
    EXPECT_EQ(inline_svc_stats_init(), 0u);
    EXPECT_NE(other.counters[0], nullptr);
    EXPECT_EQ(root->counters[0], nullptr);
    context.shadow_db = root;
}

} // namespace
} // namespace test
