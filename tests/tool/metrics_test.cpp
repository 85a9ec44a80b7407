// `inlinectl metrics`, read by a parser of monitoring's own and compared with what `show` says.
#include <filesystem>
#include <fstream>
#include <map>

#include "state_on_disk.h"

namespace test {
namespace {

class Metrics : public StateOnDisk {
protected:
    static std::vector<json> parsed(std::vector<std::string> arguments = {})
    {
        arguments.insert(arguments.begin(), {"metrics", "--state", state});
        std::ofstream("/tmp/metrics") << text_of(arguments);
        const Outcome read =
            run_program({.program = "/bin/sh",
                         .arguments = {"-c", "/usr/bin/python3 " READER " < /tmp/metrics"}});
        EXPECT_EQ(read.exit_code, 0) << read.err << file_text("/tmp/metrics");
        std::vector<json> samples;
        for (const std::string &line : test::lines_of(read.out))
            samples.push_back(json::parse(line));
        return samples;
    }
    // By the words of its labels.
    static std::map<json, double> values(const std::vector<json> &samples, const std::string &name)
    {
        std::map<json, double> found;
        for (const json &sample : samples) {
            if (sample["name"] == "inline_" + name) {
                EXPECT_TRUE(found.emplace(sample["labels"], sample["value"]).second) << sample;
            }
        }
        return found;
    }
    static double value(const std::vector<json> &samples, const std::string &name,
                        const json &labels = json::object())
    {
        const std::map<json, double> all = values(samples, name);
        const auto found = all.find(labels);
        if (found == all.end())
            ADD_FAILURE() << "no " << name << " " << labels;
        return found == all.end() ? -1 : found->second;
    }
};

TEST_F(Metrics, CountEachEntryAsShowDoes)
{
    const std::vector<json> samples = parsed();
    const auto packets = values(samples, "entry_packets_total");
    const auto bytes = values(samples, "entry_bytes_total");
    std::map<json, double> shown_packets;
    std::map<json, double> shown_bytes;
    for (const json &entry : of_kind(lines_of({"show", "shadow", "--state", state}), "entry")) {
        const std::string table = entry["table"] == "ext conf" ? "ext_conf" : "service_config";
        const json labels = {{"key", std::to_string(entry["key"].get<int>())},
                             {"table", table},
                             {"entry", std::to_string(entry["entry_id"].get<int>())},
                             {"lookup_key", entry["lookup_key"]},
                             {"name", entry["name"]}};
        for (const json &np : entry["nps"]) {
            shown_packets[labels] += np["packets"].get<double>();
            shown_bytes[labels] += np["bytes"].get<double>();
        }
    }
    EXPECT_EQ(packets.size(), 3u);
    EXPECT_EQ(packets, shown_packets);
    EXPECT_EQ(bytes, shown_bytes);
}

TEST_F(Metrics, CountTheNpsPacketsRowsAndCounters)
{
    const std::vector<json> samples = parsed();
    double packets = 0;
    for (const auto &[labels, count] : values(samples, "np_packets_total"))
        packets += count;
    EXPECT_EQ(packets, 3);
    double hits = 0;
    for (const auto &[labels, count] : values(samples, "np_hits_total"))
        hits += count;
    EXPECT_EQ(hits, 6);
    for (const json &np : of_kind(lines_of({"show", "counters", "--state", state}), "np")) {
        const json labels = {{"np", std::to_string(np["np"].get<int>())}};
        EXPECT_EQ(value(samples, "np_counters_in_use", labels), np["in_use"]);
        EXPECT_EQ(value(samples, "np_counters_free", labels), np["free"]);
        EXPECT_EQ(value(samples, "np_counters_leaked", labels), 0);
        EXPECT_EQ(value(samples, "np_readable", labels), 1);
        EXPECT_EQ(value(samples, "np_missed_packets_total", labels), 0);
    }
    EXPECT_EQ(value(samples, "np_rows", {{"np", "1"}, {"table", "service_config"}}), 2);
    EXPECT_EQ(value(samples, "shadow_entries", {{"table", "ext_conf"}}), 1);
    EXPECT_EQ(value(samples, "shadow_entries_as_stored"), 3);
    EXPECT_EQ(value(samples, "shadow_keys"), 1);
    EXPECT_EQ(value(samples, "state_notes"), 0);
    EXPECT_EQ(
        value(samples, "card_info", {{"name", "default"}, {"type", "0xD20001"}, {"nps", "2"}}), 1);
}

TEST_F(Metrics, TellTheHostsRequestsAndThatItHasStopped)
{
    const std::vector<json> samples = parsed();
    EXPECT_EQ(
        value(samples, "host_requests_total", {{"table", "service_config"}, {"operation", "add"}}),
        4);
    EXPECT_EQ(value(samples, "host_requests_total", {{"table", "ext_conf"}, {"operation", "add"}}),
              2);
    EXPECT_EQ(value(samples, "host_answers_total"), 6);
    EXPECT_EQ(value(samples, "host_requests_in_flight"), 0);
    EXPECT_EQ(value(samples, "host_life", {{"inline_host_life", "stopped"}}), 1);
    EXPECT_EQ(value(samples, "host_life", {{"inline_host_life", "running"}}), 0);
    EXPECT_EQ(value(samples, "host_prm_up"), 0) << "it was, until the host ended";
    EXPECT_EQ(value(samples, "host_card", {{"inline_host_card", "own"}}), 1);
}

TEST_F(Metrics, HaveTypesAndUnits)
{
    for (const json &sample : parsed()) {
        EXPECT_FALSE(sample["help"].get<std::string>().empty()) << sample;
        const std::string family = sample["family"];
        for (const std::string unit : {"packets", "bytes", "seconds"}) {
            if (family.ends_with("_" + unit)) {
                EXPECT_EQ(sample["unit"], unit) << sample;
            }
        }
        if (sample["name"].get<std::string>().ends_with("_total")) {
            EXPECT_EQ(sample["type"], "counter") << sample;
        }
    }
}

TEST_F(Metrics, LimitTheEntriesToTheBusiestAndSaySo)
{
    const std::vector<json> samples = parsed({"--entries", "1"});
    const auto packets = values(samples, "entry_packets_total");
    ASSERT_EQ(packets.size(), 1u);
    EXPECT_EQ(packets.begin()->first["name"], "192.0.2.1") << "which all three packets hit";
    EXPECT_EQ(packets.begin()->second, 3);
    for (const json &sample : samples) {
        if (sample["family"] == "inline_entry_packets") {
            EXPECT_EQ(sample["help"], "Packets that hit the entry's rows on all NPs. Of the 1 "
                                      "entries with most packets.");
        }
    }
    EXPECT_TRUE(values(parsed({"--entries", "0"}), "entry_packets_total").empty());
}

TEST_F(Metrics, LeaveOutAnNpThatCannotBeReadAndNoteIt)
{
    std::filesystem::resize_file("/tmp/state/np1", 5000);
    const Outcome outcome = inlinectl({"metrics", "--state", state});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_TRUE(outcome.err.starts_with("inlinectl: note: /tmp/state/np1: is truncated"));
    EXPECT_NE(outcome.out.find("inline_np_readable{np=\"1\"} 0\n"), std::string::npos);
    EXPECT_EQ(outcome.out.find("inline_np_packets_total{np=\"1\"}"), std::string::npos);
    EXPECT_TRUE(outcome.out.ends_with("# EOF\n"));
}

TEST_F(Metrics, GoOnWithoutAWindowThatCannotBeRead)
{
    overwrite("/tmp/state/window", 0, "not one");
    const Outcome outcome = inlinectl({"metrics", "--state", state});
    EXPECT_EQ(outcome.exit_code, 0);
    EXPECT_NE(outcome.out.find("\ninline_state_notes 1\n"), std::string::npos);
    EXPECT_NE(outcome.out.find("inline_np_packets_total{np=\"1\"}"), std::string::npos);
    EXPECT_EQ(outcome.out.find("inline_shadow_"), std::string::npos);
    std::filesystem::resize_file("/tmp/state/np0", 5000);
    std::filesystem::resize_file("/tmp/state/np1", 5000);
    EXPECT_EQ(inlinectl({"metrics", "--state", state}).exit_code, 2);
}

TEST_F(Metrics, EscapeWhatStandsInLabels)
{
    const std::string marker = "/tmp/state/virtual-line-card";
    std::string text = file_text(marker);
    const size_t name = text.find("default");
    ASSERT_NE(name, std::string::npos) << text;
    text.replace(name - 1, 9, R"("a \"card\"\\\n")");
    std::ofstream(marker) << text;
    const std::vector<json> samples = parsed();
    EXPECT_EQ(value(samples, "card_info",
                    {{"name", "a \"card\"\\\n"}, {"type", "0xD20001"}, {"nps", "2"}}),
              1);
}

TEST_F(Metrics, WantAState)
{
    expect_refusal({"metrics"}, "nothing to look into: give --state");
    expect_refusal({"metrics", "--state", "/tmp/nowhere"},
                   "/tmp/nowhere: cannot be opened: No such file or directory");
}

} // namespace
} // namespace test
