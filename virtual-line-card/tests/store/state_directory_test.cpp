#include "vlc/state_directory.h"

#include <sys/wait.h>
#include <unistd.h>

#include <optional>

#include "test_directory.h"

namespace vlc::test {

namespace {

std::string open_refusal(const std::filesystem::path &path, Access access)
{
    return refusal([&] { StateDirectory(path, access); });
}

} // namespace

TEST(StateDirectories, AMissingOneIsMadeByAWriter)
{
    TestDirectory top;
    const StateDirectory directory(top.file("card"), Access::read_write);
    EXPECT_TRUE(directory.is_new());
    EXPECT_TRUE(std::filesystem::is_directory(top.file("card")));
    EXPECT_EQ(directory.file("np0"), top.file("card") / "np0");
}

TEST(StateDirectories, AnEmptyOneIsTakenByAWriter)
{
    TestDirectory top;
    EXPECT_TRUE(StateDirectory(top.path(), Access::read_write).is_new());
    EXPECT_FALSE(StateDirectory(top.path(), Access::read_write).is_new());
}

TEST(StateDirectories, AnUnfinishedMarkerOfAKilledProcessDoesNotCount)
{
    TestDirectory top;
    write_file(top.file("virtual-line-card.new"), "state of");
    EXPECT_TRUE(StateDirectory(top.path(), Access::read_write).is_new());
    EXPECT_FALSE(std::filesystem::exists(top.file("virtual-line-card.new")));
}

TEST(StateDirectories, SomebodyElsesIsRefusedAndLeftAsItWas)
{
    TestDirectory top;
    write_file(top.file("letter.txt"), "dear");
    const auto before = all_files(top.path());
    for (const Access access : {Access::read_write, Access::read_only}) {
        const std::string told = open_refusal(top.path(), access);
        EXPECT_EQ(told.find(top.path().string() + ": "), 0U) << told;
        EXPECT_NE(told.find("is not the state of a virtual line card"), std::string::npos);
        EXPECT_EQ(told.find('\n'), std::string::npos);
    }
    EXPECT_EQ(all_files(top.path()), before);
}

TEST(StateDirectories, AReaderMakesNothing)
{
    TestDirectory top;
    EXPECT_EQ(open_refusal(top.file("card"), Access::read_only),
              top.file("card").string() + ": cannot be opened: No such file or directory");
    EXPECT_NE(open_refusal(top.path(), Access::read_only), "");
    EXPECT_TRUE(all_files(top.path()).empty());
}

TEST(StateDirectories, APathThatIsAFileIsRefused)
{
    TestDirectory top;
    write_file(top.file("file"), "text");
    for (const Access access : {Access::read_write, Access::read_only}) {
        EXPECT_EQ(open_refusal(top.file("file"), access),
                  top.file("file").string() + ": is no directory");
    }
    EXPECT_EQ(content_of(top.file("file")), "text");
}

TEST(StateDirectories, APathUnderAMissingDirectoryIsRefused)
{
    TestDirectory top;
    EXPECT_EQ(open_refusal(top.file("none") / "card", Access::read_write),
              (top.file("none") / "card").string() + ": cannot be made: No such file or directory");
}

TEST(StateDirectories, AnotherVersionIsRefusedAndLeftAsItWas)
{
    TestDirectory top;
    write_file(top.file("virtual-line-card"), "state of a virtual line card, version 7\n");
    const auto before = all_files(top.path());
    EXPECT_EQ(open_refusal(top.path(), Access::read_write),
              top.path().string() + ": is of version 7, and this program knows version 2");
    EXPECT_EQ(all_files(top.path()), before);
}

TEST(StateDirectories, AMarkerWithOtherWordsIsRefused)
{
    TestDirectory top;
    write_file(top.file("virtual-line-card"), "something else\n");
    EXPECT_EQ(open_refusal(top.path(), Access::read_write),
              top.file("virtual-line-card").string() +
                  ": is not the marker of a virtual line card's state");
}

TEST(StateDirectories, ASecondWriterIsRefusedWhileTheFirstLives)
{
    TestDirectory top;
    std::optional<StateDirectory> first(std::in_place, top.path(), Access::read_write);
    const pid_t other = fork();
    if (other == 0) {
        const std::string told = open_refusal(top.path(), Access::read_write);
        _exit(told == top.path().string() + ": is in use by another process" ? 0 : 1);
    }
    int status = -1;
    waitpid(other, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(open_refusal(top.path(), Access::read_only), "") << "readers are not kept out";
    first.reset();
    EXPECT_EQ(open_refusal(top.path(), Access::read_write), "");
}

TEST(StateDirectories, TheLockGoesWithTheObjectThatIsMovedTo)
{
    TestDirectory top;
    StateDirectory first(top.path(), Access::read_write);
    {
        const StateDirectory second(std::move(first));
        EXPECT_NE(open_refusal(top.path(), Access::read_write), "");
    }
    EXPECT_EQ(open_refusal(top.path(), Access::read_write), "");
}

TEST(StateDirectories, TakingBackRemovesWhatAFailedStartMade)
{
    TestDirectory top;
    StateDirectory made(top.file("card"), Access::read_write);
    write_file(made.file("np0"), "half");
    made.take_back();
    EXPECT_TRUE(all_files(top.path()).empty());
}

TEST(StateDirectories, TakingBackLeavesTheDirectoryItWasGiven)
{
    TestDirectory top;
    StateDirectory made(top.path(), Access::read_write);
    made.take_back();
    EXPECT_TRUE(std::filesystem::is_directory(top.path()));
    EXPECT_TRUE(all_files(top.path()).empty());
}

TEST(StateDirectories, TakingBackDoesNothingToAnOldOne)
{
    TestDirectory top;
    StateDirectory(top.path(), Access::read_write);
    write_file(top.file("np0"), "kept");
    const auto before = all_files(top.path());
    StateDirectory(top.path(), Access::read_write).take_back();
    EXPECT_EQ(all_files(top.path()), before);
}

TEST(StateDirectories, WhatACompleteOneHoldsIsToldByItsMarker)
{
    for (const Holdings holdings : {Holdings::card, Holdings::host, Holdings::card_and_host}) {
        const TestDirectory top;
        StateDirectory(top.path(), Access::read_write).complete(CardConfig{}, holdings);
        EXPECT_EQ(StateDirectory(top.path(), Access::read_only).holdings(), holdings);
    }
}

TEST(StateDirectories, AMarkerThatNamesUnknownHoldingsIsRefused)
{
    const TestDirectory top;
    StateDirectory(top.path(), Access::read_write).complete(CardConfig{}, Holdings::card);
    std::string marker = content_of(top.file("virtual-line-card"));
    const size_t place = marker.find("holds = ");
    ASSERT_NE(place, std::string::npos) << marker;
    marker.replace(place, marker.find('\n', place) - place, "holds = 'router'");
    write_file(top.file("virtual-line-card"), marker);
    EXPECT_EQ(refusal([&] { StateDirectory(top.path(), Access::read_only); }),
              top.file("virtual-line-card").string() +
                  ": is damaged: it does not say which card the state was made for");
}

TEST(StateDirectories, AWriterGoesOnOnlyWithWhatItWasMadeFor)
{
    const TestDirectory top;
    StateDirectory directory(top.path(), Access::read_write);
    EXPECT_EQ(refusal([&] { directory.require(Holdings::host); }), "") << "nothing is in it yet";
    directory.complete(CardConfig{}, Holdings::card_and_host);
    EXPECT_EQ(refusal([&] { directory.require(Holdings::card_and_host); }), "");
    EXPECT_EQ(refusal([&] { directory.require(Holdings::card); }),
              top.path().string() +
                  ": holds a card with its host, and a card without a host cannot go on with it");
}

TEST(StateDirectories, AReaderFindsACardWithOrWithoutItsHost)
{
    const TestDirectory top;
    StateDirectory(top.path(), Access::read_write).complete(CardConfig{}, Holdings::card_and_host);
    const StateDirectory directory(top.path(), Access::read_only);
    EXPECT_EQ(refusal([&] { directory.require(Holdings::card); }), "");
    EXPECT_EQ(refusal([&] { directory.require(Holdings::host); }), "");
}

} // namespace vlc::test
