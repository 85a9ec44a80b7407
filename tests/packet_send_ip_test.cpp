// IP packets into an NP: every byte, where they go, what is said of them.
#include "packet_fixture.h"
#include "unreadable_end.h"

using namespace test;

namespace {

class IpSend : public PacketTest {
protected:
    IpSend() { register_on(ordinary_type); }
};

TEST_F(IpSend, AFrameIsThisByteForByte)
{
    const Octets packet = {0x45, 0, 0, 20, 1, 2, 3, 4, 64, 59, 5, 6, 192, 0, 2, 1, 192, 0, 2, 2};
    plm_inline_send_ip_packet(0xABCD, packet.data(), 20);
    const Octets expected = {// prefix
                             0x00, 0x65, 0x7A, 0x00, 0x00, 0x00, 'P', 'L', 'M', 'P', 'N', 'T', 0x81,
                             0x00, 0x05, 0x02,
                             // the NP's header
                             0, 0, 0, 0, 0, 0, 0x0F, 0x8E, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                             0, 0, 0, 0, 0, 0, 0x47, 9, 0, 0, 0, 0, 0, 0, 0, 0, 0, 20, 0, 0xCD,
                             0xAB, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
                             // packet
                             0x45, 0, 0, 20, 1, 2, 3, 4, 64, 59, 5, 6, 192, 0, 2, 1, 192, 0, 2, 2};
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes, expected);
}

TEST_F(IpSend, TheFrameIsHandedOverInThreePieces)
{
    const Octets packet(60, 'x');
    send_ip(1, packet);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].lengths, (std::vector<size_t>{16, 56, 60}));
    EXPECT_EQ(frames[0].places[2], packet.data()); // not copied
    EXPECT_EQ(frames[0].count, 3u);
    EXPECT_EQ(frames[0].word_1, 1u);
    EXPECT_EQ(frames[0].word_2, 71u);
    EXPECT_EQ(frames[0].retcode_before, 0u);
    EXPECT_EQ(frames[0].handle, reinterpret_cast<uint64_t>(register_client()));
}

TEST_F(IpSend, TheNpsHeaderHasItsFixedBytesAndZeroesElsewhere)
{
    send_ip(0x0201, Octets(0x0403, 'x'));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].np_header(), zeroed(56, {{6, 0x0F},
                                                 {7, 0x8E},
                                                 {28, 0x47},
                                                 {29, 9},
                                                 {39, 0x03},
                                                 {40, 0x04},
                                                 {41, 0x01},
                                                 {42, 0x02}}));
}

TEST_F(IpSend, AllSixteenBitsOfTheTagTravel)
{
    send_ip(0xFFFF);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].part(16 + 41, 2), (Octets{0xFF, 0xFF}));
    EXPECT_EQ(frames[0].part(16, 2), (Octets{0, 0})); // where the other kind of packet has its tag
}

TEST_F(IpSend, AnEmptyPacketIsSentAsAPieceOfNoBytes)
{
    plm_inline_send_ip_packet(1, "", 0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].lengths, (std::vector<size_t>{16, 56, 0}));
    EXPECT_EQ(log(), Strings{"pkt sent\n"});
}

// Kept: the field has 16 bits, and what is longer is sent whole.
TEST_F(IpSend, ALengthThatItsFieldCannotHoldIsCutToItsLow16Bits)
{
    path_answers(0, 0);
    send_ip(0, Octets(0x10203, 'x'));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].part(16 + 39, 2), (Octets{0x03, 0x02}));
    EXPECT_EQ(frames[0].lengths[2], 0x10203u);
}

TEST_F(IpSend, NoByteBehindThePacketIsRead)
{
    const UnreadableEnd room(64);
    plm_inline_send_ip_packet(0, room.last(21), 21);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].lengths[2], 21u);
}

// ---- where it goes -----------------------------------------------------------------------------

TEST_F(IpSend, WithoutTheFlagItGoesToNp0WithoutAskingTheMap)
{
    // Kept: two of the types on which packets to a service line card ask the map are among them.
    for (const uint32_t type : {ordinary_type, 0u, map_types[2], map_types[3], 0xFFFFFFFFu}) {
        register_on(type);
        send_ip(1);
        EXPECT_EQ(services.names(), (Strings{"plm_np_to_cpu_port_map", "spp_prep_bfd_pkt_and_xmt"}))
            << type;
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].bytes[5], 0);
    }
}

TEST_F(IpSend, OnTheTwoCardTypesOfTheFlagTheMapSaysTheNp)
{
    for (const uint32_t type : flag_types) {
        register_on(type);
        map_gives(1);
        send_ip(1);
        EXPECT_EQ(services.names(), (Strings{"plm_pkt_dir_to_np_map", "plm_np_to_cpu_port_map",
                                             "spp_prep_bfd_pkt_and_xmt"}))
            << type;
        const RecordedCall asked = services.calls_of("plm_pkt_dir_to_np_map")[0];
        EXPECT_EQ(asked.args[0], 0u);
        EXPECT_EQ(asked.args[1], 1u);
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].bytes[5], 1);
        EXPECT_EQ(services.calls_of("plm_np_to_cpu_port_map")[0].args, (std::vector<uint64_t>{1}));
        EXPECT_EQ(frames[0].port, 17u);
    }
}

TEST_F(IpSend, TheFlagIsThatOfTheRegistrationAndNotOfTheCardNow)
{
    register_on(flag_types[0]);
    services.force("platform_get_my_card_type", ordinary_type);
    map_gives(1);
    send_ip(1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes[5], 1);
}

TEST_F(IpSend, AMapThatFailsIsNotSaid)
{
    register_on(flag_types[0]);
    services.force("plm_pkt_dir_to_np_map", 2);
    send_ip(1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes[5], 0);
    EXPECT_EQ(log(), Strings{"pkt sent\n"});
}

TEST_F(IpSend, AnNpThatAFailingMapWroteIsUsed)
{
    register_on(flag_types[1]);
    map_gives(1, 22);
    send_ip(1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes[5], 1);
}

TEST_F(IpSend, AnNpWithoutAPortGetsNothing)
{
    services.force("plm_np_to_cpu_port_map", no_port);
    send_ip(1);
    EXPECT_EQ(frames.size(), 0u);
    EXPECT_EQ(log(), Strings{"Error getting tsec port"});
}

// ---- what becomes of it ------------------------------------------------------------------------

TEST_F(IpSend, EachOutcomeHasItsLine)
{
    const struct {
        uint32_t code, retcode;
        const char *line;
    } cases[] = {
        {0, 0, "pkt sent\n"},
        {0, 12, "pkt sent\n"}, // Kept: counts as sent
        {0, 1, "pkt not sent retcode 1\n"},
        {0, 13, "pkt not sent retcode 13\n"},
        {0, 0xFFFFFFFF, "pkt not sent retcode -1\n"},
        {5, 0, "send failure rc 5 retcode 0"},
        {5, 12, "send failure rc 5 retcode 12"},
        {0xFFFFFFFF, 3, "send failure rc -1 retcode 3"},
    };
    for (const auto &[code, retcode, line] : cases) {
        path_answers(code, retcode);
        forget();
        send_ip(0);
        EXPECT_EQ(log(), Strings{line});
    }
}

TEST_F(IpSend, ANullPacketIsRefusedWithALine)
{
    for (const uint32_t length : {0u, 4u}) {
        forget();
        plm_inline_send_ip_packet(0, nullptr, length);
        EXPECT_EQ(services.names(), Strings{});
        EXPECT_EQ(log(), Strings{"packet is NULL in plm_inline_send_ip_packet"});
    }
}

class IpSendWithoutClient : public PacketTest {};

// Kept: only the other kind of packet looks for the client.
TEST_F(IpSendWithoutClient, TheNullHandleGoesToThePacketPathWhichRefusesIt)
{
    send_ip(1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].handle, 0u);
    EXPECT_EQ(log(), Strings{"send failure rc 22 retcode 22"});
}

TEST_F(IpSendWithoutClient, NoFlagIsSet)
{
    services.force("platform_get_my_card_type", flag_types[0]);
    send_ip(1);
    EXPECT_EQ(services.count("plm_pkt_dir_to_np_map"), 0u);
}

} // namespace
