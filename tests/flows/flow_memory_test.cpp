// As many flows as a card may have: the window holds what was computed on paper, and nothing when
// they are gone.
#include <chrono>
#include <cstdio>

#include <gtest/gtest.h>

#include "flow_host.h"

using namespace test;

namespace {

constexpr uint64_t flows = FLOWS;
constexpr uint32_t buckets = 1 << 20;
constexpr uint64_t most_bytes = uint64_t{400} << 20;

// A block of the window has a word in front, and both together are a multiple of 16.
constexpr uint64_t block_bytes(uint64_t size)
{
    return (size + 8 + 15) / 16 * 16;
}

class ManyFlows : public testing::Test {
protected:
    ManyFlows() : host(1, buckets, most_bytes), begun_(std::chrono::steady_clock::now())
    {
        host.keep_book(false);
    }
    static uint64_t key(uint64_t number) { return number * 0x9E3779B97F4A7C15; }
    void say(const char *done)
    {
        const auto now = std::chrono::steady_clock::now();
        const std::chrono::duration<double, std::micro> took = now - begun_;
        printf("%lu %s, %.2f microseconds each\n", flows, done, took.count() / flows);
        begun_ = std::chrono::steady_clock::now();
    }

    FlowHost host;
    FlowInfo info = {"key", "result", "user data", 1};

private:
    std::chrono::steady_clock::time_point begun_;
};

TEST_F(ManyFlows, TakeTheWindowsBytesThatWereComputedOnPaperAndLeaveNone)
{
    const vlc::Window::Usage before = host.usage();
    EXPECT_EQ(before.bytes_in_use,
              block_bytes(sizeof(shadow_db)) + block_bytes(56 + 8 * uint64_t{buckets}));
    for (uint64_t number = 0; number < flows; ++number)
        ASSERT_EQ(dpss_flow_add_modify(key(number), FLOW_ALL_NPS, 1, &info), 0u) << number;
    say("added");
    EXPECT_EQ(host.usage().blocks_in_use, before.blocks_in_use + flows);
    EXPECT_EQ(host.usage().bytes_in_use, before.bytes_in_use + flows * block_bytes(304));
    EXPECT_EQ(block_bytes(304), 320u);
    EXPECT_EQ(host.table()->count, flows);
    EXPECT_EQ(host.hardware().runs(0), flows);

    char out[FLOW_USER_DATA_BYTES];
    for (uint64_t number = 0; number < flows; ++number)
        ASSERT_EQ(dpss_flow_lookup(key(number), out), 0u) << number;
    say("looked up");
    const uint64_t seen = host.records_seen();
    for (int call = 0; call < 15; ++call)
        in_hash_periodic_walker(host.table());
    EXPECT_GE(host.records_seen() - seen, flows) << "in one period";
    say("walked");

    for (uint64_t number = 0; number < flows; ++number)
        ASSERT_EQ(dpss_flow_delete(key(number)), 0u) << number;
    say("deleted");
    EXPECT_EQ(host.usage().blocks_in_use, before.blocks_in_use);
    EXPECT_EQ(host.usage().bytes_in_use, before.bytes_in_use);
    EXPECT_EQ(host.table()->count, 0u);
    EXPECT_EQ(host.hardware().runs(0), 0u);
}

} // namespace
