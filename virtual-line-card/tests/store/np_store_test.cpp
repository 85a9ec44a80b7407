#include "np_test_card.h"

namespace vlc::test {

namespace {

class NpStores : public testing::Test {
protected:
    std::string open_refusal(const CardConfig &config)
    {
        return refusal([&] { NpStore(directory, config); });
    }

    TestDirectory top;
    StateDirectory directory{top.path(), Access::read_write};
};

} // namespace

TEST_F(NpStores, EachNpHasAFileWithTablesAndCountersOfItsOwn)
{
    {
        NpStore nps(directory, card_of(3, 8, 8));
        ASSERT_EQ(nps.size(), 3U);
        nps[1].table(TableKind::ext_conf).add(bytes("key"), bytes("result"));
        nps[2].counters().add(7, 60);
        EXPECT_EQ(nps[0].table(TableKind::ext_conf).size(), 0U);
        EXPECT_EQ(nps[0].counters().read(7).packets, 0U);
    }
    EXPECT_EQ(all_files(top.path()).size(), 4U) << "a marker and three NPs";
    NpStore nps(directory, card_of(3, 8, 8));
    EXPECT_EQ(nps[1].table(TableKind::ext_conf).size(), 1U);
    EXPECT_EQ(nps[2].counters().read(7).bytes, 60U);
}

TEST_F(NpStores, AnotherNumberOfNpsIsRefusedNamingBoth)
{
    NpStore(directory, card_of(2, 8, 8));
    const auto before = all_files(top.path());
    for (const uint16_t nps : {uint16_t{1}, uint16_t{4}}) {
        EXPECT_EQ(open_refusal(card_of(nps, 8, 8)), directory.file("np0").string() +
                                                        ": was made for 2 NPs, and " +
                                                        std::to_string(nps) + " are asked for");
    }
    EXPECT_EQ(all_files(top.path()), before);
    EXPECT_EQ(open_refusal(card_of(2, 8, 8)), "");
}

TEST_F(NpStores, OtherCapacitiesAreRefusedNamingBoth)
{
    NpStore(directory, card_of(2, 8, 16));
    EXPECT_EQ(open_refusal(card_of(2, 9, 16)),
              directory.file("np0").string() +
                  ": was made for 8 service config rows, and 9 are asked for");
    EXPECT_EQ(open_refusal(card_of(2, 8, 8)), directory.file("np0").string() +
                                                  ": was made for 16 ext conf rows, and 8 are "
                                                  "asked for");
}

TEST_F(NpStores, NumbersThatNoCardHasAreRefused)
{
    for (const CardConfig &config :
         {card_of(0, 8, 8), card_of(9, 8, 8), card_of(1, 0, 8), card_of(1, 8, 2000001)}) {
        const std::string told = open_refusal(config);
        EXPECT_EQ(told.find(top.path().string() + ": a card with "), 0U) << told;
    }
    EXPECT_EQ(all_files(top.path()).size(), 1U);
}

TEST_F(NpStores, AMissingFileIsRefusedAndNotReplacedByAnEmptyOne)
{
    NpStore(directory, card_of(2, 8, 8));
    std::filesystem::remove(directory.file("np1"));
    EXPECT_EQ(open_refusal(card_of(2, 8, 8)), directory.file("np1").string() + ": is missing");
    EXPECT_FALSE(std::filesystem::exists(directory.file("np1")));
}

TEST_F(NpStores, TheFileOfAnotherNpIsRefused)
{
    NpStore(directory, card_of(2, 8, 8));
    std::filesystem::copy_file(directory.file("np1"), directory.file("np0"),
                               std::filesystem::copy_options::overwrite_existing);
    EXPECT_EQ(open_refusal(card_of(2, 8, 8)),
              directory.file("np0").string() + ": is the file of NP 1");
}

TEST_F(NpStores, FilesLeftByAProcessKilledWhileItMadeThemAreMadeAgain)
{
    NpStore(directory, card_of(8, 8, 8));
    std::filesystem::remove(directory.file("np0")); // which is made last
    EXPECT_EQ(open_refusal(card_of(2, 16, 16)), "");
    EXPECT_EQ(NpStore(directory, card_of(2, 16, 16))[1].table(TableKind::ext_conf).capacity(), 16U);
}

TEST_F(NpStores, ATableThatRefersToARowTwiceIsRefused)
{
    {
        NpStore nps(directory, card_of(1, 8, 8));
        nps[0].table(TableKind::service_config).add(bytes("a"), bytes("r"));
    }
    // The index: 16 entries of 4 bytes behind the header and a cache line.
    std::string content = content_of(directory.file("np0"));
    const size_t index = 4096 + 64;
    size_t entry = index;
    while (content.substr(entry, 4) == std::string(4, '\0')) {
        entry += 4;
    }
    ASSERT_LT(entry, index + 64);
    const size_t neighbour = entry == index ? entry + 4 : entry - 4;
    content.replace(neighbour, 4, content.substr(entry, 4));
    write_file(directory.file("np0"), content);
    EXPECT_EQ(open_refusal(card_of(1, 8, 8)),
              directory.file("np0").string() + ": its table refers to a row that cannot be");
}

TEST_F(NpStores, ATableWithARowUnderAnotherKeyIsRefused)
{
    {
        NpStore nps(directory, card_of(1, 8, 8));
        nps[0].table(TableKind::service_config).add(bytes("a"), bytes("r"));
    }
    std::string content = content_of(directory.file("np0"));
    const size_t rows = 4096 + 64 + 2 * 64;
    ASSERT_EQ(content[rows + 8], 'a');
    content[rows + 8] = 'b';
    write_file(directory.file("np0"), content);
    EXPECT_EQ(open_refusal(card_of(1, 8, 8)),
              directory.file("np0").string() + ": its table holds a row that cannot be found");
}

TEST(CounterBanks, ANumberIsUnderstoodInEitherByteOrder)
{
    EXPECT_EQ(CounterBank::place(0xC00000), 0);
    EXPECT_EQ(CounterBank::place(0x0000C0), 0);
    EXPECT_EQ(CounterBank::place(0xC01234), 0x1234);
    EXPECT_EQ(CounterBank::place(0x3412C0), 0x1234);
    EXPECT_EQ(CounterBank::place(0xC0FFFF), 0xFFFF);
    EXPECT_EQ(CounterBank::place(0xFFFFC0), 0xFFFF);
    EXPECT_EQ(CounterBank::place(0xC012C0), 0x12C0) << "the same in both";
}

TEST(CounterBanks, ANumberOutsideTheRegionHasNoPlace)
{
    for (const uint32_t number :
         {0U, 0xBFFFFFU, 0xC10000U, 0x1234U, 0xC1U, 0x1C00000U, 0x10000C0U, 0xC0000000U}) {
        EXPECT_EQ(CounterBank::place(number), -1) << std::hex << number;
    }
}

TEST(CounterBanks, PacketsAndBytesAreCountedReadAndCleared)
{
    TestDirectory top;
    const StateDirectory directory(top.path(), Access::read_write);
    NpStore nps(directory, card_of(1, 8, 8));
    CounterBank &counters = nps[0].counters();
    for (int i = 0; i < 10; ++i) {
        counters.add(3, 0xFFFFFFFF);
    }
    counters.add(65535, 60);
    EXPECT_EQ(counters.read(3).packets, 10U);
    EXPECT_EQ(counters.read(3).bytes, 10 * uint64_t{0xFFFFFFFF});
    EXPECT_EQ(counters.read(2).packets + counters.read(4).packets, 0U) << "neighbours";
    EXPECT_EQ(counters.read_and_clear(3).packets, 10U);
    EXPECT_EQ(counters.read(3).packets, 0U);
    EXPECT_EQ(counters.read(3).bytes, 0U);
    EXPECT_EQ(counters.read(65535).bytes, 60U);
    counters.clear();
    EXPECT_EQ(counters.read(65535).bytes, 0U);
}

} // namespace vlc::test
