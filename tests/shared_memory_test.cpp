// Blocks of the shared-memory window, as the library hands them out.

#include <cstring>
#include <string>
#include <vector>

#include "card_fixture.h"

namespace {

using test::RecordedCall;

class SharedMemory : public test::CardTest {
protected:
    SharedMemory()
    {
        attach_context();
        set_context();
        services.forget();
        forget_log();
    }

    static uint64_t word(const void *address) { return reinterpret_cast<uint64_t>(address); }

    // The window hands out this block, whatever it held.
    void hand_out(std::vector<uint8_t> &block)
    {
        services.script("shmwin_malloc", [&block](const vlc::ServiceCall &call) {
            void *address = block.data();
            memcpy(reinterpret_cast<void *>(call.args[2]), &address, sizeof address);
            return std::optional<uint64_t>(0);
        });
    }
};

TEST_F(SharedMemory, AllocationAsksForTheSizeInTheContextsWindow)
{
    EXPECT_NE(inline_svc_shared_mem_alloc(248), nullptr);
    ASSERT_EQ(services.names(), std::vector<std::string>{"shmwin_malloc"});
    EXPECT_EQ(services.calls()[0].args[0], card->window_id());
    EXPECT_EQ(services.calls()[0].args[1], 248u);
    EXPECT_TRUE(log().empty());
}

TEST_F(SharedMemory, AllocationUsesTheWindowThatTheContextNamesNow)
{
    context.shmwin_id = 0x87654321;
    inline_svc_shared_mem_alloc(8);
    EXPECT_EQ(services.calls_of("shmwin_malloc").at(0).args[0], 0x87654321u);
}

TEST_F(SharedMemory, ABlockThatWasUsedBeforeComesBackZeroed)
{
    void *first = inline_svc_shared_mem_alloc(576);
    memset(first, 0xA5, 576);
    ASSERT_EQ(inline_svc_shared_mem_free(first), 0u);
    const auto *again = static_cast<uint8_t *>(inline_svc_shared_mem_alloc(576));
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(std::vector<uint8_t>(again, again + 576), std::vector<uint8_t>(576, 0));
}

TEST_F(SharedMemory, AllocationZeroesTheFullSizeAndNothingBehindIt)
{
    std::vector<uint8_t> block(300, 0xFF);
    hand_out(block);
    EXPECT_EQ(inline_svc_shared_mem_alloc(299), block.data());
    EXPECT_EQ(block, [] {
        std::vector<uint8_t> expected(300, 0);
        expected.back() = 0xFF;
        return expected;
    }());
}

TEST_F(SharedMemory, AFailedAllocationIsNullAndOneLineWithTheCodeInHexAndTheSizeInDecimal)
{
    services.force("shmwin_malloc", 0xABCD12);
    EXPECT_EQ(inline_svc_shared_mem_alloc(5120), nullptr);
    EXPECT_EQ(log(), std::vector<std::string>{"shared memory alloc failed abcd12 5120"});
}

TEST_F(SharedMemory, ANegativeSizeIsPassedOnAndLoggedWithItsSign)
{
    EXPECT_EQ(inline_svc_shared_mem_alloc(-7), nullptr);
    ASSERT_EQ(services.count("shmwin_malloc"), 1u);
    EXPECT_EQ(services.calls()[0].args[1], static_cast<uint64_t>(INT64_C(-7)));
    EXPECT_EQ(log(), std::vector<std::string>{"shared memory alloc failed 16 -7"});
}

TEST_F(SharedMemory, ASizeOfZeroIsTheWindowsToRefuse)
{
    EXPECT_EQ(inline_svc_shared_mem_alloc(0), nullptr);
    EXPECT_EQ(log(), std::vector<std::string>{"shared memory alloc failed 16 0"});
}

TEST_F(SharedMemory, AWindowThatIsFullIsAFailedAllocation)
{
    EXPECT_EQ(inline_svc_shared_mem_alloc(0x7FFFFFFF), nullptr);
    EXPECT_EQ(log(), std::vector<std::string>{"shared memory alloc failed c 2147483647"});
}

TEST_F(SharedMemory, AFailedAllocationStoresNothingOverTheBlockThatWasNamed)
{
    std::vector<uint8_t> block(64, 0xFF);
    services.script("shmwin_malloc", [&block](const vlc::ServiceCall &call) {
        void *address = block.data();
        memcpy(reinterpret_cast<void *>(call.args[2]), &address, sizeof address);
        return std::optional<uint64_t>(12);
    });
    EXPECT_EQ(inline_svc_shared_mem_alloc(64), nullptr);
    EXPECT_EQ(block, std::vector<uint8_t>(64, 0xFF));
}

TEST_F(SharedMemory, AllocationWithoutAContextAsksNobodyAndLogsOneLine)
{
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_shared_mem_alloc(100), nullptr);
    EXPECT_TRUE(services.calls().empty());
    EXPECT_EQ(log(), std::vector<std::string>{"shared memory alloc failed c 100"});
}

TEST_F(SharedMemory, FreeingPassesTheBlockOnAndLogsNothing)
{
    void *block = inline_svc_shared_mem_alloc(64);
    services.forget();
    EXPECT_EQ(inline_svc_shared_mem_free(block), 0u);
    ASSERT_EQ(services.names(), std::vector<std::string>{"shmwin_free"});
    EXPECT_EQ(services.calls()[0].args, std::vector<uint64_t>{word(block)});
    EXPECT_TRUE(log().empty());
}

TEST_F(SharedMemory, FreeingGivesTheWindowsCodeAndLogsNothing)
{
    services.force("shmwin_free", 0x90000007);
    EXPECT_EQ(inline_svc_shared_mem_free(&context), 0x90000007u);
    EXPECT_TRUE(log().empty());
}

TEST_F(SharedMemory, FreeingNullIsTheWindowsToRefuse)
{
    EXPECT_EQ(inline_svc_shared_mem_free(nullptr), 22u);
    EXPECT_EQ(services.calls_of("shmwin_free").at(0).args, std::vector<uint64_t>{0});
    EXPECT_TRUE(log().empty());
}

TEST_F(SharedMemory, FreeingNeedsNoContext)
{
    void *block = inline_svc_shared_mem_alloc(64);
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_shared_mem_free(block), 0u);
}

TEST_F(SharedMemory, ResetLogsItsLineAndThenResetsTheContextsWindow)
{
    size_t lines_before_the_reset = 0;
    services.script("shmwin_reset", [&](const vlc::ServiceCall &) {
        lines_before_the_reset = log_count("shared memory reset");
        return std::nullopt;
    });
    inline_svc_shared_mem_alloc(64);
    services.forget();
    EXPECT_EQ(inline_svc_shared_mem_reset(), 0u);
    ASSERT_EQ(services.names(), std::vector<std::string>{"shmwin_reset"});
    EXPECT_EQ(services.calls()[0].args, std::vector<uint64_t>{card->window_id()});
    EXPECT_EQ(lines_before_the_reset, 1u);
    EXPECT_EQ(log(), std::vector<std::string>{"shared memory reset"});
}

TEST_F(SharedMemory, ResetGivesTheWindowsCode)
{
    services.force("shmwin_reset", 0x80001234);
    EXPECT_EQ(inline_svc_shared_mem_reset(), 0x80001234u);
    EXPECT_EQ(log(), std::vector<std::string>{"shared memory reset"});
}

TEST_F(SharedMemory, ResetWithoutAContextIsNoMemoryAfterItsLine)
{
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_shared_mem_reset(), 12u);
    EXPECT_TRUE(services.calls().empty());
    EXPECT_EQ(log(), (std::vector<std::string>{"shared memory reset",
                                               "pgbl_ptr is NULL in inline_svc_shared_mem_reset"}));
}

} // namespace
