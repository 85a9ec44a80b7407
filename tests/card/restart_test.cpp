// A host that is killed and started again on the same directory.

#include <csignal>
#include <cstring>
#include <filesystem>
#include <memory>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "metered_card.h"
#include "service_recorder.h"
#include "vlc/data_plane.h"

namespace {

using test::MeteredCard;

std::vector<services::Destination> destinations()
{
    std::vector<services::Destination> wanted;
    for (uint32_t i = 0; i < 200; ++i)
        wanted.push_back({17, 0x0A000000 + i / 4, static_cast<uint16_t>(1000 + i)});
    return wanted;
}

// One UDP packet to each destination.
void send_a_packet_to_each(vlc::VirtualLineCard &card)
{
    vlc::DataPlane plane(card.nps(), card.config());
    for (const services::Destination &to : destinations()) {
        uint8_t frame[14 + 20 + 8] = {};
        frame[12] = 0x08; // IPv4
        frame[14] = 0x45;
        frame[17] = 28;
        frame[23] = to.protocol;
        for (int i = 0; i < 4; ++i)
            frame[30 + i] = static_cast<uint8_t>(to.address >> (8 * (3 - i)));
        frame[36] = static_cast<uint8_t>(to.port >> 8);
        frame[37] = static_cast<uint8_t>(to.port);
        plane.process({vlc::LinkType::ethernet, frame, 100, 0});
    }
}

// Programs every destination in a process of its own, lets each count one packet, and dies by
// SIGKILL once every answer has been read.
void program_and_be_killed(uint32_t card_type)
{
    const pid_t host = fork();
    if (host == 0) {
        MeteredCard metered(card_type);
        metered.program(destinations());
        metered.card->events().run_until_idle();
        send_a_packet_to_each(*metered.card);
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    waitpid(host, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    ASSERT_EQ(WTERMSIG(status), SIGKILL);
}

size_t hardware_requests(const test::ServiceRecorder &services)
{
    size_t requests = 0;
    for (const char *table : {"prm_srh_service_config_", "prm_srh_ext_service_db_"})
        for (const char *operation : {"add", "mod", "del"})
            requests += services.count(std::string(table) + operation);
    return requests;
}

class KilledHost : public testing::TestWithParam<uint32_t> {
protected:
    void SetUp() override { program_and_be_killed(GetParam()); }
};

TEST_P(KilledHost, FindsEveryEntryAgainAndSendsNothingForThem)
{
    test::ServiceRecorder services;
    MeteredCard metered(GetParam());
    const auto programmed = metered.program(destinations());
    EXPECT_EQ(programmed.failure, "");
    EXPECT_EQ(programmed.found, 200u + 50u);
    EXPECT_EQ(programmed.made, 0u);
    EXPECT_EQ(hardware_requests(services), 0u);
    for (uint32_t np = 0; np < 4; ++np) {
        EXPECT_EQ(metered.card->nps()[np].table(vlc::TableKind::service_config).size(), 200u);
        EXPECT_EQ(metered.card->nps()[np].table(vlc::TableKind::ext_conf).size(), 50u);
    }
}

TEST_P(KilledHost, ReregistersTheHandleThatPrmStillKnows)
{
    test::ServiceRecorder services;
    const MeteredCard metered(GetParam());
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
    EXPECT_EQ(services.count("prm_srh_reregister"), 1u);
    EXPECT_TRUE(metered.host->found_root());
}

TEST_P(KilledHost, GoesOnCountingWhereItStopped)
{
    MeteredCard metered(GetParam());
    metered.program(destinations());
    metered.meter->collect();
    send_a_packet_to_each(*metered.card);
    metered.meter->collect();
    uint64_t total = 0;
    uint64_t counted = 0;
    for (const services::MeterEntry &entry : metered.meter->entries()) {
        total += entry.total.packets;
        counted += entry.counted.packets;
    }
    EXPECT_EQ(counted, 2u * 200);   // each packet hits both tables
    EXPECT_EQ(total, 2u * 2 * 200); // and one of each was counted before the kill
}

TEST_P(KilledHost, TakesNoCounterThatASurvivingEntryHolds)
{
    MeteredCard metered(GetParam());
    std::vector<services::Destination> more = {{6, 0xC0000201, 80}};
    ASSERT_EQ(metered.program(more).made, 2u);
    // 250 entries took two counters each, the first even, on every NP.
    EXPECT_EQ(metered.host->root()->counters[0][500 / 32] & (0x80000000u >> (500 % 32)),
              0x80000000u >> (500 % 32));
    EXPECT_EQ(metered.host->root()->counters[0][504 / 32] & (0x80000000u >> (504 % 32)), 0u);
}

INSTANTIATE_TEST_SUITE_P(CardTypes, KilledHost, testing::Values(0xD20001u, 0xD10001u),
                         [](const auto &type) {
                             return type.param == 0xD10001u ? "Unswapped" : "Swapped";
                         });

} // namespace
