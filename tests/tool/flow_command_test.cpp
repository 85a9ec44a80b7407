// Flows as a person meets them: `inlinectl run --flows` and `inlinectl show flows`.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "made_capture.h"
#include "tool_process.h"

namespace test {
namespace {

using nlohmann::json;
using Arguments = std::vector<std::string>;
using Kind = MadePacket::Kind;

constexpr char capture[] = "/tmp/flows.pcap";
constexpr char state[] = "/tmp/state";
constexpr char export_file[] = "/tmp/flows.jsonl";

Outcome inlinectl(const Arguments &arguments)
{
    return run_program({.program = INLINECTL, .arguments = arguments});
}

MadePacket packet(Kind kind, const char *source, uint16_t source_port, size_t payload)
{
    return {.kind = kind, .source = source, .source_port = source_port, .payload = payload};
}

// Three flows to 192.0.2.1: two packets, one and one.
class FlowCommand : public testing::Test {
protected:
    FlowCommand()
    {
        std::filesystem::remove_all(state);
        write_capture(capture, {packet(Kind::udp, "198.51.100.1", 1000, 100),
                                packet(Kind::tcp, "198.51.100.2", 2000, 50),
                                packet(Kind::udp, "198.51.100.1", 1000, 100),
                                packet(Kind::icmp, "203.0.113.9", 0, 10)});
    }
    static Outcome run(const Arguments &more = {})
    {
        Arguments arguments{"run", "--flows", "--state", state, "--pcap", capture};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return inlinectl(arguments);
    }
    static Outcome show(const Arguments &more = {})
    {
        Arguments arguments{"show", "flows", "--state", state};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return inlinectl(arguments);
    }
    // The first words of each line of flows, in order.
    static std::vector<std::string> names(const Arguments &more)
    {
        std::vector<std::string> names;
        Arguments arguments = more;
        arguments.emplace_back("--json");
        const json shown = json::parse(show(arguments).out);
        for (const json &flow : shown["flows"])
            names.push_back(flow["protocol_name"].get<std::string>() + " " +
                            flow["source"].get<std::string>());
        return names;
    }
};

const std::string udp_flow = "udp 198.51.100.1";
const std::string tcp_flow = "tcp 198.51.100.2";
const std::string icmp_flow = "icmp 203.0.113.9";

TEST_F(FlowCommand, TellsTheFlowsOfARunMostBytesFirst)
{
    const Outcome outcome = run();
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_NE(outcome.out.find("Flows by bytes, 3 of 3\n"), std::string::npos) << outcome.out;
    const size_t udp = outcome.out.find("udp 198.51.100.1:1000 > 192.0.2.1:53");
    const size_t tcp = outcome.out.find("tcp 198.51.100.2:2000 > 192.0.2.1:53");
    const size_t icmp = outcome.out.find("icmp 203.0.113.9 > 192.0.2.1 ");
    EXPECT_LT(udp, tcp);
    EXPECT_LT(tcp, icmp);
    EXPECT_NE(icmp, std::string::npos);
    EXPECT_NE(outcome.out.find("0 found, 3 added, 0 ended idle, 3 go on\n"), std::string::npos);
    EXPECT_NE(outcome.out.find("counted by flow"), std::string::npos);
}

TEST_F(FlowCommand, SaysNothingOfFlowsInARunWithoutThem)
{
    const Outcome outcome = inlinectl({"run", "--state", state, "--pcap", capture});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_EQ(outcome.out.find("Flow"), std::string::npos) << outcome.out;
    EXPECT_EQ(show().out, "There are no flows.\n");
}

TEST_F(FlowCommand, ShowsThemWithNoHostAlive)
{
    run();
    const Outcome outcome = show();
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.out.substr(0, outcome.out.find('\n')).find("flow "), 0u) << outcome.out;
    EXPECT_NE(outcome.out.find("\n3 of 3 flows\n"), std::string::npos) << outcome.out;
}

TEST_F(FlowCommand, SortsThem)
{
    run();
    EXPECT_EQ(names({}), (std::vector{udp_flow, tcp_flow, icmp_flow}));
    EXPECT_EQ(names({"--sort", "packets"})[0], udp_flow);
}

TEST_F(FlowCommand, SelectsThemByAddressPortAndProtocol)
{
    run();
    EXPECT_EQ(names({"--address", "198.51.100.2"}), std::vector{tcp_flow});
    EXPECT_EQ(names({"--address", "198.51.100.0/24"}), (std::vector{udp_flow, tcp_flow}));
    EXPECT_EQ(names({"--address", "192.0.2.1"}).size(), 3u);
    EXPECT_EQ(names({"--port", "2000"}), std::vector{tcp_flow});
    EXPECT_EQ(names({"--port", "53"}), (std::vector{udp_flow, tcp_flow}));
    EXPECT_EQ(names({"--protocol", "icmp"}), std::vector{icmp_flow});
    EXPECT_EQ(names({"--protocol", "udp", "--port", "2000"}), std::vector<std::string>{});
    EXPECT_EQ(show({"--port", "7"}).out, "No such flow.\n");
}

TEST_F(FlowCommand, ShowsTheFirstOfThemAndSaysHowManyThereAre)
{
    run();
    EXPECT_NE(
        show({"--first", "1", "--port", "53"}).out.find("\n1 of 2 flows that match, 3 in all\n"),
        std::string::npos);
}

TEST_F(FlowCommand, ShowsWhatAPolicerDropped)
{
    run({"--flow-police", "1:150"});
    const json flow = json::parse(show({"--json", "--protocol", "udp"}).out)["flows"][0];
    EXPECT_EQ(flow["packets"], 1);
    EXPECT_EQ(flow["dropped_packets"], 1);
    EXPECT_EQ(flow["policed"], true);
    EXPECT_NE(show().out.find("  dropped  "), std::string::npos);
}

TEST_F(FlowCommand, TellsWhichNpsHaveTheRow)
{
    run({"--nps", "3"});
    const json shown = json::parse(show({"--json"}).out);
    for (const json &flow : shown["flows"]) {
        EXPECT_EQ(flow["nps"], json({0, 1, 2}));
        EXPECT_EQ(flow["rows"], json({0, 1, 2}));
    }
}

TEST_F(FlowCommand, ExportsALineAFlow)
{
    EXPECT_EQ(run({"--flow-export", export_file}).exit_code, 0);
    const std::vector<std::string> lines = lines_of(file_text(export_file));
    ASSERT_EQ(lines.size(), 3u);
    for (const std::string &line : lines)
        EXPECT_EQ(json::parse(line)["ended"], "active");
}

TEST_F(FlowCommand, SaysThatTheTableOfAnNpIsFull)
{
    std::ofstream("/tmp/card.toml") << "[nps]\nflow_rows = 2\n";
    const Outcome outcome = run({"--card", "/tmp/card.toml"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_NE(outcome.err.find("request"), std::string::npos) << outcome.err;
}

TEST_F(FlowCommand, SaysThatTheCountersAreUsedUp)
{
    std::ofstream("/tmp/card.toml") << "[nps]\ndynamic_counters = 2\n";
    const Outcome outcome = run({"--card", "/tmp/card.toml"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_NE(outcome.err.find("1 packet could not be given a flow: code 12, "), std::string::npos)
        << outcome.err;
}

struct BadInput {
    const char *name;
    Arguments arguments;
    const char *message;
};

class BadFlowInput : public testing::TestWithParam<BadInput> {};

TEST_P(BadFlowInput, IsRefusedWithStatusTwo)
{
    const Outcome outcome = inlinectl(GetParam().arguments);
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_NE(outcome.err.find(GetParam().message), std::string::npos) << outcome.err;
}

const BadInput bad_input[] = {
    {"OptionsWithoutTheService", {"run", "--flow-idle", "3"}, "--flow-idle requires --flows"},
    {"NpsThatAreNeither", {"run", "--flows", "--flow-nps", "two"}, "--flow-nps"},
    {"PolicerWithoutABurst", {"run", "--flows", "--flow-police", "5"}, "'5' is no RATE:BURST"},
    {"PolicerOfBurstZero", {"run", "--flows", "--flow-police", "5:0"}, "'5:0' is no RATE:BURST"},
    {"PolicerOfWords", {"run", "--flows", "--flow-police", "a:b"}, "'a:b' is no RATE:BURST"},
    {"IdleTimeOfNothing", {"run", "--flows", "--flow-idle", "0"}, "--flow-idle"},
    {"NoBuckets", {"run", "--flows", "--flow-buckets", "0"}, "--flow-buckets"},
    {"AddressThatIsNone",
     {"show", "flows", "--state", "x", "--address", "1.2.3"},
     "'1.2.3' is no IPv4 address or prefix"},
    {"ProtocolThatIsNone",
     {"show", "flows", "--state", "x", "--protocol", "tpc"},
     "'tpc' is no IP protocol"},
    {"OrderThatIsNone", {"show", "flows", "--state", "x", "--sort", "size"}, "--sort"},
    {"PortThatIsNone", {"show", "flows", "--state", "x", "--port", "70000"}, "--port"},
    {"ExportThatCannotBeWritten",
     {"run", "--flows", "--flow-export", "/nowhere/flows", "--state", "/tmp/other"},
     "/nowhere/flows: cannot be written: No such file or directory"},
};

INSTANTIATE_TEST_SUITE_P(Input, BadFlowInput, testing::ValuesIn(bad_input),
                         [](const auto &input) { return input.param.name; });

} // namespace
} // namespace test
