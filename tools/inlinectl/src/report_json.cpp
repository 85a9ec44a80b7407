// The report for a program: one JSON object, whose field names stay.
#include "run_report.h"

#include <nlohmann/json.hpp>

#include "protocol_names.h"

namespace inlinectl {
namespace {

using nlohmann::ordered_json;
using services::MeterCount;
using services::MeterEntry;
using services::MeterTable;

ordered_json numbers_of(uint32_t nps)
{
    ordered_json numbers = ordered_json::array();
    for (uint32_t np = 0; nps >> np != 0; ++np) {
        if ((nps >> np & 1) != 0)
            numbers.push_back(np);
    }
    return numbers;
}

ordered_json count_json(const MeterCount &count)
{
    return {{"packets", count.packets}, {"bytes", count.bytes}};
}

ordered_json entry_json(const MeterEntry &entry)
{
    ordered_json object = ordered_json::object();
    if (entry.table == MeterTable::destinations) {
        object["protocol"] = entry.destination.protocol;
        object["protocol_name"] = protocol_name(entry.destination.protocol);
    }
    object["address"] = address_text(entry.destination.address);
    if (entry.table == MeterTable::destinations)
        object["port"] = entry.destination.port;
    object["entry_id"] = entry.entry_id;
    object["found"] = entry.found;
    object["nps"] = numbers_of(entry.nps);
    object["packets"] = entry.counted.packets;
    object["bytes"] = entry.counted.bytes;
    object["total_nps"] = numbers_of(entry.total_nps);
    object["total_packets"] = entry.total.packets;
    object["total_bytes"] = entry.total.bytes;
    return object;
}

ordered_json entries_json(const std::vector<MeterEntry> &entries)
{
    ordered_json list = ordered_json::array();
    for (const MeterEntry &entry : entries)
        list.push_back(entry_json(entry));
    return list;
}

ordered_json traffic_json(const RunReport &report)
{
    const vlc::DataPlaneTotals &traffic = report.traffic;
    ordered_json nps = ordered_json::array();
    for (size_t np = 0; np < traffic.nps.size(); ++np)
        nps.push_back({{"np", np},
                       {"packets", traffic.nps[np].packets},
                       {"bytes", traffic.nps[np].bytes},
                       {"encapsulated", count_json({traffic.nps[np].encapsulated_packets,
                                                    traffic.nps[np].encapsulated_bytes})},
                       {"too_long", traffic.nps[np].too_long_packets},
                       {"uncounted_hits", traffic.nps[np].uncounted_hits}});
    ordered_json unreadable = ordered_json::array();
    for (size_t reason = 0; reason < traffic.unreadable.size(); ++reason) {
        if (traffic.unreadable[reason] > 0)
            unreadable.push_back(
                {{"reason", vlc::unreadable_text(static_cast<vlc::Unreadable>(reason))},
                 {"packets", traffic.unreadable[reason]}});
    }
    return {{"captures", report.captures},
            {"packets", traffic.packets},
            {"bytes", traffic.bytes},
            {"interrupted", report.interrupted},
            {"output", report.output ? ordered_json(report.output->string()) : nullptr},
            {"missed", count_json({traffic.missed_packets, traffic.missed_bytes})},
            {"unreadable", unreadable},
            {"nps", nps}};
}

ordered_json requests_json(const RunReport &report)
{
    ordered_json list = ordered_json::array();
    for (uint32_t table = 0; table < vlc::table_kinds; ++table) {
        ordered_json row{{"table", table_name(table)}};
        for (const uint32_t operation : {PRM_OP_ADD, PRM_OP_MODIFY, PRM_OP_DELETE})
            row[operation_name(operation)] = report.requests.requests[table][operation];
        list.push_back(row);
    }
    return list;
}

ordered_json answers_json(const vlc::PrmLedger::Sums &requests)
{
    return {{"never_answered", requests.unanswered},
            {"in_doubt", requests.in_doubt},
            {"to_nothing_asked", requests.unasked},
            {"connection_breaks", requests.breaks},
            {"in_flight_at_breaks", requests.in_flight_at_breaks}};
}

ordered_json flows_json(const FlowReport &flows)
{
    ordered_json refused = ordered_json::array();
    for (const auto &[code, packets] : flows.sums.refused)
        refused.push_back({{"code", code}, {"packets", packets}});
    return {{"found", flows.sums.found},
            {"added", flows.sums.added},
            {"ended", flows.sums.ended},
            {"active", flows.active},
            {"counted", count_json(flows.passed)},
            {"dropped", count_json(flows.dropped)},
            {"refused", refused}};
}

ordered_json failures_json(const HardwareFailures &failures)
{
    ordered_json late = ordered_json::array();
    for (const auto &[answer, times] : failures.late_answers())
        late.push_back({{"np", answer.np},
                        {"table", table_name(answer.table)},
                        {"operation", operation_name(answer.operation)},
                        {"reason", answer.reason},
                        {"count", times}});
    ordered_json refused = ordered_json::array();
    for (const auto &[step, times] : failures.refused_steps())
        refused.push_back({{"step", step.step}, {"reason", step.reason}, {"count", times}});
    return {{"count", failures.count()},
            {"late_answers", late},
            {"refused_steps", refused},
            {"missed_messages", failures.missed_messages()}};
}

} // namespace

void write_json(std::ostream &out, const RunReport &report)
{
    const EntryCounts entries = count_entries(report);
    const ordered_json object{
        {"card",
         {{"name", report.card.name},
          {"type", report.card.card_type},
          {"nps", report.card.num_nps},
          {"shares_counters", shares_counters(report.card)}}},
        {"settlement", {{"done", report.settlement.done}, {"left", report.settlement.left}}},
        {"entries", {{"found", entries.found}, {"new", entries.made}}},
        {"requests", requests_json(report)},
        {"answers", answers_json(report.requests)},
        {"replayed", traffic_json(report)},
        {"destinations", entries_json(report.destinations)},
        {"addresses", entries_json(report.addresses)},
        {"flows", report.flows ? flows_json(*report.flows) : nullptr},
        {"hardware_failures", failures_json(report.failures)},
        {"evidence", report.evidence ? ordered_json(report.evidence->string()) : nullptr},
        {"faults", report.faults ? fault_json(*report.faults) : nullptr},
        {"problems", report.problems},
    };
    out << object.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
}

} // namespace inlinectl
