// Packets to a service line card: every byte, where they go, what is said of them.
#include "packet_fixture.h"
#include "unreadable_end.h"

using namespace test;

namespace {

class UdpSend : public PacketTest {
protected:
    UdpSend() { register_on(ordinary_type); }
};

TEST_F(UdpSend, AFrameIsThisByteForByte)
{
    const Octets payload = {'h', 'e', 'l', 'l', 'o'};
    plm_inline_send_packet_to_service_lc(0x1234, 0xC0000201, 0xC6336407, payload.data(), 5);
    const Octets expected = {
        // prefix
        0x00, 0x65, 0x7A, 0x00, 0x00, 0x00, 'P', 'L', 'M', 'P', 'N', 'T', 0x81, 0x00, 0x05, 0x02,
        // the NP's header
        0x82, 0x34, 0, 0, 0, 0, 0x0F, 0x0E, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0, 0x47, 3, 0, 0x41, 1, 0, 0, 0x1D, 0, 0, 0, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,
        0,
        // IPv4
        0x45, 0x40, 0x00, 0x01, 0, 0, 0, 0, 2, 17, 0, 0, 192, 0, 2, 1, 198, 51, 100, 7,
        // UDP
        0x15, 0xB3, 0x10, 0x04, 0x00, 13, 0, 0,
        // payload
        'h', 'e', 'l', 'l', 'o'};
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes, expected);
}

TEST_F(UdpSend, TheFrameIsHandedOverInFivePieces)
{
    const Octets payload(100, 'x');
    send_udp(1, payload);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].lengths, (std::vector<size_t>{16, 56, 20, 8, 100}));
    EXPECT_EQ(frames[0].places[4], payload.data()); // not copied
    EXPECT_EQ(frames[0].count, 5u);
    EXPECT_EQ(frames[0].word_1, 1u);
    EXPECT_EQ(frames[0].word_2, 71u);
    EXPECT_EQ(frames[0].retcode_before, 0u);
}

TEST_F(UdpSend, ItGoesOutUnderTheClientsHandle)
{
    void *client = register_client();
    forget();
    send_udp(1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].handle, reinterpret_cast<uint64_t>(client));
}

TEST_F(UdpSend, TwelveBitsOfTheTagStandInTheFirstTwoBytesBehindTheFlag)
{
    const struct {
        uint32_t tag;
        uint8_t first, second;
    } cases[] = {{0x1234, 0x82, 0x34}, {0, 0x80, 0x00},          {0x0FFF, 0x8F, 0xFF},
                 {0x1000, 0x80, 0x00}, {0xFFFFFFFF, 0x8F, 0xFF}, {0x8001, 0x80, 0x01}};
    for (const auto &[tag, first, second] : cases) {
        forget();
        send_udp(tag);
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].bytes[16], first) << tag;
        EXPECT_EQ(frames[0].bytes[17], second) << tag;
    }
}

TEST_F(UdpSend, TheNpsHeaderHasItsFixedBytesAndZeroesElsewhere)
{
    send_udp(0, Octets(0x0102, 'x'));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].np_header(), zeroed(56, {{0, 0x80},
                                                 {6, 0x0F},
                                                 {7, 0x0E},
                                                 {28, 0x47},
                                                 {29, 3},
                                                 {31, 0x41},
                                                 {32, 1},
                                                 {35, 0x1D},
                                                 {39, 0x02},
                                                 {40, 0x01}}));
}

TEST_F(UdpSend, APayloadOf100BytesHasTheUdpLength108)
{
    send_udp(0, Octets(100, 'x'));
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].part(72 + 20 + 4, 2), (Octets{0x00, 0x6C}));
    EXPECT_EQ(frames[0].part(16 + 39, 2), (Octets{100, 0})); // host byte order
}

TEST_F(UdpSend, AnEmptyPayloadIsSentAsAPieceOfNoBytes)
{
    plm_inline_send_packet_to_service_lc(1, 2, 3, "", 0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].lengths, (std::vector<size_t>{16, 56, 20, 8, 0}));
    EXPECT_EQ(frames[0].part(72 + 20 + 4, 2), (Octets{0x00, 0x08}));
    EXPECT_EQ(frames[0].part(16 + 39, 2), (Octets{0, 0}));
    EXPECT_EQ(log(), Strings{"spp_prep_bfd_pkt_and_xmt returned OK 0"});
}

// Kept: both lengths have 16 bits, and what is longer is sent whole.
TEST_F(UdpSend, ALengthThatItsFieldCannotHoldIsCutToItsLow16Bits)
{
    const struct {
        uint32_t length;
        Octets udp, np;
    } cases[] = {{65527, {0xFF, 0xFF}, {0xF7, 0xFF}},
                 {65528, {0x00, 0x00}, {0xF8, 0xFF}},
                 {65535, {0x00, 0x07}, {0xFF, 0xFF}},
                 {65536, {0x00, 0x08}, {0x00, 0x00}}};
    for (const auto &[length, udp, np] : cases) {
        forget();
        path_answers(0, 0);
        send_udp(0, Octets(length, 'x'));
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].part(72 + 20 + 4, 2), udp) << length;
        EXPECT_EQ(frames[0].part(16 + 39, 2), np) << length;
        EXPECT_EQ(frames[0].lengths[4], length);
    }
}

// Kept: neither is computed.
TEST_F(UdpSend, TheIpv4HeaderHasTheTotalLength1AndNoChecksum)
{
    for (const size_t length : {1u, 100u, 1000u}) {
        forget();
        send_udp(0, Octets(length, 'x'));
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].part(72, 12), (Octets{0x45, 0x40, 0, 1, 0, 0, 0, 0, 2, 17, 0, 0}));
    }
}

TEST_F(UdpSend, AddressesStandMostSignificantByteFirst)
{
    plm_inline_send_packet_to_service_lc(0, 0x01020304, 0xFFFEFDFC, "p", 1);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].part(84, 8), (Octets{1, 2, 3, 4, 0xFF, 0xFE, 0xFD, 0xFC}));
}

TEST_F(UdpSend, NoByteBehindThePayloadIsRead)
{
    const UnreadableEnd room(64);
    plm_inline_send_packet_to_service_lc(0, 1, 2, room.last(7), 7);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].lengths[4], 7u);
}

// ---- where it goes -----------------------------------------------------------------------------

TEST_F(UdpSend, OnAnOrdinaryCardItGoesToNp0WithoutAskingTheMap)
{
    for (const uint32_t type : {ordinary_type, 0u, 0x280250u, 0x3C0266u, 0xFFFFFFFFu}) {
        services.force("platform_get_my_card_type", type);
        forget();
        send_udp(0);
        EXPECT_EQ(services.names(), (Strings{"platform_get_my_card_type", "plm_np_to_cpu_port_map",
                                             "spp_prep_bfd_pkt_and_xmt"}))
            << type;
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].bytes[5], 0);
        EXPECT_EQ(services.calls_of("plm_np_to_cpu_port_map")[0].args, (std::vector<uint64_t>{0}));
    }
}

TEST_F(UdpSend, OnFourCardTypesTheMapSaysTheNp)
{
    for (const uint32_t type : map_types) {
        services.force("platform_get_my_card_type", type);
        map_gives(1);
        forget();
        send_udp(0);
        EXPECT_EQ(services.names(), (Strings{"platform_get_my_card_type", "plm_pkt_dir_to_np_map",
                                             "plm_np_to_cpu_port_map", "spp_prep_bfd_pkt_and_xmt"}))
            << type;
        const RecordedCall asked = services.calls_of("plm_pkt_dir_to_np_map")[0];
        EXPECT_EQ(asked.args[0], 0u);
        EXPECT_EQ(asked.args[1], 1u);
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].bytes[5], 1) << type;
        EXPECT_EQ(services.calls_of("plm_np_to_cpu_port_map")[0].args, (std::vector<uint64_t>{1}));
        EXPECT_EQ(frames[0].port, 17u);
    }
}

TEST_F(UdpSend, TheCardsTypeIsAskedAtEachPacket)
{
    map_gives(1);
    send_udp(0);
    services.force("platform_get_my_card_type", map_types[2]);
    send_udp(0);
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_EQ(frames[0].bytes[5], 0);
    EXPECT_EQ(frames[1].bytes[5], 1);
}

TEST_F(UdpSend, AMapThatFailsIsLoggedAndNp0IsUsed)
{
    services.force("platform_get_my_card_type", map_types[0]);
    services.force("plm_pkt_dir_to_np_map", 2);
    forget();
    send_udp(0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes[5], 0);
    EXPECT_EQ(log(), (Strings{"Error getting np_num for inject",
                              "spp_prep_bfd_pkt_and_xmt returned OK 0"}));
}

// Kept: the byte is used as it stands.
TEST_F(UdpSend, AnNpThatAFailingMapWroteIsUsed)
{
    services.force("platform_get_my_card_type", map_types[3]);
    map_gives(1, 22);
    forget();
    send_udp(0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].bytes[5], 1);
    EXPECT_EQ(frames[0].port, 17u);
}

TEST_F(UdpSend, AnNpOfEightBitsStandsWholeInThePrefix)
{
    services.force("platform_get_my_card_type", map_types[1]);
    services.force("plm_np_to_cpu_port_map", 16);
    map_gives(0xFF);
    forget();
    send_udp(0);
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(frames[0].prefix(), (Octets{0x00, 0x65, 0x7A, 0x00, 0x00, 0xFF, 'P', 'L', 'M', 'P',
                                          'N', 'T', 0x81, 0x00, 0x05, 0x02}));
    EXPECT_EQ(services.calls_of("plm_np_to_cpu_port_map")[0].args, (std::vector<uint64_t>{0xFF}));
}

TEST_F(UdpSend, AnNpWithoutAPortGetsNothing)
{
    services.force("plm_np_to_cpu_port_map", no_port);
    send_udp(0);
    EXPECT_EQ(frames.size(), 0u);
    EXPECT_EQ(log(), Strings{"Error getting tsec port"});
}

TEST_F(UdpSend, EveryOtherPortNumberIsAPort)
{
    path_answers(0, 0);
    for (const uint32_t port : {0u, 1u, 0xFFFFFFFEu, 0x80000000u}) {
        services.force("plm_np_to_cpu_port_map", port);
        forget();
        send_udp(0);
        ASSERT_EQ(frames.size(), 1u);
        EXPECT_EQ(frames[0].port, port);
    }
}

// ---- what becomes of it ------------------------------------------------------------------------

TEST_F(UdpSend, EachOutcomeHasItsLine)
{
    const struct {
        uint32_t code, retcode;
        const char *line;
    } cases[] = {
        {0, 0, "spp_prep_bfd_pkt_and_xmt returned OK 0"},
        {0, 12, "spp_prep_bfd_pkt_and_xmt returned OK 12"}, // Kept: counts as sent
        {0, 1, "spp_prep_bfd_pkt_and_xmt returned non-zero retcode 1 "},
        {0, 11, "spp_prep_bfd_pkt_and_xmt returned non-zero retcode 11 "},
        {0, 13, "spp_prep_bfd_pkt_and_xmt returned non-zero retcode 13 "},
        {0, 0xFFFFFFFF, "spp_prep_bfd_pkt_and_xmt returned non-zero retcode -1 "},
        {5, 0, "spp_prep_bfd_pkt_and_xmt returned non-zero rc 5, retcode 0"},
        {5, 12, "spp_prep_bfd_pkt_and_xmt returned non-zero rc 5, retcode 12"},
        {12, 7, "spp_prep_bfd_pkt_and_xmt returned non-zero rc 12, retcode 7"},
        {0xFFFFFFFF, 3, "spp_prep_bfd_pkt_and_xmt returned non-zero rc -1, retcode 3"},
    };
    for (const auto &[code, retcode, line] : cases) {
        path_answers(code, retcode);
        forget();
        send_udp(0);
        EXPECT_EQ(log(), Strings{line});
    }
}

TEST_F(UdpSend, AFailureIsNotTriedAgain)
{
    path_answers(5, 5);
    send_udp(0);
    EXPECT_EQ(frames.size(), 1u);
}

TEST_F(UdpSend, ANullPayloadIsRefusedWithALine)
{
    for (const uint32_t length : {0u, 4u}) {
        forget();
        plm_inline_send_packet_to_service_lc(0, 1, 2, nullptr, length);
        EXPECT_EQ(services.names(), Strings{});
        EXPECT_EQ(log(), Strings{"payload is NULL in plm_inline_send_packet_to_service_lc"});
    }
}

class UdpSendWithoutClient : public PacketTest {};

TEST_F(UdpSendWithoutClient, NothingIsAskedAndOneLineIsLogged)
{
    send_udp(0);
    EXPECT_EQ(services.names(), Strings{});
    EXPECT_EQ(log(), Strings{" spp_handle is NULL"});
}

TEST_F(UdpSendWithoutClient, ThatIsSaidAlsoOfANullPayload)
{
    plm_inline_send_packet_to_service_lc(0, 1, 2, nullptr, 4);
    EXPECT_EQ(log(), Strings{" spp_handle is NULL"});
}

} // namespace
