#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <random>
#include <set>

#include "np_test_card.h"

namespace vlc::test {

namespace {

class DynamicCounterTest : public testing::Test {
protected:
    DynamicCounterTest() { open(); }
    void open()
    {
        close();
        state_.emplace(directory_.path(), Access::read_write);
        nps_.emplace(*state_, card_of(2, 8, 8));
    }
    void close()
    {
        nps_.reset();
        state_.reset();
    }
    DynamicCounters &counters(uint32_t np = 0) { return (*nps_)[np].dynamic_counters(); }
    std::map<uint32_t, uint32_t> runs()
    {
        std::map<uint32_t, uint32_t> all;
        counters().for_each_run([&](uint32_t number, uint32_t length) {
            EXPECT_TRUE(all.emplace(number, length).second);
        });
        return all;
    }
    uint32_t place(uint32_t number)
    {
        const int64_t found = counters().place(number);
        EXPECT_GE(found, 0);
        return static_cast<uint32_t>(found);
    }

    TestDirectory directory_;
    std::optional<StateDirectory> state_;
    std::optional<NpStore> nps_;
};

TEST_F(DynamicCounterTest, ARunOfTwoIsTwoNumbersAndTwoAddressesInARow)
{
    const uint32_t run = counters().take(2);
    ASSERT_NE(run, 0u);
    const uint32_t address = DynamicCounters::address_of(run);
    EXPECT_EQ(DynamicCounters::address_of(run + 1), address + 1);
    EXPECT_EQ(place(run + 1), place(run) + 1);
    EXPECT_EQ(counters().place_of_address(address), counters().place(run));
    EXPECT_EQ(counters().place_of_address(address + 1), counters().place(run + 1));
    EXPECT_EQ(counters().place(run + 2), -1);
}

TEST_F(DynamicCounterTest, BytesOneToThreeOfANumberInMemoryAreItsAddress)
{
    const uint32_t run = counters().take(1);
    EXPECT_EQ(run >> 8, DynamicCounters::address_of(run));
    EXPECT_EQ(run & 0xFF, 0u);
}

TEST_F(DynamicCounterTest, NoNumberIsOneOfTheStatelessRegionInEitherByteOrder)
{
    for (const uint32_t address :
         {DynamicCounters::first_address, uint32_t{0x1C000}, uint32_t{0x1C0FF}, uint32_t{0x3FC0C0},
          DynamicCounters::first_address + DynamicCounters::most - 1}) {
        for (const uint32_t position : {0u, 1u}) {
            EXPECT_LT(CounterBank::place(address << 8 | position), 0) << std::hex << address;
        }
    }
    EXPECT_EQ(DynamicCounters::address_of(CounterBank::first), 0u);
    EXPECT_EQ(DynamicCounters::address_of(0), 0u);
    EXPECT_EQ(DynamicCounters::address_of(DynamicCounters::first_address << 8 | 2), 0u);
    EXPECT_EQ(DynamicCounters::address_of(UINT32_MAX), 0u);
}

TEST_F(DynamicCounterTest, TheLastAddressHasNoSecondCounter)
{
    const uint32_t last = DynamicCounters::first_address + DynamicCounters::most - 1;
    EXPECT_EQ(DynamicCounters::address_of(last << 8), last);
    EXPECT_EQ(DynamicCounters::address_of(last << 8 | 1), 0u);
}

TEST_F(DynamicCounterTest, AllOfThemCanBeTakenOneByOne)
{
    std::set<uint32_t> taken;
    for (uint32_t i = 0; i < flow_counters; ++i) {
        EXPECT_TRUE(taken.insert(counters().take(1)).second);
    }
    EXPECT_EQ(taken.count(0), 0u);
    EXPECT_EQ(counters().take(1), 0u);
    EXPECT_EQ(counters().in_use(), flow_counters);
}

TEST_F(DynamicCounterTest, ARunOfTwoIsRefusedWhereOneIsLeftAndOneIsGiven)
{
    for (uint32_t i = 0; i < flow_counters / 2; ++i) {
        EXPECT_NE(counters().take(2), 0u);
    }
    EXPECT_EQ(counters().take(2), 0u);
    EXPECT_NE(counters().take(1), 0u);
    EXPECT_EQ(counters().take(1), 0u);
}

TEST_F(DynamicCounterTest, RunsOfOneLeaveWholePairsForRunsOfTwo)
{
    const uint32_t alone = counters().take(1);
    EXPECT_EQ(place(alone), flow_counters - 1) << "which has no neighbour";
    const uint32_t one = counters().take(1);
    const uint32_t other = counters().take(1);
    EXPECT_EQ(place(one) / 2, place(other) / 2);
    EXPECT_TRUE(counters().give_back(one));
    EXPECT_TRUE(counters().give_back(other));
    for (uint32_t i = 0; i < flow_counters / 2; ++i) {
        EXPECT_NE(counters().take(2), 0u);
    }
}

TEST_F(DynamicCounterTest, OnlyTheFirstNumberOfARunInUseGivesItBack)
{
    const uint32_t run = counters().take(2);
    const uint32_t single = counters().take(1);
    EXPECT_FALSE(counters().give_back(run + 1));
    EXPECT_FALSE(counters().give_back(single + 1));
    EXPECT_FALSE(counters().give_back(run + 0x100));
    EXPECT_FALSE(counters().give_back(0));
    EXPECT_EQ(runs(), (std::map<uint32_t, uint32_t>{{run, 2}, {single, 1}}));
    EXPECT_TRUE(counters().give_back(run));
    EXPECT_FALSE(counters().give_back(run));
    EXPECT_EQ(runs(), (std::map<uint32_t, uint32_t>{{single, 1}}));
    EXPECT_EQ(counters().place(run), -1);
    EXPECT_EQ(counters().place(run + 1), -1);
}

TEST_F(DynamicCounterTest, OtherLengthsAreRefused)
{
    EXPECT_EQ(counters().take(0), 0u);
    EXPECT_EQ(counters().take(3), 0u);
}

TEST_F(DynamicCounterTest, ARunBeginsAtZeroWhateverItsPlacesCountedBefore)
{
    const uint32_t run = counters().take(2);
    counters().add(place(run), 60);
    counters().add(place(run + 1), 70);
    EXPECT_EQ(counters().read_and_clear(place(run + 1)), (PacketCount{1, 70}));
    EXPECT_EQ(counters().read(place(run)), (PacketCount{1, 60}));
    const uint32_t first = place(run);
    counters().give_back(run);
    counters().add(first, 80); // a row that is still there
    ASSERT_EQ(counters().take(2), run);
    EXPECT_EQ(counters().read(place(run)), (PacketCount{0, 0}));
}

TEST_F(DynamicCounterTest, OfDifferentNpsAreCountedApart)
{
    const uint32_t run = counters(0).take(1);
    EXPECT_EQ(counters(1).place(run), -1);
    ASSERT_EQ(counters(1).take(1), run);
    counters(1).add(place(run), 60);
    EXPECT_EQ(counters(0).read(place(run)), (PacketCount{0, 0}));
}

TEST_F(DynamicCounterTest, StandInTheFileWithTheirCounts)
{
    const uint32_t run = counters().take(2);
    const uint32_t single = counters().take(1);
    counters().add(place(run + 1), 60);
    open();
    EXPECT_EQ(runs(), (std::map<uint32_t, uint32_t>{{run, 2}, {single, 1}}));
    EXPECT_EQ(counters().in_use(), 3u);
    EXPECT_EQ(counters().read(place(run + 1)), (PacketCount{1, 60}));
    std::set<uint32_t> others;
    while (const uint32_t number = counters().take(1)) {
        others.insert(number);
    }
    EXPECT_EQ(others.size(), flow_counters - 3);
    EXPECT_EQ(others.count(run) + others.count(single), 0u);
}

TEST_F(DynamicCounterTest, ANpMayHaveNone)
{
    TestDirectory other;
    CardConfig config = card_of(1, 8, 8);
    config.dynamic_counters = 0;
    const StateDirectory directory(other.path(), Access::read_write);
    NpStore nps(directory, config);
    EXPECT_EQ(nps[0].dynamic_counters().take(1), 0u);
    EXPECT_EQ(nps[0].dynamic_counters().place_of_address(DynamicCounters::first_address), -1);
}

TEST_F(DynamicCounterTest, AFileWithARunThatCannotBeIsRefused)
{
    close();
    const auto file = directory_.file("np0");
    const std::string whole = content_of(file);
    const size_t marks = whole.size() - 64; // the last of the file
    const auto told = [&](size_t place, char mark) {
        std::string damaged = whole;
        damaged[marks + place] = mark;
        write_file(file, damaged);
        return refusal([this] { open(); });
    };
    const std::string wrong = file.string() + ": its dynamic counters have a run that cannot be";
    EXPECT_EQ(told(4, 3), wrong);
    EXPECT_EQ(told(5, 2), wrong) << "a run of two begins a pair";
    EXPECT_EQ(told(flow_counters - 1, 2), wrong) << "it would end behind the last";
    EXPECT_EQ(told(4, 2), "");
}

// Against a set of places, over and over, with the process gone now and then.
TEST_F(DynamicCounterTest, GiveWhatIsFreeAndNothingTwice)
{
    std::mt19937 random(11);
    std::map<uint32_t, uint32_t> expected;
    uint32_t taken = 0;
    for (uint32_t i = 0; i < 20000; ++i) {
        if (random() % 500 == 0) {
            open();
        }
        const uint32_t length = 1 + random() % 2;
        if (random() % 2 == 0 || expected.empty()) {
            const uint32_t number = counters().take(length);
            if (number == 0) {
                ASSERT_TRUE(length == 2 || taken == flow_counters);
                continue;
            }
            ASSERT_TRUE(expected.emplace(number, length).second);
            taken += length;
        } else {
            const auto chosen =
                std::next(expected.begin(), static_cast<long>(random() % expected.size()));
            ASSERT_TRUE(counters().give_back(chosen->first));
            taken -= chosen->second;
            expected.erase(chosen);
        }
        ASSERT_EQ(runs(), expected);
        ASSERT_EQ(counters().in_use(), taken);
    }
}

} // namespace

} // namespace vlc::test
