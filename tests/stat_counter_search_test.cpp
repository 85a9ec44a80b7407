// The search for the lowest free counter, wherever in a region it lies and whatever size that has.

#include <algorithm>
#include <cstdint>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "inline_service_context.h"
#include "inline_service_stat.h"
#include "service_recorder.h"

namespace {

constexpr uint32_t start = 0xC00000;
constexpr uint32_t full = 0xFFFFFFFF;

class CounterSearches : public testing::Test {
protected:
    // A region of that many words, all taken. Its memory ends where the search may end, one word
    // behind the region, so that a sanitizer sees any look beyond.
    void make_region(uint32_t words)
    {
        bitmap_ = std::make_unique<uint32_t[]>(words + 1);
        std::fill_n(bitmap_.get(), words + 1, full);
        root_.counters[0] = bitmap_.get();
        services_.force("prm_stats_cl_get_stateless_double_size", uint64_t{words} * 32);
        services_.force("prm_stats_cl_get_stateless_double_start", start);
        context_.shadow_db = &root_;
        context_.num_nps = 1;
        pgbl_ptr = &context_;
        pshadow_db = &root_;
        NUM_LC_NPS = 1;
    }
    uint32_t *bitmap() { return bitmap_.get(); }
    test::ServiceRecorder &services() { return services_; }

    // What is given out, or 0 for none.
    static uint32_t allocated()
    {
        uint32_t counter = 0;
        return inline_svc_alloc_counter(&counter, 0, 0) == 0 ? counter : 0;
    }

private:
    test::ServiceRecorder services_;
    shadow_db root_{};
    inline_svc_global_cntx context_{};
    std::unique_ptr<uint32_t[]> bitmap_;
};

TEST_F(CounterSearches, FindTheOnlyFreeOneInEveryWordOfRegionsOfEverySize)
{
    for (const uint32_t words :
         {1u, 2u, 3u, 15u, 16u, 17u, 18u, 79u, 80u, 81u, 143u, 144u, 145u, 200u}) {
        make_region(words);
        for (uint32_t word = 0; word <= words; ++word) {
            for (const uint32_t place : {0u, 1u, 17u, 31u}) {
                bitmap()[word] &= ~(UINT32_C(0x80000000) >> place);
                ASSERT_EQ(allocated(), start + 32 * word + place) << "of " << words << " words";
                ASSERT_EQ(bitmap()[word], full) << "it is taken now";
            }
        }
        EXPECT_EQ(allocated(), 0u) << "all of " << words << " words are taken";
    }
}

TEST_F(CounterSearches, FindTheLowestOfSeveral)
{
    make_region(2048);
    const std::vector<uint32_t> free{40, 515, 516, 2600, 2601, 40000, 65535, 65536 + 31};
    for (const uint32_t place : free)
        bitmap()[place / 32] &= ~(UINT32_C(0x80000000) >> place % 32);
    for (const uint32_t place : free)
        EXPECT_EQ(allocated(), start + place);
    EXPECT_EQ(allocated(), 0u);
}

TEST_F(CounterSearches, BeginAtAnyAddressOfAWord)
{
    make_region(300);
    std::vector<uint32_t> memory(320, full);
    shadow_db root{};
    pgbl_ptr->shadow_db = &root;
    services().force("prm_stats_cl_get_stateless_double_size", 250 * 32);
    for (uint32_t shift = 0; shift < 16; ++shift) {
        root.counters[0] = memory.data() + shift;
        for (const uint32_t word : {0u, 16u, 79u, 80u, 211u, 250u}) {
            root.counters[0][word] = 0xFFFFFFFE;
            EXPECT_EQ(allocated(), start + 32 * word + 31) << "shifted by " << shift;
        }
    }
}

} // namespace
