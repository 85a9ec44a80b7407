// An audit for a program: one JSON object, whose field names stay.
#include <nlohmann/json.hpp>

#include "audit_report.h"
#include "entry_names.h"
#include "hardware_failures.h"

namespace inlinectl {
namespace {

using nlohmann::ordered_json;
using services::Finding;

ordered_json finding_json(const Finding &finding)
{
    ordered_json object = {{"kind", name_of(finding.kind)}};
    const auto put = [&object](const char *name, uint32_t value) {
        if (value != Finding::none)
            object[name] = value;
    };
    put("np", finding.np);
    if (finding.table != Finding::none)
        object["table"] = table_name(finding.table);
    put("main_key", finding.main_key);
    put("entry_id", finding.entry_id);
    if (!finding.key.empty())
        object["key"] = spaced_hex(finding.key);
    put("counter", finding.counter);
    object["text"] = finding.text;
    return object;
}

ordered_json counts_json(const services::AuditReport &report)
{
    ordered_json counts = ordered_json::object();
    const auto totals = report.count();
    for (size_t kind = 0; kind < totals.size(); ++kind)
        counts[name_of(static_cast<services::FindingKind>(kind))] = totals[kind];
    return counts;
}

ordered_json nps_json(const services::AuditReport &report)
{
    ordered_json list = ordered_json::array();
    for (const services::AuditReport::Np &np : report.nps)
        list.push_back({{"service_config", np.rows[0]},
                        {"ext_conf", np.rows[1]},
                        {"counters_in_use", np.counters_in_use},
                        {"flows", np.flow_rows},
                        {"dynamic_counters_in_use", np.flow_counters_in_use}});
    return list;
}

ordered_json in_flight_json(const services::AuditReport &report)
{
    ordered_json list = ordered_json::array();
    for (const services::UnreadAnswer &answer : report.in_flight)
        list.push_back({{"np", answer.np},
                        {"table", table_name(answer.table)},
                        {"refnum", answer.refnum},
                        {"status", answer.status},
                        {"key", spaced_hex(answer.key)}});
    return list;
}

} // namespace

void write_json(std::ostream &out, const AuditOutcome &outcome)
{
    const services::AuditReport &report = outcome.report;
    ordered_json differences = ordered_json::array();
    for (const Finding &finding : report.findings)
        differences.push_back(finding_json(finding));
    const ordered_json object = {
        {"state", outcome.state_directory.string()},
        {"card",
         {{"name", outcome.card.name},
          {"nps", outcome.card.num_nps},
          {"type", outcome.card.card_type}}},
        {"clean", report.clean()},
        {"shadow_db",
         {{"keys", report.entries},
          {"service_config", report.nodes[0]},
          {"ext_conf", report.nodes[1]},
          {"flows", report.flows}}},
        {"nps", nps_json(report)},
        {"counts", counts_json(report)},
        {"differences", differences},
        {"in_flight", in_flight_json(report)},
    };
    // What a directory's name or a damaged shadow DB brings need not be UTF-8.
    out << object.dump(2, ' ', false, ordered_json::error_handler_t::replace) << "\n";
}

} // namespace inlinectl
