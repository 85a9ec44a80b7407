// Packets cut at every length, and bytes that are no packets.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "test_packets.h"
#include "vlc/packet.h"

namespace {

using test_packets::Frame;
using vlc::LinkType;
using vlc::ParsedPacket;
using vlc::Unreadable;

constexpr size_t longest = 512;

// Where a packet's parts end, so that a cut's outcome follows.
struct CutRow {
    const char *name;
    LinkType link;
    const char *hex;
    size_t link_end;
    size_t ipv4_end;
    uint16_t port;
};

std::string name_of(const testing::TestParamInfo<CutRow> &info)
{
    return info.param.name;
}

void PrintTo(const CutRow &row, std::ostream *out)
{
    *out << row.name;
}

class CutPacket : public testing::TestWithParam<CutRow> {
protected:
    ParsedPacket parse_prefix(size_t length)
    {
        const Frame frame = test_packets::from_hex(GetParam().hex);
        return parse_packet(
            test_packets::captured(GetParam().link, guarded_.hold(std::span(frame).first(length))));
    }
    size_t length() const { return test_packets::from_hex(GetParam().hex).size(); }

private:
    test_packets::GuardedBytes guarded_{longest};
};

TEST_P(CutPacket, EndsInTheLinkHeaderAtEachOfItsLengths)
{
    for (size_t length = 0; length < GetParam().link_end; ++length) {
        EXPECT_EQ(parse_prefix(length).unreadable, Unreadable::link_cut) << length;
    }
}

TEST_P(CutPacket, EndsInTheIpv4HeaderAtEachOfItsLengths)
{
    for (size_t length = GetParam().link_end; length < GetParam().ipv4_end; ++length) {
        EXPECT_EQ(parse_prefix(length).unreadable, Unreadable::ipv4_cut) << length;
    }
}

TEST_P(CutPacket, HasPortsFromTheirFourthByteOn)
{
    for (size_t cut = GetParam().ipv4_end; cut <= length(); ++cut) {
        const ParsedPacket parsed = parse_prefix(cut);
        const uint16_t port = cut < GetParam().ipv4_end + 4 ? 0 : GetParam().port;
        EXPECT_EQ(parsed.unreadable, Unreadable::none) << cut;
        EXPECT_EQ(parsed.tuple.destination, test_packets::address(10, 0, 0, 2)) << cut;
        EXPECT_EQ(parsed.tuple.destination_port, port) << cut;
    }
}

#define MACS "020000000002 020000000001 "
#define IP_UDP "4500 0020 0001 0000 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364"
#define IP_TCP                                                                                     \
    "4500 0028 0001 0000 40 06 0000 0a000001 0a000002 04d20050 00000001 00000002 50100064 "        \
    "00000000"
#define IP_ICMP "4500 001c 0001 0000 40 01 0000 0a000001 0a000002 0800f7ff 00000000"

const CutRow cut_rows[] = {
    {"Udp", LinkType::ethernet, MACS "0800" IP_UDP, 14, 34, 5678},
    {"Tcp", LinkType::ethernet, MACS "0800" IP_TCP, 14, 34, 80},
    {"Icmp", LinkType::ethernet, MACS "0800" IP_ICMP, 14, 34, 0},
    {"TcpBehindTwoTags", LinkType::ethernet, MACS "88a8 00c8 8100 001e 0800" IP_TCP, 22, 42, 80},
    {"UdpOverLinuxSll", LinkType::linux_sll, "0000 0001 0006 0200000000010000 0800" IP_UDP, 16, 36,
     5678},
    {"UdpInSnap", LinkType::ethernet, MACS "0028 aaaa03 000000 0800" IP_UDP, 22, 42, 5678},
};

INSTANTIATE_TEST_SUITE_P(Packets, CutPacket, testing::ValuesIn(cut_rows), name_of);

TEST(NoPackets, RandomBytesAreReadWithoutLeavingThem)
{
    std::mt19937 random(20260101);
    test_packets::GuardedBytes guarded(longest);
    std::array<uint64_t, static_cast<size_t>(Unreadable::reasons)> outcomes{};
    Frame frame;
    for (int round = 0; round < 200'000; ++round) {
        // Half of them begin as a packet does, so that the deeper readers are reached.
        const CutRow &row = cut_rows[random() % std::size(cut_rows)];
        frame = round % 2 == 0 ? test_packets::from_hex(row.hex) : Frame{};
        const size_t kept = frame.size();
        frame.resize(std::max<size_t>(kept, random() % 80));
        std::generate(frame.begin() + static_cast<ptrdiff_t>(kept), frame.end(),
                      [&] { return static_cast<uint8_t>(random()); });
        for (auto changes = random() % 4; !frame.empty() && changes > 0; --changes) {
            frame[random() % frame.size()] = static_cast<uint8_t>(random());
        }
        frame.resize(frame.size() - random() % (frame.size() / 2 + 1));
        const ParsedPacket parsed =
            parse_packet(test_packets::captured(row.link, guarded.hold(frame)));
        ASSERT_LT(parsed.unreadable, Unreadable::reasons);
        ++outcomes[static_cast<size_t>(parsed.unreadable)];
        if (parsed.unreadable != Unreadable::none) {
            ASSERT_EQ(parsed.tuple, vlc::FiveTuple{});
        }
    }
    EXPECT_EQ(std::ranges::count(outcomes, 0u), 0) << "an outcome that no round reached";
}

} // namespace
