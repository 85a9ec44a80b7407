// The sweep itself: what it covers, and that it finds what it is there to find.
#include <csignal>
#include <fstream>
#include <set>

#include <gtest/gtest.h>
#include <unistd.h>

#include "call_sweep.h"
#include "inline_service_stat.h"
#include "scenario_host.h"
#include "sweep_sample.h"
#include "swept_process.h"

using namespace test;

namespace {

constexpr char state_directory[] = "/tmp/card";

SweepPlan plan_at(const std::string &point)
{
    SweepPlan plan = {ordinary_card, {}, reference_scenario()};
    const FaultPoint wanted = point_named(point).value();
    plan.takes = [wanted](const FaultPoint &other) { return describe(other) == describe(wanted); };
    return plan;
}

// Carries the scenario out up to the first step of a kind, that step included.
void carry_out_through(SweptProcess &process, StepKind last)
{
    for (const Step &step : reference_scenario()) {
        ASSERT_TRUE(process.carry_out(step));
        if (step.kind == last)
            return;
    }
}

bool some_contains(const std::vector<std::string> &lines, const std::string &text)
{
    return std::any_of(lines.begin(), lines.end(), [&text](const std::string &line) {
        return line.find(text) != std::string::npos;
    });
}

TEST(Scenario, CreatesAtLeast200EntriesOverBothTablesAndSixKeys)
{
    std::set<uint32_t> entries[2];
    std::set<uint16_t> keys;
    for (const Step &step : reference_scenario()) {
        for (const EntryRequest &request : step.requests) {
            if (request.action == SHADOW_DB_CREATE) {
                entries[request.table].insert(request.entry_id);
                keys.insert(step.key);
            }
        }
    }
    EXPECT_GE(entries[0].size(), 130u);
    EXPECT_GE(entries[1].size(), 70u);
    EXPECT_EQ(keys.size(), 6u);
}

TEST(Scenario, GoesOnInANewHostAfterAnyStep)
{
    const std::vector<Step> steps = reference_scenario();
    for (const size_t killed_after : {size_t{5}, steps.size() / 2, steps.size() - 4}) {
        std::filesystem::remove_all(state_directory);
        {
            ScenarioHost first(scenario_card(ordinary_card), state_directory);
            for (size_t i = 0; i <= killed_after; ++i)
                ASSERT_EQ(first.carry_out(steps[i]).code, 0u) << describe(steps[i], i);
        }
        NUM_LC_NPS = 0; // what a new process begins with
        ScenarioHost second(scenario_card(ordinary_card), state_directory);
        for (size_t i = 0; i < 2; ++i) // start and register anew
            ASSERT_EQ(second.carry_out(steps[i]).code, 0u);
        for (size_t i = killed_after + 1; i < steps.size(); ++i)
            ASSERT_EQ(second.carry_out(steps[i]).code, 0u) << describe(steps[i], i);
    }
}

TEST(Scenario, CallsEveryServiceThatCanFail)
{
    SweepPlan plan = {ordinary_card, {}, reference_scenario()};
    plan.takes = [](const FaultPoint &) { return false; };
    const SweepResult result = sweep(plan);
    EXPECT_EQ(result.texts, std::vector<std::string>());
    for (const ServiceFailure &failure : service_failures())
        EXPECT_GT(result.calls[static_cast<size_t>(failure.service)], 0u)
            << name_of(failure.service);
}

TEST(ServiceFailures, CoverEveryPlatformServiceThatTheLibraryUses)
{
    std::set<std::string> covered;
    for (const ServiceFailure &failure : service_failures())
        covered.insert(std::string(name_of(failure.service)));
    for (const Infallible &service : infallible_services())
        EXPECT_TRUE(covered.insert(std::string(name_of(service.service))).second);
    for (const std::string_view service : services_elsewhere())
        EXPECT_TRUE(covered.insert(std::string(service)).second);
    std::set<std::string> used;
    std::ifstream imports(PROJECT_SOURCE_DIR "/tests/baseline/platform_imports.txt");
    for (std::string name; std::getline(imports, name);)
        used.insert(name);
    EXPECT_EQ(covered, used);
}

TEST(FaultPoint, IsReadAsItIsWritten)
{
    for (size_t failure = 0; failure < service_failures().size(); ++failure) {
        const FaultPoint point = {failure, 17, true};
        const auto read = point_named(describe(point));
        ASSERT_TRUE(read.has_value()) << describe(point);
        EXPECT_EQ(read->failure, failure);
        EXPECT_EQ(read->nth, 17u);
        EXPECT_TRUE(read->for_ever);
    }
    EXPECT_FALSE(point_named("shmwin_malloc:0:17:twice").has_value());
    EXPECT_FALSE(point_named("shmwin_malloc:1:17:once").has_value());
}

TEST(SweepSample, TakesEveryFailureOnceAndForEver)
{
    std::array<uint64_t, service_count> calls{};
    calls.fill(100);
    const SweepSample sample(calls, 300, 1);
    for (size_t failure = 0; failure < service_failures().size(); ++failure) {
        for (const uint64_t nth : {1u, 100u}) {
            EXPECT_TRUE(sample.takes({failure, nth, false}));
            EXPECT_TRUE(sample.takes({failure, nth, true}));
        }
    }
    EXPECT_LT(sample.size(), all_points(calls) / 5);
}

TEST(CallSweep, SeesTheLibraryEndTheProcessAfterSixtyRegistrations)
{
    const SweepResult result = sweep(plan_at("prm_srh_register:0:1:ever"));
    EXPECT_EQ(result.texts, std::vector<std::string>());
    EXPECT_EQ(result.points(), 1u);
    EXPECT_EQ(result.exits, 1u);
}

TEST(CallSweep, SeesTheAssertionOfAServiceThatNamesNoNode)
{
    const SweepResult result = sweep(plan_at("prm_srh_service_config_add:0:2:ever"));
    EXPECT_EQ(result.texts, std::vector<std::string>());
    EXPECT_EQ(result.points(), 1u);
    EXPECT_EQ(result.assertions, 1u);
}

TEST(CallSweep, FindsAFaultThatIsNoAssertion)
{
    const pid_t parent = getpid();
    const vlc::AddedServiceTap fault([parent](const vlc::ServiceCall &) -> std::optional<uint64_t> {
        if (getpid() != parent)
            raise(SIGFPE);
        return std::nullopt;
    });
    const SweepResult result = sweep(plan_at("list_create:0:3:once"));
    EXPECT_EQ(result.failed(), 1u);
    EXPECT_TRUE(some_contains(result.texts, "died of signal 8"));
}

TEST(CallSweep, FindsAnExitThatIsNotForeseen)
{
    const pid_t parent = getpid();
    const vlc::AddedServiceTap fault([parent](const vlc::ServiceCall &) -> std::optional<uint64_t> {
        if (getpid() != parent)
            exit(1);
        return std::nullopt;
    });
    const SweepResult result = sweep(plan_at("list_create:0:3:once"));
    EXPECT_EQ(result.failed(), 1u);
    EXPECT_TRUE(some_contains(result.texts, "ended with status 1"));
}

class SweptProcessTest : public testing::Test {
protected:
    SweptProcess process{ordinary_card, state_directory};
};

TEST_F(SweptProcessTest, FindsNothingWhereNothingFails)
{
    carry_out_through(process, StepKind::collect_statistics);
    process.compare_state();
    EXPECT_EQ(process.differences(), std::vector<std::string>());
}

TEST_F(SweptProcessTest, FindsAFailureThatTheReferenceDoesNotKnow)
{
    carry_out_through(process, StepKind::register_services);
    const vlc::AddedServiceTap refusal([](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        return std::string(call.service) == "list_create" ? std::optional<uint64_t>(0)
                                                          : std::nullopt;
    });
    process.carry_out(reference_scenario()[3]);
    EXPECT_TRUE(some_contains(process.differences(), "result: code 0xffffff01"));
    EXPECT_TRUE(some_contains(process.differences(), "calls of list_enqueue_default"));
}

TEST_F(SweptProcessTest, FindsARowThatIsGone)
{
    carry_out_through(process, StepKind::pass_traffic);
    const std::string key = "entry 4";
    vlc::VirtualLineCard::current()
        ->nps()[1]
        .table(vlc::TableKind::service_config)
        .remove({reinterpret_cast<const uint8_t *>(key.data()), key.size()});
    process.compare_state();
    EXPECT_TRUE(some_contains(process.differences(), "np 1 table 0 row entry 4 is missing"));
    EXPECT_TRUE(some_contains(process.differences(), "finding is not predicted: entry_missing"));
}

TEST_F(SweptProcessTest, FindsACounterThatIsTakenAndNotHeld)
{
    carry_out_through(process, StepKind::pass_traffic);
    uint32_t counter = 0;
    inline_svc_alloc_counter(&counter, 1, 0);
    process.compare_state();
    EXPECT_TRUE(some_contains(process.differences(), "in use: 1 instead of 0"));
    EXPECT_TRUE(some_contains(process.differences(), "finding is not predicted: counter_leaked"));
}

TEST_F(SweptProcessTest, FindsABlockThatIsNotGivenBack)
{
    carry_out_through(process, StepKind::pass_traffic);
    inline_svc_shared_mem_alloc(16);
    process.compare_state();
    EXPECT_TRUE(some_contains(process.differences(), "blocks of the window"));
}

} // namespace
