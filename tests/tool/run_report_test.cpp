// What a report holds against a run whose entries counted other than the data plane hit.
#include "run_report.h"

#include <sstream>

#include <gtest/gtest.h>

namespace {

using inlinectl::RunReport;

// Ten packets on one NP that hit both tables, each counted by one entry.
RunReport well_counted()
{
    RunReport report;
    report.traffic.packets = 10;
    vlc::NpTotals np;
    np.packets = 10;
    np.hits[0] = np.hits[1] = 10;
    report.traffic.nps = {np};
    services::MeterEntry entry;
    entry.counted = {10, 600};
    report.destinations = {entry};
    entry.table = services::MeterTable::addresses;
    report.addresses = {entry};
    return report;
}

TEST(CountingProblems, AreNoneWhenEveryHitWasCounted)
{
    EXPECT_TRUE(inlinectl::counting_problems(well_counted()).empty());
}

TEST(CountingProblems, NameTheTableWhoseHitsNoEntryCounted)
{
    RunReport report = well_counted();
    report.addresses[0].counted.packets = 7;
    EXPECT_EQ(inlinectl::counting_problems(report),
              std::vector<std::string>{"3 packets that hit ext conf were counted by no entry: an "
                                       "NP's row has another counter than its entry"});
}

TEST(CountingProblems, NameTheTableWhoseEntriesCountedMoreThanHit)
{
    RunReport report = well_counted();
    report.destinations[0].counted.packets = 12;
    EXPECT_EQ(inlinectl::counting_problems(report),
              std::vector<std::string>{
                  "the entries of service config counted 2 packets more than hit it"});
}

TEST(CountingProblems, DoNotHoldSharedCountersAgainstACard)
{
    RunReport report = well_counted();
    report.card.card_type = 0xD10001;
    report.destinations[0].counted.packets = 20;
    EXPECT_TRUE(inlinectl::counting_problems(report).empty());
}

TEST(CountingProblems, NameHitsThatCountNowhereAndTheReportShowsThem)
{
    RunReport report = well_counted();
    report.traffic.nps[0].uncounted_hits = 4;
    EXPECT_EQ(inlinectl::counting_problems(report),
              std::vector<std::string>{"4 hits of rows that name no counter"});
    std::ostringstream out;
    inlinectl::write_text(out, report, {});
    EXPECT_NE(out.str().find("hit and not counted           4\n"), std::string::npos) << out.str();
}

TEST(TableTraffic, IsSummedOverTheNps)
{
    RunReport report = well_counted();
    report.traffic.nps.push_back(report.traffic.nps[0]);
    report.traffic.nps[1].hits[1] = 6;
    const auto addresses = inlinectl::traffic_of(report, vlc::TableKind::ext_conf);
    EXPECT_EQ(addresses.hits, 16u);
    EXPECT_EQ(addresses.misses, 4u);
}

} // namespace
