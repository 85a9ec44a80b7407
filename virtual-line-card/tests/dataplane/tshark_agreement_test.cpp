// The parser and tshark count the same packets and bytes for every destination.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <tuple>

#include "test_packets.h"
#include "tshark_oracle.h"
#include "vlc/capture_reader.h"

namespace {

namespace fs = std::filesystem;
using test_packets::Frame;
using test_packets::Record;
using vlc::Unreadable;

struct Count {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    bool operator==(const Count &) const = default;
    void add(uint32_t length)
    {
        ++packets;
        bytes += length;
    }
};

std::ostream &operator<<(std::ostream &out, const Count &count)
{
    return out << count.packets << " packets, " << count.bytes << " bytes";
}

using Destination = std::tuple<uint8_t, uint32_t, uint16_t>; // protocol, address, port

struct Counts {
    std::map<Destination, Count> destinations;
    std::map<uint32_t, Count> addresses;
    void add(uint8_t protocol, uint32_t address, uint16_t port, uint32_t length)
    {
        destinations[{protocol, address, port}].add(length);
        addresses[address].add(length);
    }
};

Counts counts_of_tshark(const fs::path &capture)
{
    Counts counts;
    for (const tshark_oracle::Frame &frame : tshark_oracle::read(capture)) {
        if (frame.is_direct_ipv4() && frame.destination) {
            counts.add(frame.protocol, *frame.destination, frame.port, frame.wire_length);
        }
    }
    return counts;
}

Counts counts_of_parser(const fs::path &capture)
{
    Counts counts;
    vlc::CaptureReader reader(capture);
    for (vlc::CapturedPacket packet; reader.next(&packet);) {
        const vlc::ParsedPacket parsed = parse_packet(packet);
        if (parsed.unreadable == Unreadable::none) {
            counts.add(parsed.tuple.protocol, parsed.tuple.destination,
                       parsed.tuple.destination_port, packet.wire_length);
        }
    }
    return counts;
}

std::vector<fs::path> captures_in(const fs::path &directory)
{
    std::vector<fs::path> captures;
    std::error_code missing;
    for (const auto &entry : fs::directory_iterator(directory, missing)) {
        if (entry.path().extension() == ".pcap" || entry.path().extension() == ".pcapng") {
            captures.push_back(entry.path());
        }
    }
    std::ranges::sort(captures);
    return captures;
}

void expect_agreement(const fs::path &capture)
{
    SCOPED_TRACE(capture.filename());
    const Counts ours = counts_of_parser(capture);
    const Counts theirs = counts_of_tshark(capture);
    EXPECT_FALSE(theirs.destinations.empty());
    EXPECT_EQ(ours.destinations, theirs.destinations);
    EXPECT_EQ(ours.addresses, theirs.addresses);
}

TEST(TsharkAgreement, HoldsForEveryCaptureOfTheProject)
{
    const auto captures = captures_in(PROJECT_SOURCE_DIR "/captures");
    EXPECT_FALSE(captures.empty());
    for (const fs::path &capture : captures) {
        expect_agreement(capture);
    }
}

TEST(TsharkAgreement, HoldsForEverySharedCapture)
{
    const auto captures = captures_in(PROJECT_SOURCE_DIR "/../shared/captures");
    if (captures.empty()) {
        GTEST_SKIP() << "no shared captures beside the project";
    }
    for (const fs::path &capture : captures) {
        expect_agreement(capture);
    }
}

// ---- packets that no program sends

#define MACS "020000000002 020000000001 "
#define IP_UDP "4500 0020 0001 0000 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364"
#define IP_TCP                                                                                     \
    "4500 0028 0001 0000 40 06 0000 0a000001 0a000002 04d20050 00000001 00000002 50100064 "        \
    "00000000"

constexpr const char *ethernet_frames[] = {
    MACS "0800" IP_UDP,
    MACS "0800" IP_TCP,
    MACS "88a8 00c8 8100 001e 0800" IP_TCP,
    MACS "9100 0007 0800" IP_UDP,
    MACS "0028 aaaa03 000000 0800" IP_UDP,
    MACS "8100 0007 0028 aaaa03 000000 0800" IP_UDP,
    MACS "0800 4600 0024 0001 0000 40 11 0000 0a000001 0a000002 94040000 04d2162e 00080000",
    MACS "0800 4700 0028 0001 0000 40 11 0000 0a000001 0a000002 8307041e000001 00"
         "04d2162e 000c0000 61626364",
    MACS "0800 4500 0044 0001 0000 40 01 0000 0a000001 0a000002 0303 0000 00000000" IP_TCP,
    MACS "0800 4500 0034 0001 0000 40 04 0000 0a000001 0a000002" IP_UDP,
    MACS "0800 4500 0020 0001 2000 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364",
    MACS "0800 4500 0020 0001 00b9 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364",
};
constexpr const char *sll_frames[] = {
    "0000 0001 0006 0200000000010000 0800" IP_UDP,
    "0000 0001 0006 0200000000010000 8100 0009 0800" IP_TCP,
    "0000 0001 0006 0200000000010000 0004 aaaa03 000000 0800" IP_UDP,
};

// Damages the fixed IPv4 header, ports and lengths, and cuts, but makes no option malformed by its
// own rules, at which tshark gives a packet up; `ip` is where the IPv4 header stands.
Record damaged(const Frame &whole, size_t ip, std::mt19937 &random)
{
    constexpr size_t places[] = {0, 0, 2, 3, 6, 7, 9, 16, 19, 22, 23};
    Record record{whole, static_cast<uint32_t>(whole.size())};
    for (auto changes = random() % 3; changes > 0; --changes) {
        const size_t place = places[random() % std::size(places)];
        const auto value = place == 0 ? random() % 2 << 4 | 0x40 | random() % 8 : random() % 64;
        record.bytes[ip + place] = static_cast<uint8_t>(value);
    }
    if (random() % 2 == 0) {
        record.bytes.resize(random() % (whole.size() + 1));
    }
    if (random() % 4 == 0) { // short on the wire already
        record.wire_length = static_cast<uint32_t>(record.bytes.size());
    }
    return record;
}

std::string describe(const Frame &bytes)
{
    std::string text;
    for (const uint8_t byte : bytes) {
        constexpr const char *digits = "0123456789abcdef";
        text += {digits[byte >> 4], digits[byte & 15]};
    }
    return text;
}

void expect_frame(const Record &record, const tshark_oracle::Frame &theirs,
                  const vlc::ParsedPacket &ours)
{
    SCOPED_TRACE(describe(record.bytes) + " " + theirs.protocols);
    const bool readable = theirs.is_direct_ipv4() && theirs.destination;
    ASSERT_EQ(ours.unreadable == Unreadable::none, readable) << unreadable_text(ours.unreadable);
    if (readable) {
        EXPECT_EQ(ours.tuple.destination, *theirs.destination);
        EXPECT_EQ(ours.tuple.protocol, theirs.protocol);
        EXPECT_EQ(ours.tuple.destination_port, theirs.port);
    }
}

void expect_agreement_on_damage(uint32_t link, std::span<const char *const> frames, uint32_t seed)
{
    constexpr size_t rounds = 6000;
    std::mt19937 random(seed);
    std::vector<Record> records;
    while (records.size() < rounds) {
        const Frame whole = test_packets::from_hex(frames[random() % frames.size()]);
        constexpr uint8_t addresses[] = {10, 0, 0, 1, 10, 0, 0, 2};
        const auto found =
            std::search(whole.begin(), whole.end(), std::begin(addresses), std::end(addresses));
        records.push_back(damaged(whole, static_cast<size_t>(found - whole.begin()) - 12, random));
    }
    test_packets::TemporaryDirectory directory;
    const fs::path capture = directory.file("damaged.pcap");
    test_packets::write_file(capture, test_packets::pcap_bytes(link, records));
    const auto theirs = tshark_oracle::read(capture);
    ASSERT_EQ(theirs.size(), records.size());
    vlc::CaptureReader reader(capture);
    vlc::CapturedPacket packet;
    for (size_t i = 0; reader.next(&packet); ++i) {
        expect_frame(records[i], theirs[i], parse_packet(packet));
    }
}

TEST(TsharkAgreement, HoldsForDamagedEthernetPackets)
{
    expect_agreement_on_damage(test_packets::link_ethernet, ethernet_frames, 7);
}

TEST(TsharkAgreement, HoldsForDamagedLinuxSllPackets)
{
    expect_agreement_on_damage(test_packets::link_linux_sll, sll_frames, 8);
}

} // namespace
