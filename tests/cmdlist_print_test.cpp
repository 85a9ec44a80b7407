// The prints of commands, which have no effect that can be seen, and read no byte too many.
#include <sys/mman.h>
#include <unistd.h>

#include "cmdlist_fixture.h"

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

// Bytes whose end is the end of what can be read.
class LastBytes {
public:
    explicit LastBytes(size_t length) : length_(length), page_(static_cast<size_t>(getpagesize()))
    {
        pages_ = static_cast<uint8_t *>(
            mmap(nullptr, 2 * page_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        memset(pages_, 0xAB, page_);
        mprotect(pages_ + page_, page_, PROT_NONE);
    }
    ~LastBytes() { munmap(pages_, 2 * page_); }
    LastBytes(const LastBytes &) = delete;
    LastBytes &operator=(const LastBytes &) = delete;

    uint8_t *get() const { return pages_ + page_ - length_; }

private:
    size_t length_;
    size_t page_;
    uint8_t *pages_;
};

TEST_F(CommandPrint, ACommandIsPrintedNowhere)
{
    const app_node command = make_node(7, 0, "some key", "some result", SHADOW_DB_CREATE);
    expect_silence([&] { plm_inline_print_cmd(&command); });
    expect_silence([] { plm_inline_print_cmd(nullptr); });
}

TEST_F(CommandPrint, ACommandWithLengthsOutOfRangeIsReadOnlyInsideItself)
{
    const LastBytes place(sizeof(app_node));
    auto *command = static_cast<app_node *>(static_cast<void *>(place.get()));
    for (const uint32_t length : {0u, 64u, 65u, 127u, 128u, 0xFFFFFFFFu}) {
        command->key_len = command->result_len = length;
        expect_silence([&] { plm_inline_print_cmd(command); });
    }
}

TEST_F(CommandPrint, NineBytesOfAKeyAreReadWhateverItsLength)
{
    const LastBytes key_bytes(9);
    const LastBytes result(10);
    for (const uint32_t key_len : {0u, 9u, 10u, 0xFFFFFFFFu})
        expect_silence([&] { print_key_and_result(key_bytes.get(), key_len, result.get(), 10); });
}

TEST_F(CommandPrint, OfALongResultNoMoreIsReadThanTheTextHolds)
{
    const LastBytes key_bytes(9);
    const LastBytes result(127);
    for (const uint32_t length : {127u, 128u, 256u, 0xFFFFFFFFu})
        expect_silence([&] { print_key_and_result(key_bytes.get(), 9, result.get(), length); });
}

TEST_F(CommandPrint, NullBytesAreNothing)
{
    const LastBytes bytes(9);
    expect_silence([&] { print_key_and_result(nullptr, 9, bytes.get(), 9); });
    expect_silence([&] { print_key_and_result(bytes.get(), 9, nullptr, 9); });
}

} // namespace
