// A million operations on flows, drawn by a seed, while PRM, its counters and the window fail at
// random: the library and the reference agree after each. And a reference with one wrong rule,
// which must be found.
#include <cstdio>

#include <gtest/gtest.h>

#include "flow_driver.h"

using namespace test;

namespace {

TEST(FlowDriver, AMillionOperationsAgreeWithTheReferenceAfterEach)
{
    FlowDriver driver(FLOW_SEED, {});
    while (driver.steps() < FLOW_OPERATIONS)
        ASSERT_EQ(driver.step(), "");
    const FlowDriver::Made &made = driver.made();
    printf("%lu operations: %lu added, %lu there already, %lu refused, %lu modified, %lu found, "
           "%lu not found, %lu deleted, %lu walks (%lu with a slice), %lu reads of all, %lu "
           "restarts; at most %u flows, everything compared %lu times\n",
           driver.steps(), made.added, made.existing, made.refused, made.modified, made.found,
           made.not_found, made.deleted, made.walks, made.slices, made.reads, made.restarts,
           made.most_flows, made.whole_comparisons);
    EXPECT_EQ(driver.clear(), "");

    // So many at least, or the driver no longer drives.
    EXPECT_GE(driver.steps(), FLOW_OPERATIONS_AT_LEAST);
    const uint64_t part = driver.steps() / 1000;
    for (const uint64_t kind : {made.added, made.existing, made.refused, made.modified, made.found,
                                made.not_found, made.deleted, made.slices})
        EXPECT_GT(kind, part) << "of each kind one in a thousand";
    EXPECT_GT(made.reads, part / 2);
    EXPECT_GT(made.restarts, 0u);
    EXPECT_GT(made.most_flows, 15u * 256u) << "slices larger than the smallest";
    EXPECT_GT(made.walks, made.slices + 100) << "pauses after the whole table";
}

// One rule that is not the library's.
struct Altered {
    const char *name; // as part of a test's name
    void (*alter)(FlowModel::Rules &rules);
};
using Rules = FlowModel::Rules;

const Altered alterations[] = {
    {"APolicerWithOneCounter", [](Rules &rules) { rules.counters_with_policer = 1; }},
    {"CountersOn9Nps", [](Rules &rules) { rules.nps_with_counters = 9; }},
    {"KeysOf33Bytes", [](Rules &rules) { rules.longest_key = 33; }},
    {"AnAddressOneByteOff", [](Rules &rules) { rules.address_at = 2; }},
    {"AModifyWithItsCounterWhereAnAddHasIt", [](Rules &rules) { rules.counter_at = 3; }},
    {"SlicesOf255", [](Rules &rules) { rules.smallest_slice = 255; }},
    {"APeriodOf16Calls", [](Rules &rules) { rules.calls_in_period = 16; }},
    {"ScansOf21", [](Rules &rules) { rules.scan_batch = 21; }},
    {"AFullWindowThatIs22", [](Rules &rules) { rules.code_of_failed_allocation = 22; }},
    {"ChainsWithTheOldestFirst", [](Rules &rules) { rules.newest_first = false; }},
    {"AnAddThatEndsAtARefusal", [](Rules &rules) { rules.goes_on_after_a_refusal = false; }},
    {"ADeleteThatPrmCanPrevent", [](Rules &rules) { rules.deletes_whatever_prm_says = false; }},
    {"CountersKeptWithoutStatistics",
     [](Rules &rules) { rules.gives_back_without_statistics = false; }},
    {"StatisticsReadAfterTheDelete", [](Rules &rules) { rules.reads_before_it_deletes = false; }}};

class PlantedDefect : public testing::TestWithParam<Altered> {};

INSTANTIATE_TEST_SUITE_P(Rules, PlantedDefect, testing::ValuesIn(alterations),
                         [](const auto &row) { return row.param.name; });

TEST_P(PlantedDefect, IsFound)
{
    FlowModel::Rules rules;
    GetParam().alter(rules);
    FlowDriver driver(FLOW_SEED, rules);
    std::string difference;
    while (difference.empty() && driver.steps() < 20000)
        difference = driver.step();
    EXPECT_NE(difference, "");
    printf("%s\n", difference.c_str());
}

} // namespace
