// The front end without memory: this program's malloc and free stand before libc's and refuse when
// a case says so.
#include <cstddef>
#include <cstdlib>

#include "replaced_malloc.h"
#include "shadow_fixture.h"

namespace {

size_t refused_size = 0; // requests of this size are refused
size_t watched_size = 0; // the first block of this size is remembered
void *watched_block = nullptr;
int watched_frees = 0;

} // namespace

extern "C" void *malloc(size_t size) noexcept
{
    if (size != 0 && size == refused_size)
        return nullptr;
    void *block = REAL(malloc)(size);
    if (size != 0 && size == watched_size && watched_block == nullptr)
        watched_block = block;
    return block;
}

extern "C" void free(void *block) noexcept
{
    if (block != nullptr && block == watched_block)
        ++watched_frees;
    REAL(free)(block);
}

using namespace test;

namespace {

constexpr size_t element_bytes = 176;
constexpr size_t batch_bytes = 296;

class WithoutMemory : public ShadowDbTest {
protected:
    WithoutMemory() { forget_history(); }
    ~WithoutMemory() override
    {
        refused_size = 0;
        watched_size = 0;
    }
    // Runs `act` while requests of a size are refused, and nothing else of the test is.
    template <typename Act>
    static auto refusing(size_t size, Act act)
    {
        refused_size = size;
        const auto result = act();
        refused_size = 0;
        return result;
    }
};

TEST_F(WithoutMemory, ANodeThatCannotBeCopiedIs12WithItsLineAndTheListAsItWas)
{
    list_record list = {};
    const uint32_t rc =
        refusing(element_bytes, [&list] { return inline_svc_app_node_insert(&list, {}); });
    EXPECT_EQ(rc, 12u);
    EXPECT_EQ(log(), Lines{" malloc failed"});
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(list.first, nullptr);
}

TEST_F(WithoutMemory, ACopyIsOf176Bytes)
{
    list_record list = {};
    watched_size = element_bytes;
    watched_block = nullptr;
    EXPECT_EQ(inline_svc_app_node_insert(&list, {}), 0u);
    EXPECT_EQ(list.first->data, watched_block);
    free(list_dequeue_default(&list));
}

TEST_F(WithoutMemory, ACopyWhoseEnqueueFailsIsFreed)
{
    list_record list = {};
    services.force("list_enqueue_default", 0);
    watched_size = element_bytes;
    watched_block = nullptr;
    watched_frees = 0;
    EXPECT_EQ(inline_svc_app_node_insert(&list, {}), 12u);
    watched_size = 0;
    EXPECT_NE(watched_block, nullptr);
    EXPECT_EQ(watched_frees, 1);
}

TEST_F(WithoutMemory, AHandlerThatCannotMakeABatchIs12WithANullResult)
{
    app_handler_result result = {reinterpret_cast<action_array *>(0x10)};
    const uint32_t rc =
        refusing(batch_bytes, [&result] { return inline_svc_app_handler(0, &result); });
    EXPECT_EQ(rc, 12u);
    EXPECT_EQ(result.batch, nullptr);
    EXPECT_EQ(log(), Lines{" app handler \n"});
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(WithoutMemory, ABatchWhoseListCannotBeMadeIsFreedAndStillNamed)
{
    app_handler_result result = {};
    services.force("list_create", 0);
    watched_size = batch_bytes;
    watched_block = nullptr;
    watched_frees = 0;
    EXPECT_EQ(inline_svc_app_handler(0, &result), 12u);
    watched_size = 0;
    EXPECT_EQ(result.batch, watched_block);
    EXPECT_EQ(watched_frees, 1);
}

TEST_F(WithoutMemory, SamplesThatCannotBeCopiedAreLeftOutButStayCounted)
{
    app_handler_result result = {};
    const uint32_t rc =
        refusing(element_bytes, [&result] { return inline_svc_app_handler(0, &result); });
    EXPECT_EQ(rc, 0u);
    EXPECT_EQ(result.batch->num_node, 4u);
    EXPECT_EQ(result.batch->node_list.first, nullptr);
    EXPECT_EQ(log_count(" malloc failed"), 4u);
    free(result.batch);
}

} // namespace
