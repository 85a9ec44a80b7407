// Packets of programmed services leave in IPv4 and UDP, and their rows count them.
#include <array>
#include <cstdio>
#include <map>
#include <optional>
#include <sstream>

#include <gtest/gtest.h>
#include <tins/tins.h>

#include "encapsulation_layout.h"
#include "kept_totals.h"
#include "lookup_keys.h"
#include "test_packets.h"
#include "vlc/capture_reader.h"
#include "vlc/capture_writer.h"
#include "vlc/data_plane.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"

namespace {

using encapsulation_layout::Encapsulation;
using test_packets::address;
using test_packets::Frame;
using vlc::EncapsulatedPacket;
using vlc::LinkType;
using vlc::PacketCount;
using vlc::TableKind;

constexpr uint16_t service = 7;
const Encapsulation wanted{.source = address(198, 51, 100, 1),
                           .destination = address(127, 0, 0, 1),
                           .source_port = 40001,
                           .destination_port = 40002};

Frame result_of(const Encapsulation &encapsulation)
{
    Frame result(encapsulation_layout::zero_bytes);
    const auto bytes = encapsulation_layout::encoded(encapsulation);
    result.insert(result.end(), bytes.begin(), bytes.end());
    return result;
}

Tins::RawPDU payload(size_t length)
{
    Frame bytes(length);
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<uint8_t>(i * 7 + 1);
    return Tins::RawPDU(bytes);
}

const Tins::EthernetII link_header("02:00:00:00:00:02", "02:00:00:00:00:01");
const Tins::IP ip_header("203.0.113.7", "192.0.2.33");

Frame udp_frame(size_t length)
{
    return (link_header / ip_header / Tins::UDP(53, 5353) / payload(length)).serialize();
}

class Encapsulations : public testing::Test {
protected:
    Encapsulations() { open(2); }

    void open(uint16_t num_nps)
    {
        plane.reset();
        nps.reset();
        state.reset();
        directory.emplace();
        config.num_nps = num_nps;
        config.interfaces = {{.handle = 1,
                              .source = vlc::Ipv4Prefix{address(192, 0, 2, 0), 24},
                              .key = lookup_keys::shadow_key_of_vservice(service)}};
        reopen();
    }

    void reopen()
    {
        plane.reset();
        nps.reset();
        state.reset();
        state.emplace(directory->file("state"), vlc::Access::read_write);
        nps.emplace(*state, config);
        plane.emplace(*nps, config);
        plane->on_output([this](const EncapsulatedPacket &packet) {
            Frame bytes(packet.headers.begin(), packet.headers.end());
            bytes.insert(bytes.end(), packet.inner.begin(), packet.inner.end());
            sent.push_back({bytes, packet.wire_length});
        });
    }

    void program(const Frame &result)
    {
        const auto key = lookup_keys::service_key(lookup_keys::shadow_key_of_vservice(service));
        for (uint32_t np = 0; np < nps->size(); ++np)
            ASSERT_EQ((*nps)[np].table(TableKind::service_config).add(key, result),
                      vlc::TableOutcome::done);
    }

    void process(const Frame &frame, LinkType link = LinkType::ethernet)
    {
        plane->process(test_packets::captured(link, frame));
    }
    void process_cut(const Frame &frame, size_t captured)
    {
        plane->process(
            {LinkType::ethernet, {frame.data(), captured}, static_cast<uint32_t>(frame.size()), 0});
    }

    PacketCount hits() const
    {
        PacketCount sum{};
        for (uint32_t np = 0; np < nps->size(); ++np) {
            const vlc::NpTable &table = (*nps)[np].table(TableKind::service_config);
            table.for_each([&](const vlc::TableRow &row) {
                sum.packets += table.hits(row).packets;
                sum.bytes += table.hits(row).bytes;
            });
        }
        return sum;
    }

    vlc::CardConfig config;
    std::optional<test_packets::TemporaryDirectory> directory;
    std::optional<vlc::StateDirectory> state;
    std::optional<vlc::NpStore> nps;
    std::optional<vlc::DataPlane> plane;
    std::vector<test_packets::Record> sent;
};

// The sum over a header or a whole pseudo packet is all ones when its checksum is right.
uint32_t folded_sum(std::span<const uint8_t> bytes, uint32_t sum = 0)
{
    for (size_t i = 0; i < bytes.size(); ++i)
        sum += i % 2 == 0 ? uint32_t{bytes[i]} << 8 : bytes[i];
    while (sum >> 16 != 0)
        sum = (sum & 0xFFFF) + (sum >> 16);
    return sum;
}

void expect_good_checksums(const Frame &packet)
{
    const std::span<const uint8_t> bytes(packet);
    EXPECT_EQ(folded_sum(bytes.first(20)), 0xFFFFu);
    const auto udp_length = static_cast<uint32_t>(packet.size() - 20);
    EXPECT_EQ(folded_sum(bytes.subspan(20), folded_sum(bytes.subspan(12, 8)) + 17 + udp_length),
              0xFFFFu);
    EXPECT_NE(packet[26] << 8 | packet[27], 0) << "a checksum that says it is none";
}

TEST_F(Encapsulations, APacketOfAProgrammedServiceLeavesInUdpWithTheRowsAddressesAndPorts)
{
    program(result_of(wanted));
    const Frame frame = udp_frame(100);
    process(frame);
    ASSERT_EQ(sent.size(), 1u);
    const Tins::IP outer(sent[0].bytes.data(), static_cast<uint32_t>(sent[0].bytes.size()));
    EXPECT_EQ(outer.src_addr().to_string(), "198.51.100.1");
    EXPECT_EQ(outer.dst_addr().to_string(), "127.0.0.1");
    const auto &udp = outer.rfind_pdu<Tins::UDP>();
    EXPECT_EQ(udp.sport(), 40001);
    EXPECT_EQ(udp.dport(), 40002);
    EXPECT_EQ(outer.tot_len(), sent[0].bytes.size());
    EXPECT_EQ(udp.length(), sent[0].bytes.size() - 20);
    EXPECT_EQ(udp.rfind_pdu<Tins::RawPDU>().payload(), Frame(frame.begin() + 14, frame.end()));
    expect_good_checksums(sent[0].bytes);
}

TEST_F(Encapsulations, WithoutARowThePacketGoesOnToTheOtherLookups)
{
    process(udp_frame(10));
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(plane->totals().missed_packets, 1u);
}

TEST_F(Encapsulations, ARowThatSaysSomethingElseLetsThePacketGoOn)
{
    program({1, 2, 3});
    process(udp_frame(10));
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(plane->totals().missed_packets, 1u);
    EXPECT_EQ(hits(), (PacketCount{0, 0}));
}

TEST_F(Encapsulations, APacketOfAnotherInterfaceGoesOn)
{
    program(result_of(wanted));
    process((link_header / Tins::IP("203.0.113.7", "192.0.3.33") / Tins::UDP(1, 2)).serialize());
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(plane->totals().missed_packets, 1u);
}

TEST_F(Encapsulations, AnEncapsulatedPacketMeetsNoOtherLookup)
{
    program(result_of(wanted));
    const auto key = lookup_keys::address_key(address(203, 0, 113, 7));
    for (uint32_t np = 0; np < nps->size(); ++np)
        (*nps)[np].table(TableKind::ext_conf).add(key, lookup_keys::counting_result(1));
    process(udp_frame(10));
    EXPECT_EQ(sent.size(), 1u);
    for (const vlc::NpTotals &np : plane->totals().nps)
        EXPECT_EQ(np.hits[1] + np.hits[0] + np.uncounted_hits, 0u);
    EXPECT_EQ(plane->totals().missed_packets, 0u);
}

TEST_F(Encapsulations, EveryLengthOfAPacketHasGoodLengthsAndChecksums)
{
    program(result_of(wanted));
    for (size_t length = 0; length < 70; ++length)
        process((link_header / ip_header / Tins::UDP(53, 5353) / payload(length)).serialize());
    ASSERT_EQ(sent.size(), 70u);
    for (size_t length = 0; length < 70; ++length) {
        EXPECT_EQ(sent[length].bytes.size(), 28 + 28 + length);
        EXPECT_EQ(sent[length].wire_length, 28 + 28 + length);
        expect_good_checksums(sent[length].bytes);
    }
}

// What a checksum of 0 would be is sent as all ones.
TEST_F(Encapsulations, AChecksumThatComesToZeroIsSentAsAllOnes)
{
    program(result_of(wanted));
    Frame frame = udp_frame(2);
    process(frame);
    const auto first = static_cast<uint32_t>(sent[0].bytes[26] << 8 | sent[0].bytes[27]);
    // The payload, which stands behind the headers, takes up the whole checksum.
    const std::span<uint8_t> word = std::span(frame).subspan(14 + 28, 2);
    const uint32_t sum = static_cast<uint32_t>(word[0] << 8 | word[1]) + first;
    const uint32_t folded = (sum & 0xFFFF) + (sum >> 16);
    word[0] = static_cast<uint8_t>(folded >> 8);
    word[1] = static_cast<uint8_t>(folded);
    process(frame);
    EXPECT_EQ(sent[1].bytes[26], 0xFF);
    EXPECT_EQ(sent[1].bytes[27], 0xFF);
    expect_good_checksums(sent[1].bytes);
}

TEST_F(Encapsulations, ACutPacketHasTheLengthsOfTheWireAndNoUdpChecksum)
{
    program(result_of(wanted));
    process_cut(udp_frame(1000), 60);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].bytes.size(), 28u + 60 - 14);
    EXPECT_EQ(sent[0].wire_length, 28u + 28 + 1000);
    const Frame &bytes = sent[0].bytes;
    EXPECT_EQ(bytes[2] << 8 | bytes[3], 28 + 28 + 1000);
    EXPECT_EQ(bytes[24] << 8 | bytes[25], 8 + 28 + 1000);
    EXPECT_EQ(bytes[26] << 8 | bytes[27], 0);
    EXPECT_EQ(folded_sum(std::span(bytes).first(20)), 0xFFFFu);
    EXPECT_EQ(hits(), (PacketCount{1, 28 + 28 + 1000}));
}

TEST_F(Encapsulations, WhatPadsAFrameStaysBehind)
{
    program(result_of(wanted));
    Frame frame = udp_frame(3);
    frame.resize(60, 0xEE);
    process(frame);
    EXPECT_EQ(sent.at(0).wire_length, 28u + 28 + 3);
    EXPECT_EQ(sent.at(0).bytes.size(), 28u + 28 + 3);
    expect_good_checksums(sent.at(0).bytes);
}

TEST_F(Encapsulations, APacketThatTellsNoLengthGoesAsFarAsItsFrame)
{
    program(result_of(wanted));
    Frame frame = udp_frame(40);
    frame[16] = frame[17] = 0; // total length
    process(frame);
    EXPECT_EQ(sent.at(0).wire_length, 28u + 28 + 40);
    expect_good_checksums(sent.at(0).bytes);
}

TEST_F(Encapsulations, APacketOfAllLinkHeadersAndTagsIsTheSameInside)
{
    program(result_of(wanted));
    const Frame plain = udp_frame(21);
    const Frame ipv4(plain.begin() + 14, plain.end());
    const auto behind = [&ipv4](std::string_view hex) {
        Frame frame = test_packets::from_hex(hex);
        frame.insert(frame.end(), ipv4.begin(), ipv4.end());
        return frame;
    };
    process(plain);
    process(behind("020000000002 020000000001 8100 000a 0800"));
    process(behind("020000000002 020000000001 88a8 00c8 8100 001e 0800"));
    process(behind("020000000002 020000000001 0039 aaaa03 000000 0800")); // 802.3 with SNAP
    process(behind("0000 0001 0006 020000000001 0000 0800"), LinkType::linux_sll);
    process(behind("0000 0001 0006 020000000001 0000 8100 000a 0800"), LinkType::linux_sll);
    ASSERT_EQ(sent.size(), 6u);
    for (const test_packets::Record &packet : sent) {
        EXPECT_EQ(packet.bytes, sent[0].bytes);
        EXPECT_EQ(packet.wire_length, 28 + ipv4.size());
    }
}

TEST_F(Encapsulations, APacketThatNoIpv4PacketCanHoldIsDroppedAndSaid)
{
    program(result_of(wanted));
    const size_t longest = 0xFFFF - 28;
    Frame frame = udp_frame(longest - 28);
    process(frame);
    EXPECT_EQ(sent.at(0).wire_length, 0xFFFFu);
    process(udp_frame(longest - 28 + 1));
    EXPECT_EQ(sent.size(), 1u);
    EXPECT_EQ(hits(), (PacketCount{1, 0xFFFF}));
    uint64_t too_long = 0;
    for (const vlc::NpTotals &np : plane->totals().nps)
        too_long += np.too_long_packets;
    EXPECT_EQ(too_long, 1u);
    test_packets::expect_kept(*nps, plane->totals());
}

TEST_F(Encapsulations, TheInnersUrgencyIsTheOutersToo)
{
    program(result_of(wanted));
    Frame frame = udp_frame(3);
    frame[15] = 0xB8;
    process(frame);
    EXPECT_EQ(sent.at(0).bytes[1], 0xB8);
}

// ---- counts ------------------------------------------------------------------------------------

class EncapsulationsOnNps : public Encapsulations, public testing::WithParamInterface<uint16_t> {};

TEST_P(EncapsulationsOnNps, RowsCountWhatLeftOnTheNpOfItsFlowAndKeepItOverARestart)
{
    open(GetParam());
    program(result_of(wanted));
    uint64_t bytes = 0;
    for (uint16_t port = 1; port <= 200; ++port)
        process((link_header / ip_header / Tins::UDP(port, 9) / payload(port)).serialize());
    ASSERT_EQ(sent.size(), 200u);
    for (const test_packets::Record &packet : sent)
        bytes += packet.wire_length;
    EXPECT_EQ(hits(), (PacketCount{200, bytes}));
    for (const vlc::NpTotals &np : plane->totals().nps)
        EXPECT_GT(np.encapsulated_packets, 0u);
    reopen();
    EXPECT_EQ(hits(), (PacketCount{200, bytes}));
}
INSTANTIATE_TEST_SUITE_P(Nps, EncapsulationsOnNps, testing::Values(1, 2, 8));

TEST_F(Encapsulations, EveryOtherRowCountsItsHitsWithTheWireLength)
{
    const auto key = lookup_keys::destination_key(17, address(203, 0, 113, 7), 53);
    for (uint32_t np = 0; np < nps->size(); ++np)
        (*nps)[np].table(TableKind::service_config).add(key, lookup_keys::counting_result(1));
    const Frame frame = udp_frame(10);
    process(frame);
    process(frame);
    EXPECT_EQ(hits(), (PacketCount{2, 2 * frame.size()}));
}

// ---- the written capture -----------------------------------------------------------------------

std::string tshark(const std::filesystem::path &capture, const std::string &arguments)
{
    const std::string command = "tshark -n -o ip.check_checksum:TRUE -o udp.check_checksum:TRUE "
                                "-r '" +
                                capture.string() + "' " + arguments + " 2>/dev/null";
    FILE *pipe = popen(command.c_str(), "r");
    std::string output;
    std::array<char, 4096> part;
    for (size_t got; (got = fread(part.data(), 1, part.size(), pipe)) > 0;)
        output.append(part.data(), got);
    EXPECT_EQ(pclose(pipe), 0) << output;
    return output;
}

TEST_F(Encapsulations, TsharkReadsTheWrittenCaptureWithoutABadChecksum)
{
    program(result_of(wanted));
    const std::filesystem::path file = directory->file("out.pcap");
    vlc::CaptureWriter writer(file);
    plane->on_output([&writer](const EncapsulatedPacket &packet) { writer.write(packet); });
    for (size_t length = 0; length < 50; ++length)
        process(udp_frame(length));
    for (size_t length = 100; length < 120; ++length)
        process_cut(udp_frame(length), 60);
    writer.finish();
    EXPECT_EQ(tshark(file, "-Y 'ip.checksum.status != \"Good\" || _ws.malformed'"), "");
    std::istringstream lines(tshark(file, "-T fields -E occurrence=f -E separator=/s "
                                          "-e frame.len -e ip.len -e udp.length "
                                          "-e udp.checksum.status -e ip.dst -e udp.dstport"));
    PacketCount read{};
    std::map<std::string, int> states;
    uint32_t frame_length = 0;
    uint32_t ip_length = 0;
    uint32_t udp_length = 0;
    std::string checksum;
    std::string destination;
    for (uint16_t port = 0;
         lines >> frame_length >> ip_length >> udp_length >> checksum >> destination >> port;) {
        ++read.packets;
        read.bytes += frame_length;
        ++states[checksum];
        EXPECT_EQ(frame_length, ip_length);
        EXPECT_EQ(ip_length, udp_length + 20);
        EXPECT_EQ(destination, "127.0.0.1");
        EXPECT_EQ(port, 40002);
    }
    EXPECT_EQ(read, hits());
    EXPECT_EQ(read.packets, 70u);
    // 1 is good, 3 that there is none
    EXPECT_EQ(states, (std::map<std::string, int>{{"1", 50}, {"3", 20}}));
}

TEST(CaptureWriters, AFileThatCannotBeMadeIsRefused)
{
    EXPECT_THROW(vlc::CaptureWriter("/no/such/directory/out.pcap"), vlc::StateError);
}

TEST(CaptureWriters, AFullDiskIsToldAtTheEnd)
{
    vlc::CaptureWriter writer("/dev/full");
    EncapsulatedPacket packet{};
    packet.wire_length = 28;
    writer.write(packet);
    EXPECT_THROW(writer.finish(), vlc::StateError);
}

} // namespace
