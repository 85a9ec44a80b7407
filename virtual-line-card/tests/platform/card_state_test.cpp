// Starts of a whole card that fail: what is told, and what is left.
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>

#include <fstream>
#include <map>
#include <sstream>

#include "test_card.h"
#include "vlc/state_error.h"

namespace card_test {

namespace {

namespace fs = std::filesystem;

constexpr size_t page_bytes = 4096;

std::string refusal(const fs::path &state, const vlc::CardConfig &config = small_card())
{
    try {
        const vlc::VirtualLineCard card(config, state);
    } catch (const vlc::StateError &error) {
        EXPECT_EQ(std::string(error.what()).find('\n'), std::string::npos) << error.what();
        return error.what();
    }
    return "";
}

std::string content_of(const fs::path &file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

std::map<std::string, std::string> all_files(const fs::path &directory)
{
    std::map<std::string, std::string> files;
    for (const auto &entry : fs::directory_iterator(directory))
        files[entry.path().filename()] = content_of(entry.path());
    return files;
}

// Something else where the window has to be.
class TakenAddress {
public:
    TakenAddress()
        : mapped_(mmap(reinterpret_cast<void *>(vlc::Window::address), page_bytes, PROT_NONE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0))
    {
    }
    ~TakenAddress() { munmap(mapped_, page_bytes); }

private:
    void *mapped_;
};

class CardStates : public testing::Test {
protected:
    void make_state() { const vlc::VirtualLineCard card(small_card(), state); }
    void expect_refused_and_unchanged(const std::string &told, const vlc::CardConfig &config)
    {
        const auto before = all_files(state);
        EXPECT_EQ(refusal(state, config), told);
        EXPECT_TRUE(all_files(state) == before) << "something changed";
    }

    ScratchDirectory top;
    fs::path state = top.path() / "card";
};

} // namespace

TEST_F(CardStates, AStartWhoseAddressIsTakenLeavesNoDirectory)
{
    const TakenAddress taken;
    EXPECT_EQ(refusal(state), (state / "window").string() +
                                  ": its address 0x7ea000000000 is taken in this process");
    EXPECT_TRUE(fs::is_empty(top.path()));
}

TEST_F(CardStates, AStartWhoseAddressIsTakenLeavesAGivenDirectoryEmpty)
{
    fs::create_directory(state);
    const TakenAddress taken;
    EXPECT_NE(refusal(state), "");
    EXPECT_TRUE(fs::is_empty(state));
}

TEST_F(CardStates, AStartOnAFullDiskLeavesNothing)
{
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        GTEST_SKIP() << "no file system of its own may be made here";
    for (const char *size : {"size=4k", "size=1m", "size=2m", "size=3m"}) {
        ASSERT_EQ(mount("tmpfs", top.path().c_str(), "tmpfs", 0, size), 0);
        EXPECT_NE(refusal(state).find("No space left on device"), std::string::npos) << size;
        EXPECT_TRUE(fs::is_empty(top.path())) << size;
        umount2(top.path().c_str(), MNT_DETACH);
    }
}

TEST_F(CardStates, AStartThatIsRefusedCanBeMadeAgain)
{
    {
        const TakenAddress taken;
        EXPECT_NE(refusal(state), "");
    }
    EXPECT_EQ(refusal(state), "");
    EXPECT_EQ(refusal(state), "");
}

TEST_F(CardStates, AMissingFileIsNamedAndNothingIsMade)
{
    for (const char *name : {"window", "np0", "np1", "prm"}) {
        fs::remove_all(state);
        make_state();
        fs::remove(state / name);
        const auto before = all_files(state);
        const std::string told = refusal(state);
        EXPECT_EQ(told.find((state / name).string() + ": "), 0u) << told;
        EXPECT_TRUE(all_files(state) == before) << name;
    }
}

TEST_F(CardStates, AMissingMarkerIsNamedAndNothingIsMade)
{
    make_state();
    fs::remove(state / "virtual-line-card");
    expect_refused_and_unchanged(state.string() +
                                     ": is not the state of a virtual line card: it has no file "
                                     "'virtual-line-card' and is not empty",
                                 small_card());
}

TEST_F(CardStates, WhatAKilledStartLeftIsMadeAnewWithWhateverCardIsAskedFor)
{
    vlc::CardConfig other = small_card();
    other.num_nps = 3;
    other.card_type = 0xD10001;
    other.window_bytes = uint64_t{2} << 20;
    // A kill comes behind any of the files; the marker says that they are being made.
    for (const char *last : {"virtual-line-card", "np1", "np0", "prm", "window"}) {
        ScratchDirectory killed;
        {
            const vlc::VirtualLineCard whole(other, killed.path() / "whole");
        }
        const fs::path half = killed.path() / "half";
        fs::create_directory(half);
        std::ofstream(half / "virtual-line-card")
            << "state of a virtual line card, version 2\nbeing made\n";
        std::ofstream(half / "window.new") << "half";
        for (const char *name : {"np1", "np0", "prm", "window"}) {
            if (std::string(last) == "virtual-line-card")
                break;
            fs::copy_file(killed.path() / "whole" / name, half / name);
            if (std::string(last) == name)
                break;
        }
        EXPECT_EQ(refusal(half), "") << last;
        EXPECT_FALSE(fs::exists(half / "window.new"));
        EXPECT_EQ(vlc::stored_card(half)->num_nps, 2u);
        EXPECT_EQ(refusal(half), "") << last;
    }
}

TEST_F(CardStates, WhatOthersPutIntoAHalfMadeOneStays)
{
    fs::create_directory(state);
    std::ofstream(state / "virtual-line-card")
        << "state of a virtual line card, version 2\nbeing made\n";
    std::ofstream(state / "letter.txt") << "dear";
    {
        const TakenAddress taken;
        EXPECT_NE(refusal(state), "");
    }
    EXPECT_EQ(content_of(state / "letter.txt"), "dear");
}

TEST_F(CardStates, AnotherTypeOfCardIsRefusedNamingBoth)
{
    make_state();
    vlc::CardConfig other = small_card();
    other.card_type = 0xD10001;
    expect_refused_and_unchanged(
        state.string() + ": was made for a card of type 0xD20001, and 0xD10001 is asked for",
        other);
}

TEST_F(CardStates, AWindowOfAnotherSizeIsRefusedNamingBoth)
{
    make_state();
    vlc::CardConfig other = small_card();
    other.window_bytes = uint64_t{3} << 20;
    expect_refused_and_unchanged(
        "the window of " + state.string() + " has 1 MiB, and 3 are asked for", other);
    other.window_bytes = 12288;
    expect_refused_and_unchanged(
        "the window of " + state.string() + " has 1048576 bytes, and 12288 are asked for", other);
}

TEST_F(CardStates, ARefusedOpeningDoesNotRepairTheWindow)
{
    {
        vlc::VirtualLineCard card(small_card(), state);
        void *blocks[3] = {};
        for (void *&block : blocks)
            ASSERT_EQ(card.window().allocate(100, &block), 0u);
        // Neighbours that are free, which an opening would make one.
        ASSERT_EQ(card.window().release(blocks[0]), 0u);
        ASSERT_EQ(card.window().release(blocks[1]), 0u);
    }
    fs::resize_file(state / "prm", 100);
    const auto before = all_files(state);
    EXPECT_NE(refusal(state), "");
    EXPECT_TRUE(all_files(state) == before) << "something changed";
}

} // namespace card_test
