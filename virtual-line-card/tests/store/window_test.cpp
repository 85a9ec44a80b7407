#include "vlc/window.h"

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <optional>
#include <vector>

#include "test_directory.h"

namespace vlc::test {

namespace {

constexpr uint64_t small = 64 << 10;

class Windows : public testing::Test {
protected:
    void *allocate(int64_t size)
    {
        void *block = nullptr;
        EXPECT_EQ(window->allocate(size, &block), 0U) << size;
        return block;
    }
    void reopen()
    {
        window.reset();
        window.emplace(directory, 1); // an existing window keeps its size
    }

    TestDirectory top;
    StateDirectory directory{top.path(), Access::read_write};
    std::optional<Window> window{std::in_place, directory, small};
};

struct Link {
    Link *next;
    uint64_t value;
};

} // namespace

TEST_F(Windows, BlocksLieInsideTheWindowAtItsAddress)
{
    char *block = static_cast<char *>(allocate(100));
    EXPECT_TRUE(window->contains(block));
    EXPECT_TRUE(window->contains(block + 99));
    EXPECT_GE(reinterpret_cast<uintptr_t>(block), Window::address);
    EXPECT_LT(reinterpret_cast<uintptr_t>(block), Window::address + small);
    EXPECT_FALSE(window->contains(&block));
    EXPECT_FALSE(window->contains(nullptr));
}

TEST_F(Windows, BlocksAreAlignedToSixteenBytesAndDoNotOverlap)
{
    std::vector<std::pair<char *, int64_t>> blocks;
    for (int64_t size = 1; size < 200; ++size) {
        char *block = static_cast<char *>(allocate(size));
        EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 16, 0U);
        std::memset(block, static_cast<int>(size), static_cast<size_t>(size));
        blocks.emplace_back(block, size);
    }
    for (const auto &[block, size] : blocks) {
        for (int64_t i = 0; i < size; ++i) {
            ASSERT_EQ(block[i], static_cast<char>(size));
        }
        EXPECT_EQ(window->release(block), 0U);
    }
    EXPECT_EQ(window->usage().blocks_in_use, 0U);
    EXPECT_EQ(window->usage().bytes_in_use, 0U);
}

TEST_F(Windows, SizesBelowOneAreRefusedWithTheBlockUntouched)
{
    void *block = this;
    for (const int64_t size : {int64_t{0}, int64_t{-1}, INT64_MIN}) {
        EXPECT_EQ(window->allocate(size, &block), uint32_t{EINVAL});
        EXPECT_EQ(block, this);
    }
}

TEST_F(Windows, WhatIsTooLargeIsRefusedWithTheBlockUntouched)
{
    void *block = this;
    const auto whole = static_cast<int64_t>(window->usage().bytes_total);
    for (const int64_t size : {whole, whole - 7, INT64_MAX, INT64_MAX - 20}) {
        EXPECT_EQ(window->allocate(size, &block), uint32_t{ENOMEM});
        EXPECT_EQ(block, this);
    }
    EXPECT_EQ(window->allocate(whole - 8, &block), 0U) << "all of it can be one block";
}

TEST_F(Windows, OnlyTheStartOfABlockInUseIsReleased)
{
    char *block = static_cast<char *>(allocate(100));
    char local = 0;
    for (void *wrong :
         {static_cast<void *>(nullptr), static_cast<void *>(&local), static_cast<void *>(block + 1),
          static_cast<void *>(block + 16), static_cast<void *>(block - 16),
          static_cast<void *>(block + 1000), reinterpret_cast<void *>(Window::address),
          reinterpret_cast<void *>(Window::address + small)}) {
        EXPECT_EQ(window->release(wrong), uint32_t{EINVAL}) << wrong;
    }
    EXPECT_EQ(window->release(block), 0U);
    EXPECT_EQ(window->release(block), uint32_t{EINVAL}) << "twice";
}

TEST_F(Windows, ABlockThatBecamePartOfALargerOneIsNoBlock)
{
    void *first = allocate(40);
    void *second = allocate(40);
    EXPECT_EQ(window->release(second), 0U);
    EXPECT_EQ(window->release(first), 0U);
    void *large = allocate(1000);
    EXPECT_EQ(large, first);
    EXPECT_EQ(window->release(second), uint32_t{EINVAL});
    window->reset();
    EXPECT_EQ(window->release(large), uint32_t{EINVAL}) << "what was in use before a reset";
}

TEST_F(Windows, FreedNeighboursBecomeOneWhenNothingElseIsLargeEnough)
{
    std::vector<void *> blocks;
    void *block = nullptr;
    while (window->allocate(1000, &block) == 0) {
        blocks.push_back(block);
    }
    // In this order no block finds a free one behind it.
    for (void *each : blocks) {
        EXPECT_EQ(window->release(each), 0U);
    }
    EXPECT_EQ(window->allocate(static_cast<int64_t>(window->usage().bytes_total) - 8, &block), 0U);
}

TEST_F(Windows, ASmallBlockIsTakenFromTheSmallestThatIsLargeEnough)
{
    void *of_100 = allocate(100);
    allocate(1);
    void *of_60 = allocate(60);
    allocate(1);
    void *of_2000 = allocate(2000);
    allocate(1);
    for (void *block : {of_2000, of_100, of_60}) {
        window->release(block);
    }
    EXPECT_EQ(allocate(60), of_60);
    EXPECT_EQ(allocate(100), of_100);
    EXPECT_EQ(allocate(2000), of_2000);
}

TEST_F(Windows, EverythingIsThereWhenItIsOpenedAgain)
{
    Link *head = nullptr;
    for (uint64_t value = 0; value < 500; ++value) {
        Link *link = static_cast<Link *>(allocate(sizeof(Link)));
        *link = {head, value};
        head = link;
    }
    window->set_root(head);
    const Window::Usage before = window->usage();
    reopen();
    EXPECT_EQ(window->usage().blocks_in_use, before.blocks_in_use);
    EXPECT_EQ(window->usage().bytes_in_use, before.bytes_in_use);
    EXPECT_EQ(window->usage().bytes_total, before.bytes_total);
    uint64_t expected = 500;
    for (const Link *link = static_cast<Link *>(window->root()); link; link = link->next) {
        EXPECT_EQ(link->value, --expected);
    }
    EXPECT_EQ(expected, 0U);
}

TEST_F(Windows, AReaderInAnotherProcessFollowsThePointersBesideTheWriter)
{
    Link *second = static_cast<Link *>(allocate(sizeof(Link)));
    Link *first = static_cast<Link *>(allocate(sizeof(Link)));
    *second = {nullptr, 2};
    *first = {second, 1};
    window->set_root(first);
    const pid_t reader = fork();
    if (reader == 0) {
        munmap(reinterpret_cast<void *>(Window::address), small);
        const StateDirectory read_only(top.path(), Access::read_only);
        const Window seen(read_only, 0);
        const Link *link = static_cast<Link *>(seen.root());
        const bool good =
            link->value == 1 && link->next->value == 2 && seen.usage().blocks_in_use == 2;
        _exit(good ? 0 : 1);
    }
    int status = -1;
    waitpid(reader, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(Windows, TheRootIsNullUntilItIsSetAndAfterAReset)
{
    EXPECT_EQ(window->root(), nullptr);
    void *block = allocate(10);
    window->set_root(block);
    EXPECT_EQ(window->root(), block);
    window->set_root(nullptr);
    EXPECT_EQ(window->root(), nullptr);
    window->set_root(block);
    window->reset();
    EXPECT_EQ(window->root(), nullptr);
    EXPECT_EQ(window->usage().blocks_in_use, 0U);
    reopen();
    EXPECT_EQ(window->root(), nullptr);
    EXPECT_EQ(window->usage().blocks_in_use, 0U);
}

TEST_F(Windows, ARootOutsideTheWindowIsRefused)
{
    int local = 0;
    EXPECT_THROW(window->set_root(&local), std::invalid_argument);
    EXPECT_EQ(window->root(), nullptr);
}

TEST_F(Windows, ATakenAddressIsRefusedWithNothingChanged)
{
    window.reset();
    void *taken = mmap(reinterpret_cast<void *>(Window::address + 4096), 4096, PROT_NONE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    ASSERT_NE(taken, MAP_FAILED);
    TestDirectory empty;
    const StateDirectory fresh(empty.path(), Access::read_write);
    const auto old_files = all_files(top.path());
    const auto new_files = all_files(empty.path());
    for (const StateDirectory *each :
         std::initializer_list<const StateDirectory *>{&directory, &fresh}) {
        EXPECT_EQ(refusal([&] { Window(*each, small); }),
                  each->file("window").string() +
                      ": its address 0x7ea000000000 is taken in this process");
    }
    EXPECT_EQ(all_files(top.path()), old_files);
    EXPECT_EQ(all_files(empty.path()), new_files);
    munmap(taken, 4096);
    EXPECT_EQ(refusal([&] { reopen(); }), "");
}

TEST_F(Windows, ABrokenChainIsRefusedWithItsPlace)
{
    char *block = static_cast<char *>(allocate(100));
    allocate(100);
    std::memset(block, 'x', 120); // over the end
    window.reset();
    EXPECT_EQ(refusal([&] { Window(directory, small); }),
              directory.file("window").string() + ": its chain of blocks breaks at offset 0x1068");
}

TEST_F(Windows, AWordFromAnotherPlaceIsRefused)
{
    char *first = static_cast<char *>(allocate(100));
    char *second = static_cast<char *>(allocate(100));
    ASSERT_EQ(second - first, 112);
    std::memcpy(second - 8, first - 8, 8); // the same size, in use as well
    window.reset();
    EXPECT_EQ(refusal([&] { Window(directory, small); }),
              directory.file("window").string() + ": its chain of blocks breaks at offset 0x1068");
}

TEST_F(Windows, AnOverwrittenWordCostsItsOwnBlockAndNotTheRest)
{
    std::vector<char *> blocks;
    void *next = nullptr;
    while (window->allocate(1000, &next) == 0) {
        blocks.push_back(static_cast<char *>(next));
    }
    std::memset(blocks[3], 'x', 1024);
    EXPECT_EQ(window->release(blocks[4]), uint32_t{EINVAL});
    for (size_t i = 0; i < blocks.size(); ++i) {
        EXPECT_EQ(window->release(blocks[i]), i == 4 ? uint32_t{EINVAL} : 0U);
    }
    EXPECT_EQ(window->allocate(4000, &next), 0U) << "in front of it";
    EXPECT_EQ(window->allocate(50000, &next), 0U) << "behind it";
}

TEST_F(Windows, ARootThatLeadsOutsideIsRefused)
{
    window->set_root(allocate(8));
    window.reset();
    std::string content = content_of(top.file("window"));
    content[256 + 5] = '\x01';
    write_file(top.file("window"), content);
    EXPECT_EQ(refusal([&] { Window(directory, small); }),
              directory.file("window").string() + ": has a root outside the window");
}

TEST(WindowSizes, TheFileHasTheSizeThatWasAskedForInWholePages)
{
    TestDirectory top;
    const StateDirectory directory(top.path(), Access::read_write);
    EXPECT_EQ(Window(directory, 100000).usage().bytes_total, 102400U - 4096);
    EXPECT_EQ(std::filesystem::file_size(top.file("window")), 102400U);
}

TEST(WindowSizes, OneThatIsTooSmallOrTooLargeIsRefused)
{
    TestDirectory top;
    const StateDirectory directory(top.path(), Access::read_write);
    for (const uint64_t bytes : {uint64_t{0}, uint64_t{4096}, uint64_t{1} << 50}) {
        const std::string told = refusal([&] { Window(directory, bytes); });
        EXPECT_NE(told.find("a window of " + std::to_string(bytes) + " bytes cannot be made"),
                  std::string::npos)
            << told;
    }
    EXPECT_FALSE(std::filesystem::exists(top.file("window")));
}

} // namespace vlc::test
