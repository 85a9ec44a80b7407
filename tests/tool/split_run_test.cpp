// `inlinectl card`, and `inlinectl run --connect` as a host on it.
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "card_child.h"
#include "card_link.h"
#include "made_capture.h"
#include "tool_process.h"

namespace {

using nlohmann::json;
using test::CardChild;
using test::MadePacket;
using test::Outcome;

constexpr const char *capture = "/tmp/traffic.pcap";
constexpr const char *host_state = "/tmp/host-state";
constexpr const char *other_state = "/tmp/other-state";
constexpr const char *plan = "/tmp/plan.toml";

class SplitRuns : public ::testing::Test {
protected:
    SplitRuns()
    {
        for (const char *path : {CardChild::state, CardChild::socket, host_state, other_state})
            std::filesystem::remove_all(path);
        test::write_capture(
            capture, {{.kind = MadePacket::Kind::tcp, .destination_port = 80, .payload = 1000},
                      {.kind = MadePacket::Kind::udp, .destination_port = 53, .payload = 100},
                      {.kind = MadePacket::Kind::icmp, .destination = "192.0.2.2", .payload = 10},
                      {.kind = MadePacket::Kind::arp, .destination = "192.0.2.2"}});
    }
    static Outcome inlinectl(std::vector<std::string> arguments,
                             std::function<void(pid_t)> while_it_runs = {})
    {
        return test::run_program({.program = INLINECTL,
                                  .arguments = std::move(arguments),
                                  .while_it_runs = std::move(while_it_runs)});
    }
    static Outcome run_connected(const std::vector<std::string> &more = {})
    {
        std::vector<std::string> arguments{
            "run", "--connect", CardChild::socket, "--state", host_state, "--pcap", capture};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return inlinectl(arguments);
    }
    static void expect_refusal(const Outcome &outcome, const std::string &line)
    {
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_EQ(outcome.err, "inlinectl: " + line + "\n");
        EXPECT_EQ(outcome.out, "");
    }
    static Outcome card(const std::vector<std::string> &more, int ended_by = 0)
    {
        std::vector<std::string> arguments{"card"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return inlinectl(arguments, [ended_by](pid_t process) {
            while (ended_by != 0 && !std::filesystem::exists(CardChild::socket))
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            if (ended_by != 0)
                kill(process, ended_by);
        });
    }
};

using CardCommands = SplitRuns;

// ---- runs

TEST_F(SplitRuns, ReportWordForWordWhatAnEmbeddedCardReports)
{
    const CardChild card;
    const Outcome split = run_connected();
    EXPECT_EQ(split.exit_code, 0) << split.err;
    EXPECT_EQ(split.err, "");
    EXPECT_EQ(split.out, inlinectl({"run", "--pcap", capture}).out);
}

TEST_F(SplitRuns, FindEveryEntryAgainAndGoOnWithTheCounts)
{
    const CardChild card;
    run_connected();
    const json second = json::parse(run_connected({"--json"}).out);
    EXPECT_EQ(second["entries"], json::parse(R"({"found":5,"new":0})"));
    EXPECT_EQ(second["destinations"][0]["packets"], 1);
    EXPECT_EQ(second["destinations"][0]["total_packets"], 2);
}

TEST_F(SplitRuns, LeaveTheCardToTheNextHostsAndTheHostsStateToTheNextCards)
{
    CardChild card;
    run_connected();
    card.kill();
    card.start(); // on its socket that the kill left there
    EXPECT_EQ(json::parse(run_connected({"--json"}).out)["entries"],
              json::parse(R"({"found":5,"new":0})"));
}

TEST_F(SplitRuns, SayThatAllWasAnswered)
{
    const CardChild card;
    EXPECT_EQ(json::parse(run_connected({"--json"}).out)["answers"],
              json::parse(R"({"never_answered":0,"in_doubt":0,"to_nothing_asked":0,)"
                          R"("connection_breaks":0,"in_flight_at_breaks":0})"));
}

TEST_F(SplitRuns, TakeTheCardAsItIs)
{
    const CardChild card({"--nps", "5"});
    EXPECT_EQ(json::parse(run_connected({"--json"}).out)["card"]["nps"], 5);
}

TEST_F(SplitRuns, RefuseAnotherCardThanIsThereAndMakeNothing)
{
    const CardChild card;
    expect_refusal(run_connected({"--nps", "4"}),
                   "/tmp/card.sock: the card there has 2 NPs, type 0xD20001, not 4 NPs, type "
                   "0xD20001; without --card and --nps it is taken as it is");
    EXPECT_FALSE(std::filesystem::exists(host_state));
}

TEST_F(SplitRuns, RefuseASocketWhereNoCardListens)
{
    expect_refusal(run_connected(),
                   "/tmp/card.sock: no card listens there: No such file or directory");
    std::ofstream(CardChild::socket) << "a file";
    expect_refusal(run_connected(), "/tmp/card.sock: no card listens there: Connection refused");
    EXPECT_FALSE(std::filesystem::exists(host_state));
}

TEST_F(SplitRuns, RefuseACardThatHasAHost)
{
    const CardChild card;
    vlc::CardLink host(CardChild::socket, vlc::PeerRole::host);
    ASSERT_EQ(host.connect(), vlc::CardLink::Attempt::connected);
    expect_refusal(run_connected(), "/tmp/card.sock: the card there has a host already");
    EXPECT_FALSE(std::filesystem::exists(host_state));
}

TEST_F(SplitRuns, RefuseTheStateOfAnEmbeddedCard)
{
    inlinectl({"run", "--state", other_state, "--pcap", capture});
    const CardChild card;
    expect_refusal(inlinectl({"run", "--connect", CardChild::socket, "--state", other_state}),
                   "/tmp/other-state: holds a card with its host, and a host without its card "
                   "cannot go on with it");
}

TEST_F(SplitRuns, RefuseAPlanWithAFaultOfTheCards)
{
    const CardChild card;
    std::ofstream(plan) << "[[rule]]\nservice = 'prm_srh_*'\naction = 'lose'\n";
    const Outcome outcome = run_connected({"--fault", plan});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(outcome.err.starts_with("inlinectl: /tmp/plan.toml:1:1: ")) << outcome.err;
}

TEST_F(SplitRuns, SayWhatWasNeverAnswered)
{
    std::ofstream(plan) << "[[rule]]\nservice = 'prm_srh_service_config_add'\naction = 'lose'\n";
    const CardChild card({"--fault", plan});
    const Outcome outcome = run_connected();
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: 6 requests to the hardware were never answered\n");
    EXPECT_NE(outcome.out.find("\nRequests and answers, 0 broken connections\n"
                               "  never answered                              6\n"),
              std::string::npos)
        << outcome.out;
}

TEST_F(SplitRuns, FollowACardThatIsKilledOnTheWayAndSayWhatIsInDoubt)
{
    std::ofstream(plan) << "[[rule]]\nservice = 'prm_srh_service_config_add'\naction = 'kill'\n"
                           "target = 'card'\nnth = 2\n";
    CardChild card({"--fault", plan});
    const Outcome outcome = inlinectl(
        {"run", "--connect", CardChild::socket, "--state", host_state, "--pcap", capture, "--json"},
        [&card](pid_t) {
            EXPECT_EQ(card.wait(), SIGKILL);
            card.start();
        });
    EXPECT_EQ(outcome.exit_code, 1) << outcome.err;
    const json report = json::parse(outcome.out);
    EXPECT_EQ(report["answers"]["connection_breaks"], 1);
    EXPECT_EQ(report["answers"]["in_doubt"], 1);
    EXPECT_EQ(report["answers"]["never_answered"], 0);
    EXPECT_EQ(report["replayed"]["packets"], 4) << "the replay went on";
}

// ---- the card's command

TEST_F(CardCommands, EndWithASummaryAndWithoutTheirSocket)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        const Outcome outcome =
            card({"--listen", CardChild::socket, "--state", CardChild::state}, signal);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_EQ(outcome.out,
                  "Card      default, 2 NPs, type 0xD20001, listens at /tmp/card.sock\n"
                  "Requests  0 taken in, 0 failed\n"
                  "Packets   0, 0 bytes\n"
                  "  NP 0    0, 0 bytes\n"
                  "  NP 1    0, 0 bytes\n");
        EXPECT_FALSE(std::filesystem::exists(CardChild::socket));
    }
}

TEST_F(CardCommands, LeaveASocketAtWhichACardListens)
{
    const CardChild living;
    expect_refusal(card({"--listen", CardChild::socket, "--state", other_state}),
                   "/tmp/card.sock: a card listens there already");
    EXPECT_FALSE(std::filesystem::exists(other_state));
    EXPECT_EQ(run_connected().exit_code, 0) << "the living one goes on";
}

TEST_F(CardCommands, LeaveWhatIsNoSocket)
{
    std::ofstream(CardChild::socket) << "mine";
    expect_refusal(card({"--listen", CardChild::socket, "--state", CardChild::state}),
                   "/tmp/card.sock: is there already and is no socket");
    EXPECT_EQ(test::file_text(CardChild::socket), "mine");
    EXPECT_FALSE(std::filesystem::exists(CardChild::state));
}

TEST_F(CardCommands, RefuseANameThatIsTooLongForASocket)
{
    const std::string path = "/tmp/" + std::string(200, 's');
    expect_refusal(card({"--listen", path, "--state", CardChild::state}),
                   path + ": cannot be made: File name too long");
}

TEST_F(CardCommands, RefuseADirectoryThatALivingCardHas)
{
    const CardChild living;
    expect_refusal(card({"--listen", "/tmp/second.sock", "--state", CardChild::state}),
                   "/tmp/card-state: is in use by another process");
    EXPECT_FALSE(std::filesystem::exists("/tmp/second.sock"));
}

TEST_F(CardCommands, RefuseTheStateOfAnEmbeddedCardAndOfAHost)
{
    inlinectl({"run", "--state", other_state, "--pcap", capture});
    expect_refusal(card({"--listen", CardChild::socket, "--state", other_state}),
                   "/tmp/other-state: holds a card with its host, and a card without a host "
                   "cannot go on with it");
    {
        const CardChild living;
        run_connected();
    }
    expect_refusal(card({"--listen", "/tmp/second.sock", "--state", host_state}),
                   "/tmp/host-state: holds a host without its card, and a card without a host "
                   "cannot go on with it");
}

TEST_F(CardCommands, WantASocketAndADirectory)
{
    EXPECT_EQ(card({"--state", CardChild::state}).exit_code, 2);
    EXPECT_EQ(card({"--listen", CardChild::socket}).exit_code, 2);
}

} // namespace
