// `inlinectl run --fault`: what a plan does to a run, and what the run says of it.
#include <csignal>
#include <filesystem>
#include <fstream>
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
constexpr const char *plan = "/tmp/plan.toml";

class FaultRuns : public ::testing::Test {
protected:
    FaultRuns()
    {
        test::write_capture(
            capture, {{.kind = MadePacket::Kind::tcp, .destination_port = 80, .payload = 1000},
                      {.kind = MadePacket::Kind::udp, .destination_port = 53, .payload = 100},
                      {.kind = MadePacket::Kind::icmp, .destination = "192.0.2.2", .payload = 10}});
    }
    static Outcome run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"run", "--pcap", capture});
        return test::run_program({.program = INLINECTL, .arguments = std::move(arguments)});
    }
    static Outcome run_with(const std::string &rules, const std::vector<std::string> &more = {})
    {
        std::ofstream(plan) << rules;
        std::vector<std::string> arguments{"--fault", plan};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return run(arguments);
    }
    static json report_with(const std::string &rules)
    {
        return json::parse(run_with(rules, {"--json"}).out);
    }
};

TEST_F(FaultRuns, SayHowOftenEachRuleMatchedAndFired)
{
    const Outcome outcome = run_with("seed = 3\n"
                                     "[[rule]]\n"
                                     "service = 'prm_srh_service_config_add'\n"
                                     "np = 1\n"
                                     "action = 'answer'\n"
                                     "status = 0x257C5406\n"
                                     "nth = 2\n"
                                     "[[rule]]\n"
                                     "service = 'shmwin_reset'\n"
                                     "action = 'return'\n"
                                     "code = 22\n");
    EXPECT_EQ(outcome.exit_code, 1) << "a request failed";
    const std::string table =
        "Faults of /tmp/plan.toml, seed 3\n"
        "line  matched  fired  action             trigger     service\n"
        "   2        3      1  answer 0x257C5406  match 2     prm_srh_service_config_add np 1\n"
        "   8        0      0  return 22          each match  shmwin_reset  never matched\n";
    EXPECT_TRUE(outcome.out.ends_with(table)) << outcome.out;
    EXPECT_NE(outcome.out.find("NP 1  service config  add           1  PRM: table is full"),
              std::string::npos)
        << outcome.out;
}

TEST_F(FaultRuns, SayTheSameAsJson)
{
    const json faults = report_with("[[rule]]\n"
                                    "service = 'prm_srh_*'\n"
                                    "table = 'ext_conf'\n"
                                    "action = 'twice'\n"
                                    "limit = 2\n")["faults"];
    EXPECT_EQ(faults["file"], plan);
    EXPECT_EQ(faults["seed"], 0);
    ASSERT_EQ(faults["rules"].size(), 1u);
    EXPECT_EQ(faults["rules"][0], (json{{"line", 1},
                                        {"service", "prm_srh_* table ext_conf"},
                                        {"action", "twice"},
                                        {"trigger", "each match, at most 2"},
                                        {"matched", 4},
                                        {"fired", 2}}));
}

TEST_F(FaultRuns, WithoutAPlanSayNothingOfFaults)
{
    EXPECT_TRUE(json::parse(run({"--json"}).out)["faults"].is_null());
    EXPECT_EQ(run({}).out.find("Faults"), std::string::npos);
}

TEST_F(FaultRuns, GoWellWhenWhatWentWrongDidNoHarm)
{
    const Outcome outcome =
        run_with("[[rule]]\nservice = 'prm_srh_*'\naction = 'late'\nevents = 7\n"
                 "[[rule]]\nservice = 'prm_srh_*'\naction = 'np-reset'\n"
                 "nth = 1000\n");
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
}

TEST_F(FaultRuns, ShowWhatAFaultDidToTheHardware)
{
    const json report = report_with("[[rule]]\n"
                                    "service = 'prm_srh_service_config_add'\n"
                                    "key = '11 11'\n" // UDP
                                    "action = 'answer'\n"
                                    "status = 0\n");
    EXPECT_EQ(report["hardware_failures"]["count"], 0) << "no answer told of it";
    EXPECT_EQ(report["faults"]["rules"][0]["fired"], 2) << "one for each NP";
    for (const json &entry : report["destinations"])
        EXPECT_EQ(entry["packets"], entry["protocol"] == 17 ? 0 : 1) << entry.dump();
}

TEST_F(FaultRuns, ThatDoNotReachTheirReportSayItOnStandardError)
{
    const Outcome outcome =
        run_with("[[rule]]\nservice = 'shmwin_malloc'\naction = 'no-memory'\nnth = 1\n");
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "Faults of /tmp/plan.toml, seed 0\n"
              "line  matched  fired  action     trigger  service\n"
              "   1        1      1  no-memory  match 1  shmwin_malloc\n"
              "inlinectl: shmwin_malloc of the shadow DB's root failed: Cannot allocate memory "
              "(code 12)\n");
}

TEST_F(FaultRuns, ThatTheLibraryEndsSaySo)
{
    const Outcome outcome = run_with("[[rule]]\nservice = 'shmwin_malloc'\naction = 'no-memory'\n"
                                     "from = 3\n");
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err,
              "Faults of /tmp/plan.toml, seed 0\n"
              "line  matched  fired  action     trigger       service\n"
              "   1        6      4  no-memory  from match 3  shmwin_malloc\n"
              "inlinectl: the library ended the process: it could not register with PRM; its log "
              "says why\n");
}

// Twenty reads clear the new counters; the next that fail are of the pass that the counts begin at.
TEST_F(FaultRuns, CountRightWhenTheStartingPointCannotBeReadAtOnce)
{
    const std::string refused = "[[rule]]\nservice = 'prm_stats_cl_read'\naction = 'return'\n"
                                "code = 5\nlimit = ";
    const Outcome outcome = run_with(refused + "24\n", {"--json"});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(json::parse(outcome.out)["destinations"].size(), 3u);
}

// Each connection-up makes PRM restart, and so the next connection-up.
TEST_F(FaultRuns, ThatNeverComeToAnEndAreInterruptedByOneSignal)
{
    std::ofstream(plan) << "[[rule]]\nservice = 'prm_srh_set_name'\naction = 'restart'\n";
    const Outcome outcome =
        test::run_program({.program = INLINECTL,
                           .arguments = {"run", "--pcap", capture, "--fault", plan},
                           .while_it_runs = [](pid_t run) {
                               std::this_thread::sleep_for(std::chrono::milliseconds(500));
                               kill(run, SIGINT);
                           }});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_NE(outcome.err.find("inlinectl: interrupted\n"), std::string::npos) << outcome.err;
    EXPECT_NE(outcome.out.find("Faults of /tmp/plan.toml"), std::string::npos) << outcome.out;
}

TEST_F(FaultRuns, AreKilledWhereThePlanSaysSo)
{
    for (const char *target : {"host", "card"}) {
        const Outcome outcome = run_with("[[rule]]\nservice = 'prm_srh_service_config_add'\n"
                                         "action = 'kill'\nnth = 3\ntarget = '" +
                                         std::string(target) + "'\n");
        EXPECT_EQ(outcome.exit_code, -SIGKILL) << target;
        EXPECT_EQ(outcome.out, "");
    }
}

TEST_F(FaultRuns, RefuseAPlanBeforeAnythingIsMade)
{
    const Outcome outcome = run_with("[[rule]]\nservice = 'shmwin_maloc'\naction = 'no-memory'\n",
                                     {"--state", "/tmp/s"});
    EXPECT_EQ(outcome.exit_code, 2);
    EXPECT_EQ(outcome.out, "");
    EXPECT_EQ(outcome.err, "inlinectl: /tmp/plan.toml:2:11: 'shmwin_maloc' is no platform service; "
                           "the nearest known name is 'shmwin_malloc'\n");
    EXPECT_FALSE(std::filesystem::exists("/tmp/s"));
    EXPECT_EQ(run({"--fault", "/tmp/none"}).err,
              "inlinectl: /tmp/none: cannot be read: No such file or directory\n");
}

// ---- the plan that comes along -----------------------------------------------------------------

class ExamplePlan : public ::testing::Test {
protected:
    static json report()
    {
        const Outcome outcome = test::run_program(
            {.program = INLINECTL,
             .arguments = {"run", "--pcap", CAPTURES "/office-lan.pcap",
                           CAPTURES "/server-any.pcap", CAPTURES "/small-mtu.pcap",
                           CAPTURES "/tagged-link.pcapng", "--fault", FAULT_PLANS "/answers.toml",
                           "--json"}});
        return json::parse(outcome.out);
    }
};

TEST_F(ExamplePlan, FiresEveryRule)
{
    const json faults = report()["faults"]["rules"];
    EXPECT_EQ(faults.size(), 5u);
    for (const json &rule : faults)
        EXPECT_GT(rule["fired"], 0) << rule.dump();
}

TEST_F(ExamplePlan, FiresTheSameInEveryRun)
{
    json one = report();
    json other = report();
    EXPECT_EQ(one["faults"], other["faults"]);
    EXPECT_EQ(one["hardware_failures"], other["hardware_failures"]);
    EXPECT_EQ(one["destinations"], other["destinations"]);
}

} // namespace
