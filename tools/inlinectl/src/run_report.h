// What a run has found out, and how it is shown.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "fault_report.h"
#include "flow_report.h"
#include "hardware_failures.h"
#include "settlement.h"
#include "terminal.h"
#include "traffic_meter.h"
#include "vlc/card_config.h"
#include "vlc/data_plane.h"
#include "vlc/prm_ledger.h"

namespace inlinectl {

struct RunReport {
    vlc::CardConfig card;
    services::Settlement settlement; // of what an earlier host left; empty without one
    std::vector<services::MeterEntry> destinations; // most bytes first
    std::vector<services::MeterEntry> addresses;
    size_t captures = 0;
    std::optional<std::filesystem::path> output; // where encapsulated packets went
    vlc::DataPlaneTotals traffic;
    std::optional<FlowReport> flows; // with the flow service
    vlc::PrmLedger::Sums requests{};
    HardwareFailures failures;
    std::optional<std::filesystem::path> evidence; // of the first late failure, with --state
    std::optional<FaultReport> faults;             // with a plan
    std::vector<std::string> problems;             // what failed, one line each
    bool interrupted = false;

    bool went_well() const { return problems.empty() && !interrupted; }
    bool replayed() const { return traffic.packets > 0; }
    // The counts that the report ranks by: this run's, or all of them when nothing was replayed.
    const services::MeterCount &shown(const services::MeterEntry &entry) const
    {
        return replayed() ? entry.counted : entry.total;
    }
    uint32_t shown_nps(const services::MeterEntry &entry) const
    {
        return replayed() ? entry.nps : entry.total_nps;
    }
};

// Sorts both lists: most bytes, most packets, then by destination.
void rank_entries(RunReport &report);

struct EntryCounts {
    size_t found = 0; // were there when the run began
    size_t made = 0;
};
EntryCounts count_entries(const RunReport &report);

// Sums over one table's entries.
services::MeterCount sum_of_run(const std::vector<services::MeterEntry> &entries);
services::MeterCount sum_of_totals(const std::vector<services::MeterEntry> &entries);

// What the data plane saw of one table, over all NPs. It counts what entries cannot.
struct TableTraffic {
    uint64_t hits = 0;
    uint64_t misses = 0;
};
TableTraffic traffic_of(const RunReport &report, vlc::TableKind table);
vlc::NpTotals encapsulated(const RunReport &report); // of all NPs; nothing else is set
uint64_t uncounted_hits(const RunReport &report);    // of rows that name no counter

// One line for each way in which the entries' counts are short of the traffic.
std::vector<std::string> counting_problems(const RunReport &report);

// One line for what was asked of the hardware and came to no end.
std::vector<std::string> request_problems(const RunReport &report);

// Whether the card's NPs read a counter's upper three bytes alone, so that entries share counters.
bool shares_counters(const vlc::CardConfig &card);

void write_text(std::ostream &out, const RunReport &report, const Style &style);
void write_json(std::ostream &out, const RunReport &report);

} // namespace inlinectl
