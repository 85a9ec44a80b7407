// What the parser reads of each kind of packet, row by row.
#include <gtest/gtest.h>

#include "test_packets.h"
#include "vlc/packet.h"

namespace {

using test_packets::Frame;
using vlc::FiveTuple;
using vlc::LinkType;
using vlc::Unreadable;

#define MACS "020000000002 020000000001 "
#define SLL "0000 0001 0006 0200000000010000 " /* the two bytes of the protocol follow */
#define ADDRESSES "0a000001 0a000002 "
#define UDP_PORTS "04d2162e "
#define UDP UDP_PORTS "000c0000 61626364 "
#define TCP "04d2162e 00000001 00000002 5010 0064 0000 0000 "
/* 20 bytes of header, 12 of UDP */
#define IP_UDP "4500 0020 0001 0000 40 11 0000 " ADDRESSES UDP
#define IP_TCP "4500 0028 0001 0000 40 06 0000 " ADDRESSES TCP

constexpr uint32_t source = 0x0a000001;
constexpr uint32_t destination = 0x0a000002;
constexpr FiveTuple udp{source, destination, 1234, 5678, 17};
constexpr FiveTuple tcp{source, destination, 1234, 5678, 6};
constexpr FiveTuple udp_without_ports{source, destination, 0, 0, 17};
constexpr FiveTuple tcp_without_ports{source, destination, 0, 0, 6};

constexpr FiveTuple without_ports(uint8_t protocol)
{
    return {source, destination, 0, 0, protocol};
}

constexpr FiveTuple udp_to(uint32_t address)
{
    return {source, address, 1234, 5678, 17};
}

struct Row {
    const char *name;
    LinkType link;
    const char *hex;
    Unreadable unreadable;
    FiveTuple tuple{};
    uint16_t vlan_id = 0;
    uint8_t tags = 0;
    bool fragment = false;
};

std::string name_of(const testing::TestParamInfo<Row> &info)
{
    return info.param.name;
}

void PrintTo(const Row &row, std::ostream *out)
{
    *out << row.name;
}

class ParserRow : public testing::TestWithParam<Row> {};

TEST_P(ParserRow, IsReadAsItStands)
{
    const Row &row = GetParam();
    const Frame frame = test_packets::from_hex(row.hex);
    test_packets::GuardedBytes guarded(frame.size());
    const auto parsed = parse_packet(test_packets::captured(row.link, guarded.hold(frame)));
    EXPECT_STREQ(unreadable_text(parsed.unreadable), unreadable_text(row.unreadable));
    EXPECT_EQ(parsed.tuple.source, row.tuple.source);
    EXPECT_EQ(parsed.tuple.destination, row.tuple.destination);
    EXPECT_EQ(parsed.tuple.protocol, row.tuple.protocol);
    EXPECT_EQ(parsed.tuple.source_port, row.tuple.source_port);
    EXPECT_EQ(parsed.tuple.destination_port, row.tuple.destination_port);
    EXPECT_EQ(parsed.vlan_id, row.vlan_id);
    EXPECT_EQ(parsed.tags, row.tags);
    EXPECT_EQ(parsed.fragment, row.fragment);
}

constexpr auto ethernet = LinkType::ethernet;
constexpr auto sll = LinkType::linux_sll;
constexpr auto readable = Unreadable::none;
constexpr auto link_cut = Unreadable::link_cut;
constexpr auto not_ipv4 = Unreadable::not_ipv4;
constexpr auto ipv4_cut = Unreadable::ipv4_cut;
constexpr auto ipv4_broken = Unreadable::ipv4_broken;

const Row link_rows[] = {
    {"UdpOverEthernet", ethernet, MACS "0800" IP_UDP, readable, udp},
    {"TcpOverEthernet", ethernet, MACS "0800" IP_TCP, readable, tcp},
    {"UdpOverLinuxSll", sll, SLL "0800" IP_UDP, readable, udp},
    {"OneCustomerTag", ethernet, MACS "8100 6064 0800" IP_UDP, readable, udp, 100, 1},
    {"OneServiceTag", ethernet, MACS "88a8 0fff 0800" IP_UDP, readable, udp, 4095, 1},
    {"OneTagOfTheOldServiceKind", ethernet, MACS "9100 0001 0800" IP_UDP, readable, udp, 1, 1},
    {"ServiceTagOutsideACustomerTag", ethernet, MACS "88a8 00c8 8100 001e 0800" IP_UDP, readable,
     udp, 200, 2},
    {"FiveTags", ethernet, MACS "8100 0005 8100 0004 88a8 0003 9100 0002 8100 0001 0800" IP_UDP,
     readable, udp, 5, 5},
    {"PriorityTagOfVlanZero", ethernet, MACS "8100 e000 0800" IP_TCP, readable, tcp, 0, 1},
    {"TagOverLinuxSll", sll, SLL "8100 0009 0800" IP_UDP, readable, udp, 9, 1},
    {"SnapIn8023", ethernet, MACS "0028 aaaa03 000000 0800" IP_UDP, readable, udp},
    {"BridgedSnapIn8023", ethernet, MACS "0028 aaaa03 0000f8 0800" IP_UDP, readable, udp},
    {"Ipv4AccessPointOfLlc", ethernet, MACS "0023 060603" IP_UDP, readable, udp},
    {"SnapBehindATag", ethernet, MACS "8100 0007 0028 aaaa03 000000 0800" IP_UDP, readable, udp, 7,
     1},
    {"TagBehindSnap", ethernet, MACS "002c aaaa03 000000 8100 0005 0800" IP_UDP, readable, udp, 5,
     1},
    {"SnapOverLinuxSll", sll, SLL "0004 aaaa03 000000 0800" IP_UDP, readable, udp},
    {"A8023LengthThatEndsBeforeThePorts", ethernet, MACS "001f aaaa03 000000 0800" IP_UDP, readable,
     udp_without_ports},
    {"A8023LengthThatEndsInTheIpv4Header", ethernet, MACS "0014 aaaa03 000000 0800" IP_UDP,
     ipv4_cut},
    {"A8023LengthBeyondTheFrame", ethernet, MACS "0578 aaaa03 000000 0800" IP_UDP, readable, udp},
    {"SpanningTree", ethernet, MACS "0026 424203 0000000000", not_ipv4},
    {"SnapOfAnotherOwner", ethernet, MACS "0028 aaaa03 00000c 2000" IP_UDP, not_ipv4},
    {"SnapInSnap", ethernet, MACS "0030 aaaa03 000000 0028 aaaa03 000000 0800" IP_UDP, not_ipv4},
    {"TypeBetweenLengthsAndProtocols", ethernet, MACS "05dd aaaa03 000000 0800" IP_UDP, not_ipv4},
    {"Arp", ethernet, MACS "0806 0001 0800 0604 0001", not_ipv4},
    {"Ipv6", ethernet, MACS "86dd 6000 0000 0000 3bff", not_ipv4},
    {"ArpBehindATag", ethernet, MACS "8100 0021 0806 0001 0800", not_ipv4, {}, 33, 1},
    {"PppOverEthernet", ethernet, MACS "8864 1100 0001 0022 0021" IP_UDP, not_ipv4},
    {"LinuxSllWithoutAType", sll, SLL "0001" IP_UDP, not_ipv4},
    {"LinuxSllTypeThatLooksLikeALength", sll, SLL "0028 aaaa03 000000 0800" IP_UDP, not_ipv4},
    {"NoBytes", ethernet, "", link_cut},
    {"EthernetCutInTheType", ethernet, MACS "08", link_cut},
    {"LinuxSllCutInTheProtocol", sll, SLL "08", link_cut},
    {"CutInATag", ethernet, MACS "8100 0064 08", link_cut},
    {"CutInTheSecondTag", ethernet, MACS "8100 0064 8100 00", link_cut, {}, 100, 1},
    {"CutInLlc", ethernet, MACS "0028 aaaa", link_cut},
    {"CutInSnap", ethernet, MACS "0028 aaaa03 000000 08", link_cut},
};

const Row ipv4_rows[] = {
    {"Icmp", ethernet, MACS "0800 4500 001c 0001 0000 40 01 0000" ADDRESSES "0800f7ff00000000",
     readable, without_ports(1)},
    {"IcmpErrorAboutATcpPacket", ethernet,
     MACS "0800 4500 0044 0001 0000 40 01 0000" ADDRESSES "0303 0000 00000000" IP_TCP, readable,
     without_ports(1)},
    {"TunnelledIpv4", ethernet, MACS "0800 4500 0034 0001 0000 40 04 0000" ADDRESSES IP_UDP,
     readable, without_ports(4)},
    {"Sctp", ethernet, MACS "0800 4500 0020 0001 0000 40 84 0000" ADDRESSES UDP, readable,
     without_ports(132)},
    {"UdpLite", ethernet, MACS "0800 4500 0020 0001 0000 40 88 0000" ADDRESSES UDP, readable,
     without_ports(136)},
    {"FirstFragment", ethernet, MACS "0800 4500 0020 0001 2000 40 11 0000" ADDRESSES UDP, readable,
     udp, 0, 0, true},
    {"MiddleFragment", ethernet, MACS "0800 4500 0020 0001 2001 40 11 0000" ADDRESSES UDP, readable,
     udp_without_ports, 0, 0, true},
    {"LastFragment", ethernet, MACS "0800 4500 0020 0001 00b9 40 06 0000" ADDRESSES TCP, readable,
     tcp_without_ports, 0, 0, true},
    {"DoNotFragmentIsNoFragment", ethernet,
     MACS "0800 4500 0020 0001 4000 40 11 0000" ADDRESSES UDP, readable, udp},
    {"ReservedFlagIsNoFragment", ethernet, MACS "0800 4500 0020 0001 8000 40 11 0000" ADDRESSES UDP,
     readable, udp},
    {"PaddingBehindThePacketIsNoPort", ethernet,
     MACS "0800 4500 0014 0001 0000 40 11 0000" ADDRESSES "04d2162e000c0000", readable,
     udp_without_ports},
    {"TotalLengthThatEndsInThePorts", ethernet,
     MACS "0800 4500 0017 0001 0000 40 06 0000" ADDRESSES TCP, readable, tcp_without_ports},
    {"TotalLengthThatEndsBehindThePorts", ethernet,
     MACS "0800 4500 0018 0001 0000 40 06 0000" ADDRESSES TCP, readable, tcp},
    {"TotalLengthBeyondTheFrame", ethernet,
     MACS "0800 4500 07d0 0001 0000 40 11 0000" ADDRESSES UDP, readable, udp},
    {"TotalLengthZeroGoesAsFarAsTheFrame", ethernet,
     MACS "0800 4500 0000 0001 0000 40 11 0000" ADDRESSES UDP, readable, udp},
    {"CutBeforeThePorts", ethernet, MACS "0800 4500 0020 0001 0000 40 11 0000" ADDRESSES "04d216",
     readable, udp_without_ports},
    {"CutBehindThePorts", ethernet, MACS "0800 4500 0020 0001 0000 40 11 0000" ADDRESSES UDP_PORTS,
     readable, udp},
    {"CutInTheAddresses", ethernet, MACS "0800 4500 0020 0001 0000 40 11 0000 0a000001 0a0000",
     ipv4_cut},
    {"NothingBehindTheType", ethernet, MACS "0800", ipv4_cut},
    {"Version6UnderIpv4sType", ethernet, MACS "0800 6500 0020 0001 0000 40 11 0000" ADDRESSES UDP,
     ipv4_broken},
    {"Version0", ethernet, MACS "0800 0500 0020 0001 0000 40 11 0000" ADDRESSES UDP, ipv4_broken},
    {"HeaderLengthOf16", ethernet, MACS "0800 4400 0020 0001 0000 40 11 0000" ADDRESSES UDP,
     ipv4_broken},
    {"TotalLengthBelowTheHeader", ethernet,
     MACS "0800 4500 0013 0001 0000 40 11 0000" ADDRESSES UDP, ipv4_broken},
    {"TotalLengthBelowALongHeader", ethernet,
     MACS "0800 4f00 0020 0001 0000 40 11 0000" ADDRESSES UDP, ipv4_broken},
};

#define IP_OPTIONS_4 "4600 0024 0001 0000 40 11 0000 " ADDRESSES
#define IP_OPTIONS_8 "4700 0028 0001 0000 40 11 0000 " ADDRESSES
#define IP_OPTIONS_12 "4800 002c 0001 0000 40 11 0000 " ADDRESSES

constexpr FiveTuple udp_to_route_end = udp_to(0x1e000001);

const Row option_rows[] = {
    {"RouterAlert", ethernet, MACS "0800" IP_OPTIONS_4 "94040000" UDP, readable, udp},
    {"NoOperations", ethernet, MACS "0800" IP_OPTIONS_4 "01010100" UDP, readable, udp},
    {"OptionWithoutALength", ethernet, MACS "0800" IP_OPTIONS_4 "0101018f" UDP, readable, udp},
    {"OptionLongerThanTheHeader", ethernet, MACS "0800" IP_OPTIONS_4 "94ff0000" UDP, readable, udp},
    {"OptionOfLengthZero", ethernet, MACS "0800" IP_OPTIONS_4 "94000000" UDP, readable, udp},
    {"LooseSourceRouteGoesToItsEnd", ethernet, MACS "0800" IP_OPTIONS_8 "8307041e000001 00" UDP,
     readable, udp_to_route_end},
    {"StrictSourceRouteGoesToItsEnd", ethernet, MACS "0800" IP_OPTIONS_8 "01 8907041e000001" UDP,
     readable, udp_to_route_end},
    {"SourceRouteOfTwoGoesToTheSecond", ethernet,
     MACS "0800" IP_OPTIONS_12 "830b08 1f000001 1e000001 00" UDP, readable, udp_to_route_end},
    {"SourceRouteBehindARouterAlert", ethernet,
     MACS "0800" IP_OPTIONS_12 "94040000 8307041e000001 00" UDP, readable, udp_to_route_end},
    {"UsedUpSourceRoute", ethernet, MACS "0800" IP_OPTIONS_8 "8307081e000001 00" UDP, readable,
     udp},
    {"SourceRouteBehindTheEndOfOptions", ethernet, MACS "0800" IP_OPTIONS_8 "00 8307041e000001" UDP,
     readable, udp},
    {"SourceRouteWithACrookedPointer", ethernet, MACS "0800" IP_OPTIONS_8 "8307051e000001 00" UDP,
     readable, udp},
    {"SourceRouteWithoutAddresses", ethernet, MACS "0800" IP_OPTIONS_4 "83030400" UDP, readable,
     udp},
    {"CutInTheOptions", ethernet, MACS "0800" IP_OPTIONS_4 "94", ipv4_cut},
    {"CutBetweenOptions", ethernet, MACS "0800" IP_OPTIONS_8 "94040000", ipv4_cut},
    {"CutBeforeThePointerOfASourceRoute", ethernet, MACS "0800" IP_OPTIONS_8 "8307", ipv4_cut},
    {"CutInTheLastAddressOfASourceRoute", ethernet, MACS "0800" IP_OPTIONS_8 "8307041e0000",
     ipv4_cut},
    {"CutBehindASourceRoute", ethernet, MACS "0800" IP_OPTIONS_8 "8307041e000001", ipv4_cut},
    {"CutWhereNoFurtherOptionCanBe", ethernet, MACS "0800" IP_OPTIONS_4 "9404", readable,
     udp_without_ports},
    {"CutBehindTheEndOfOptions", ethernet, MACS "0800" IP_OPTIONS_8 "0100", readable,
     udp_without_ports},
};

INSTANTIATE_TEST_SUITE_P(Link, ParserRow, testing::ValuesIn(link_rows), name_of);
INSTANTIATE_TEST_SUITE_P(Ipv4, ParserRow, testing::ValuesIn(ipv4_rows), name_of);
INSTANTIATE_TEST_SUITE_P(Options, ParserRow, testing::ValuesIn(option_rows), name_of);

TEST(PacketParser, GoesOverAsManyTagsAsAFrameHolds)
{
    std::string hex = MACS;
    for (int tag = 0; tag < 2000; ++tag) {
        hex += tag == 0 ? "8100 0123 " : "8100 0001 ";
    }
    const Frame frame = test_packets::from_hex(hex + "0800" IP_UDP);
    const auto parsed = parse_packet(test_packets::captured(ethernet, frame));
    EXPECT_EQ(parsed.unreadable, readable);
    EXPECT_EQ(parsed.tuple, udp);
    EXPECT_EQ(parsed.vlan_id, 0x123);
    EXPECT_EQ(parsed.tags, 255);
}

TEST(PacketParser, HasATextOfItsOwnForEachReason)
{
    EXPECT_STREQ(unreadable_text(link_cut), "cut off in the link header or a tag");
    EXPECT_STREQ(unreadable_text(not_ipv4), "not IPv4");
    EXPECT_STREQ(unreadable_text(ipv4_cut), "cut off in the IPv4 header");
    EXPECT_STREQ(unreadable_text(ipv4_broken), "broken IPv4 header");
}

} // namespace
