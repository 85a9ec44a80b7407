// Slots, interfaces and VRFs of card files, and a card's text form.
#include "vlc/card_config.h"

#include "test_directory.h"
#include "vlc/state_directory.h"

namespace vlc::test {

namespace {

class CardRows : public testing::Test {
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
        return all.size() < name.size() ? all : all.substr(name.size());
    }
    std::string told_of_interface(const std::string &fields)
    {
        return told("[[interface]]\nhandle = 1\nuidb = 2\npic = 3\n" + fields);
    }

    TestDirectory top;
    std::filesystem::path file = top.file("card.toml");
};

CardConfig card_with_everything()
{
    CardConfig card;
    card.name = "all of it";
    card.window_bytes = (uint64_t{1} << 20) + 4096;
    card.slots = {{.number = 65535, .node = 0xFFFFFFFF, .card_type = 0x3C0266}, {}};
    card.interfaces = {
        {.handle = 1, .uidb = 4095, .pic = 7, .vlan = 0, .capture = "a b.pcap"},
        {.handle = 2, .uidb = 0, .pic = 0, .source = Ipv4Prefix{0xC0000200, 24}, .key = 0x3FF},
        {.handle = 0xFFFFFFFF, .uidb = 9, .pic = 1, .vlan = 4095, .key = 0x2FF},
        {.handle = 4, .uidb = 5, .pic = 6}};
    card.vrfs = {{.id = 0xFFFFFFFF, .table = 0xFFFFFF}};
    card.num_nps = 8;
    card.inject_np = 1;
    card.cpu_ports = {{.np = 0, .port = 65535, .device = "veth0"},
                      {.np = 1, .is_there = false},
                      {.np = 2, .device = "eth1.100"},
                      {.np = 7}};
    return card;
}

} // namespace

TEST_F(CardRows, CpuPortsAreTakenInTheOrderOfTheFile)
{
    const CardConfig card = load("[nps]\ncount = 4\ninject_np = 3\n"
                                 "[[cpu_port]]\nnp = 2\nport = 5\ndevice = 'veth0'\n"
                                 "[[cpu_port]]\nnp = 0\nport = 'none'\n"
                                 "[[cpu_port]]\nnp = 1\ndevice = 'veth1'\n");
    EXPECT_EQ(card.inject_np, 3);
    EXPECT_EQ(card.cpu_ports, (std::vector<CpuPortConfig>{{.np = 2, .port = 5, .device = "veth0"},
                                                          {.np = 0, .is_there = false},
                                                          {.np = 1, .device = "veth1"}}));
    EXPECT_EQ(cpu_port_of(card, 2), 5U);
    EXPECT_EQ(cpu_port_of(card, 0), std::nullopt);
    EXPECT_EQ(cpu_port_of(card, 1), 17U);
    EXPECT_EQ(cpu_port_of(card, 3), 19U);
    EXPECT_EQ(cpu_port_of(card, 4), std::nullopt);
}

TEST_F(CardRows, CpuPortsThatCannotBeAreRefused)
{
    EXPECT_EQ(told("[[cpu_port]]\nport = 5\n"), "1:1: [[cpu_port]] without 'np'");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\n[[cpu_port]]\nnp = 0\n"),
              "4:6: 'cpu_port.np' 0 is given in line 2 already");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 2\n"), "2:6: the card has 2 NPs, and no NP 2");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\nport = 'any'\n"),
              "3:8: 'cpu_port.port' is a whole number, or 'none' for an NP that has no port");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\nport = 65536\n"),
              "3:8: 'cpu_port.port' is 65536, and must be 0 to 65535");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\ndevice = 'a/b'\n"),
              "3:10: 'cpu_port.device' is the name of a network device");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\ndevice = 'a-name-with-16-c'\n"),
              "3:10: 'cpu_port.device' is the name of a network device");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\nport = 'none'\ndevice = 'veth0'\n"),
              "4:10: an NP without a port has no device");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\nport = 17\ndevice = 'veth0'\n"
                   "[[cpu_port]]\nnp = 1\ndevice = 'veth1'\n"),
              "7:10: a device of CPU port 17 is given in line 4 already");
    EXPECT_EQ(told("[nps]\ninject_np = 2\n"), "2:13: the card has 2 NPs, and no NP 2");
    EXPECT_EQ(told("[[cpu_port]]\nnp = 0\ndevise = 'veth0'\n"),
              "3:1: 'cpu_port.devise' is not known; the nearest known name is 'cpu_port.device'");
}

// So that a state that was made before there was the choice can be read.
TEST_F(CardRows, TheOrdinaryNpOfInjectedPacketsIsNotSaidInACardsText)
{
    CardConfig card;
    EXPECT_EQ(text_of(card).find("inject_np"), std::string::npos);
    EXPECT_EQ(card_of_text(text_of(card), "text").inject_np, 0);
    card.inject_np = 1;
    EXPECT_EQ(card_of_text(text_of(card), "text").inject_np, 1);
}

TEST_F(CardRows, EveryFieldIsTakenInTheOrderOfTheFile)
{
    const CardConfig card = load("[[slot]]\nnumber = 3\nnode = 0x31\ntype = 0x3C0266\n"
                                 "[[interface]]\nhandle = 0x100\nuidb = 4095\npic = 12\n"
                                 "vlan = 77\ncapture = 'x.pcap'\nsource = '192.0.2.0/24'\n"
                                 "vservice = 255\n"
                                 "[[interface]]\nhandle = 0x101\nuidb = 0\npic = 13\n"
                                 "source = '203.0.113.9'\nkey = 5\n"
                                 "[[vrf]]\nid = 9\ntable = 0xFFFFFF\n");
    EXPECT_EQ(card.slots,
              (std::vector<SlotConfig>{{.number = 3, .node = 0x31, .card_type = 0x3C0266}}));
    const InterfaceConfig first{.handle = 0x100,
                                .uidb = 4095,
                                .pic = 12,
                                .vlan = 77,
                                .capture = "x.pcap",
                                .source = Ipv4Prefix{0xC0000200, 24},
                                .key = 0x3FF};
    const InterfaceConfig second{
        .handle = 0x101, .uidb = 0, .pic = 13, .source = Ipv4Prefix{0xCB007109, 32}, .key = 5};
    EXPECT_EQ(card.interfaces, (std::vector<InterfaceConfig>{first, second}));
    EXPECT_EQ(card.vrfs, (std::vector<VrfConfig>{{.id = 9, .table = 0xFFFFFF}}));
}

TEST_F(CardRows, AFieldOutOfRangeIsRefusedWithItsPlaceAndTheRange)
{
    EXPECT_EQ(told_of_interface("vlan = 4096"),
              "5:8: 'interface.vlan' is 4096, and must be 0 to 4095");
    EXPECT_EQ(told_of_interface("key = 1024"),
              "5:7: 'interface.key' is 1024, and must be 0 to 1023");
    EXPECT_EQ(told_of_interface("vservice = 256"),
              "5:12: 'interface.vservice' is 256, and must be 0 to 255");
    EXPECT_EQ(told("[[interface]]\nuidb = 4096"),
              "2:8: 'interface.uidb' is 4096, and must be 0 to 4095");
    EXPECT_EQ(told("[[slot]]\nnumber = -1"), "2:10: 'slot.number' is -1, and must be 0 to 65535");
    EXPECT_EQ(told("[[vrf]]\ntable = 0x1000000"),
              "2:9: 'vrf.table' is 16777216, and must be 0 to 16777215");
}

TEST_F(CardRows, ASourceThatIsNoPrefixIsRefused)
{
    const std::string why = "5:10: 'interface.source' is an IPv4 prefix such as '192.0.2.0/24', "
                            "with no bit set behind its length";
    for (const char *text : {"192.0.2.1/24", "192.0.2.0/33", "192.0.2.0/", "192.0.2.0/-1", "/24",
                             "192.0.2/24", "192.0.2.0/24 ", "2001:db8::/32"})
        EXPECT_EQ(told_of_interface("source = '" + std::string(text) + "'"), why) << text;
    EXPECT_EQ(told_of_interface("source = 5"),
              "5:10: 'interface.source' is a text that is not empty");
}

TEST_F(CardRows, ACaptureIsNamedWithoutItsDirectory)
{
    EXPECT_EQ(told_of_interface("capture = 'captures/x.pcap'"),
              "5:11: 'interface.capture' is a file's name without its directory");
}

TEST_F(CardRows, AnEntryWithoutTrafficIsRefused)
{
    EXPECT_EQ(told_of_interface("vservice = 1"),
              "1:1: an interface whose packets meet an entry needs traffic: give 'vlan', "
              "'capture' or 'source'");
}

TEST_F(CardRows, AKeyAndAVserviceTogetherAreRefused)
{
    EXPECT_EQ(told_of_interface("vlan = 1\nkey = 1\nvservice = 1"),
              "7:12: 'interface.key' and 'interface.vservice' are two names of one thing: give "
              "one of them");
}

TEST_F(CardRows, AMissingFieldIsNamed)
{
    EXPECT_EQ(told("[[interface]]\nhandle = 1\nuidb = 2"), "1:1: [[interface]] without 'pic'");
    EXPECT_EQ(told("[[slot]]\nnumber = 1\nnode = 2"), "1:1: [[slot]] without 'type'");
    EXPECT_EQ(told("[[vrf]]\ntable = 1"), "1:1: [[vrf]] without 'id'");
}

TEST_F(CardRows, AnUnknownFieldNamesTheNearestKnownOne)
{
    EXPECT_EQ(told_of_interface("vlna = 3"),
              "5:1: 'interface.vlna' is not known; the nearest known name is 'interface.vlan'");
    EXPECT_EQ(told("[[interfaces]]\nhandle = 1"),
              "1:3: 'interfaces' is not known; the nearest known name is 'interface'");
}

TEST_F(CardRows, WhatIsNoListOfTablesIsRefused)
{
    const std::string why = " 'vrf' is a list of tables, each written [[vrf]]";
    EXPECT_EQ(told("vrf = 3"), "1:7:" + why);
    EXPECT_EQ(told("[vrf]\nid = 3"), "1:1:" + why);
    EXPECT_EQ(told("vrf = [3]"), "1:8:" + why);
}

TEST_F(CardRows, WhatNamesARowIsGivenOnce)
{
    const std::string slot = "[[slot]]\nnumber = 1\nnode = 2\ntype = 3\n";
    EXPECT_EQ(told(slot + "[[slot]]\nnumber = 1\nnode = 3\ntype = 3"),
              "6:10: 'slot.number' 1 is given in line 2 already");
    EXPECT_EQ(told(slot + "[[slot]]\nnumber = 2\nnode = 2\ntype = 3"),
              "7:8: 'slot.node' 2 is given in line 3 already");
    const std::string interface = "[[interface]]\nhandle = 1\nuidb = 2\npic = 3\n";
    EXPECT_EQ(told(interface + "[[interface]]\nhandle = 1\nuidb = 3\npic = 3"),
              "6:10: 'interface.handle' 1 is given in line 2 already");
    EXPECT_EQ(told(interface + "[[interface]]\nhandle = 2\nuidb = 2\npic = 3"),
              "7:8: 'interface.uidb' 2 is given in line 3 already");
    EXPECT_EQ(told("[[vrf]]\nid = 1\ntable = 3\n[[vrf]]\nid = 1\ntable = 4"),
              "5:6: 'vrf.id' 1 is given in line 2 already");
}

TEST_F(CardRows, TrafficThatAnEarlierInterfaceTakesWholeIsRefused)
{
    const std::string traffic = "vlan = 5\nsource = '192.0.2.0/24'\n";
    EXPECT_EQ(told("[[interface]]\nhandle = 1\nuidb = 2\npic = 3\n" + traffic +
                   "[[interface]]\nhandle = 2\nuidb = 3\npic = 3\n" + traffic),
              "7:1: an interface for VLAN 5 source 192.0.2.0/24 is given in line 1 already");
}

TEST_F(CardRows, TooManyRowsAreRefused)
{
    std::string rows;
    for (int i = 0; i < 4097; ++i)
        rows += "[[vrf]]\nid = " + std::to_string(i) + "\ntable = 1\n";
    EXPECT_EQ(told(rows), "1:1: 'vrf' has 4097 rows, and may have 4096");
}

TEST_F(CardRows, TheWindowsSizeIsGivenInOneUnit)
{
    EXPECT_EQ(load("[window]\nbytes = 8192\n").window_bytes, 8192U);
    EXPECT_EQ(told("[window]\nbytes = 8192\nmebibytes = 1\n"),
              "2:9: 'window.bytes' and 'window.mebibytes' say the same: give one of them");
}

TEST(CardTexts, ACardsTextIsTheCardAgain)
{
    EXPECT_EQ(card_of_text(text_of(CardConfig{}), "text"), CardConfig{});
    EXPECT_EQ(card_of_text(text_of(card_with_everything()), "text"), card_with_everything());
}

TEST_F(CardRows, ACardsTextIsACardFile)
{
    EXPECT_EQ(load(text_of(card_with_everything())), card_with_everything());
}

TEST(CardTexts, OneThatWasCutOffIsNoCard)
{
    const std::string whole = text_of(card_with_everything());
    for (size_t left = 0; left < whole.find("[window]"); ++left)
        EXPECT_NE(refusal([&] { card_of_text(whole.substr(0, left), "text"); }), "") << left;
}

TEST(CardTexts, AStateKeepsAllOfItsCard)
{
    TestDirectory top;
    StateDirectory(top.path(), Access::read_write).complete(card_with_everything(), Holdings::card);
    EXPECT_EQ(stored_card(top.path()), card_with_everything());
    EXPECT_EQ(StateDirectory(top.path(), Access::read_only).holdings(), Holdings::card);
}

TEST(CardTexts, AMarkerWithoutRowsIsRead)
{
    TestDirectory top;
    write_file(
        top.file("virtual-line-card"),
        "state of a virtual line card, version 2\n"
        "holds = 'host'\n\n[card]\nname = 'default'\nslot = 3\ntype = 13762561\n\n"
        "[nps]\ncount = 2\ndynamic_counters = 16384\next_conf_rows = 8192\nflow_rows = 8192\n"
        "service_config_rows = 8192\n\n"
        "[window]\nbytes = 67108864\n");
    CardConfig expected;
    expected.slot = 3;
    EXPECT_EQ(stored_card(top.path()), expected);
    EXPECT_EQ(StateDirectory(top.path(), Access::read_only).holdings(), Holdings::host);
}

TEST(CardTexts, TheLargestOneFitsIntoTheFirstMessageAtASocket)
{
    CardConfig card;
    for (uint16_t i = 0; i < 4096; ++i) {
        card.slots.push_back({.number = i, .node = 0xFFFFFFFF - i, .card_type = 0xFFFFFFFF});
        card.interfaces.push_back({.handle = 0xFFFFFFFF - i,
                                   .uidb = i,
                                   .pic = 0xFFFFFFFF,
                                   .vlan = 4095,
                                   .capture = std::string(255, '"'),
                                   .source = Ipv4Prefix{0xFFFFFFFF - i, 32},
                                   .key = 0x2FF});
        card.vrfs.push_back({.id = 0xFFFFFFFF - i, .table = 0xFFFFFF});
    }
    EXPECT_LT(text_of(card).size(), size_t{4} << 20);
}

} // namespace vlc::test
