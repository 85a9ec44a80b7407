// The prints of commands, which have no effect that can be seen, and read no byte too many.
#include "cmdlist_fixture.h"
#include "unreadable_end.h"

using namespace test;

namespace {

class CommandPrint : public CommandListTest {
protected:
    // Runs `print` and expects nothing on any channel.
    template <typename Print>
    void expect_silence(Print print)
    {
        forget_history();
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        print();
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
        EXPECT_EQ(log(), Lines{});
        EXPECT_EQ(services.names(), Lines{});
    }
};

TEST_F(CommandPrint, ACommandIsPrintedNowhere)
{
    const app_node command = make_node(7, 0, "some key", "some result", SHADOW_DB_CREATE);
    expect_silence([&] { plm_inline_print_cmd(&command); });
    expect_silence([] { plm_inline_print_cmd(nullptr); });
}

TEST_F(CommandPrint, ACommandWithLengthsOutOfRangeIsReadOnlyInsideItself)
{
    const UnreadableEnd place(sizeof(app_node));
    auto *command = static_cast<app_node *>(static_cast<void *>(place.last(sizeof(app_node))));
    for (const uint32_t length : {0u, 64u, 65u, 127u, 128u, 0xFFFFFFFFu}) {
        command->key_len = command->result_len = length;
        expect_silence([&] { plm_inline_print_cmd(command); });
    }
}

TEST_F(CommandPrint, NineBytesOfAKeyAreReadWhateverItsLength)
{
    const UnreadableEnd key_bytes_page(9);
    const uint8_t *key_bytes = key_bytes_page.last(9);
    const UnreadableEnd result_page(10);
    const uint8_t *result = result_page.last(10);
    for (const uint32_t key_len : {0u, 9u, 10u, 0xFFFFFFFFu})
        expect_silence([&] { print_key_and_result(key_bytes, key_len, result, 10); });
}

TEST_F(CommandPrint, OfALongResultNoMoreIsReadThanTheTextHolds)
{
    const UnreadableEnd key_bytes_page(9);
    const uint8_t *key_bytes = key_bytes_page.last(9);
    const UnreadableEnd result_page(127);
    const uint8_t *result = result_page.last(127);
    for (const uint32_t length : {127u, 128u, 256u, 0xFFFFFFFFu})
        expect_silence([&] { print_key_and_result(key_bytes, 9, result, length); });
}

TEST_F(CommandPrint, NullBytesAreNothing)
{
    const UnreadableEnd bytes_page(9);
    const uint8_t *bytes = bytes_page.last(9);
    expect_silence([&] { print_key_and_result(nullptr, 9, bytes, 9); });
    expect_silence([&] { print_key_and_result(bytes, 9, nullptr, 9); });
}

} // namespace
