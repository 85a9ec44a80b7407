// The packet path: clients, what it refuses, and frames that land at the card's ports, wherever the
// card is.
#include "platform_packet_path.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

#include "platform_card.h"
#include "test_card.h"

namespace {

class PacketPath : public card_test::InEachDeployment<card_test::CardTest> {
protected:
    static spp_client_params no_params() { return {}; }

    void *client()
    {
        void *handle = nullptr;
        EXPECT_EQ(spp_client_init_v2(&handle, no_params()), 0u);
        EXPECT_NE(handle, nullptr);
        return handle;
    }
    uint32_t send(void *handle, uint32_t port, std::vector<gather_piece> pieces)
    {
        retcode = 0xEEEE;
        return spp_prep_bfd_pkt_and_xmt(handle, port, pieces.data(),
                                        static_cast<uint32_t>(pieces.size()), SPP_SEND_WORD_1,
                                        &retcode, SPP_SEND_WORD_2);
    }
    static gather_piece piece(const std::string &text) { return {text.data(), text.size()}; }
    // The frames of a port's file; what stands in front of each is of 16 bytes.
    std::vector<std::string> frames(uint32_t port) const
    {
        std::ifstream file(card_directory() / ("cpu-port" + std::to_string(port) + ".pcap"),
                           std::ios::binary);
        std::ostringstream content;
        content << file.rdbuf();
        const std::string bytes = content.str();
        std::vector<std::string> all;
        for (size_t at = 24; at + 16 <= bytes.size();) {
            uint32_t length = 0;
            std::memcpy(&length, bytes.data() + at + 8, sizeof length);
            all.push_back(bytes.substr(at + 16, length));
            at += 16 + length;
        }
        return all;
    }

    uint32_t retcode = 0;
};

using Frames = std::vector<std::string>;
const std::string text = "some bytes";

IN_BOTH_DEPLOYMENTS(PacketPath);

TEST_P(PacketPath, PiecesBecomeOneFrameAtThePort)
{
    EXPECT_EQ(send(client(), 17, {piece("one, "), piece(""), piece("two, "), piece("three")}), 0u);
    EXPECT_EQ(retcode, 0u);
    EXPECT_EQ(frames(17), Frames{"one, two, three"});
    EXPECT_EQ(frames(16), Frames{});
}

TEST_P(PacketPath, EachClientHasAHandleOfItsOwn)
{
    void *first = client();
    void *second = client();
    EXPECT_NE(first, second);
    EXPECT_EQ(send(first, 16, {piece("a")}), 0u);
    EXPECT_EQ(send(second, 16, {piece("b")}), 0u);
    EXPECT_EQ(frames(16), (Frames{"a", "b"}));
}

TEST_P(PacketPath, AClientStaysOneWhenItsCardGoesAndComes)
{
    void *handle = client();
    restart_process();
    EXPECT_EQ(send(handle, 16, {piece("a")}), 0u);
}

TEST_P(PacketPath, ANullPlaceForTheHandleIsRefused)
{
    EXPECT_EQ(spp_client_init_v2(nullptr, no_params()), uint32_t{EINVAL});
}

TEST_P(PacketPath, AHandleThatIsNoClientsIsRefused)
{
    void *last = client();
    for (void *handle : {static_cast<void *>(nullptr), static_cast<void *>(&retcode),
                         static_cast<void *>(static_cast<char *>(last) + 1)}) {
        EXPECT_EQ(send(handle, 16, {piece(text)}), uint32_t{EINVAL});
        EXPECT_EQ(retcode, uint32_t{EINVAL});
    }
    EXPECT_EQ(frames(16), Frames{});
}

TEST_P(PacketPath, OneToSixteenPiecesAreTaken)
{
    void *handle = client();
    EXPECT_EQ(send(handle, 16, {}), uint32_t{EINVAL});
    EXPECT_EQ(send(handle, 16, std::vector<gather_piece>(17, piece("x"))), uint32_t{EINVAL});
    EXPECT_EQ(retcode, uint32_t{EINVAL});
    EXPECT_EQ(frames(16), Frames{});
    EXPECT_EQ(send(handle, 16, std::vector<gather_piece>(16, piece("x"))), 0u);
    EXPECT_EQ(frames(16), Frames{std::string(16, 'x')});
}

TEST_P(PacketPath, APieceOfSomeBytesThatIsNullIsRefusedAndOneOfNoBytesIsNot)
{
    void *handle = client();
    EXPECT_EQ(send(handle, 16, {piece("a"), {nullptr, 1}}), uint32_t{EINVAL});
    EXPECT_EQ(retcode, uint32_t{EINVAL});
    EXPECT_EQ(send(handle, 16, {piece("a"), {nullptr, 0}}), 0u);
    EXPECT_EQ(frames(16), Frames{"a"});
}

TEST_P(PacketPath, NullPiecesAreRefused)
{
    retcode = 0;
    EXPECT_EQ(spp_prep_bfd_pkt_and_xmt(client(), 16, nullptr, 1, 1, &retcode, 71),
              uint32_t{EINVAL});
    EXPECT_EQ(retcode, uint32_t{EINVAL});
}

TEST_P(PacketPath, ANullPlaceForTheRetcodeIsRefusedWithNothingSent)
{
    gather_piece one = piece(text);
    EXPECT_EQ(spp_prep_bfd_pkt_and_xmt(client(), 16, &one, 1, 1, nullptr, 71), uint32_t{EINVAL});
    EXPECT_EQ(frames(16), Frames{});
}

TEST_P(PacketPath, AFrameMayHave65536BytesAndNoMore)
{
    void *handle = client();
    const std::string longest(65535, 'x');
    EXPECT_EQ(send(handle, 16, {piece(longest), piece("y")}), 0u);
    EXPECT_EQ(send(handle, 16, {piece(longest), piece("yz")}), uint32_t{EMSGSIZE});
    EXPECT_EQ(retcode, uint32_t{EMSGSIZE});
    EXPECT_EQ(send(handle, 16, {piece("y"), {text.data(), UINT64_MAX}}), uint32_t{EMSGSIZE});
    EXPECT_EQ(frames(16), Frames{longest + "y"});
}

TEST_P(PacketPath, APortThatTheCardDoesNotHaveRefusesTheFrame)
{
    EXPECT_EQ(send(client(), 99, {piece(text)}), uint32_t{ENODEV});
    EXPECT_EQ(retcode, uint32_t{ENODEV});
}

// ---- maps --------------------------------------------------------------------------------------

TEST_P(PacketPath, AnNpHasThePort16AndItsNumber)
{
    EXPECT_EQ(plm_np_to_cpu_port_map(0), 16u);
    EXPECT_EQ(plm_np_to_cpu_port_map(1), 17u);
    EXPECT_EQ(plm_np_to_cpu_port_map(2), 0xFFFFFFFFu); // the card has two
    EXPECT_EQ(plm_np_to_cpu_port_map(0xFFFFFFFF), 0xFFFFFFFFu);
}

TEST_P(PacketPath, InjectedPacketsGoToNp0)
{
    uint8_t np = 7;
    EXPECT_EQ(plm_pkt_dir_to_np_map(0, 1, &np), 0u);
    EXPECT_EQ(np, 0);
}

TEST_P(PacketPath, NoNpTakesPacketsOfAnotherDirection)
{
    uint8_t np = 7;
    EXPECT_EQ(plm_pkt_dir_to_np_map(0, 0, &np), uint32_t{ENOENT});
    EXPECT_EQ(plm_pkt_dir_to_np_map(0, 2, &np), uint32_t{ENOENT});
    EXPECT_EQ(np, 7);
    EXPECT_EQ(plm_pkt_dir_to_np_map(0, 1, nullptr), uint32_t{EINVAL});
}

// ---- a card that goes --------------------------------------------------------------------------

class DistantPacketPath : public card_test::CardTest {
protected:
    DistantPacketPath() : CardTest(card_test::Deployment::split) {}
};

TEST_F(DistantPacketPath, ACardThatCannotBeReachedTakesNoFrameAndOneThatIsBackDoes)
{
    void *handle = nullptr;
    ASSERT_EQ(spp_client_init_v2(&handle, {}), 0u);
    uint32_t retcode = 0;
    gather_piece one = {"x", 1};
    end_card();
    EXPECT_EQ(spp_prep_bfd_pkt_and_xmt(handle, 16, &one, 1, 1, &retcode, 71), uint32_t{ENOTCONN});
    EXPECT_EQ(retcode, uint32_t{ENOTCONN});
    start_card();
    run_for(std::chrono::seconds(1));
    EXPECT_EQ(spp_prep_bfd_pkt_and_xmt(handle, 16, &one, 1, 1, &retcode, 71), 0u);
    EXPECT_EQ(retcode, 0u);
}

TEST(PacketPathWithoutACard, RefusesEverything)
{
    void *handle = nullptr;
    EXPECT_EQ(spp_client_init_v2(&handle, {}), uint32_t{EINVAL});
    EXPECT_EQ(handle, nullptr);
    uint32_t retcode = 0;
    gather_piece one = {"x", 1};
    EXPECT_EQ(spp_prep_bfd_pkt_and_xmt(&one, 16, &one, 1, 1, &retcode, 71), uint32_t{EINVAL});
    EXPECT_EQ(retcode, uint32_t{EINVAL});
    uint8_t np = 3;
    EXPECT_EQ(plm_pkt_dir_to_np_map(0, 1, &np), uint32_t{EINVAL});
    EXPECT_EQ(plm_np_to_cpu_port_map(0), 0xFFFFFFFFu);
}

} // namespace
