// Captures of each kind, whole and damaged.
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>

#include <sys/stat.h>

#include "test_packets.h"
#include "vlc/capture_reader.h"
#include "vlc/state_error.h"

namespace {

namespace fs = std::filesystem;
using test_packets::Frame;
using test_packets::from_hex;
using test_packets::Record;

class Captures : public testing::Test {
protected:
    fs::path file(std::string_view name, const Frame &bytes)
    {
        const fs::path path = directory_.file(name);
        test_packets::write_file(path, bytes);
        return path;
    }

    // The one line that reading the file to its end throws.
    static std::string error_of(const fs::path &path)
    {
        try {
            vlc::CaptureReader reader(path);
            for (vlc::CapturedPacket packet; reader.next(&packet);) {
            }
        } catch (const vlc::StateError &error) {
            return error.what();
        }
        return "no error";
    }

    test_packets::TemporaryDirectory directory_;
    const std::vector<Record> two_records_{{from_hex("0102030405"), 1500}, {from_hex("aabb"), 2}};
};

// A section header, an Ethernet interface with nanoseconds, and a packet of 3 bytes cut from 60.
constexpr const char *pcapng_hex =
    "0a0d0d0a 1c000000 4d3c2b1a 0100 0000 ffffffffffffffff 1c000000"
    "01000000 20000000 0100 0000 00000000 0900 0100 09000000 0000 0000 20000000"
    "06000000 24000000 00000000 77bf2518 15cd5b07 03000000 3c000000 01020300 24000000";

TEST_F(Captures, PacketsComeInOrderWithTheirCapturedBytesAndWireLength)
{
    vlc::CaptureReader reader(file("two.pcap", test_packets::pcap_bytes(1, two_records_)));
    vlc::CapturedPacket packet;
    for (const Record &record : two_records_) {
        ASSERT_TRUE(reader.next(&packet));
        EXPECT_EQ(packet.link, vlc::LinkType::ethernet);
        EXPECT_EQ(Frame(packet.bytes.begin(), packet.bytes.end()), record.bytes);
        EXPECT_EQ(packet.wire_length, record.wire_length);
    }
    EXPECT_EQ(packet.nanoseconds, 1'700'000'000'000'002'000);
    EXPECT_FALSE(reader.next(&packet));
    EXPECT_FALSE(reader.next(&packet));
}

TEST_F(Captures, LinuxSllIsALinkTypeOfItsOwn)
{
    const auto bytes = test_packets::pcap_bytes(test_packets::link_linux_sll, two_records_);
    vlc::CaptureReader reader(file("sll.pcap", bytes));
    vlc::CapturedPacket packet;
    ASSERT_TRUE(reader.next(&packet));
    EXPECT_EQ(packet.link, vlc::LinkType::linux_sll);
}

TEST_F(Captures, PcapngIsReadWithItsNanoseconds)
{
    vlc::CaptureReader reader(file("one.pcapng", from_hex(pcapng_hex)));
    vlc::CapturedPacket packet;
    ASSERT_TRUE(reader.next(&packet));
    EXPECT_EQ(Frame(packet.bytes.begin(), packet.bytes.end()), from_hex("010203"));
    EXPECT_EQ(packet.wire_length, 60u);
    EXPECT_EQ(packet.nanoseconds, 0x1825bf77'075bcd15);
    EXPECT_FALSE(reader.next(&packet));
}

TEST_F(Captures, NanosecondsOfAClassicCaptureAreKept)
{
    Frame bytes = test_packets::pcap_bytes(1, two_records_);
    bytes[0] = 0x4d; // the magic number of nanosecond captures
    bytes[1] = 0x3c;
    vlc::CaptureReader reader(file("nanoseconds.pcap", bytes));
    vlc::CapturedPacket packet;
    ASSERT_TRUE(reader.next(&packet));
    EXPECT_EQ(packet.nanoseconds, 1'700'000'000'000'000'001);
}

TEST_F(Captures, ACaptureWithoutPacketsEndsAtOnce)
{
    vlc::CaptureReader reader(file("none.pcap", test_packets::pcap_bytes(1, {})));
    vlc::CapturedPacket packet;
    EXPECT_FALSE(reader.next(&packet));
    EXPECT_EQ(reader.progress(), 1.0);
}

TEST_F(Captures, ProgressGrowsToOne)
{
    const std::vector<Record> records(4000, {Frame(1000), 1000});
    vlc::CaptureReader reader(file("long.pcap", test_packets::pcap_bytes(1, records)));
    vlc::CapturedPacket packet;
    double last = reader.progress();
    EXPECT_LT(last, 0.5);
    int grown = 0;
    while (reader.next(&packet)) {
        EXPECT_GE(reader.progress(), last);
        EXPECT_LE(reader.progress(), 1.0);
        grown += reader.progress() > last ? 1 : 0;
        last = reader.progress();
    }
    EXPECT_GE(grown, 2);
    EXPECT_EQ(reader.progress(), 1.0);
}

TEST_F(Captures, APipeIsReadAsAFileIs)
{
    const fs::path pipe = directory_.file("pipe");
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    std::thread writer(
        [&] { test_packets::write_file(pipe, test_packets::pcap_bytes(1, two_records_)); });
    vlc::CaptureReader reader(pipe);
    vlc::CapturedPacket packet;
    int packets = 0;
    while (reader.next(&packet)) {
        EXPECT_EQ(reader.progress(), 0.0);
        ++packets;
    }
    writer.join();
    EXPECT_EQ(packets, 2);
    EXPECT_EQ(reader.progress(), 1.0);
}

TEST_F(Captures, AMovedReaderGoesOnWhereItWas)
{
    vlc::CaptureReader first(file("two.pcap", test_packets::pcap_bytes(1, two_records_)));
    vlc::CapturedPacket packet;
    ASSERT_TRUE(first.next(&packet));
    vlc::CaptureReader second(std::move(first));
    ASSERT_TRUE(second.next(&packet));
    EXPECT_EQ(packet.bytes.size(), 2u);
}

TEST_F(Captures, AMissingFileIsNamed)
{
    const fs::path path = directory_.file("missing.pcap");
    EXPECT_EQ(error_of(path), path.string() + ": No such file or directory");
}

TEST_F(Captures, ADirectoryIsNoCapture)
{
    const fs::path path = directory_.file("");
    EXPECT_EQ(error_of(path), path.string() + ": is a directory, not a capture");
}

TEST_F(Captures, AnEmptyFileIsNoCapture)
{
    const fs::path path = file("empty.pcap", {});
    EXPECT_EQ(error_of(path), path.string() + ": is empty, not a capture");
}

TEST_F(Captures, AForeignFileIsNoCapture)
{
    const fs::path path = file("text.pcap", Frame(100, 'x'));
    EXPECT_EQ(error_of(path),
              path.string() + ": is no capture that can be read: unknown file format");
}

TEST_F(Captures, AFileHeaderThatIsCutIsNoCapture)
{
    Frame bytes = test_packets::pcap_bytes(1, {});
    bytes.resize(11);
    const std::string path = file("header.pcap", bytes).string();
    EXPECT_EQ(error_of(path).rfind(path + ": is no capture that can be read: truncated", 0), 0u);
}

TEST_F(Captures, AnotherLinkTypeIsNamed)
{
    const fs::path path = file("wifi.pcap", test_packets::pcap_bytes(105, two_records_));
    EXPECT_EQ(error_of(path), path.string() + ": link type IEEE802_11 is not supported, "
                                              "only Ethernet (EN10MB) and LINUX_SLL are");
}

TEST_F(Captures, ALinkTypeWithoutANameIsNumbered)
{
    const fs::path path = file("user.pcap", test_packets::pcap_bytes(65'000, two_records_));
    EXPECT_EQ(error_of(path), path.string() + ": link type 65000 is not supported, "
                                              "only Ethernet (EN10MB) and LINUX_SLL are");
}

TEST_F(Captures, ABreakInAPacketIsToldWithItsNumber)
{
    Frame bytes = test_packets::pcap_bytes(1, two_records_);
    bytes.pop_back();
    const fs::path path = file("cut.pcap", bytes);
    EXPECT_EQ(error_of(path), path.string() + ": packet 2 cannot be read: truncated dump file; "
                                              "tried to read 2 captured bytes, only got 1");
}

TEST_F(Captures, EveryCutOfACaptureIsAnErrorOrItsEnd)
{
    const Frame whole = test_packets::pcap_bytes(1, two_records_);
    const std::vector<size_t> ends = {24, 24 + 16 + 5, whole.size()}; // behind whole packets
    for (size_t length = 0; length <= whole.size(); ++length) {
        const Frame part(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(length));
        const bool at_an_end = std::ranges::find(ends, length) != ends.end();
        EXPECT_EQ(error_of(file("cut.pcap", part)) == "no error", at_an_end) << length;
    }
}

TEST_F(Captures, ABreakInAPcapngBlockIsToldWithThePacketsNumber)
{
    Frame bytes = from_hex(pcapng_hex);
    bytes.resize(bytes.size() - 6);
    const fs::path path = file("cut.pcapng", bytes);
    EXPECT_EQ(error_of(path).rfind(path.string() + ": packet 1 cannot be read: ", 0), 0u);
}

TEST_F(Captures, AnImpossibleLengthIsToldWithThePacketsNumber)
{
    Frame bytes = test_packets::pcap_bytes(1, two_records_);
    bytes[24 + 16 + 5 + 8 + 3] = 0x7f; // the highest byte of the second packet's captured length
    const fs::path path = file("length.pcap", bytes);
    EXPECT_EQ(error_of(path).rfind(path.string() + ": packet 2 cannot be read: ", 0), 0u);
}

TEST_F(Captures, AnErrorIsOneLine)
{
    for (const Frame &bytes : {Frame{}, Frame(50, 0xff), from_hex("0a0d0d0a 00000000")}) {
        const std::string error = error_of(file("broken", bytes));
        EXPECT_NE(error, "no error");
        EXPECT_EQ(error.find('\n'), std::string::npos) << error;
    }
}

} // namespace
