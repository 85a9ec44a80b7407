// What a host tells of itself, and what a look makes of it when the host has gone.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "test_card.h"
#include "vlc/host_record.h"
#include "vlc/state_error.h"

namespace {

using namespace std::chrono_literals;
using card_test::heard;
using card_test::key_of;
using vlc::CardReach;
using vlc::HostLife;
using vlc::HostState;

class HostRecords : public card_test::ClientTest {
protected:
    HostState told() const { return vlc::host_state_in(card_directory()).value(); }
    std::filesystem::path file() const { return card_directory() / "host"; }
};

TEST_F(HostRecords, TellOfAHostThatRuns)
{
    const HostState state = told();
    EXPECT_EQ(state.life, HostLife::running);
    EXPECT_EQ(state.process, static_cast<uint64_t>(getpid()));
    EXPECT_EQ(state.ended_real, 0);
    EXPECT_EQ(state.connection.card, CardReach::own);
    EXPECT_TRUE(state.connection.prm_is_up);
    EXPECT_TRUE(state.connection.is_registered);
    EXPECT_EQ(state.started / 1'000'000'000, 1767225600) << "the card's clock, which is stepped";
    EXPECT_GT(state.started_real / 1'000'000'000, 1767225600 + 86400);
    EXPECT_GE(state.changed_real, state.started_real);
}

TEST_F(HostRecords, CountRequestsAndTheirAnswers)
{
    ASSERT_EQ(0u, add("one"));
    ASSERT_EQ(0u, add("two"));
    EXPECT_EQ(told().requests.requests[0][0], 2u);
    EXPECT_EQ(told().requests.unanswered, 2u);
    prm_async_response answer;
    ASSERT_EQ(0u, prm_srh_async_resp_data(handle(), &answer));
    EXPECT_EQ(told().requests.answered, 1u);
    EXPECT_EQ(told().requests.unanswered, 1u);
    EXPECT_EQ(told().requests.failed, 0u);
}

TEST_F(HostRecords, CountAnswersOfRequestsThatWereNotCarriedOut)
{
    ASSERT_EQ(0u, add("one"));
    ASSERT_EQ(0u, add("one")); // is there already
    prm_async_response answer;
    while (prm_srh_async_resp_data(handle(), &answer) == 0) {
    }
    EXPECT_EQ(told().requests.answered, 2u);
    EXPECT_EQ(told().requests.failed, 1u);
}

TEST_F(HostRecords, TellThatPrmIsDownAndThatNobodyIsRegisteredSince)
{
    prm().go_down();
    EXPECT_FALSE(told().connection.prm_is_up);
    EXPECT_FALSE(told().connection.is_registered);
    EXPECT_EQ(told().requests.breaks, 1u);
    prm().come_up();
    EXPECT_TRUE(told().connection.prm_is_up);
    EXPECT_FALSE(told().connection.is_registered);
}

TEST_F(HostRecords, TellWhenAHostHasStoppedInOrder)
{
    ASSERT_EQ(0u, add("one"));
    end_host();
    const HostState state = told();
    EXPECT_EQ(state.life, HostLife::stopped);
    EXPECT_GE(state.ended_real, state.started_real);
    EXPECT_EQ(state.requests.requests[0][0], 1u);
}

TEST_F(HostRecords, BeginAnewWithTheNextHost)
{
    ASSERT_EQ(0u, add("one"));
    restart_process();
    EXPECT_EQ(told().life, HostLife::running);
    EXPECT_EQ(told().ended_real, 0);
    EXPECT_EQ(told().requests.requests[0][0], 0u);
}

TEST_F(HostRecords, SayThatAHostWasKilledWhoseProcessIsGone)
{
    end_host();
    const std::filesystem::path state = card_directory();
    int told_of_start[2];
    ASSERT_EQ(pipe(told_of_start), 0);
    const pid_t child = fork();
    if (child == 0) {
        const vlc::VirtualLineCard host(card_test::small_card(), state);
        [[maybe_unused]] const ssize_t wrote = write(told_of_start[1], "x", 1);
        pause();
        _exit(0);
    }
    char byte = 0;
    ASSERT_EQ(read(told_of_start[0], &byte, 1), 1);
    EXPECT_EQ(told().life, HostLife::running);
    EXPECT_EQ(told().process, static_cast<uint64_t>(child));
    kill(child, SIGKILL);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(told().life, HostLife::killed) << "it is there still, for its parent to look at";
    waitpid(child, nullptr, 0);
    EXPECT_EQ(told().life, HostLife::killed);
}

// The second word says when a process began.
TEST_F(HostRecords, KnowAProcessThatHasTheNumberOfAnother)
{
    std::fstream stream(file(), std::ios::in | std::ios::out | std::ios::binary);
    stream.seekp(4096 + 8);
    const uint64_t other = 1;
    stream.write(reinterpret_cast<const char *>(&other), sizeof other).flush();
    EXPECT_EQ(told().life, HostLife::killed);
}

TEST_F(HostRecords, AreNoneWhereNoHostWas)
{
    const card_test::ScratchDirectory other;
    EXPECT_FALSE(vlc::host_state_in(other.path()));
    std::filesystem::remove(file());
    EXPECT_FALSE(vlc::host_state_in(card_directory()));
}

TEST_F(HostRecords, ThatAreDamagedAreRefusedByALookAndMadeAnewByAHost)
{
    end_host();
    std::ofstream(file(), std::ios::trunc) << "nothing";
    EXPECT_THROW(vlc::host_state_in(card_directory()), vlc::StateError);
    restart_process();
    EXPECT_EQ(told().life, HostLife::running);
}

TEST_F(HostRecords, ThatCannotBeMadeKeepNoHostFromStarting)
{
    end_host();
    std::filesystem::remove(file());
    std::filesystem::create_directories(file() / "in the way");
    restart_process();
    EXPECT_EQ(0u, add("one"));
    EXPECT_THROW(vlc::host_state_in(card_directory()), vlc::StateError);
}

class SplitHostRecords : public card_test::ClientTest {
protected:
    SplitHostRecords() : ClientTest(card_test::Deployment::split) {}
    HostState told() const { return vlc::host_state_in(host_directory()).value(); }
};

TEST_F(SplitHostRecords, TellWhereTheCardIs)
{
    EXPECT_EQ(told().connection.card, CardReach::connected);
    end_card();
    add("into the broken connection");
    EXPECT_EQ(told().connection.card, CardReach::away);
    EXPECT_FALSE(told().connection.prm_is_up);
    EXPECT_EQ(told().requests.breaks, 1u);
    start_card();
    run_for(1s);
    EXPECT_EQ(told().connection.card, CardReach::connected);
    EXPECT_FALSE(std::filesystem::exists(card_directory() / "host"));
}

TEST_F(SplitHostRecords, TellThatTheCardIsGivenUp)
{
    end_card();
    vlc::CardConfig other = card_test::small_card();
    other.num_nps = 3;
    const card_test::ScratchDirectory elsewhere;
    const card_test::CardThread impostor(other, elsewhere.path() / "card", socket());
    run_for(1s);
    EXPECT_EQ(told().connection.card, CardReach::given_up);
}

} // namespace
