#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <vector>

#include "kill_sweep.h"
#include "test_directory.h"
#include "vlc/window.h"

namespace vlc::test {

namespace {

constexpr uint64_t window_bytes = 12 << 10; // small, so that it is full and merged often
constexpr uint32_t operation_count = KillSweep::slow ? 100 : 220;

// What is in the window, as far as its user knows.
struct Content {
    std::map<void *, int64_t> blocks;
    void *root = nullptr;
};

struct Operation {
    enum Kind { allocate, release, set_root, reset } kind;
    int64_t size = 0;
    void *block = nullptr;

    void perform(Window &window) const
    {
        void *got = nullptr;
        switch (kind) {
        case allocate:
            window.allocate(size, &got);
            break;
        case release:
            window.release(block);
            break;
        case set_root:
            window.set_root(block);
            break;
        case reset:
            window.reset();
        }
    }
};

// The operations and the contents between them. Where blocks lie is the same in every window.
class Script {
public:
    Script()
    {
        for (uint32_t number = 0; number < operation_count; ++number) {
            operations.push_back(choose(number));
            carry_out(operations.back());
            contents.push_back(content_);
        }
    }

    std::vector<Operation> operations;
    std::vector<Content> contents{1};

private:
    Operation choose(uint32_t number)
    {
        const uint64_t dice = random_();
        if (number % 97 == 96) {
            return {Operation::reset};
        }
        const bool none = content_.blocks.empty();
        if (number % 13 == 12) {
            return {Operation::set_root, 0, none ? nullptr : content_.blocks.begin()->first};
        }
        if (none || dice % 100 < (number % 80 < 50 ? 70U : 20U)) {
            return {Operation::allocate,
                    static_cast<int64_t>(1 + dice / 100 % (dice % 7 == 0 ? 3000 : 400))};
        }
        auto chosen = content_.blocks.begin();
        std::advance(chosen, dice / 100 % content_.blocks.size());
        return {Operation::release, 0, chosen->first};
    }

    void carry_out(const Operation &operation)
    {
        void *block = nullptr;
        switch (operation.kind) {
        case Operation::allocate:
            if (window_.allocate(operation.size, &block) == 0) {
                content_.blocks[block] = operation.size;
            }
            break;
        case Operation::release:
            EXPECT_EQ(window_.release(operation.block), 0U);
            content_.blocks.erase(operation.block);
            break;
        case Operation::set_root:
            window_.set_root(operation.block);
            content_.root = operation.block;
            break;
        case Operation::reset:
            window_.reset();
            content_ = {};
        }
    }

    TestDirectory top_;
    StateDirectory directory_{top_.path(), Access::read_write};
    Window window_{directory_, window_bytes};
    Content content_;
    std::mt19937 random_{7};
};

// Takes the window apart: each block is there, nothing else is, and all of it is one in the end.
bool holds(const StateDirectory &directory, const Content &content)
{
    Window window(directory, window_bytes);
    uint64_t bytes = 0;
    for (const auto &[block, size] : content.blocks) {
        bytes += static_cast<uint64_t>(size + 8 + 15) / 16 * 16;
    }
    if (window.root() != content.root || window.usage().bytes_in_use != bytes ||
        window.usage().blocks_in_use != content.blocks.size()) {
        return false;
    }
    for (const auto &[block, size] : content.blocks) {
        if (window.release(block) != 0) {
            return false;
        }
    }
    void *whole = nullptr;
    return window.allocate(static_cast<int64_t>(window.usage().bytes_total) - 8, &whole) == 0;
}

} // namespace

TEST(KilledWindows, AtEveryInstructionTheWindowIsTheOldOneOrTheNewOne)
{
    std::vector<Operation> operations;
    std::vector<Content> contents;
    {
        const Script script;
        operations = script.operations;
        contents = script.contents;
    }
    TestDirectory original;
    TestDirectory copy;
    KillSweep sweep(original.path(), copy.path(), {{"window"}});
    std::optional<StateDirectory> directory;
    std::optional<Window> window;
    sweep.prepare = [&] {
        directory.emplace(original.path(), Access::read_write);
        window.emplace(*directory, window_bytes);
        KillSweep::Operations all;
        for (const Operation &operation : operations) {
            all.emplace_back([&] { operation.perform(*window); });
        }
        return all;
    };
    sweep.verify = [&](const StateDirectory &found, uint32_t done) {
        const std::string before = content_of(found.file("window"));
        if (holds(found, contents[done])) {
            return;
        }
        write_file(found.file("window"), before); // as it was before it was taken apart
        const Content &next = contents[std::min(done + 1, operation_count)];
        EXPECT_TRUE(holds(found, next)) << "neither the old nor the new";
    };
    sweep.run(KillSweep::slow ? 10000 : 40000, KillSweep::slow ? 80 : 200);
}

TEST(KilledWindows, AtEveryInstructionOfMakingOneItIsMissingOrWhole)
{
    TestDirectory original;
    TestDirectory copy;
    KillSweep sweep(original.path(), copy.path(), {{"window"}, {"window.new"}});
    std::optional<StateDirectory> directory;
    std::optional<Window> window;
    sweep.prepare = [&] {
        directory.emplace(original.path(), Access::read_write);
        return KillSweep::Operations{[&] { window.emplace(*directory, window_bytes); }};
    };
    sweep.verify = [](const StateDirectory &found, uint32_t) {
        EXPECT_TRUE(holds(found, {}));
        std::filesystem::remove(found.file("window"));
    };
    sweep.run(1000, 3);
}

} // namespace vlc::test
