// All counters of an NP taken, one after the other. What that logs goes past the size at which the
// log file begins again.

#include "card_fixture.h"

namespace test {
namespace {

constexpr uint32_t start = 0xC00000;
constexpr uint32_t size = 65536;

using FullCounterRegion = RunningCardTest;

TEST_F(FullCounterRegion, ThirtyTwoMoreThanTheRegionCanBeTakenAndThenNoneIsLeft)
{
    uint32_t counter = 0;
    for (uint32_t taken = 0; taken < size + 32; ++taken) {
        ASSERT_EQ(inline_svc_alloc_counter(&counter, 0, 0), 0u);
        ASSERT_EQ(counter, start + taken);
    }
    EXPECT_EQ(inline_svc_alloc_counter(&counter, 0, 0), 12u);
    EXPECT_EQ(log().back(), "No free long counters available");

    ASSERT_EQ(inline_svc_free_counter(start + 60000, 0), 0u);
    ASSERT_EQ(inline_svc_free_counter(start + 777, 0), 0u);
    ASSERT_EQ(inline_svc_alloc_counter(&counter, 0, 0), 0u);
    EXPECT_EQ(counter, start + 777);
    ASSERT_EQ(inline_svc_alloc_counter(&counter, 0, 0), 0u);
    EXPECT_EQ(counter, start + 60000);
    EXPECT_EQ(inline_svc_alloc_counter(&counter, 0, 1), 12u);
    EXPECT_EQ(counter, start + 60000) << "untouched";
}

} // namespace
} // namespace test
