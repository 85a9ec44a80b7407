// The kill sweep itself: that it finds what it is there to find.
#include <algorithm>
#include <cstring>

#include <gtest/gtest.h>

#include "kill_sweep.h"
#include "vlc/service_tap.h"

using namespace test;

namespace {

KillSweepResult sweep_at(const char *point)
{
    const NamedPoint named = kill_point_named(point).value();
    return sweep_kills({named.setting, 0, 1, {named.point}});
}

bool some_contains(const std::vector<std::string> &lines, const std::string &text)
{
    return std::ranges::any_of(
        lines, [&text](const std::string &line) { return line.find(text) != std::string::npos; });
}

// On every life of the sweep.
vlc::AddedServiceTap forced(const char *service, uint64_t result)
{
    return vlc::AddedServiceTap(
        [service, result](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
            return std::strcmp(call.service, service) == 0 ? std::optional(result) : std::nullopt;
        });
}

TEST(KillPoint, IsReadAsItIsWritten)
{
    for (const KillKind &kind : kill_kinds) {
        for (const CardKind &card : card_kinds) {
            const KillSetting setting = {kind, card, 4};
            const bool has_instructions = kind.instant == Instant::any;
            const std::string name = describe(setting, {17, has_instructions ? 5u : 0u});
            const auto read = kill_point_named(name);
            ASSERT_TRUE(read.has_value()) << name;
            EXPECT_EQ(describe(read->setting, read->point), name);
        }
    }
    for (const char *name : {"host:ordinary:2", "host:ordinary:2:0", "host:ordinary:9:1",
                             "host:ordinary:2:1+5", "nobody:ordinary:2:1", "host:strange:2:1"})
        EXPECT_FALSE(kill_point_named(name).has_value()) << name;
}

TEST(KillSweep, TriesTheFirstRequestTheLastAndSomeBetween)
{
    std::vector<uint64_t> told;
    const KillSweepResult result =
        sweep_kills({{kill_kinds[0], card_kinds[0], 1}, 5, 1},
                    [&told](uint64_t points) { told.push_back(points); });
    EXPECT_EQ(result.texts, std::vector<std::string>());
    EXPECT_EQ(result.points, 5u);
    EXPECT_EQ(told, (std::vector<uint64_t>{1, 2, 3, 4, 5}));
    EXPECT_GE(result.requests, 390u);
}

TEST(KillSweep, FindsARowThatTheSettlementCannotDelete)
{
    // The sweep does not see these, and counts the other requests.
    const vlc::AddedServiceTap tap = forced("prm_srh_service_config_del", 0);
    const KillSweepResult result = sweep_at("host:ordinary:1:300");
    EXPECT_EQ(result.failed, 1u);
    EXPECT_TRUE(some_contains(result.texts, "the settlement left"));
}

TEST(KillSweep, FindsMemoryThatIsNotGivenBack)
{
    const vlc::AddedServiceTap tap = forced("shmwin_free", 22);
    const KillSweepResult result = sweep_at("host:ordinary:1:391");
    EXPECT_EQ(result.failed, 1u);
    EXPECT_TRUE(some_contains(result.texts, "after the settlement: blocks of the window"));
}

TEST(KillSweep, EndsWhenTheScenarioFailsWithoutAKill)
{
    const vlc::AddedServiceTap tap = forced("prm_srh_reregister", 5);
    const KillSweepResult result = sweep_at("host:ordinary:1:10");
    EXPECT_EQ(result.failed, 1u);
    EXPECT_EQ(result.points, 0u);
    EXPECT_TRUE(some_contains(result.texts, "at without a kill"));
}

TEST(KillSweep, FindsThatNobodyWasKilled)
{
    for (const char *point : {"host:ordinary:1:100000", "card:ordinary:1:100000"}) {
        const KillSweepResult result = sweep_at(point);
        EXPECT_EQ(result.failed, 1u);
        EXPECT_TRUE(some_contains(result.texts, "was killed")) << point;
    }
}

} // namespace
