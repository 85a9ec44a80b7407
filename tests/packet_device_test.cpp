// A CPU port with a device: what the library sends comes out of the other end of the wire.
#include "packet_fixture.h"
#include "wire_pair.h"

using namespace test;

namespace {

class PacketDevice : public PacketTest {
protected:
    void SetUp() override
    {
        if (!wire.why_not().empty())
            GTEST_SKIP() << wire.why_not();
        vlc::CardConfig with_device = config;
        with_device.cpu_ports = {{.np = 0, .device = WirePair::near}};
        restart_card(with_device);
        ASSERT_NE(register_client(), nullptr);
        forget();
    }
    // For the NPs' addresses alone: devices also say things of their own.
    std::optional<Octets> receive() { return wire.receive({0x00, 0x65, 0x7A}); }

    WirePair wire;
};

TEST_F(PacketDevice, APacketToAServiceLineCardArrivesByteForByte)
{
    send_udp(0x1234, Octets{'h', 'e', 'l', 'l', 'o'});
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(log(), Strings{"spp_prep_bfd_pkt_and_xmt returned OK 0"});
    EXPECT_EQ(receive(), frames[0].bytes);
}

TEST_F(PacketDevice, AnIpPacketArrivesByteForByte)
{
    send_ip(0xABCD, Octets(1300, 0x5A));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(log(), Strings{"pkt sent\n"});
    EXPECT_EQ(receive(), frames[0].bytes);
}

TEST_F(PacketDevice, NoFileIsWrittenBesideTheDevice)
{
    send_udp(1);
    EXPECT_TRUE(receive().has_value());
    EXPECT_FALSE(std::filesystem::exists("/tmp/card/cpu-port16.pcap"));
}

TEST_F(PacketDevice, AFrameThatTheDeviceCannotCarryIsSaidWithItsRetcode)
{
    send_ip(1, Octets(4000, 0x5A));
    EXPECT_EQ(log(), Strings{"pkt not sent retcode 90\n"}); // too long
}

TEST_F(PacketDevice, ADeviceThatIsDownIsSaidWithItsRetcode)
{
    ASSERT_EQ(std::system("ip link set wire-near down"), 0);
    send_udp(1);
    EXPECT_EQ(log(), Strings{"spp_prep_bfd_pkt_and_xmt returned non-zero retcode 100 "});
}

} // namespace
