// Another reader's opinion of what is sent: tshark on the files that the card's ports write.
#include <array>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "packet_fixture.h"

using namespace test;

namespace {

const std::string port_file = "/tmp/card/cpu-port16.pcap";

// The fields of each frame, joined by blanks.
Strings read_by_tshark(const std::string &file, const std::string &fields)
{
    std::istringstream names(fields);
    std::string command =
        "tshark -n -o ip.check_checksum:TRUE -T fields -E separator=/s -r " + file;
    for (std::string name; names >> name;)
        command += " -e " + name;
    FILE *pipe = popen((command + " 2>/dev/null").c_str(), "r");
    std::string output;
    std::array<char, 4096> part;
    for (size_t got; pipe != nullptr && (got = fread(part.data(), 1, part.size(), pipe)) > 0;)
        output.append(part.data(), got);
    EXPECT_EQ(pclose(pipe), 0) << command;
    std::istringstream lines(output);
    Strings all;
    for (std::string line; std::getline(lines, line);)
        all.push_back(line);
    return all;
}

// Packets without a link header.
void write_capture(const std::string &file, const std::vector<Octets> &packets)
{
    std::ofstream out(file, std::ios::binary);
    const auto word = [&out](uint32_t value) {
        out.write(reinterpret_cast<const char *>(&value), sizeof value);
    };
    constexpr uint32_t raw_ipv4 = 228;
    for (const uint32_t value : {0xA1B2C3D4u, 0x00040002u, 0u, 0u, 65535u, raw_ipv4})
        word(value);
    for (const Octets &packet : packets) {
        const auto size = static_cast<uint32_t>(packet.size());
        for (const uint32_t value : {0u, 0u, size, size})
            word(value);
        out.write(reinterpret_cast<const char *>(packet.data()), size);
    }
}

class PacketsReadByTshark : public PacketTest {
protected:
    PacketsReadByTshark() { register_on(ordinary_type); }
    // Behind prefix and NP header, where tshark cannot look by itself.
    Strings read_inner(const std::string &fields)
    {
        std::vector<Octets> inner;
        for (const SentFrame &frame : frames)
            inner.push_back(frame.behind_the_headers());
        write_capture("/tmp/inner.pcap", inner);
        return read_by_tshark("/tmp/inner.pcap", fields);
    }
};

// The bytes behind the tag are the first of the NP's header: a type of 0x8000 and the tag's bits,
// which tshark knows not, or 0, which it takes for a length.
TEST_F(PacketsReadByTshark, ThePrefixIsEthernetWithAn8021QTag)
{
    send_udp(0x1234);
    send_ip(1);
    EXPECT_EQ(read_by_tshark(port_file, "frame.len eth.dst eth.src eth.type vlan.priority vlan.dei "
                                        "vlan.id vlan.etype vlan.len"),
              (Strings{"104 00:65:7a:00:00:00 50:4c:4d:50:4e:54 0x8100 0 0 1282 0x8234 ",
                       "92 00:65:7a:00:00:00 50:4c:4d:50:4e:54 0x8100 0 0 1282  0"}));
}

TEST_F(PacketsReadByTshark, TheTimeIsThatOfTheCardsClock)
{
    send_udp(1);
    vlc::CardClock::advance(std::chrono::nanoseconds(1'500'000'001));
    send_udp(1);
    EXPECT_EQ(read_by_tshark(port_file, "frame.time_epoch"),
              (Strings{"1767225600.000000000", "1767225601.500000001"}));
}

// tshark reads the header as it stands and says that its length is bogus, so it looks no further.
TEST_F(PacketsReadByTshark, TheIpv4HeaderIsReadAndItsLengthCalledBogus)
{
    send_udp(1);
    EXPECT_EQ(read_inner("ip.version ip.hdr_len ip.dsfield ip.len ip.bogus_ip_length "
                         "ip.checksum.status udp.length"),
              Strings{"4 20 0x40 1 1  "});
}

// With a length that is true all the rest is as they expect it, but for the checksum, which tshark
// calls bad (its status 0).
TEST_F(PacketsReadByTshark, WithALengthThatIsTrueAllOfIpv4AndUdpIsRead)
{
    plm_inline_send_packet_to_service_lc(1, 0xC0000201, 0xC6336407, "hello", 5);
    ASSERT_EQ(frames.size(), 1u);
    frames[0].bytes[72 + 3] = 33;
    EXPECT_EQ(read_inner("ip.ttl ip.proto ip.id ip.flags ip.frag_offset ip.src ip.dst "
                         "ip.checksum ip.checksum.status "
                         "udp.srcport udp.dstport udp.length udp.checksum udp.payload"),
              Strings{"2 17 0x0000 0x00 0 192.0.2.1 198.51.100.7 0x0000 0 5555 4100 13 0x0000 "
                      "68656c6c6f"});
}

TEST_F(PacketsReadByTshark, AnIpPacketIsReadAsItWasGiven)
{
    const Octets packet = {0x45, 0x00, 0x00, 0x1C, 0x00, 0x00, 0x00, 0x00, 0x40, 0x01,
                           0xF6, 0x2B, 0xC0, 0x00, 0x02, 0x01, 0xC0, 0x00, 0x02, 0x02,
                           0x08, 0x00, 0xF7, 0xFF, 0x00, 0x00, 0x00, 0x00};
    send_ip(7, packet);
    EXPECT_EQ(read_inner("ip.src ip.dst ip.len icmp.type"), Strings{"192.0.2.1 192.0.2.2 28 8"});
}

} // namespace
