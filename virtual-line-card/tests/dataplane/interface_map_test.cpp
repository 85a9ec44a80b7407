// Which interface a packet enters on.
#include "vlc/interface_map.h"

#include <chrono>

#include <gtest/gtest.h>

#include "test_packets.h"

namespace {

using test_packets::address;
using vlc::CardConfig;
using vlc::InterfaceConfig;
using vlc::Ipv4Prefix;

struct Traffic {
    uint32_t source = address(192, 0, 2, 1);
    uint16_t vlan = 0;
    std::string_view capture = "a.pcap";
};

class InterfaceMaps : public testing::Test {
protected:
    // The row's place is its handle.
    void row(InterfaceConfig interface)
    {
        interface.handle = static_cast<uint32_t>(config.interfaces.size());
        config.interfaces.push_back(interface);
    }
    int found(const Traffic &traffic) const
    {
        vlc::CapturedPacket packet{};
        packet.capture = traffic.capture;
        vlc::ParsedPacket parsed;
        parsed.tuple.source = traffic.source;
        parsed.vlan_id = traffic.vlan;
        const InterfaceConfig *interface = vlc::InterfaceMap(config).find(packet, parsed);
        return interface == nullptr ? -1 : static_cast<int>(interface->handle);
    }

    CardConfig config;
};

TEST_F(InterfaceMaps, WithoutRowsNoPacketHasAnInterface)
{
    EXPECT_EQ(found({}), -1);
}

TEST_F(InterfaceMaps, ARowThatNamesNoTrafficTakesNone)
{
    row({});
    EXPECT_EQ(found({}), -1);
}

TEST_F(InterfaceMaps, AVlanIsTheOutermostTagAndZeroIsNone)
{
    row({.vlan = uint16_t{7}});
    row({.vlan = uint16_t{0}});
    EXPECT_EQ(found({.vlan = 7}), 0);
    EXPECT_EQ(found({.vlan = 0}), 1);
    EXPECT_EQ(found({.vlan = 8}), -1);
}

TEST_F(InterfaceMaps, ACaptureIsKnownByItsName)
{
    row({.capture = "b.pcap"});
    EXPECT_EQ(found({.capture = "b.pcap"}), 0);
    EXPECT_EQ(found({.capture = "a.pcap"}), -1);
    EXPECT_EQ(found({.capture = ""}), -1);
}

TEST_F(InterfaceMaps, ASourceIsTakenByItsPrefix)
{
    row({.source = Ipv4Prefix{address(192, 0, 2, 128), 25}});
    row({.source = Ipv4Prefix{address(198, 51, 100, 7), 32}});
    EXPECT_EQ(found({.source = address(192, 0, 2, 128)}), 0);
    EXPECT_EQ(found({.source = address(192, 0, 2, 255)}), 0);
    EXPECT_EQ(found({.source = address(192, 0, 2, 127)}), -1);
    EXPECT_EQ(found({.source = address(198, 51, 100, 7)}), 1);
    EXPECT_EQ(found({.source = address(198, 51, 100, 6)}), -1);
}

TEST_F(InterfaceMaps, APrefixOfLengthZeroTakesEverySource)
{
    row({.source = Ipv4Prefix{0, 0}});
    EXPECT_EQ(found({.source = 0}), 0);
    EXPECT_EQ(found({.source = ~uint32_t{0}}), 0);
}

TEST_F(InterfaceMaps, AllThatARowGivesMustHold)
{
    row({.vlan = uint16_t{7}, .capture = "b.pcap", .source = Ipv4Prefix{address(10, 0, 0, 0), 8}});
    const Traffic all{.source = address(10, 1, 2, 3), .vlan = 7, .capture = "b.pcap"};
    EXPECT_EQ(found(all), 0);
    EXPECT_EQ(found({.source = address(11, 1, 2, 3), .vlan = 7, .capture = "b.pcap"}), -1);
    EXPECT_EQ(found({.source = all.source, .vlan = 8, .capture = "b.pcap"}), -1);
    EXPECT_EQ(found({.source = all.source, .vlan = 7, .capture = "c.pcap"}), -1);
}

TEST_F(InterfaceMaps, TheFirstRowOfTheFileThatFitsWinsWhateverItAsksFor)
{
    row({.source = Ipv4Prefix{address(10, 0, 0, 0), 8}});
    row({.source = Ipv4Prefix{address(10, 1, 0, 0), 16}}); // hidden behind the one before
    row({.vlan = uint16_t{5}});
    row({.source = Ipv4Prefix{address(11, 1, 0, 0), 16}});
    row({.source = Ipv4Prefix{address(11, 0, 0, 0), 8}});
    EXPECT_EQ(found({.source = address(10, 1, 0, 1)}), 0);
    EXPECT_EQ(found({.source = address(10, 1, 0, 1), .vlan = 5}), 0);
    EXPECT_EQ(found({.source = address(11, 1, 0, 1), .vlan = 5}), 2);
    EXPECT_EQ(found({.source = address(11, 1, 0, 1)}), 3);
    EXPECT_EQ(found({.source = address(11, 2, 0, 1)}), 4);
}

TEST_F(InterfaceMaps, FourThousandRowsAreTakenEachByItsOwnSource)
{
    for (uint32_t i = 0; i < 4096; ++i)
        row({.source = Ipv4Prefix{address(10, 0, 0, 0) + i, 32}});
    const vlc::InterfaceMap map(config);
    vlc::CapturedPacket packet{};
    vlc::ParsedPacket parsed;
    const auto begin = std::chrono::steady_clock::now();
    for (uint32_t i = 0; i < 4096 * 16; ++i) {
        parsed.tuple.source = address(10, 0, 0, 0) + i % 4096;
        ASSERT_EQ(map.find(packet, parsed), &config.interfaces[i % 4096]);
    }
    // Going over the rows would take minutes in the slowest build.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

} // namespace
