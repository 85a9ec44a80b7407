// The flow service after its host was killed: the flows that are there survive, and what was in
// flight is settled.

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sys/wait.h>

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

constexpr char capture[] = PROJECT_SOURCE_DIR "/captures/tagged-link.pcapng";
constexpr char plan_file[] = "/tmp/plan.toml";
constexpr char report_file[] = "/tmp/report.json";
constexpr uint64_t flows_of_capture = 214;

int run_inlinectl(const std::string &arguments)
{
    const std::string command = INLINECTL " run --json --flows --state /tmp/state --pcap " +
                                std::string(capture) + " " + arguments + " > " + report_file +
                                " 2> /tmp/run.err";
    return system(command.c_str());
}

json report()
{
    return json::parse(std::ifstream(report_file));
}

json audit()
{
    const int status = system(INLINECTL " audit --json --state /tmp/state > /tmp/audit.json");
    EXPECT_LE(WEXITSTATUS(status), 1);
    return json::parse(std::ifstream("/tmp/audit.json"));
}

// A shell tells a signal by 128 and its number.
bool was_killed(int status)
{
    return (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) ||
           (WIFEXITED(status) && WEXITSTATUS(status) == 128 + SIGKILL);
}

struct Moment {
    const char *name;
    const char *service;
    const char *more; // of the rule
    const char *arguments;
};

class KilledFlowHost : public testing::TestWithParam<Moment> {
protected:
    void SetUp() override
    {
        fs::remove_all("/tmp/state");
        std::ofstream(plan_file) << "[[rule]]\nservice = '" << GetParam().service
                                 << "'\naction = 'kill'\ntarget = 'host'\n"
                                 << GetParam().more;
        const int status =
            run_inlinectl(std::string("--fault ") + plan_file + " " + GetParam().arguments);
        ASSERT_TRUE(was_killed(status)) << status;
    }
};

TEST_P(KilledFlowHost, LeavesAtMostOneFlowInFlightAndGoesOnWithTheOthers)
{
    const json left = audit();
    const auto stored = left["shadow_db"]["flows"].get<uint64_t>();
    EXPECT_GT(stored, 0u);
    EXPECT_LE(left["differences"].size(), 6u) << left["differences"];

    ASSERT_EQ(run_inlinectl(GetParam().arguments), 0) << std::ifstream("/tmp/run.err").rdbuf();
    const json after = report();
    EXPECT_LE(after["flows"]["found"].get<uint64_t>(), stored);
    EXPECT_GE(after["flows"]["found"].get<uint64_t>() + 1, stored);
    EXPECT_TRUE(after["settlement"]["left"].empty()) << after["settlement"];
    EXPECT_TRUE(audit()["clean"]) << audit();
}

constexpr Moment moments[] = {
    {"BeforeAFlowReachesItsFirstNp", "prm_srh_flow_db_add", "nth = 101\n", ""},
    {"BetweenTheNpsOfAFlow", "prm_srh_flow_db_add", "nth = 102\n", ""},
    {"WithACounterTakenForTheSecondNp", "prm_stats_cl_get_phy_stats_ptr", "nth = 102\n", ""},
    {"WithAPolicersTwoCountersTaken", "prm_srh_flow_db_add", "nth = 77\n",
     "--flow-police 2000:1500"},
    {"BeforeAnIdleFlowLeavesItsFirstNp", "prm_srh_flow_db_del", "nth = 21\n", "--flow-idle 0.2"},
    {"BetweenTheNpsOfAnIdleFlow", "prm_srh_flow_db_del", "nth = 22\n", "--flow-idle 0.2"},
    {"BeforeAnIdleFlowsCountersAreGivenBack", "prm_stats_cl_free", "nth = 21\n", "--flow-idle 0.2"},
    {"BeforeAnIdleFlowsRecordIsFreed", "shmwin_free", "nth = 3\n", "--flow-idle 0.2"},
};

INSTANTIATE_TEST_SUITE_P(Moments, KilledFlowHost, testing::ValuesIn(moments),
                         [](const auto &moment) { return moment.param.name; });

TEST(RestartedFlowHost, AgesTheFlowsOfTheOneBefore)
{
    fs::remove_all("/tmp/state");
    ASSERT_EQ(run_inlinectl("--flow-idle 0.3"), 0);
    const json first = report();
    // The same traffic once more: all that was idle by its end has come by again, or ends.
    ASSERT_EQ(run_inlinectl("--flow-idle 0.3"), 0);
    const json second = report();
    EXPECT_EQ(second["flows"]["found"], first["flows"]["active"]);
    EXPECT_GT(second["flows"]["ended"].get<uint64_t>(), 0u);
    EXPECT_LE(second["flows"]["active"].get<uint64_t>(), flows_of_capture);
    EXPECT_TRUE(audit()["clean"]);
}

} // namespace
