// A long random life of a window beside a model of it.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <optional>
#include <random>

#include "test_directory.h"
#include "vlc/window.h"

namespace vlc::test {

namespace {

constexpr uint64_t window_bytes = 512 << 10;
constexpr uint32_t operations = 100000;
constexpr uint32_t seed = 20261121;

uint64_t block_bytes(uint64_t size)
{
    return (size + 8 + 15) / 16 * 16;
}

class RandomLife {
public:
    void operation()
    {
        const uint64_t kind = random_() % 1000;
        if (kind == 0) {
            window_->reset();
            blocks_.clear();
        } else if (kind < 10) {
            reopen();
        } else if (kind < 30) {
            release_wrong();
        } else if (kind < (filling_ ? 620U : 420U)) {
            allocate();
        } else {
            release();
        }
        if (random_() % 4000 == 0) {
            filling_ = !filling_;
        }
    }

    void check_usage() const
    {
        uint64_t bytes = 0;
        for (const auto &[start, block] : blocks_) {
            bytes += block_bytes(block.size);
        }
        ASSERT_EQ(window_->usage().blocks_in_use, blocks_.size());
        ASSERT_EQ(window_->usage().bytes_in_use, bytes);
    }

    uint32_t failures() const { return failures_; }

private:
    struct Block {
        uint64_t size;
        unsigned char fill;
    };

    uint64_t random_size()
    {
        switch (random_() % 10) {
        case 0:
            return 1 + random_() % 60000;
        case 1:
            return 1 + random_() % 4000;
        case 2:
            return 576;
        case 3:
            return 248;
        default:
            return 1 + random_() % 300;
        }
    }

    void allocate()
    {
        const uint64_t size = random_size();
        void *got = nullptr;
        const uint32_t result = window_->allocate(static_cast<int64_t>(size), &got);
        if (result != 0) {
            ASSERT_EQ(result, uint32_t{ENOMEM});
            ASSERT_LT(largest_gap(), block_bytes(size)) << "there was room";
            ++failures_;
            return;
        }
        const auto start = reinterpret_cast<uintptr_t>(got);
        const auto after = blocks_.lower_bound(start);
        ASSERT_TRUE(after == blocks_.end() || start + size <= after->first - 8);
        ASSERT_TRUE(after == blocks_.begin() ||
                    std::prev(after)->first + std::prev(after)->second.size <= start - 8);
        ASSERT_TRUE(window_->contains(got));
        const auto fill = static_cast<unsigned char>(random_());
        std::memset(got, fill, size);
        blocks_[start] = {size, fill};
    }

    void release()
    {
        if (blocks_.empty()) {
            return;
        }
        auto chosen = blocks_.lower_bound(Window::address + random_() % window_bytes);
        chosen = chosen == blocks_.end() ? blocks_.begin() : chosen;
        check_content(chosen->first, chosen->second);
        ASSERT_EQ(window_->release(reinterpret_cast<void *>(chosen->first)), 0U);
        blocks_.erase(chosen);
    }

    void release_wrong()
    {
        const uintptr_t place = Window::address + random_() % (window_bytes / 8) * 8;
        if (blocks_.count(place) == 0) {
            ASSERT_EQ(window_->release(reinterpret_cast<void *>(place)), uint32_t{EINVAL});
        }
    }

    void reopen()
    {
        window_.reset();
        window_.emplace(directory_, window_bytes);
        for (const auto &[start, block] : blocks_) {
            check_content(start, block);
        }
        check_usage();
    }

    void check_content(uintptr_t start, const Block &block) const
    {
        const auto *bytes = reinterpret_cast<const unsigned char *>(start);
        ASSERT_TRUE(std::all_of(bytes, bytes + block.size,
                                [&block](unsigned char byte) { return byte == block.fill; }));
    }

    uint64_t largest_gap() const
    {
        uint64_t largest = 0;
        uint64_t end = Window::address + 4096 - 8;
        for (const auto &[start, block] : blocks_) {
            largest = std::max(largest, start - 8 - end);
            end = start - 8 + block_bytes(block.size);
        }
        return std::max(largest, Window::address + window_bytes - 8 - end);
    }

    TestDirectory top_;
    StateDirectory directory_{top_.path(), Access::read_write};
    std::optional<Window> window_{std::in_place, directory_, window_bytes};
    std::map<uintptr_t, Block> blocks_;
    std::mt19937 random_{seed};
    bool filling_ = true;
    uint32_t failures_ = 0;
};

} // namespace

TEST(WindowsAtRandom, AHundredThousandOperationsAgreeWithAModel)
{
    RandomLife life;
    for (uint32_t i = 0; i < operations; ++i) {
        life.operation();
        if (testing::Test::HasFatalFailure()) {
            FAIL() << "seed " << seed << ", operation " << i;
        }
    }
    life.check_usage();
    EXPECT_GT(life.failures(), 100U) << "the window never was full";
}

} // namespace vlc::test
