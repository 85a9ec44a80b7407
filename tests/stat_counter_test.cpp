// Taking a counter of an NP and giving it back.

#include <cstring>

#include "card_fixture.h"

namespace test {
namespace {

using Names = std::vector<std::string>;
using Log = std::vector<std::string>;

constexpr uint32_t start = 0xC00000;
constexpr uint32_t size = 65536;

class StatCounters : public RunningCardTest {
protected:
    uint32_t take(uint32_t np = 0, uint32_t clear = 0)
    {
        uint32_t counter = 0xDEADBEEF;
        EXPECT_EQ(inline_svc_alloc_counter(&counter, np, clear), 0u);
        return counter;
    }
    // Takes until nothing is left, of a small region: how many there were. They come in ascending
    // order.
    uint32_t take_all(uint32_t from)
    {
        uint32_t taken = 0;
        uint32_t counter = 0;
        while (taken < 200 && inline_svc_alloc_counter(&counter, 0, 0) == 0) {
            if (counter != from + taken)
                ADD_FAILURE() << "counter " << counter << " came as number " << taken;
            ++taken;
        }
        return taken;
    }
    void use_region(uint32_t first, uint32_t count)
    {
        services.force("prm_stats_cl_get_stateless_double_start", first);
        services.force("prm_stats_cl_get_stateless_double_size", count);
    }
    void expect_refused(uint32_t rc, uint32_t expected, const Log &lines)
    {
        EXPECT_EQ(rc, expected);
        EXPECT_EQ(log(), lines);
        forget_log();
    }
};

// ---- which counter -----------------------------------------------------------------------------

TEST_F(StatCounters, CountersComeInAscendingOrderFromTheStartOfTheRegion)
{
    EXPECT_EQ(take(), start);
    EXPECT_EQ(take(), start + 1);
    for (uint32_t i = 2; i < 32; ++i)
        take();
    EXPECT_EQ(take(), start + 32);
}

TEST_F(StatCounters, TheMostSignificantBitIsAWordsLowestCounter)
{
    take();
    EXPECT_EQ(root->counters[0][0], 0x80000000u);
    take();
    EXPECT_EQ(root->counters[0][0], 0xC0000000u);
    root->counters[0][0] = 0xFFFFFFFE;
    EXPECT_EQ(take(), start + 31);
    EXPECT_EQ(root->counters[0][0], 0xFFFFFFFFu);
    take();
    EXPECT_EQ(root->counters[0][1], 0x80000000u);
}

TEST_F(StatCounters, TheLowestFreeCounterComesFirst)
{
    for (uint32_t i = 0; i < 10; ++i)
        take();
    ASSERT_EQ(inline_svc_free_counter(start + 8, 0), 0u);
    ASSERT_EQ(inline_svc_free_counter(start + 5, 0), 0u);
    EXPECT_EQ(take(), start + 5);
    EXPECT_EQ(take(), start + 8);
    EXPECT_EQ(take(), start + 10);
}

TEST_F(StatCounters, FullWordsArePassedOver)
{
    memset(root->counters[0], 0xFF, 100 * 4);
    EXPECT_EQ(take(), start + 3200);
}

TEST_F(StatCounters, EachNpHasCountersOfItsOwn)
{
    EXPECT_EQ(take(0), start);
    EXPECT_EQ(take(0), start + 1);
    EXPECT_EQ(take(1), start);
    EXPECT_EQ(root->counters[0][0], 0xC0000000u);
    EXPECT_EQ(root->counters[1][0], 0x80000000u);
}

TEST_F(StatCounters, TheRegionIsAskedForEachTime)
{
    take();
    use_region(500, 64);
    EXPECT_EQ(take(), 501u);
    EXPECT_EQ(inline_svc_free_counter(501, 0), 0u);
    services.stop_forcing();
    EXPECT_EQ(take(), start + 1);
}

// ---- small regions -----------------------------------------------------------------------------

struct SmallRegion {
    uint32_t size;
    uint32_t can_be_taken; // whole words, one of them beyond the region's last full one
};

void PrintTo(const SmallRegion &region, std::ostream *out)
{
    *out << region.size << " counters";
}

class StatCountersOfSmallRegion : public StatCounters,
                                  public ::testing::WithParamInterface<SmallRegion> {
protected:
    StatCountersOfSmallRegion() { use_region(1000, GetParam().size); }
};

INSTANTIATE_TEST_SUITE_P(Sizes, StatCountersOfSmallRegion,
                         ::testing::Values(SmallRegion{0, 32}, SmallRegion{1, 32},
                                           SmallRegion{31, 32}, SmallRegion{32, 64},
                                           SmallRegion{33, 64}, SmallRegion{64, 96}));

TEST_P(StatCountersOfSmallRegion, TheSearchCoversOneWordMoreThanTheFullOnes)
{
    EXPECT_EQ(take_all(1000), GetParam().can_be_taken);
    EXPECT_EQ(root->counters[0][GetParam().can_be_taken / 32], 0u);
}

TEST_P(StatCountersOfSmallRegion, AFullRegionIs12WithItsLines)
{
    take_all(1000);
    forget_log();
    uint32_t counter = 7;
    char size_line[40];
    snprintf(size_line, sizeof size_line, "max_long_counter %x", GetParam().size);
    expect_refused(inline_svc_alloc_counter(&counter, 0, 0), 12,
                   {size_line, "counter_start 3e8", "No free long counters available"});
    EXPECT_EQ(counter, 7u);
}

TEST_P(StatCountersOfSmallRegion, BothEndsOfTheRegionCanBeFreedAndNothingBeyond)
{
    memset(root->counters[0], 0xFF, 16);
    const uint32_t end = 1000 + GetParam().size;
    EXPECT_EQ(inline_svc_free_counter(1000, 0), 0u);
    EXPECT_EQ(inline_svc_free_counter(end, 0), 0u);
    EXPECT_TRUE(log().empty());
    const std::string region = ", start:1000, max:" + std::to_string(end);
    expect_refused(inline_svc_free_counter(999, 0), 22, {" stats ptr 999 out of bounds" + region});
    expect_refused(inline_svc_free_counter(end + 1, 0), 22,
                   {" stats ptr " + std::to_string(end + 1) + " out of bounds" + region});
    EXPECT_EQ(root->counters[0][GetParam().size / 32] & (0x80000000u >> GetParam().size % 32), 0u);
}

TEST_P(StatCountersOfSmallRegion, FreedEndsAreTakenAgainLowestFirst)
{
    take_all(1000);
    const uint32_t end = 1000 + GetParam().size;
    ASSERT_EQ(inline_svc_free_counter(end, 0), 0u);
    ASSERT_EQ(inline_svc_free_counter(1000, 0), 0u);
    EXPECT_EQ(take(), 1000u);
    if (end != 1000) {
        EXPECT_EQ(take(), end);
    }
}

// ---- what is said and asked --------------------------------------------------------------------

TEST_F(StatCounters, AnAllocationSaysItsStepsInOrder)
{
    memset(root->counters[0], 0xFF, 0x2A * 4);
    EXPECT_EQ(take(), start + 0x2A * 32);
    EXPECT_EQ(log(), (Log{"max_long_counter 10000", "counter_start c00000",
                          "Found free counter at word 2a", "Found free counter at word 2a"}));
    EXPECT_EQ(services.names(), (Names{"prm_stats_cl_get_stateless_double_size",
                                       "prm_stats_cl_get_stateless_double_start"}));
}

TEST_F(StatCounters, ASuccessfulFreeAsksForTheRegionAndSaysNothing)
{
    take();
    services.forget();
    forget_log();
    EXPECT_EQ(inline_svc_free_counter(start, 0), 0u);
    EXPECT_TRUE(log().empty());
    EXPECT_EQ(services.names(), (Names{"prm_stats_cl_get_stateless_double_size",
                                       "prm_stats_cl_get_stateless_double_start"}));
}

// ---- clearing ----------------------------------------------------------------------------------

TEST_F(StatCounters, AClearReadsTheCounterOnceWithExactlyTheseArguments)
{
    uint32_t mode = 0;
    services.script("prm_stats_cl_read", [&](const vlc::ServiceCall &call) {
        mode = *reinterpret_cast<const uint32_t *>(call.args[3]);
        return std::nullopt;
    });
    take(1);
    EXPECT_EQ(take(1, 1), start + 1);
    ASSERT_EQ(services.count("prm_stats_cl_read"), 1u);
    const RecordedCall read = services.calls_of("prm_stats_cl_read").at(0);
    ASSERT_EQ(read.args.size(), 7u);
    EXPECT_EQ(read.args[0], reinterpret_cast<uintptr_t>(context.prm_conn));
    EXPECT_EQ(read.args[1], start + 1);
    EXPECT_EQ(read.args[2], 1u);
    EXPECT_EQ(mode, 2u);
    EXPECT_EQ(read.args[4], 0u);
    EXPECT_EQ(read.args[5], 0u);
    EXPECT_EQ(read.args[6], 2u);
}

TEST_F(StatCounters, AnyNonZeroClearStartsTheCounterFromZero)
{
    for (const uint32_t clear : {1u, 2u, 0xFFFFFFFFu}) {
        vlc::CounterBank &counters = card->nps()[0].counters();
        counters.add(0, 100);
        ASSERT_EQ(take(0, clear), start);
        EXPECT_EQ(counters.read(0).packets, 0u);
        EXPECT_EQ(counters.read(0).bytes, 0u);
        ASSERT_EQ(inline_svc_free_counter(start, 0), 0u);
    }
}

TEST_F(StatCounters, WithoutClearTheCounterKeepsWhatItCounted)
{
    card->nps()[0].counters().add(0, 100);
    ASSERT_EQ(take(0, 0), start);
    EXPECT_EQ(card->nps()[0].counters().read(0).packets, 1u);
    EXPECT_EQ(services.count("prm_stats_cl_read"), 0u);
}

TEST_F(StatCounters, ACounterThatCannotBeClearedIsStillTheCallers)
{
    services.force("prm_stats_cl_read", 5);
    EXPECT_EQ(take(0, 1), start);
    EXPECT_EQ(root->counters[0][0], 0x80000000u);
    EXPECT_EQ(log(),
              (Log{"max_long_counter 10000", "counter_start c00000", "Found free counter at word 0",
                   "Found free counter at word 0", "prm stats write failed (Input/output error)"}));
}

TEST_F(StatCounters, ACounterBeyondTheRegionsEndIsUnknownToTheCardAndStillTaken)
{
    memset(root->counters[0], 0xFF, size / 8);
    EXPECT_EQ(take(0, 1), start + size);
    EXPECT_EQ(log_count("prm stats write failed (PRM: no such counter)"), 1u);
}

// ---- freeing -----------------------------------------------------------------------------------

TEST_F(StatCounters, AFreeClearsItsOwnBitAlone)
{
    memset(root->counters[0], 0xFF, 16);
    memset(root->counters[1], 0xFF, 16);
    ASSERT_EQ(inline_svc_free_counter(start + 37, 0), 0u);
    EXPECT_EQ(root->counters[0][0], 0xFFFFFFFFu);
    EXPECT_EQ(root->counters[0][1], 0xFBFFFFFFu);
    EXPECT_EQ(root->counters[0][2], 0xFFFFFFFFu);
    EXPECT_EQ(root->counters[1][1], 0xFFFFFFFFu);
}

TEST_F(StatCounters, ACounterThatIsFreeAlreadyIsAccepted)
{
    EXPECT_EQ(inline_svc_free_counter(start + 5, 0), 0u);
    EXPECT_EQ(inline_svc_free_counter(start + 5, 0), 0u);
    EXPECT_EQ(root->counters[0][0], 0u);
    EXPECT_TRUE(log().empty());
}

TEST_F(StatCounters, TheRegionsEndIsInsideIt)
{
    EXPECT_EQ(inline_svc_free_counter(start + size, 0), 0u);
    EXPECT_TRUE(log().empty());
}

TEST_F(StatCounters, NumbersOutsideTheRegionAre22WithTheRegionInTheLine)
{
    expect_refused(inline_svc_free_counter(start + size + 1, 0), 22,
                   {" stats ptr 12648449 out of bounds, start:12582912, max:12648448"});
    expect_refused(inline_svc_free_counter(start - 1, 0), 22,
                   {" stats ptr 12582911 out of bounds, start:12582912, max:12648448"});
    expect_refused(inline_svc_free_counter(0, 0), 22,
                   {" stats ptr 0 out of bounds, start:12582912, max:12648448"});
    expect_refused(inline_svc_free_counter(0xFFFFFFFF, 0), 22,
                   {" stats ptr -1 out of bounds, start:12582912, max:12648448"});
}

// ---- bad NPs -----------------------------------------------------------------------------------

TEST_F(StatCounters, AnNpThatTheCardDoesNotHaveIs22InBothOperations)
{
    uint32_t counter = 7;
    for (const uint32_t np : {2u, 3u, 8u, 0xFFFFFFFFu}) {
        services.forget();
        expect_refused(inline_svc_alloc_counter(&counter, np, 1), 22, {"NP id out of bounds"});
        expect_refused(inline_svc_free_counter(start, np), 22, {"NP id out of bounds"});
        EXPECT_TRUE(services.calls().empty());
    }
    EXPECT_EQ(counter, 7u);
}

TEST_F(StatCounters, AnNpPastTheEighthIs22AlsoOnACardThatHasIt)
{
    context.num_nps = 10;
    NUM_LC_NPS = 10;
    uint32_t counter = 7;
    for (const uint32_t np : {8u, 9u}) {
        expect_refused(inline_svc_alloc_counter(&counter, np, 1), 22, {"NP id out of bounds"});
        expect_refused(inline_svc_free_counter(start, np), 22, {"NP id out of bounds"});
    }
}

TEST_F(StatCounters, TakingGoesByTheContextsNumberOfNpsAndFreeingByTheLibrarysCopy)
{
    uint32_t counter = 7;
    NUM_LC_NPS = 1;
    EXPECT_EQ(inline_svc_alloc_counter(&counter, 1, 0), 0u);
    EXPECT_EQ(inline_svc_free_counter(counter, 1), 22u);
    NUM_LC_NPS = 2;
    context.num_nps = 1;
    EXPECT_EQ(inline_svc_alloc_counter(&counter, 1, 0), 22u);
    EXPECT_EQ(inline_svc_free_counter(counter, 1), 0u);
}

TEST_F(StatCounters, WithoutNpsEveryNumberIsBad)
{
    NUM_LC_NPS = 0;
    context.num_nps = 0;
    uint32_t counter = 7;
    expect_refused(inline_svc_alloc_counter(&counter, 0, 1), 22, {"NP id out of bounds"});
    expect_refused(inline_svc_free_counter(start, 0), 22, {"NP id out of bounds"});
}

// ---- missing context, root, bitmap -------------------------------------------------------------

TEST_F(StatCounters, TakingWithoutAContextIs12WithTwoLines)
{
    pgbl_ptr = nullptr;
    uint32_t counter = 7;
    for (const uint32_t np : {0u, 99u})
        expect_refused(inline_svc_alloc_counter(&counter, np, 1), 12,
                       {"Global pgbl_ptr is not initialized", "Shared memory context NULL"});
    EXPECT_EQ(counter, 7u);
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(StatCounters, TakingWithoutARootOrABitmapIs12)
{
    uint32_t counter = 7;
    context.shadow_db = nullptr;
    expect_refused(inline_svc_alloc_counter(&counter, 0, 1), 12, {"Shared memory context NULL"});
    expect_refused(inline_svc_alloc_counter(&counter, 2, 1), 22, {"NP id out of bounds"});
    context.shadow_db = root;
    root->counters[0] = nullptr;
    expect_refused(inline_svc_alloc_counter(&counter, 0, 1), 12, {"Shared memory context NULL"});
    EXPECT_EQ(counter, 7u);
    EXPECT_TRUE(services.calls().empty());
    EXPECT_EQ(take(1), start);
}

TEST_F(StatCounters, FreeingWithoutARootOrABitmapIs22)
{
    root->counters[1] = nullptr;
    expect_refused(inline_svc_free_counter(start, 1), 22, {"Shared memory context NULL"});
    pshadow_db = nullptr;
    expect_refused(inline_svc_free_counter(start, 0), 22, {"Shared memory context NULL"});
    expect_refused(inline_svc_free_counter(start, 2), 22, {"NP id out of bounds"});
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(StatCounters, FreeingNeedsNoContext)
{
    take();
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_free_counter(start, 0), 0u);
    EXPECT_EQ(root->counters[0][0], 0u);
}

TEST_F(StatCounters, ANullOutputIs22AndTakesNothing)
{
    expect_refused(inline_svc_alloc_counter(nullptr, 0, 1), 22,
                   {"counter is NULL in inline_svc_alloc_counter"});
    EXPECT_EQ(root->counters[0][0], 0u);
}

// ---- a restarted host --------------------------------------------------------------------------

TEST_F(StatCounters, CountersInUseStayReservedOverANewRegistration)
{
    EXPECT_EQ(take(), start);
    EXPECT_EQ(take(), start + 1);
    card->prm().restart(true);
    run_events();
    EXPECT_EQ(take(), start + 2);
}

} // namespace
} // namespace test
