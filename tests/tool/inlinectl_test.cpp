#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <thread>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "made_capture.h"
#include "tool_process.h"

namespace {

using nlohmann::json;
using test::MadePacket;
using test::Outcome;

constexpr const char *capture = "/tmp/traffic.pcap";
constexpr const char *state = "/tmp/state";

void write_file(const std::string &path, const std::string &text)
{
    std::ofstream(path, std::ios::binary) << text;
}

// Three destinations at two addresses, and a packet that is not IPv4.
void make_traffic()
{
    test::write_capture(
        capture, {{.kind = MadePacket::Kind::tcp, .destination_port = 80, .payload = 1000},
                  {.kind = MadePacket::Kind::tcp, .destination_port = 80, .payload = 1000},
                  {.kind = MadePacket::Kind::udp, .destination_port = 53, .payload = 100},
                  {.kind = MadePacket::Kind::icmp, .destination = "192.0.2.2", .payload = 10},
                  {.kind = MadePacket::Kind::arp, .destination = "192.0.2.2"}});
}

class Inlinectl : public ::testing::Test {
protected:
    Inlinectl()
    {
        std::filesystem::remove_all(state);
        make_traffic();
    }

    static Outcome run(std::vector<std::string> arguments, test::Environment environment = {})
    {
        return test::run_program({.program = INLINECTL,
                                  .arguments = std::move(arguments),
                                  .environment = std::move(environment)});
    }

    static json report(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "run");
        arguments.emplace_back("--json");
        return json::parse(run(std::move(arguments)).out);
    }

    static void expect_refusal(const std::vector<std::string> &arguments, const std::string &line)
    {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exit_code, 2);
        EXPECT_EQ(outcome.err, "inlinectl: " + line + "\n");
        EXPECT_EQ(outcome.out, "");
    }

    // Every file of a directory with its content.
    static std::map<std::string, std::string> contents(const std::string &directory)
    {
        std::map<std::string, std::string> files;
        for (const auto &file : std::filesystem::directory_iterator(directory))
            files[file.path().string()] = test::file_text(file.path().string());
        return files;
    }
};

using InlinectlRun = Inlinectl;
using InlinectlUsage = Inlinectl;
using InlinectlInput = Inlinectl;
using InlinectlState = Inlinectl;
using InlinectlFailures = Inlinectl;
using InlinectlScenario = Inlinectl;

// ---- what a run counts and shows

TEST_F(InlinectlRun, CountsEveryDestinationToThePacketAndByte)
{
    const json out = report({"--pcap", capture});
    ASSERT_EQ(out["destinations"].size(), 3u);
    const json &first = out["destinations"][0];
    EXPECT_EQ(first["protocol"], 6);
    EXPECT_EQ(first["address"], "192.0.2.1");
    EXPECT_EQ(first["port"], 80);
    EXPECT_EQ(first["packets"], 2);
    EXPECT_EQ(first["bytes"], 2 * 1054);
    ASSERT_EQ(out["addresses"].size(), 2u);
    EXPECT_EQ(out["addresses"][0]["packets"], 3);
    EXPECT_EQ(out["addresses"][0]["bytes"], 2 * 1054 + 142);
}

TEST_F(InlinectlRun, CountsTheSameOnAnyNumberOfNps)
{
    const auto counts = [](const char *nps) {
        json out = report({"--pcap", capture, "--nps", nps});
        for (const char *table : {"destinations", "addresses"}) {
            for (json &entry : out[table]) {
                entry.erase("nps");
                entry.erase("total_nps");
            }
        }
        return out["destinations"].dump() + out["addresses"].dump();
    };
    const std::string on_one = counts("1");
    EXPECT_EQ(counts("2"), on_one);
    EXPECT_EQ(counts("8"), on_one);
}

TEST_F(InlinectlRun, SaysWhatItCouldNotRead)
{
    const json out = report({"--pcap", capture});
    EXPECT_EQ(out["replayed"]["packets"], 5);
    EXPECT_EQ(out["replayed"]["unreadable"], json::parse(R"([{"reason":"not IPv4","packets":1}])"));
}

TEST_F(InlinectlRun, ReplaysSeveralCapturesInOneRun)
{
    const json out = report({"--pcap", capture, capture, "--pcap", capture});
    EXPECT_EQ(out["replayed"]["captures"], 3);
    EXPECT_EQ(out["destinations"][0]["packets"], 6);
}

TEST_F(InlinectlRun, PrintsTheSameForTheSameCaptureWordForWord)
{
    const Outcome first = run({"run", "--pcap", capture});
    const Outcome second = run({"run", "--pcap", capture});
    EXPECT_EQ(first.exit_code, 0);
    EXPECT_EQ(first.out, second.out);
    EXPECT_EQ(first.err, "");
}

TEST_F(InlinectlRun, PrintsThisReport)
{
    const Outcome outcome = run({"run", "--nps", "1", "--pcap", capture}, {"LC_ALL=C"});
    EXPECT_EQ(outcome.out,
              "Card      default, 1 NP, type 0xD20001\n"
              "Entries   3 destinations, 2 addresses: 0 found, 5 new\n"
              "Requests  5 to the hardware, 0 failed\n"
              "Replayed  5 packets, 2,370 bytes of 1 capture\n"
              "\n"
              "Destinations by bytes, 3 of 3\n"
              "destination       NPs  packets  bytes  share\n"
              "tcp 192.0.2.1:80  0          2  2,108  ######################    91.3%\n"
              "udp 192.0.2.1:53  0          1    142  #                          6.1%\n"
              "icmp 192.0.2.2    0          1     60  #                          2.6%\n"
              "\n"
              "Addresses by bytes, 2 of 2\n"
              "address    NPs  packets  bytes  share\n"
              "192.0.2.1  0          3  2,250  #######################   97.4%\n"
              "192.0.2.2  0          1     60  #                          2.6%\n"
              "\n"
              "                        packets  bytes\n"
              "counted by destination        4  2,310\n"
              "counted by address            4  2,310\n"
              "hit nothing                   0      0\n"
              "unreadable: not IPv4          1\n"
              "\n"
              "Hardware failures: none\n");
}

TEST_F(InlinectlRun, ShowsWhatMissedOneTableAlone)
{
    write_file("/tmp/card.toml", "[nps]\next_conf_rows = 1\n");
    const Outcome outcome =
        run({"run", "--nps", "1", "--card", "/tmp/card.toml", "--pcap", capture}, {"LC_ALL=C"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_NE(outcome.out.find("\nhit nothing                   0      0\n"
                               "missed by address             1\n"),
              std::string::npos)
        << outcome.out;
    EXPECT_EQ(outcome.out.find("missed by destination"), std::string::npos);
}

TEST_F(InlinectlRun, ShowsTwentyDestinationsAndTenAddressesMostBytesFirst)
{
    std::vector<MadePacket> packets;
    for (uint16_t host = 1; host <= 30; ++host)
        packets.push_back(
            {.destination = "192.0.2." + std::to_string(host), .payload = 100u + host});
    test::write_capture(capture, packets);
    const std::vector<std::string> lines =
        test::lines_of(run({"run", "--pcap", capture}, {"LC_ALL=C"}).out);
    EXPECT_EQ(lines[5], "Destinations by bytes, 20 of 30");
    EXPECT_TRUE(lines[7].starts_with("udp 192.0.2.30:53")) << lines[7];
    EXPECT_TRUE(lines[26].starts_with("udp 192.0.2.11:53")) << lines[26];
    EXPECT_EQ(lines[28], "Addresses by bytes, 10 of 30");
    EXPECT_TRUE(lines[39].starts_with("192.0.2.21")) << lines[39];
}

TEST_F(InlinectlRun, QuietPrintsNothingWhenAllIsWell)
{
    const Outcome outcome = run({"run", "--quiet", "--pcap", capture});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "");
}

TEST_F(InlinectlRun, LeavesNoTemporaryDirectoryBehind)
{
    run({"run", "--quiet", "--pcap", capture});
    for (const auto &file : std::filesystem::directory_iterator("/tmp"))
        EXPECT_FALSE(file.path().filename().string().starts_with("inlinectl-")) << file.path();
}

TEST_F(InlinectlRun, SaysThatEntriesShareCountersOnACardThatTakesThemUnswapped)
{
    write_file("/tmp/card.toml", "[card]\ntype = 0xD10001\n");
    EXPECT_EQ(report({"--card", "/tmp/card.toml", "--pcap", capture})["card"]["shares_counters"],
              true);
    const Outcome outcome = run({"run", "--card", "/tmp/card.toml", "--pcap", capture});
    EXPECT_NE(outcome.out.find("its NPs count on the first of each 256 counters"),
              std::string::npos);
}

// ---- state directories

TEST_F(InlinectlState, ASecondRunFindsEveryEntryAndSendsNothing)
{
    EXPECT_EQ(report({"--state", state, "--pcap", capture})["entries"],
              json::parse(R"({"found":0,"new":5})"));
    const json second = report({"--state", state, "--pcap", capture});
    EXPECT_EQ(second["entries"], json::parse(R"({"found":5,"new":0})"));
    for (const json &table : second["requests"])
        EXPECT_EQ(table["add"].get<int>() + table["modify"].get<int>() + table["delete"].get<int>(),
                  0);
}

TEST_F(InlinectlState, ASecondRunGoesOnWithTheCounts)
{
    report({"--state", state, "--pcap", capture});
    const json first = report({"--state", state, "--pcap", capture})["destinations"][0];
    EXPECT_EQ(first["packets"], 2);
    EXPECT_EQ(first["total_packets"], 4);
    EXPECT_EQ(first["total_bytes"], 4 * 1054);
}

TEST_F(InlinectlState, ARunWithoutCapturesShowsWhatIsThere)
{
    report({"--state", state, "--pcap", capture});
    const Outcome outcome = run({"run", "--state", state});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_NE(outcome.out.find("Destinations by bytes since they were programmed, 3 of 3"),
              std::string::npos);
    EXPECT_NE(outcome.out.find("tcp 192.0.2.1:80"), std::string::npos);
}

TEST_F(InlinectlState, AStateGoesOnAsTheCardItWasMadeFor)
{
    write_file("/tmp/card.toml", "[card]\nname = \"lab\"\n[nps]\ncount = 5\n");
    report({"--state", state, "--card", "/tmp/card.toml", "--pcap", capture});
    const json out = report({"--state", state});
    EXPECT_EQ(out["card"]["nps"], 5);
    EXPECT_EQ(out["card"]["name"], "lab");
    EXPECT_EQ(out["entries"]["found"], 5);
}

TEST_F(InlinectlState, ARefusalOfAnotherCardNamesTheRemedy)
{
    report({"--state", state, "--pcap", capture});
    expect_refusal({"run", "--state", state, "--nps", "4"},
                   "/tmp/state: was made for a card of 2 NPs, type 0xD20001, not of 4 NPs, type "
                   "0xD20001; without --card and --nps it goes on as it is");
}

TEST_F(InlinectlState, AnotherNumberOfNpsIsRefused)
{
    report({"--state", state, "--pcap", capture});
    const Outcome outcome = run({"run", "--state", state, "--nps", "4"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(test::lines_of(outcome.err).size(), 1u) << outcome.err;
    EXPECT_NE(outcome.err.find(state), std::string::npos);
}

TEST_F(InlinectlState, SomebodyElsesDirectoryIsRefusedUnchanged)
{
    std::filesystem::create_directory(state);
    write_file("/tmp/state/notes", "mine");
    const Outcome outcome = run({"run", "--state", state, "--pcap", capture});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(outcome.err.starts_with("inlinectl: /tmp/state: ")) << outcome.err;
    EXPECT_EQ(contents(state).size(), 1u);
}

// ---- unreadable input is found before anything is made

TEST_F(InlinectlInput, AMissingCaptureLeavesNoStateDirectory)
{
    expect_refusal({"run", "--state", state, "--pcap", capture, "/tmp/none.pcap"},
                   "/tmp/none.pcap: No such file or directory");
    EXPECT_FALSE(std::filesystem::exists(state));
}

TEST_F(InlinectlInput, ACaptureThatBreaksOffLeavesTheStateDirectoryAsItWas)
{
    report({"--state", state, "--pcap", capture});
    const auto before = contents(state);
    const std::string whole = test::file_text(capture);
    write_file("/tmp/cut.pcap", whole.substr(0, whole.size() - 5));
    const Outcome outcome = run({"run", "--state", state, "--pcap", "/tmp/cut.pcap"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(outcome.err.starts_with("inlinectl: /tmp/cut.pcap: ")) << outcome.err;
    EXPECT_EQ(test::lines_of(outcome.err).size(), 1u);
    EXPECT_TRUE(contents(state) == before);
}

TEST_F(InlinectlInput, ADirectoryIsNoCapture)
{
    expect_refusal({"run", "--pcap", "/tmp"},
                   "/tmp: not a regular file, and captures are read twice");
}

TEST_F(InlinectlInput, ABrokenCardFileIsNamedWithLineAndColumn)
{
    write_file("/tmp/card.toml", "[card]\ntype = \"big\"\n");
    const Outcome outcome = run({"run", "--card", "/tmp/card.toml", "--state", state});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_TRUE(outcome.err.starts_with("inlinectl: /tmp/card.toml:2:")) << outcome.err;
    EXPECT_FALSE(std::filesystem::exists(state));
}

// ---- scenario files

TEST_F(InlinectlScenario, ProgramsItsEntriesAloneAndTheRestHitsNothing)
{
    write_file("/tmp/s.toml", "[[entry]]\nprotocol = \"udp\"\naddress = \"192.0.2.1\"\nport = 53\n"
                              "[[entry]]\nprotocol = 1\naddress = \"192.0.2.9\"\n");
    const json out = report({"--scenario", "/tmp/s.toml", "--pcap", capture});
    ASSERT_EQ(out["destinations"].size(), 2u);
    EXPECT_EQ(out["destinations"][0]["port"], 53);
    EXPECT_EQ(out["destinations"][0]["packets"], 1);
    EXPECT_EQ(out["destinations"][1]["protocol_name"], "icmp");
    EXPECT_EQ(out["replayed"]["missed"]["packets"], 1); // the one to 192.0.2.2
}

TEST_F(InlinectlScenario, ErrorsNamePlaceAndNearestName)
{
    const std::vector<std::pair<std::string, std::string>> broken{
        {"[[entry]]\nprotocol = \"tpc\"\naddress = \"192.0.2.1\"\n",
         "2:12: unknown protocol 'tpc'; did you mean 'tcp'?"},
        {"[[entry]]\nprotocol = 6\nadress = \"192.0.2.1\"\n",
         "3:1: unknown key 'adress'; did you mean 'address'?"},
        {"[[entry]]\nprotocol = 6\n", "1:1: an entry without 'address'"},
        {"[[entry]]\nprotocol = 6\naddress = \"192.0.2\"\n",
         "3:11: 'address' is an IPv4 address such as \"192.0.2.1\""},
        {"[[entry]]\nprotocol = 6\naddress = \"192.0.2.1\"\nport = 65536\n",
         "4:8: 'port' is a number from 0 to 65535"},
        {"entry = 5\n", "1:9: 'entry' is a list of tables, each written as [[entry]]"},
    };
    for (const auto &[text, error] : broken) {
        write_file("/tmp/s.toml", text);
        expect_refusal({"run", "--scenario", "/tmp/s.toml"}, "/tmp/s.toml:" + error);
    }
}

TEST_F(InlinectlScenario, AMissingOrEmptyFileIsRefused)
{
    expect_refusal({"run", "--scenario", "/tmp/s.toml"}, "/tmp/s.toml: No such file or directory");
    write_file("/tmp/s.toml", "");
    expect_refusal({"run", "--scenario", "/tmp/s.toml"}, "/tmp/s.toml: no [[entry]] in it");
}

// ---- failures in the run

TEST_F(InlinectlFailures, LateAnswersAreListedByNpTableAndOperation)
{
    write_file("/tmp/card.toml", "[nps]\nservice_config_rows = 1\n");
    const Outcome outcome = run({"run", "--json", "--card", "/tmp/card.toml", "--pcap", capture});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: 4 requests to the hardware failed\n");
    const json failures = json::parse(outcome.out)["hardware_failures"];
    EXPECT_EQ(failures["count"], 4);
    ASSERT_EQ(failures["late_answers"].size(), 2u);
    for (size_t np = 0; np < 2; ++np) {
        EXPECT_EQ(failures["late_answers"][np]["np"], np);
        EXPECT_EQ(failures["late_answers"][np]["table"], "service config");
        EXPECT_EQ(failures["late_answers"][np]["operation"], "add");
        EXPECT_EQ(failures["late_answers"][np]["count"], 2);
    }
}

TEST_F(InlinectlFailures, AreSaidEvenWhenQuiet)
{
    write_file("/tmp/card.toml", "[nps]\nservice_config_rows = 1\n");
    const Outcome outcome = run({"run", "--quiet", "--card", "/tmp/card.toml", "--pcap", capture});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "inlinectl: 4 requests to the hardware failed\n");
}

TEST_F(InlinectlFailures, AWindowThatIsFullLeavesNothingProgrammedAndSaysSo)
{
    std::string scenario;
    for (int host = 0; host < 3000; ++host)
        scenario += "[[entry]]\nprotocol = \"tcp\"\naddress = \"10.0." +
                    std::to_string(host / 250) + "." + std::to_string(host % 250) +
                    "\"\nport = 1\n";
    write_file("/tmp/s.toml", scenario);
    write_file("/tmp/card.toml", "[window]\nmebibytes = 1\n");
    const Outcome outcome =
        run({"run", "--quiet", "--card", "/tmp/card.toml", "--scenario", "/tmp/s.toml"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_TRUE(outcome.err.starts_with("inlinectl: a batch of 64 entries for key 1 was refused"))
        << outcome.err;
    EXPECT_NE(outcome.err.find(" 0 are left; before it the window held "), std::string::npos)
        << outcome.err;
    EXPECT_NE(outcome.err.find(" of 1,044,480 bytes; see window.mebibytes in the card file\n"),
              std::string::npos)
        << outcome.err;
}

TEST_F(InlinectlFailures, AReportThatCannotBeWrittenIsAFailure)
{
    const Outcome outcome = test::run_program({.program = INLINECTL,
                                               .arguments = {"run", "--pcap", capture},
                                               .environment = {},
                                               .out_file = "/dev/full",
                                               .while_it_runs = {}});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: the report could not be written\n");
}

TEST_F(InlinectlFailures, AnInterruptEndsTheReplayWithAReport)
{
    test::write_capture(capture, std::vector<MadePacket>(50000));
    std::vector<std::string> arguments{"run", "--json", "--state", state};
    for (int times = 0; times < 150; ++times)
        arguments.insert(arguments.end(), {"--pcap", capture});
    const Outcome outcome =
        test::run_program({.program = INLINECTL,
                           .arguments = arguments,
                           .environment = {},
                           .out_file = "/tmp/test.out",
                           .while_it_runs = [](pid_t run) {
                               while (!std::filesystem::exists(state))
                                   std::this_thread::sleep_for(std::chrono::milliseconds(1));
                               kill(run, SIGINT);
                           }});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.err, "inlinectl: interrupted\n");
    const json out = json::parse(outcome.out);
    EXPECT_EQ(out["replayed"]["interrupted"], true);
    EXPECT_LT(out["replayed"]["packets"], 150 * 50000);
}

// ---- usage

TEST_F(InlinectlUsage, ErrorsAreOneLineWithTheNearestName)
{
    expect_refusal({"run", "--pcp", capture}, "unknown option '--pcp'; did you mean '--pcap'?");
    expect_refusal({"rnu"}, "unknown command 'rnu'; did you mean 'run'?");
    expect_refusal({"--vers"}, "unknown option '--vers'; did you mean '--version'?");
    expect_refusal({}, "no command given; 'inlinectl --help' lists them");
    expect_refusal({"run"}, "nothing to run: give --pcap, --scenario or --state");
    expect_refusal({"run", capture},
                   "unexpected argument '/tmp/traffic.pcap'; captures are given with --pcap");
}

TEST_F(InlinectlUsage, AnOptionOfRunInFrontOfItIsSentBehindIt)
{
    const std::string line =
        "option '--pcap' belongs to run and stands behind it: 'inlinectl run --pcap'";
    expect_refusal({"--pcap", capture, "run"}, line);
    expect_refusal({"--pcap", capture}, line);
    expect_refusal({"--pcap=x", "run"}, line);
}

TEST_F(InlinectlUsage, NoNameIsOfferedForItself)
{
    expect_refusal({"run", "--", "--pcap", capture},
                   "'--' ends the options, and nothing stands behind them");
}

TEST_F(InlinectlUsage, ANumberOfNpsIsFromOneToEight)
{
    for (const char *nps : {"0", "9", "-1", "two"}) {
        const Outcome outcome = run({"run", "--nps", nps, "--pcap", capture});
        EXPECT_EQ(outcome.exit_code, 2) << nps;
        EXPECT_TRUE(outcome.err.starts_with("inlinectl: --nps: ")) << outcome.err;
        EXPECT_EQ(test::lines_of(outcome.err).size(), 1u);
    }
}

TEST_F(InlinectlUsage, HelpHasExamplesForEachCommandAndFits80Columns)
{
    for (const std::vector<std::string> &arguments :
         {std::vector<std::string>{"--help"}, {"run", "--help"}, {"card", "--help"}}) {
        const Outcome outcome = run(arguments);
        EXPECT_EQ(outcome.exit_code, 0);
        EXPECT_NE(outcome.out.find("Examples:"), std::string::npos);
        for (const std::string &line : test::lines_of(outcome.out))
            EXPECT_LE(line.size(), 80u) << line;
    }
}

TEST_F(InlinectlUsage, VersionIsOneLine)
{
    const Outcome outcome = run({"--version"});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_TRUE(outcome.out.starts_with("inlinectl "));
    EXPECT_EQ(test::lines_of(outcome.out).size(), 1u);
}

} // namespace
