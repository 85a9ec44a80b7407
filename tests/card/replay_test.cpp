// Real captures through the whole road: what the program reports equals what an independent
// analyser counts.

#include <cstdio>
#include <cstdlib>
#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "reference_counts.h"

namespace {

using nlohmann::json;
namespace fs = std::filesystem;

json run_inlinectl(const std::string &arguments)
{
    const std::string out = "/tmp/report.json";
    const std::string command = INLINECTL " run --json " + arguments + " > " + out;
    EXPECT_EQ(system(command.c_str()), 0) << command;
    return json::parse(std::ifstream(out));
}

std::string entry_name(const json &entry, bool with_port)
{
    const std::string address = entry["address"];
    if (!with_port)
        return address;
    return std::to_string(entry["protocol"].get<unsigned>()) + " " + address + " " +
           std::to_string(entry["port"].get<unsigned>());
}

std::map<std::string, test::Count> reported(const json &entries, bool with_port)
{
    std::map<std::string, test::Count> counts;
    for (const json &entry : entries)
        counts[entry_name(entry, with_port)] = {entry["packets"], entry["bytes"]};
    return counts;
}

std::string card_file(unsigned type)
{
    const std::string path = "/tmp/card.toml";
    std::ofstream(path) << "[card]\ntype = " << type << "\n";
    return path;
}

using ReplayedCapture = test::CaptureTest;

TEST_P(ReplayedCapture, IsCountedPerEntryAsTheAnalyserCountsItWithOneTwoAndEightNps)
{
    const test::ReferenceCounts reference = test::reference_counts(GetParam());
    for (const char *nps : {"1", "2", "8"}) {
        SCOPED_TRACE(std::string("NPs: ") + nps);
        const json report = run_inlinectl("--nps " + std::string(nps) + pcap());
        EXPECT_EQ(reported(report["destinations"], true), reference.destinations);
        EXPECT_EQ(reported(report["addresses"], false), reference.addresses);
        EXPECT_EQ(report["replayed"]["packets"], reference.all.packets);
        EXPECT_EQ(report["replayed"]["bytes"], reference.all.bytes);
        EXPECT_EQ(report["replayed"]["missed"]["packets"], 0);
    }
}

// Card types that take counters unswapped are not told a counter's lowest byte: entries whose
// counters share the rest are counted together, on the first of them. Every entry takes two
// counters in the order of the ids, so 128 successive entries share.
constexpr uint32_t entries_of_a_group = 128;
using Groups = std::map<uint32_t, test::Count>;

void add_to_group(Groups *groups, const json &entry, const test::Count &count)
{
    test::Count &group = (*groups)[(entry["entry_id"].get<uint32_t>() - 1) / entries_of_a_group];
    group.packets += count.packets;
    group.bytes += count.bytes;
}

TEST_P(ReplayedCapture, IsCountedPer128EntriesOnACardThatTakesCountersUnswapped)
{
    const test::ReferenceCounts reference = test::reference_counts(GetParam());
    for (const char *nps : {"1", "2", "8"}) {
        SCOPED_TRACE(std::string("NPs: ") + nps);
        const json report =
            run_inlinectl("--card " + card_file(0xD10001) + " --nps " + nps + pcap());
        Groups counted;
        Groups expected;
        for (const char *table : {"destinations", "addresses"}) {
            const bool with_port = std::string(table) == "destinations";
            const auto &counts = with_port ? reference.destinations : reference.addresses;
            EXPECT_EQ(report[table].size(), counts.size());
            for (const json &entry : report[table]) {
                const auto known = counts.find(entry_name(entry, with_port));
                ASSERT_NE(known, counts.end()) << entry;
                add_to_group(&counted, entry, {entry["packets"], entry["bytes"]});
                add_to_group(&expected, entry, known->second);
            }
        }
        EXPECT_EQ(counted, expected);
    }
}

INSTANTIATE_TEST_SUITE_P(Captures, ReplayedCapture, testing::ValuesIn(test::captures()),
                         test::capture_test_name);

} // namespace
