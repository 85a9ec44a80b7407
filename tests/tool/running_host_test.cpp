// A host that goes on running, and what it can be asked by utility messages.
#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "card_child.h"
#include "made_capture.h"
#include "running_host.h"

namespace {

using nlohmann::json;
using test::lines_of;
using test::MadePacket;
using test::Outcome;
using test::RunningHost;

constexpr const char *capture = "/tmp/traffic.pcap";
constexpr const char *office = CAPTURES "/office-lan.pcap";

Outcome inlinectl(const std::vector<std::string> &arguments)
{
    return test::run_program({.program = INLINECTL, .arguments = arguments});
}

Outcome util(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), "util");
    arguments.insert(arguments.end(), {"--state", RunningHost::state});
    return inlinectl(arguments);
}

// By the first NP, as the host says.
uint64_t packets_counted()
{
    const auto lines = lines_of(util({"counters", "--about", "0"}).out);
    uint64_t np = 0;
    uint64_t in_use = 0;
    uint64_t free = 0;
    uint64_t packets = 0;
    std::istringstream(lines.empty() ? "" : lines.back()) >> np >> in_use >> free >> packets;
    return packets;
}

void expect_refusal(const std::vector<std::string> &arguments, const std::string &why)
{
    const Outcome outcome = inlinectl(arguments);
    EXPECT_EQ(outcome.exit_code, 2) << outcome.out;
    EXPECT_EQ(outcome.err, "inlinectl: " + why + "\n");
}

// ---- staying and repeating ---------------------------------------------------------------------

TEST(StayingHosts, EndWellWhenTheyAreInterrupted)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        RunningHost host({"--pcap", office, "--stay", "--json"});
        host.wait_until_it_says("a host stays in");
        const Outcome outcome = host.end(signal);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_EQ(outcome.err, std::string("inlinectl: a host stays in ") + RunningHost::state +
                                   " until Ctrl-C\n");
        EXPECT_EQ(json::parse(outcome.out)["replayed"]["interrupted"], false);
        EXPECT_EQ(json::parse(outcome.out)["replayed"]["packets"], 5247);
    }
}

TEST(StayingHosts, SayNothingWhenTheyAreQuiet)
{
    RunningHost host({"--stay", "--quiet"});
    const Outcome outcome = host.end(SIGINT);
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.out + outcome.err, "");
}

TEST(StayingHosts, LeaveNothingToFindWhenTheyEnd)
{
    RunningHost host({"--pcap", office, "--stay"});
    host.wait_until_it_says("a host stays in");
    host.end(SIGINT);
    const Outcome audit = inlinectl({"audit", "--state", RunningHost::state});
    EXPECT_EQ(audit.exit_code, 0) << audit.out;
}

TEST(StayingHosts, StayBesideACardOfItsOwn)
{
    const test::CardChild card;
    RunningHost host({"--connect", test::CardChild::socket, "--pcap", office, "--stay"});
    host.wait_until_it_says("a host stays in");
    EXPECT_EQ(util({"connection"}).exit_code, 0);
    EXPECT_EQ(host.end(SIGINT).exit_code, 0);
}

TEST(Repeats, CountEveryPacketSoOften)
{
    const Outcome outcome = inlinectl({"run", "--pcap", office, "--repeat", "3", "--json"});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(json::parse(outcome.out)["replayed"]["packets"], 3 * 5247);
}

TEST(Repeats, WithoutAnEndAreEndedByAnInterruptAndAreFine)
{
    RunningHost host({"--pcap", office, "--repeat", "0", "--json"});
    while (packets_counted() == 0)
        continue;
    const Outcome outcome = host.end(SIGINT);
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(json::parse(outcome.out)["replayed"]["interrupted"], false);
}

TEST(Repeats, OfNoPacketEndByThemselves)
{
    test::write_capture(capture, {});
    EXPECT_EQ(inlinectl({"run", "--pcap", capture, "--repeat", "0"}).exit_code, 0);
}

TEST(Repeats, ThatAreInterruptedBeforeTheirEndSaySo)
{
    RunningHost host({"--pcap", office, "--repeat", "1000000", "--pace", "1000", "--json"});
    const Outcome outcome = host.end(SIGINT);
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: interrupted\n");
}

TEST(Paces, AreNotExceeded)
{
    test::write_capture(capture, std::vector<MadePacket>(500));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(inlinectl({"run", "--pcap", capture, "--pace", "1000"}).exit_code, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(480));
}

TEST(RunUsage, RefusesWhatDoesNotGoTogether)
{
    expect_refusal({"run", "--state", "/tmp/s", "--repeat", "2"},
                   "nothing to replay: give --pcap beside --repeat and --pace");
    expect_refusal({"run", "--state", "/tmp/s", "--pace", "2"},
                   "nothing to replay: give --pcap beside --repeat and --pace");
    expect_refusal({"run", "--pcap", office, "--stay"},
                   "nobody finds a host in a temporary directory: give --state beside --stay");
    for (const std::vector<std::string> &option :
         {std::vector<std::string>{"--repeat", "2"}, {"--pace", "2"}, {"--stay"}}) {
        std::vector<std::string> arguments{"run", "--pcap", office, "--state", "/tmp/s", "--flows"};
        arguments.insert(arguments.end(), option.begin(), option.end());
        expect_refusal(arguments, "--repeat, --pace and --stay go without --flows, which lives in "
                                  "the captures' own time");
    }
    EXPECT_FALSE(std::filesystem::exists("/tmp/s"));
}

// ---- killed in the middle ----------------------------------------------------------------------

class KilledHosts : public testing::Test {
protected:
    void SetUp() override
    {
        RunningHost host({"--pcap", office, "--repeat", "0", "--quiet"});
        while (packets_counted() == 0)
            continue;
        EXPECT_EQ(host.end(SIGKILL).exit_code, -SIGKILL);
    }
    static Outcome looked(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.end(), {"--state", RunningHost::state});
        Outcome outcome = inlinectl(arguments);
        EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
        EXPECT_EQ(outcome.err, "");
        return outcome;
    }
};

TEST_F(KilledHosts, LeaveAStateThatTheAuditFindsInOrder)
{
    EXPECT_NE(looked({"audit"}).out.find("Differences: none"), std::string::npos);
}

TEST_F(KilledHosts, LeaveEveryEntryAndCounterToBeShown)
{
    size_t entries = 0;
    for (const std::string &line : lines_of(looked({"show", "shadow", "--json"}).out))
        entries += json::parse(line)["kind"] == "entry";
    EXPECT_EQ(entries, 312u + 14);
    size_t counters = 0;
    for (const std::string &line : lines_of(looked({"show", "counters", "--json"}).out))
        counters += json::parse(line)["kind"] == "counter";
    EXPECT_EQ(counters, 2u * 2 * (312 + 14)) << "two of each entry on each NP";
}

TEST_F(KilledHosts, LeaveTracesAndSitesToBeRead)
{
    const auto events = lines_of(looked({"trace", "--json"}).out);
    EXPECT_GE(events.size(), 1000u);
    for (const std::string &event : events)
        EXPECT_TRUE(json::parse(event).contains("text"));
    EXPECT_GE(lines_of(looked({"show", "sites", "--json"}).out).size(), 240u);
}

TEST_F(KilledHosts, AreSaidToHaveBeenKilled)
{
    EXPECT_NE(looked({"top", "--once"}).out.find("killed"), std::string::npos);
    EXPECT_NE(looked({"metrics"}).out.find("host_life=\"killed\"} 1"), std::string::npos)
        << looked({"metrics"}).out;
}

// ---- utility messages --------------------------------------------------------------------------

class UtilityMessages : public testing::Test {
protected:
    RunningHost host{{"--pcap", office, "--stay"}};

    void SetUp() override { host.wait_until_it_says("a host stays in"); }
};

TEST_F(UtilityMessages, OfKind0AreAnsweredByThePacketCounters)
{
    const Outcome answer = util({"0"});
    EXPECT_EQ(answer.exit_code, 0) << answer.err;
    const auto lines = lines_of(answer.out);
    ASSERT_EQ(lines.size(), 4u) << answer.out;
    EXPECT_EQ(lines[0], "Packet counters, 65536 an NP");
    EXPECT_EQ(lines[1], "NP    in use      free       packets           bytes       dropped");
    for (size_t np = 0; np < 2; ++np) {
        std::istringstream line(lines[2 + np]);
        uint64_t number = 9;
        uint64_t in_use = 0;
        uint64_t free = 0;
        line >> number >> in_use >> free;
        EXPECT_EQ(number, np);
        EXPECT_EQ(in_use, 2u * 326) << "two of each entry";
        EXPECT_EQ(in_use + free, 65536u);
    }
}

TEST_F(UtilityMessages, OfKind0AboutOneNpShowItAlone)
{
    const auto lines = lines_of(util({"counters", "--about", "1"}).out);
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2].substr(0, 3), " 1 ");
}

TEST_F(UtilityMessages, OfKind1AreAnsweredByTheShadowDb)
{
    const Outcome answer = util({"1"});
    EXPECT_EQ(answer.out, "Shadow DB\n"
                          " key  type  index      app id   version  service config  ext conf\n"
                          "   1     1      1           1         1             312        14\n"
                          "   1 in all                                     312        14\n"
                          "Flows 0\n");
}

TEST_F(UtilityMessages, OfKind1AboutAKeyThatIsNotThereShowNone)
{
    EXPECT_NE(util({"shadow", "--about", "7"}).out.find("   0 in all"), std::string::npos);
}

TEST_F(UtilityMessages, OfKind2AreAnsweredByTheConnection)
{
    EXPECT_EQ(util({"connection"}).out, "Connection to PRM\n"
                                        "manager                 open\n"
                                        "connection              up, registered\n"
                                        "request handle          given\n"
                                        "NPs                     2\n"
                                        "counter bitmaps         kept\n"
                                        "card                    this process's\n"
                                        "requests taken in       652\n"
                                        "not answered yet        0\n"
                                        "in doubt                0\n"
                                        "connections broken      0\n");
}

TEST_F(UtilityMessages, LeaveTheAnswerInTheResultFileToo)
{
    const Outcome answer = util({"shadow"});
    EXPECT_EQ(answer.out, test::file_text("/tmp/inutil_result.txt"));
}

TEST_F(UtilityMessages, AreShownAsJson)
{
    const json answer = json::parse(util({"shadow", "--json"}).out);
    EXPECT_EQ(answer["kind"], 1);
    EXPECT_EQ(answer["result"], test::file_text("/tmp/inutil_result.txt"));
}

TEST_F(UtilityMessages, OfAKindWithoutAHandlerEmptyTheResultFileAndSaySo)
{
    util({"shadow"});
    const Outcome answer = util({"7"});
    EXPECT_EQ(answer.exit_code, 1);
    EXPECT_EQ(answer.err, "inlinectl: the host has no handler for messages of kind 7\n");
    EXPECT_EQ(std::filesystem::file_size("/tmp/inutil_result.txt"), 0u);
}

TEST_F(UtilityMessages, WhoseAnswerCannotBeWrittenSaySo)
{
    util({"shadow"});
    std::filesystem::remove("/tmp/inutil_result.txt");
    std::filesystem::create_directory("/tmp/inutil_result.txt");
    const Outcome answer = util({"shadow"});
    EXPECT_EQ(answer.exit_code, 1);
    EXPECT_EQ(answer.err, "inlinectl: /tmp/inutil_result.txt could not be written\n");
}

TEST_F(UtilityMessages, AreAnsweredInTheMiddleOfAReplay)
{
    host.end(SIGKILL);
    RunningHost busy({"--pcap", office, "--repeat", "0", "--quiet"});
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(util({"counters"}).exit_code, 0);
    EXPECT_EQ(busy.end(SIGINT).exit_code, 0);
}

TEST_F(UtilityMessages, HaveNobodyToAnswerThemBehindAKill)
{
    host.end(SIGKILL);
    expect_refusal({"util", "shadow", "--state", RunningHost::state},
                   std::string("no host runs in ") + RunningHost::state);
}

TEST(UtilUsage, NamesWhatIsWrong)
{
    expect_refusal({"util", "shadoww", "--state", "/tmp/none"},
                   "unknown kind of message 'shadoww'; did you mean 'shadow'?; say counters, "
                   "shadow, connection or a number");
    expect_refusal({"util", "shadow", "--state", "/tmp/none"}, "no host runs in /tmp/none");
    expect_refusal({"util", "shadow"}, "--state is required");
    expect_refusal({"util", "--state", "/tmp/none"}, "kind is required");
}

} // namespace
