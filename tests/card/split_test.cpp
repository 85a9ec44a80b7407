// The card in a process of its own: what is left when either side is killed, and how the library
// follows.

#include <csignal>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "card_child.h"
#include "metered_card.h"
#include "service_recorder.h"

namespace {

using services::Destination;
using test::CardChild;
using test::MeteredCard;

constexpr const char *host_directory = "/tmp/host-state";
constexpr const char *plan_file = "/tmp/plan.toml";
constexpr uint32_t nps = 2;

// Each is at an address of its own, so it takes a row in both tables.
std::vector<Destination> destinations(uint32_t count, uint32_t first = 0)
{
    std::vector<Destination> wanted;
    for (uint32_t i = first; i < first + count; ++i)
        wanted.push_back({17, 0x0A000000 + i, static_cast<uint16_t>(1000 + i)});
    return wanted;
}

std::unique_ptr<vlc::VirtualLineCard> connected_card()
{
    return std::make_unique<vlc::VirtualLineCard>(vlc::CardAtSocket{CardChild::socket},
                                                  host_directory);
}

size_t rows(vlc::TableKind table)
{
    size_t count = 0;
    const auto card = vlc::look_into_card(CardChild::socket);
    for (uint32_t np = 0; np < nps; ++np)
        card->for_each_row(np, table, [&count](const vlc::TableRow &) { ++count; });
    return count;
}

std::vector<std::string> with_plan(const std::string &rules)
{
    std::ofstream(plan_file) << rules;
    return {"--fault", plan_file};
}

class SplitDeployment : public testing::Test {
protected:
    SplitDeployment()
    {
        for (const char *directory : {host_directory, CardChild::state})
            std::filesystem::remove_all(directory);
    }
};

bool is_registered(MeteredCard &metered)
{
    return !metered.card->card_is_away() &&
           (metered.host->root()->conn_state & SHADOW_DB_READY) != 0;
}

// Until the library has heard that the card went, and registered with the one that came.
void follow(MeteredCard &metered)
{
    vlc::EventManager &events = metered.card->events();
    ASSERT_TRUE(events.run_until([&] { return metered.card->card_is_away(); }));
    ASSERT_TRUE(events.run_until([&] { return is_registered(metered); }));
}

void settle(MeteredCard &metered)
{
    do {
        metered.card->events().run_until_idle();
    } while (metered.card->access().settle());
}

TEST_F(SplitDeployment, AKilledHostLeavesTheHardwareStanding)
{
    const CardChild card;
    const pid_t host = fork();
    if (host == 0) {
        MeteredCard metered(connected_card());
        metered.program(destinations(100));
        kill(getpid(), SIGKILL);
    }
    int status = 0;
    waitpid(host, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(rows(vlc::TableKind::service_config), 100u * nps);

    test::ServiceRecorder services;
    MeteredCard metered(connected_card());
    const auto programmed = metered.program(destinations(100));
    EXPECT_EQ(programmed.failure, "");
    EXPECT_EQ(programmed.found, 200u);
    EXPECT_EQ(programmed.made, 0u);
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
    EXPECT_EQ(services.count("prm_srh_reregister"), 1u);
    EXPECT_EQ(services.count("prm_srh_service_config_add"), 0u);
}

TEST_F(SplitDeployment, AKilledCardIsARestartOfPrmThatTheLibraryFollows)
{
    CardChild card;
    MeteredCard metered(connected_card());
    metered.program(destinations(50));
    settle(metered);
    void *const handle = metered.host->root()->prm_srh_hdl;
    test::ServiceRecorder services;
    card.kill();
    card.start();
    follow(metered);
    EXPECT_EQ(metered.host->root()->prm_srh_hdl, handle);
    EXPECT_EQ(services.count("prm_srh_reregister"), 1u);
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
    EXPECT_EQ(rows(vlc::TableKind::ext_conf), 50u * nps) << "its tables stood";
    EXPECT_EQ(metered.program(destinations(20, 50)).failure, "");
    settle(metered);
    EXPECT_EQ(rows(vlc::TableKind::ext_conf), 70u * nps);
    EXPECT_EQ(metered.card->ledger().sums().breaks, 1u);
    EXPECT_EQ(metered.card->ledger().sums().unanswered, 0u);
}

TEST_F(SplitDeployment, AnswersThatWereUnreadWhenTheCardWasKilledComeFromTheNext)
{
    CardChild card;
    MeteredCard metered(connected_card());
    // Nothing reads the answers meanwhile.
    EXPECT_EQ(metered.meter->program(destinations(10), [](size_t, size_t) { return true; }).failure,
              "");
    const uint64_t in_flight = metered.card->ledger().sums().unanswered;
    EXPECT_EQ(in_flight, 2u * 10 * nps);
    card.kill();
    card.start();
    follow(metered);
    settle(metered);
    EXPECT_EQ(metered.card->ledger().sums().in_flight_at_breaks, in_flight);
    EXPECT_EQ(metered.card->ledger().sums().unanswered, 0u);
}

TEST_F(SplitDeployment, AnNpResetIsHeardAndTheTablesAreLost)
{
    const CardChild card(with_plan("[[rule]]\n"
                                   "service = 'prm_srh_*_add'\n"
                                   "action = 'np-reset'\n"
                                   "nth = 40\n"));
    MeteredCard metered(connected_card());
    EXPECT_EQ(metered.host->context().np_reset_pending, 0u);
    metered.program(destinations(10)); // 40 requests
    settle(metered);
    EXPECT_EQ(metered.host->context().np_reset_pending, 1u);
    EXPECT_EQ(rows(vlc::TableKind::service_config), 0u);
}

// In a process of its own, since a library and its host are one a process. The card is killed at
// its n-th request, before it carries it out. Returns what went otherwise than it has to; 0 for
// nothing.
int follow_a_card_killed_at(uint32_t n)
{
    CardChild card(with_plan("[[rule]]\nservice = 'prm_srh_*_add'\naction = 'kill'\n"
                             "target = 'card'\nnth = " +
                             std::to_string(n) + "\n"));
    MeteredCard metered(connected_card());
    void *const handle = metered.host->root()->prm_srh_hdl;
    metered.program(destinations(3));
    if (card.wait() != SIGKILL)
        return 1;
    const vlc::PrmLedger::Sums &sums = metered.card->ledger().sums();
    if (sums.in_doubt != 1 || sums.in_flight_at_breaks < 1)
        return 2;
    card.start();
    metered.card->events().run_until([&] { return is_registered(metered); });
    settle(metered);
    if (metered.host->root()->prm_srh_hdl != handle)
        return 3;
    if (sums.breaks != 1 || sums.unanswered != 0)
        return 4;
    // What follows is programmed as ever.
    if (!metered.program(destinations(2, 100)).failure.empty())
        return 5;
    settle(metered);
    return sums.unanswered == 0 && sums.in_doubt == 1 ? 0 : 6;
}

TEST_F(SplitDeployment, ACardKilledAtAnyRequestIsFollowedAndTheRequestIsInDoubt)
{
    constexpr uint32_t requests = 3 * 2 * nps;
    for (uint32_t n = 1; n <= requests; ++n) {
        for (const char *directory : {host_directory, CardChild::state})
            std::filesystem::remove_all(directory);
        const pid_t host = fork();
        if (host == 0)
            _exit(follow_a_card_killed_at(n));
        int status = 0;
        waitpid(host, &status, 0);
        EXPECT_EQ(status, 0) << "killed at request " << n;
    }
}

} // namespace
