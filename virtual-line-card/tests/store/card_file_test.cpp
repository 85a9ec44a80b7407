#include "vlc/card_config.h"

#include "test_directory.h"

namespace vlc::test {

namespace {

class CardFiles : public testing::Test {
protected:
    CardConfig load(const std::string &content)
    {
        write_file(file, content);
        return load_card_file(file);
    }
    // Without the file's name in front.
    std::string told(const std::string &content)
    {
        const std::string all = refusal([&] { load(content); });
        const std::string name = file.string() + ":";
        EXPECT_EQ(all.find(name), 0U) << all;
        EXPECT_EQ(all.find('\n'), std::string::npos) << all;
        return all.size() < name.size() ? all : all.substr(name.size());
    }

    TestDirectory top;
    std::filesystem::path file = top.file("card.toml");
};

void expect_default(const CardConfig &config)
{
    EXPECT_EQ(config, CardConfig{});
}

} // namespace

TEST_F(CardFiles, AnEmptyOneIsTheDefaultCard)
{
    expect_default(load(""));
    expect_default(load("# nothing\n[card]\n[nps]\n"));
}

TEST_F(CardFiles, EveryKeyIsTaken)
{
    const CardConfig config = load("[card]\nname = 'mine'\ntype = 0xFFFFFFFF\nslot = 65535\n"
                                   "[nps]\ncount = 8\nservice_config_rows = 1048576\n"
                                   "ext_conf_rows = 1\nflow_rows = 1000000\n"
                                   "dynamic_counters = 2000000\n[window]\nmebibytes = 4096\n");
    EXPECT_EQ(config.name, "mine");
    EXPECT_EQ(config.card_type, 0xFFFFFFFFU);
    EXPECT_EQ(config.slot, 65535U);
    EXPECT_EQ(config.num_nps, 8U);
    EXPECT_EQ(config.service_config_capacity, 1048576U);
    EXPECT_EQ(config.ext_conf_capacity, 1U);
    EXPECT_EQ(config.flow_capacity, 1000000U);
    EXPECT_EQ(config.dynamic_counters, 2000000U);
    EXPECT_EQ(config.window_bytes, uint64_t{4096} << 20);
}

TEST_F(CardFiles, ANumberOutOfRangeIsRefusedWithItsPlaceAndTheRange)
{
    EXPECT_EQ(told("[nps]\ncount = 9"), "2:9: 'nps.count' is 9, and must be 1 to 8");
    EXPECT_EQ(told("[nps]\ncount = 0"), "2:9: 'nps.count' is 0, and must be 1 to 8");
    EXPECT_EQ(told("[nps]\next_conf_rows = 2000001"),
              "2:17: 'nps.ext_conf_rows' is 2000001, and must be 1 to 2000000");
    EXPECT_EQ(told("[nps]\nflow_rows = 0"), "2:13: 'nps.flow_rows' is 0, and must be 1 to 2000000");
    EXPECT_EQ(told("[nps]\ndynamic_counters = 4194305"),
              "2:20: 'nps.dynamic_counters' is 4194305, and must be 0 to 4194304");
    EXPECT_EQ(told("[window]\n  mebibytes = 4097"),
              "2:15: 'window.mebibytes' is 4097, and must be 1 to 4096");
    EXPECT_EQ(told("[card]\ntype = 0x100000000"),
              "2:8: 'card.type' is 4294967296, and must be 0 to 4294967295");
    EXPECT_EQ(told("[card]\nslot = -1"), "2:8: 'card.slot' is -1, and must be 0 to 65535");
}

TEST_F(CardFiles, AValueOfAnotherTypeIsRefusedWithItsPlace)
{
    EXPECT_EQ(told("[nps]\ncount = \"two\""), "2:9: 'nps.count' is a whole number, 1 to 8");
    EXPECT_EQ(told("[nps]\ncount = 2.0"), "2:9: 'nps.count' is a whole number, 1 to 8");
    EXPECT_EQ(told("[card]\nname = 3"), "2:8: 'card.name' is a text that is not empty");
    EXPECT_EQ(told("[card]\nname = ''"), "2:8: 'card.name' is a text that is not empty");
    EXPECT_EQ(told("card = 3"), "1:8: 'card' is a table: [card]");
}

TEST_F(CardFiles, AnUnknownKeyNamesTheNearestKnownOne)
{
    EXPECT_EQ(told("[nps]\ncuont = 2"),
              "2:1: 'nps.cuont' is not known; the nearest known name is 'nps.count'");
    EXPECT_EQ(told("[nps]\nservice_config_row = 2"),
              "2:1: 'nps.service_config_row' is not known; the nearest known name is "
              "'nps.service_config_rows'");
    EXPECT_EQ(told("[nsp]\ncount = 2"), "1:2: 'nsp' is not known; the nearest known name is 'nps'");
    EXPECT_EQ(told("mebibyte = 2"),
              "1:1: 'mebibyte' is not known; the nearest known name is 'window.mebibytes'");
    EXPECT_EQ(told("[window]\ncount = 2"),
              "2:1: 'window.count' is not known; the nearest known name is 'nps.count'");
}

TEST_F(CardFiles, WhatIsNoTomlIsRefusedWithItsPlace)
{
    EXPECT_EQ(told("[card]\nname = ").substr(0, 2), "2:");
    EXPECT_EQ(told("[card\n").substr(0, 2), "1:");
    EXPECT_EQ(told("[card]\nslot = 1\nslot = 2\n").substr(0, 2), "3:");
    EXPECT_EQ(told("\xFF\xFE garbage").substr(0, 2), "1:");
}

TEST_F(CardFiles, OneThatCannotBeReadIsRefused)
{
    EXPECT_EQ(refusal([&] { load_card_file(top.file("none.toml")); }),
              top.file("none.toml").string() + ": cannot be read: No such file or directory");
    EXPECT_EQ(refusal([&] { load_card_file(top.path()); }),
              top.path().string() + ": cannot be read: Is a directory");
}

TEST(SampleCardFiles, TheDefaultOneSaysWhatIsTakenWithoutOne)
{
    expect_default(load_card_file(CARD_FILES "/default.toml"));
}

TEST(SampleCardFiles, AllOfThemLoad)
{
    EXPECT_EQ(load_card_file(CARD_FILES "/counters-unswapped.toml").card_type, 0xD10001U);
    EXPECT_EQ(load_card_file(CARD_FILES "/eight-nps.toml").num_nps, 8U);
    size_t files = 0;
    for (const auto &entry : std::filesystem::directory_iterator(CARD_FILES)) {
        EXPECT_EQ(refusal([&] { load_card_file(entry.path()); }), "");
        ++files;
    }
    EXPECT_GE(files, 3U);
}

} // namespace vlc::test
