// Real captures through the flow service: the set of flows, and the packets and bytes of each, are
// those that an independent analyser finds.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "card_child.h"
#include "reference_counts.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;
using Flows = std::map<std::string, test::Count>;

constexpr char export_file[] = "/tmp/flows.jsonl";

json run_inlinectl(const std::string &arguments)
{
    const std::string out = "/tmp/report.json";
    const std::string command = INLINECTL " run --json --flows --flow-export " +
                                std::string(export_file) + " " + arguments + " > " + out;
    EXPECT_EQ(system(command.c_str()), 0) << command;
    return json::parse(std::ifstream(out));
}

std::vector<json> exported()
{
    std::vector<json> flows;
    std::ifstream lines(export_file);
    for (std::string line; std::getline(lines, line);)
        flows.push_back(json::parse(line));
    return flows;
}

std::string name_of(const json &flow)
{
    return std::to_string(flow["protocol"].get<unsigned>()) + " " +
           flow["source"].get<std::string>() + " " +
           std::to_string(flow["source_port"].get<unsigned>()) + " " +
           flow["destination"].get<std::string>() + " " +
           std::to_string(flow["destination_port"].get<unsigned>());
}

// By 5-tuple, what policers dropped too. A 5-tuple may have had several flows, one after another.
Flows sums(const std::vector<json> &flows)
{
    Flows sums;
    for (const json &flow : flows) {
        test::Count &sum = sums[name_of(flow)];
        sum.packets += flow["packets"].get<uint64_t>() + flow["dropped_packets"].get<uint64_t>();
        sum.bytes += flow["bytes"].get<uint64_t>() + flow["dropped_bytes"].get<uint64_t>();
    }
    return sums;
}

using FlowsOf = test::CaptureTest;

TEST_P(FlowsOf, AreThoseOfTheAnalyserWithOneTwoAndEightNpsOnAllOfThemAndOnOne)
{
    const test::ReferenceCounts reference = test::reference_counts(GetParam());
    for (const char *nps : {"1", "2", "8"}) {
        for (const char *where : {"all", "one"}) {
            SCOPED_TRACE(std::string("NPs: ") + nps + ", on " + where);
            const json report =
                run_inlinectl("--nps " + std::string(nps) + " --flow-nps " + where + pcap());
            const std::vector<json> flows = exported();
            EXPECT_EQ(sums(flows), reference.flows);
            EXPECT_EQ(flows.size(), report["flows"]["active"].get<uint64_t>() +
                                        report["flows"]["ended"].get<uint64_t>());
            EXPECT_EQ(report["flows"]["counted"]["packets"], reference.ipv4.packets);
            EXPECT_EQ(report["flows"]["counted"]["bytes"], reference.ipv4.bytes);
            EXPECT_EQ(report["flows"]["dropped"]["packets"], 0);
        }
    }
}

TEST_P(FlowsOf, AreTheSameWithAPolicerThatDropsNothing)
{
    const test::ReferenceCounts reference = test::reference_counts(GetParam());
    for (const char *nps : {"1", "2", "8"}) {
        SCOPED_TRACE(std::string("NPs: ") + nps);
        const json report = run_inlinectl("--flow-police 0:1 --nps " + std::string(nps) + pcap());
        EXPECT_EQ(sums(exported()), reference.flows);
        EXPECT_EQ(report["flows"]["dropped"]["packets"], 0);
    }
}

TEST_P(FlowsOf, HaveAllTheirPacketsCountedWhereAPolicerDropsSome)
{
    const test::ReferenceCounts reference = test::reference_counts(GetParam());
    const json report = run_inlinectl("--flow-police 2000:1500 --nps 2" + pcap());
    EXPECT_EQ(sums(exported()), reference.flows);
    EXPECT_EQ(report["flows"]["counted"]["packets"].get<uint64_t>() +
                  report["flows"]["dropped"]["packets"].get<uint64_t>(),
              reference.ipv4.packets);
    EXPECT_GT(report["flows"]["dropped"]["packets"], 0);
}

TEST_P(FlowsOf, KeepTheirSumsWhenTheyEndInBetween)
{
    const test::ReferenceCounts reference = test::reference_counts(GetParam());
    run_inlinectl("--flow-idle 0.01 --nps 2" + pcap());
    EXPECT_EQ(sums(exported()), reference.flows);
}

INSTANTIATE_TEST_SUITE_P(Captures, FlowsOf, testing::ValuesIn(test::captures()),
                         test::capture_test_name);

// ---- one capture of the project, whose flows are a few hundred

constexpr char capture[] = PROJECT_SOURCE_DIR "/captures/tagged-link.pcapng";

json audit_of(const std::string &state)
{
    const std::string command = INLINECTL " audit --json --state " + state + " > /tmp/audit.json";
    EXPECT_EQ(system(command.c_str()), 0) << command;
    return json::parse(std::ifstream("/tmp/audit.json"));
}

TEST(FlowRun, EndsWhatIsIdleAndSaysWhy)
{
    const json report = run_inlinectl("--flow-idle 0.5 --pcap " + std::string(capture));
    std::map<std::string, uint64_t> ends;
    for (const json &flow : exported())
        ++ends[flow["ended"]];
    EXPECT_GT(ends["idle"], 0u);
    EXPECT_EQ(ends["idle"], report["flows"]["ended"]);
    EXPECT_EQ(ends["active"], report["flows"]["active"]);
}

TEST(FlowRun, LeavesAnEqualSetOfFlowsOnTheNpsAndInTheWindow)
{
    for (const char *options :
         {"", " --flow-nps one", " --flow-police 2000:1500", " --flow-idle 0.5", " --nps 8"}) {
        SCOPED_TRACE(options);
        fs::remove_all("/tmp/state");
        const json report =
            run_inlinectl("--state /tmp/state --pcap " + std::string(capture) + options);
        const json audit = audit_of("/tmp/state");
        EXPECT_TRUE(audit["clean"]);
        EXPECT_EQ(audit["shadow_db"]["flows"], report["flows"]["active"]);
    }
}

TEST(FlowRun, GoesOnWithTheFlowsThatAreThere)
{
    const std::string arguments = "--state /tmp/state --pcap " + std::string(capture);
    const json first = run_inlinectl(arguments);
    const Flows once = sums(exported());
    const json second = run_inlinectl(arguments);
    EXPECT_EQ(second["flows"]["found"], first["flows"]["active"]);
    EXPECT_EQ(second["flows"]["added"], 0);
    Flows twice = once;
    for (auto &[name, count] : twice) {
        count.packets *= 2;
        count.bytes *= 2;
    }
    EXPECT_EQ(sums(exported()), twice);
    EXPECT_TRUE(audit_of("/tmp/state")["clean"]);
}

TEST(FlowRun, OnACardOfItsOwnProcessIsTheSameFlowByFlow)
{
    const std::string options = " --flow-idle 0.3 --pcap " + std::string(capture);
    const auto sorted = [] {
        std::vector<std::string> lines;
        for (const json &flow : exported())
            lines.push_back(flow.dump());
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    run_inlinectl(options);
    const std::vector<std::string> embedded = sorted();
    const test::CardChild card;
    run_inlinectl("--state /tmp/host --connect " + std::string(test::CardChild::socket) + options);
    EXPECT_EQ(sorted(), embedded);
}

TEST(FlowRun, WritesEachFlowsFirstAndLastPacketTime)
{
    run_inlinectl("--nps 2 --pcap " + std::string(capture));
    const std::vector<json> flows = exported();
    ASSERT_FALSE(flows.empty());
    for (const json &flow : flows)
        EXPECT_LE(flow["first"].get<std::string>(), flow["last"].get<std::string>()) << flow;
}

} // namespace
