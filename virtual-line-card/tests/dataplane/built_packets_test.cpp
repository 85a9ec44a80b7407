// Packets built by another library are read as they were built.
#include <gtest/gtest.h>

#include <tins/tins.h>

#include "test_packets.h"
#include "vlc/packet.h"

namespace {

using test_packets::address;
using vlc::FiveTuple;
using vlc::LinkType;
using vlc::ParsedPacket;
using vlc::Unreadable;

const Tins::EthernetII link_header("02:00:00:00:00:02", "02:00:00:00:00:01");
const Tins::IP ip_header("203.0.113.7", "192.0.2.33");
constexpr uint32_t source = 0xc0000221;
constexpr uint32_t destination = 0xcb007107;

Tins::RawPDU payload(size_t length)
{
    return Tins::RawPDU(std::vector<uint8_t>(length, 0x5a));
}

ParsedPacket parse(LinkType link, Tins::PDU &&packet)
{
    const std::vector<uint8_t> bytes = packet.serialize();
    test_packets::GuardedBytes guarded(bytes.size());
    return parse_packet(test_packets::captured(link, guarded.hold(bytes)));
}

TEST(BuiltPackets, TcpWithOptionsOfItsOwnHasItsPorts)
{
    Tins::TCP tcp(443, 50'000);
    tcp.mss(1460);
    tcp.sack_permitted();
    const auto parsed = parse(LinkType::ethernet, link_header / ip_header / tcp / payload(100));
    EXPECT_EQ(parsed.unreadable, Unreadable::none);
    EXPECT_EQ(parsed.tuple, (FiveTuple{source, destination, 50'000, 443, 6}));
    EXPECT_FALSE(parsed.fragment);
}

TEST(BuiltPackets, UdpBehindACustomerTagHasItsVlan)
{
    const auto parsed = parse(LinkType::ethernet, link_header / Tins::Dot1Q(110) / ip_header /
                                                      Tins::UDP(53, 5353) / payload(40));
    EXPECT_EQ(parsed.tuple, (FiveTuple{source, destination, 5353, 53, 17}));
    EXPECT_EQ(parsed.vlan_id, 110);
    EXPECT_EQ(parsed.tags, 1);
}

// The library writes the outer of two tags as 802.1ad.
TEST(BuiltPackets, ServiceAndCustomerTagsGiveTheOuterVlan)
{
    const auto parsed = parse(LinkType::ethernet, link_header / Tins::Dot1Q(200) / Tins::Dot1Q(30) /
                                                      ip_header / Tins::TCP(80, 1025) / payload(1));
    EXPECT_EQ(parsed.tuple, (FiveTuple{source, destination, 1025, 80, 6}));
    EXPECT_EQ(parsed.vlan_id, 200);
    EXPECT_EQ(parsed.tags, 2);
}

TEST(BuiltPackets, LinuxSllIsReadBehindItsSixteenBytes)
{
    Tins::SLL header;
    header.packet_type(4);
    header.lladdr_type(1);
    const auto parsed =
        parse(LinkType::linux_sll, header / ip_header / Tins::UDP(123, 124) / payload(48));
    EXPECT_EQ(parsed.tuple, (FiveTuple{source, destination, 124, 123, 17}));
    EXPECT_EQ(parsed.tags, 0);
}

TEST(BuiltPackets, TheFirstFragmentHasPorts)
{
    Tins::IP first = ip_header;
    first.flags(Tins::IP::MORE_FRAGMENTS);
    const auto parsed =
        parse(LinkType::ethernet, link_header / first / Tins::UDP(69, 3000) / payload(64));
    EXPECT_EQ(parsed.tuple, (FiveTuple{source, destination, 3000, 69, 17}));
    EXPECT_TRUE(parsed.fragment);
}

TEST(BuiltPackets, ALaterFragmentIsWithoutPorts)
{
    Tins::IP later = ip_header;
    later.fragment_offset(9);
    later.protocol(17);
    const auto parsed = parse(LinkType::ethernet, link_header / later / payload(64));
    EXPECT_EQ(parsed.tuple, (FiveTuple{source, destination, 0, 0, 17}));
    EXPECT_TRUE(parsed.fragment);
}

TEST(BuiltPackets, Snap8023IsReadAsIpv4)
{
    Tins::SNAP snap;
    snap.eth_type(0x0800);
    const auto parsed =
        parse(LinkType::ethernet, Tins::Dot3("02:00:00:00:00:02", "02:00:00:00:00:01") / snap /
                                      ip_header / Tins::UDP(161, 162) / payload(12));
    EXPECT_EQ(parsed.unreadable, Unreadable::none);
    EXPECT_EQ(parsed.tuple, (FiveTuple{source, destination, 162, 161, 17}));
}

TEST(BuiltPackets, Ipv6AndArpAreNotIpv4)
{
    EXPECT_EQ(parse(LinkType::ethernet,
                    link_header / Tins::IPv6("2001:db8::1", "2001:db8::2") / Tins::UDP(1, 2))
                  .unreadable,
              Unreadable::not_ipv4);
    EXPECT_EQ(
        parse(LinkType::ethernet, link_header / Tins::ARP("192.0.2.1", "192.0.2.2")).unreadable,
        Unreadable::not_ipv4);
}

} // namespace
