// A file system that runs full is a line for a person or a refused request, never a dead process.
#include "np_test_card.h"
#include "small_disk.h"
#include "vlc/prm_store.h"
#include "vlc/window.h"

namespace vlc::test {

namespace {

class FullDisks : public testing::Test {
protected:
    void SetUp() override
    {
        if (!disk.is_mounted()) {
            GTEST_SKIP() << "no mount namespace may be made here";
        }
    }

    SmallDisk disk{"900k"};
};

} // namespace

TEST_F(FullDisks, AWindowWithoutRoomIsRefusedWithNothingLeftBehind)
{
    const StateDirectory directory(disk.file("card"), Access::read_write);
    const auto before = all_files(directory.path());
    EXPECT_EQ(refusal([&] { Window(directory, 2 << 20); }),
              directory.file("window").string() +
                  ": the file system has no room for its 2097152 bytes: "
                  "No space left on device");
    EXPECT_EQ(all_files(directory.path()), before);
    EXPECT_EQ(refusal([&] { Window(directory, 512 << 10); }), "");
}

TEST_F(FullDisks, AnNpWithoutRoomIsRefusedWithNothingLeftBehind)
{
    const StateDirectory directory(disk.file("card"), Access::read_write);
    const auto before = all_files(directory.path());
    const std::string told = refusal([&] { NpStore(directory, card_of(1, 8, 8)); });
    EXPECT_NE(told.find("np0: the file system has no room for its "), std::string::npos) << told;
    EXPECT_EQ(all_files(directory.path()), before);
}

TEST_F(FullDisks, AFailedStartIsTakenBackWhole)
{
    StateDirectory directory(disk.file("card"), Access::read_write);
    Window(directory, 512 << 10);
    EXPECT_NE(refusal([&] { NpStore(directory, card_of(1, 8, 8)); }), "");
    directory.take_back();
    EXPECT_TRUE(all_files(disk.path()).empty());
}

TEST_F(FullDisks, AQueueWithoutRoomTakesNoMoreAndLosesNothing)
{
    const StateDirectory directory(disk.file("card"), Access::read_write);
    PrmStore prm(directory);
    const uint32_t handle = prm.make_handle();
    uint32_t taken = 0;
    StoredAnswer answer{};
    while (taken < 100000 && prm.push_answer(handle, answer)) {
        answer.refnum = ++taken;
    }
    EXPECT_GT(taken, 1000U);
    EXPECT_LT(taken, 100000U);
    EXPECT_EQ(prm.unread(handle), taken);
    for (uint32_t number = 0; number < taken; ++number) {
        ASSERT_TRUE(prm.pop_answer(handle, &answer));
        ASSERT_EQ(answer.refnum, number);
    }
    EXPECT_TRUE(prm.push_answer(handle, answer)) << "there is room again";
    const uint32_t second = prm.make_handle();
    EXPECT_TRUE(prm.push_answer(second, answer)) << "the first one's failed growth took none";
}

TEST_F(FullDisks, AFirstAnswerWithoutRoomIsRefused)
{
    const StateDirectory directory(disk.file("card"), Access::read_write);
    PrmStore prm(directory);
    const uint32_t handle = prm.make_handle();
    std::filesystem::path filler = disk.file("filler");
    write_file(filler, std::string(2 << 20, 'x')); // as much as there is room for
    EXPECT_FALSE(prm.push_answer(handle, StoredAnswer{}));
    EXPECT_EQ(prm.unread(handle), 0U);
    std::filesystem::remove(filler);
    EXPECT_TRUE(prm.push_answer(handle, StoredAnswer{}));
}

} // namespace vlc::test
