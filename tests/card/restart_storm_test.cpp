// PRM goes down and comes up a hundred times while a capture is replayed.

#include <cstdlib>
#include <set>

#include <gtest/gtest.h>

#include "metered_card.h"
#include "service_recorder.h"
#include "vlc/capture_reader.h"
#include "vlc/data_plane.h"

namespace {

using services::Destination;

constexpr uint32_t ordinary_card = 0xD20001;
constexpr uint64_t restarts = 100;
constexpr uint64_t attempts = 60;
constexpr uint64_t seconds_between_attempts = 30;
constexpr uint64_t refusal = vlc::prm_not_connected;
constexpr char capture[] = PROJECT_SOURCE_DIR "/captures/office-lan.pcap";

template <typename Visit>
uint64_t for_each_packet(const Visit &visit)
{
    vlc::CaptureReader reader(capture);
    vlc::CapturedPacket packet{};
    uint64_t number = 0;
    while (reader.next(&packet))
        visit(number++, packet);
    return number;
}

std::vector<Destination> destinations_of_the_capture()
{
    std::set<Destination> seen;
    for_each_packet([&seen](uint64_t, const vlc::CapturedPacket &packet) {
        const vlc::ParsedPacket parsed = vlc::parse_packet(packet);
        if (parsed.unreadable == vlc::Unreadable::none)
            seen.insert(
                {parsed.tuple.protocol, parsed.tuple.destination, parsed.tuple.destination_port});
    });
    return {seen.begin(), seen.end()};
}

// How often registration is refused after a restart: none to three times, in turn.
uint64_t refusals_after(uint64_t restart)
{
    return restart % 4;
}

class RestartStorm : public testing::Test {
protected:
    RestartStorm()
    {
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        metered = std::make_unique<test::MeteredCard>(ordinary_card, uint16_t{2});
        plane = std::make_unique<vlc::DataPlane>(metered->card->nps(), metered->card->config());
        handle = metered->host->root()->prm_srh_hdl;
    }

    void restart(uint64_t number)
    {
        if (const uint64_t times = refusals_after(number); times > 0)
            services.force("prm_srh_reregister", refusal, 1, times);
        metered->card->prm().restart(true);
        metered->card->events().run_until_idle();
        services.stop_forcing();
    }

    // Replays the capture with the restarts spread over it; `after` is called behind each.
    void replay_with_restarts(const std::function<void(uint64_t number)> &after)
    {
        const uint64_t packets = for_each_packet([](uint64_t, const vlc::CapturedPacket &) {});
        uint64_t done = 0;
        for_each_packet([&](uint64_t number, const vlc::CapturedPacket &packet) {
            plane->process(packet);
            if (number * restarts / packets == (number + 1) * restarts / packets)
                return;
            restart(done);
            after(done++);
        });
        ASSERT_EQ(done, restarts);
    }

    bool is_up() const { return (metered->host->root()->conn_state & SHADOW_DB_READY) != 0; }

    test::ServiceRecorder services;
    std::unique_ptr<test::MeteredCard> metered;
    std::unique_ptr<vlc::DataPlane> plane;
    void *handle = nullptr;
};

TEST_F(RestartStorm, EndsEachTimeWithTheSameHandleRegisteredAgain)
{
    services.forget();
    replay_with_restarts([this](uint64_t number) {
        ASSERT_TRUE(is_up()) << "after restart " << number;
        ASSERT_EQ(metered->host->root()->prm_srh_hdl, handle);
    });
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
    for (const test::RecordedCall &call : services.calls_of("prm_srh_reregister"))
        ASSERT_EQ(call.args[0], reinterpret_cast<uintptr_t>(handle));
}

TEST_F(RestartStorm, WaitsForEachRefusedAttemptOnTheCardsClock)
{
    services.forget();
    const uint64_t slept_before = vlc::CardClock::slept_seconds();
    uint64_t refused = 0;
    replay_with_restarts([&](uint64_t number) { refused += refusals_after(number); });
    EXPECT_EQ(refused, 150u);
    EXPECT_EQ(services.count("prm_srh_reregister"), restarts + refused);
    EXPECT_EQ(vlc::CardClock::slept_seconds() - slept_before, refused * seconds_between_attempts);
}

TEST_F(RestartStorm, LosesNoCountOfAnEntry)
{
    ASSERT_EQ(metered->program(destinations_of_the_capture()).failure, "");
    replay_with_restarts([this](uint64_t) { metered->meter->collect(); });
    metered->meter->collect();
    uint64_t counted[2] = {};
    for (const services::MeterEntry &entry : metered->meter->entries())
        counted[static_cast<size_t>(entry.table)] += entry.counted.packets;
    uint64_t hits[2] = {};
    for (const vlc::NpTotals &np : plane->totals().nps) {
        hits[0] += np.hits[0];
        hits[1] += np.hits[1];
    }
    EXPECT_EQ(plane->totals().missed_packets, 0u);
    EXPECT_GT(hits[0], 1000u);
    EXPECT_EQ(counted[0], hits[0]);
    EXPECT_EQ(counted[1], hits[1]);
}

TEST_F(RestartStorm, LetsEntriesBeProgrammedAfterEachRestart)
{
    replay_with_restarts([this](uint64_t number) {
        const Destination one{17, 0x0A010000 + static_cast<uint32_t>(number), 53};
        const auto programmed = metered->program({one});
        ASSERT_EQ(programmed.failure, "");
        ASSERT_EQ(programmed.made, 2u);
    });
    for (uint32_t np = 0; np < 2; ++np) {
        EXPECT_EQ(metered->card->nps()[np].table(vlc::TableKind::service_config).size(), restarts);
        EXPECT_EQ(metered->card->nps()[np].table(vlc::TableKind::ext_conf).size(), restarts);
    }
    EXPECT_EQ(
        metered->card->prm().unread(static_cast<uint32_t>(reinterpret_cast<uintptr_t>(handle))),
        0u);
}

// Inside: sleeps are counted in the process that dies, so it says there what it slept.
TEST_F(RestartStorm, EndsTheProcessWithStatusOneAfterSixtyRefusals)
{
    replay_with_restarts([](uint64_t) {});
    services.force("prm_srh_reregister", refusal);
    const auto last_restart = [this] {
        const uint64_t slept_before = vlc::CardClock::slept_seconds();
        static uint64_t expected;
        expected = slept_before + attempts * seconds_between_attempts;
        std::atexit([] {
            if (vlc::CardClock::slept_seconds() == expected)
                fputs("waited after each attempt", stderr);
        });
        metered->card->prm().restart(true);
        metered->card->events().run_until_idle();
    };
    EXPECT_EXIT(last_restart(), testing::ExitedWithCode(1), "^waited after each attempt$");
}

} // namespace
