// The packet path's client: registered once, and the card's type looked at each time.
#include <cstring>

#include "packet_fixture.h"

using namespace test;

namespace {

class PacketClient : public PacketTest {
protected:
    static constexpr char init[] = "spp_client_init_v2";
    static void *client_of_the_path() { return reinterpret_cast<void *>(uintptr_t{0x5150}); }

    void init_gives(uint32_t code, void *handle)
    {
        services.script(init, [=](const vlc::ServiceCall &call) {
            *reinterpret_cast<void **>(call.args[0]) = handle;
            return std::optional<uint64_t>(code);
        });
    }
};

TEST_F(PacketClient, RegisteringGivesTheHandleOfThePacketPath)
{
    init_gives(0, client_of_the_path());
    EXPECT_EQ(register_client(), client_of_the_path());
    EXPECT_EQ(services.names(), (Strings{"platform_get_my_card_type", init}));
    EXPECT_EQ(log(), Strings{});
}

TEST_F(PacketClient, TheParametersReachThePacketPathUnchanged)
{
    spp_client_params params;
    static_assert(sizeof params == 784);
    Octets given(sizeof params);
    for (size_t i = 0; i < given.size(); ++i)
        given[i] = static_cast<uint8_t>(i * 7 + i / 256);
    memcpy(&params, given.data(), given.size());
    Octets got;
    services.script(init, [&](const vlc::ServiceCall &call) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(call.args[1]);
        got.assign(bytes, bytes + sizeof params);
        return std::optional<uint64_t>();
    });
    EXPECT_NE(plm_inline_spp_client_register(params), nullptr);
    EXPECT_EQ(got, given);
}

TEST_F(PacketClient, AFailedRegistrationIsLoggedAndGivesNull)
{
    services.force(init, 17);
    EXPECT_EQ(register_client(), nullptr);
    EXPECT_EQ(log(), Strings{"spp_client_init_v2 failed: rc = 17"});
}

TEST_F(PacketClient, ACodeWithItsHighestBitSetIsLoggedAsASignedNumber)
{
    services.force(init, 0xFFFFFFFF);
    register_client();
    EXPECT_EQ(log(), Strings{"spp_client_init_v2 failed: rc = -1"});
}

TEST_F(PacketClient, WhatAFailedRegistrationLeftInTheHandleIsNoClient)
{
    init_gives(5, client_of_the_path());
    EXPECT_EQ(register_client(), nullptr);
    forget();
    send_udp(0);
    EXPECT_EQ(log(), Strings{" spp_handle is NULL"});
}

TEST_F(PacketClient, AfterAFailureTheNextRegistrationTriesAgain)
{
    services.force(init, 12, 1, 1);
    EXPECT_EQ(register_client(), nullptr);
    forget();
    EXPECT_NE(register_client(), nullptr);
    EXPECT_EQ(services.count(init), 1u);
    EXPECT_EQ(log(), Strings{});
}

TEST_F(PacketClient, ASecondRegistrationGivesTheSameHandleAndAsksThePathNoMore)
{
    void *first = register_client();
    forget();
    EXPECT_EQ(register_client(), first);
    EXPECT_EQ(services.names(), Strings{"platform_get_my_card_type"});
}

// The flag is seen in what IP packets ask for.
TEST_F(PacketClient, ASecondRegistrationLooksAtTheCardsTypeAnew)
{
    services.force("platform_get_my_card_type", flag_types[0]);
    register_client();
    services.force("platform_get_my_card_type", ordinary_type);
    register_client();
    forget();
    send_ip(1);
    EXPECT_EQ(services.count("plm_pkt_dir_to_np_map"), 0u);
    services.force("platform_get_my_card_type", flag_types[1]);
    register_client();
    forget();
    send_ip(1);
    EXPECT_EQ(services.count("plm_pkt_dir_to_np_map"), 1u);
}

TEST_F(PacketClient, TheFlagIsSetAlsoWhenTheRegistrationFails)
{
    services.force("platform_get_my_card_type", flag_types[0]);
    services.force(init, 22);
    register_client();
    forget();
    send_ip(1);
    EXPECT_EQ(services.count("plm_pkt_dir_to_np_map"), 1u);
}

TEST_F(PacketClient, WithoutACardThereIsNoClient)
{
    card.reset();
    EXPECT_EQ(register_client(), nullptr);
    EXPECT_EQ(log(), Strings{"spp_client_init_v2 failed: rc = 22"});
}

} // namespace
