#include "shown_flows.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <unordered_map>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "entry_names.h"
#include "flow_report.h"
#include "numbers.h"
#include "protocol_names.h"
#include "text_table.h"

namespace inlinectl {
namespace {

using services::FlowAccount;

uint64_t packets_of(const FlowAccount &flow)
{
    return flow.packets + flow.dropped_packets;
}

uint64_t bytes_of(const FlowAccount &flow)
{
    return flow.bytes + flow.dropped_bytes;
}

// What one NP knows of flows.
struct NpFlows {
    std::unordered_map<uint32_t, vlc::CounterRun> runs; // by their first number
    std::unordered_map<std::string, int64_t> last;      // packet's time by key
};

NpFlows flows_of_np(vlc::CardAccess &card, uint32_t np)
{
    NpFlows flows;
    card.for_each_counter_run(
        np, [&flows](const vlc::CounterRun &run) { flows.runs.emplace(run.first, run); });
    card.for_each_flow(np, [&flows](const vlc::TableRow &row, const vlc::FlowActivity &activity) {
        const vlc::Bytes key = row.key_span();
        flows.last.emplace(std::string(key.begin(), key.end()), activity.last_packet);
    });
    return flows;
}

bool is_on(const flow_record &flow, uint32_t np)
{
    return (flow.flags & FLOW_ON_ALL_NPS) != 0 || flow.np == np;
}

void add_np(ShownFlow &shown, const flow_record &stored, const NpFlows &np, uint32_t number)
{
    const std::string key(stored.key,
                          stored.key + std::min<size_t>(stored.key_len, FLOW_KEY_BYTES));
    if (const auto last = np.last.find(key); last != np.last.end()) {
        shown.rows |= uint32_t{1} << number;
        shown.account.last_packet = std::max(shown.account.last_packet, last->second);
    }
    const auto run = np.runs.find(stored.counter[number]);
    if (stored.counter[number] == 0 || run == np.runs.end())
        return;
    shown.account.packets += run->second.counts[0].packets;
    shown.account.bytes += run->second.counts[0].bytes;
    if (run->second.length == 1)
        return;
    shown.account.dropped_packets += run->second.counts[1].packets;
    shown.account.dropped_bytes += run->second.counts[1].bytes;
}

ShownFlow shown_flow(const flow_record &stored, const std::vector<NpFlows> &nps)
{
    ShownFlow shown{.flow_key = stored.flow_key, .account = {}};
    if (const auto info = flow_layout::flow_in(stored.user_data)) {
        shown.account.tuple = info->tuple;
        shown.account.first_packet = info->first_packet;
        shown.policed = info->policer;
    }
    for (uint32_t np = 0; np < nps.size(); ++np) {
        if (!is_on(stored, np))
            continue;
        shown.nps |= uint32_t{1} << np;
        add_np(shown, stored, nps[np], np);
    }
    return shown;
}

bool is_wanted(const ShownFlow &flow, const FlowSelection &selection)
{
    const flow_layout::Tuple &tuple = flow.account.tuple;
    const auto lies_in = [&](uint32_t address) {
        return (address & selection.address->mask()) == selection.address->network;
    };
    return (!selection.address || lies_in(tuple.source) || lies_in(tuple.destination)) &&
           (!selection.port || *selection.port == tuple.source_port ||
            *selection.port == tuple.destination_port) &&
           (!selection.protocol || *selection.protocol == tuple.protocol);
}

// By name; most or latest first.
const std::map<std::string, std::function<uint64_t(const FlowAccount &)>> orders = {
    {"bytes", bytes_of},
    {"packets", packets_of},
    {"dropped", [](const FlowAccount &flow) { return flow.dropped_packets; }},
    {"first", [](const FlowAccount &flow) { return static_cast<uint64_t>(flow.first_packet); }},
    {"last", [](const FlowAccount &flow) { return static_cast<uint64_t>(flow.last_packet); }},
};

std::vector<std::string> order_names()
{
    std::vector<std::string> names;
    for (const auto &[name, order] : orders)
        names.push_back(name);
    return names;
}

// "2026-11-01 10:00:00.000001"; "-" for none.
std::string short_time(int64_t nanoseconds)
{
    constexpr size_t down_to_microseconds = 26;
    if (nanoseconds == 0)
        return "-";
    std::string text = time_text(nanoseconds).substr(0, down_to_microseconds);
    std::ranges::replace(text, 'T', ' ');
    return text;
}

// "0", "0,2", or "0 (no row on 1)"
std::string nps_text(const ShownFlow &flow)
{
    const auto list = [](uint32_t nps) {
        std::string text;
        for (uint32_t np = 0; nps >> np != 0; ++np) {
            if ((nps >> np & 1) != 0)
                text += (text.empty() ? "" : ",") + std::to_string(np);
        }
        return text;
    };
    const uint32_t missing = flow.nps & ~flow.rows;
    return list(flow.rows) + (missing == 0 ? "" : " (no row on " + list(missing) + ")");
}

} // namespace

std::vector<ShownFlow> shown_flows(const std::vector<flow_record> &stored, vlc::CardAccess &card)
{
    std::vector<NpFlows> nps;
    for (uint32_t np = 0; np < card.config().num_nps; ++np)
        nps.push_back(flows_of_np(card, np));
    std::vector<ShownFlow> shown;
    shown.reserve(stored.size());
    for (const flow_record &flow : stored)
        shown.push_back(shown_flow(flow, nps));
    return shown;
}

void declare_flow_selection(CLI::App &view, FlowSelection &selection)
{
    view.add_option_function<std::string>(
            "--address",
            [&selection](const std::string &text) { selection.address = vlc::prefix_of(text); },
            "Only flows from or to this address or prefix")
        ->type_name("ADDRESS[/BITS]")
        ->check(CLI::Validator(
            [](const std::string &text) {
                return vlc::prefix_of(text) ? "" : "'" + text + "' is no IPv4 address or prefix";
            },
            ""));
    view.add_option("--port", selection.port, "Only flows from or to this port")->type_name("N");
    view.add_option_function<std::string>(
            "--protocol",
            [&selection](const std::string &text) { selection.protocol = protocol_number(text); },
            "Only flows of this protocol, by name or number")
        ->type_name("NAME")
        ->check(CLI::Validator(
            [](const std::string &text) {
                return protocol_number(text) ? "" : "'" + text + "' is no IP protocol";
            },
            ""));
    view.add_option("--sort", selection.sort, "What comes first: most of these, or the latest")
        ->type_name("ORDER")
        ->check(CLI::IsMember(order_names()));
    view.add_option("--first", selection.first, "No more than so many")->type_name("N");
}

SelectedFlows select(std::vector<ShownFlow> flows, const FlowSelection &selection)
{
    SelectedFlows selected;
    selected.all = flows.size();
    std::erase_if(flows, [&](const ShownFlow &flow) { return !is_wanted(flow, selection); });
    selected.matching = flows.size();
    const auto &order = orders.at(selection.sort);
    std::ranges::sort(flows, [&order](const ShownFlow &a, const ShownFlow &b) {
        const uint64_t first = order(a.account);
        const uint64_t second = order(b.account);
        return first != second
                   ? first > second
                   : flow_layout::key_of(a.account.tuple) < flow_layout::key_of(b.account.tuple);
    });
    if (flows.size() > selection.first)
        flows.resize(selection.first);
    selected.flows = std::move(flows);
    return selected;
}

void write_text(std::ostream &out, const SelectedFlows &selected)
{
    if (selected.flows.empty()) {
        out << (selected.all == 0 ? "There are no flows.\n" : "No such flow.\n");
        return;
    }
    using Align = TextTable::Align;
    const bool policed = std::ranges::any_of(selected.flows, &ShownFlow::policed);
    TextTable table(policed ? std::vector{Align::left, Align::right, Align::right, Align::right,
                                          Align::left, Align::left, Align::left}
                            : std::vector{Align::left, Align::right, Align::right, Align::left,
                                          Align::left, Align::left});
    const auto add = [&](std::vector<std::string> row, const std::string &dropped) {
        if (policed)
            row.insert(row.begin() + 3, dropped);
        table.add(std::move(row));
    };
    add({"flow", "packets", "bytes", "first packet", "last packet", "NPs"}, "dropped");
    for (const ShownFlow &flow : selected.flows) {
        const FlowAccount &account = flow.account;
        add({flow_name(account.tuple), grouped(packets_of(account)), grouped(bytes_of(account)),
             short_time(account.first_packet), short_time(account.last_packet), nps_text(flow)},
            grouped(account.dropped_packets));
    }
    table.write(out);
    out << "\n"
        << grouped(selected.flows.size()) << " of " << counted(selected.matching, "flow", "flows");
    if (selected.matching != selected.all)
        out << " that match, " << grouped(selected.all) << " in all";
    out << "\n";
}

void write_json(std::ostream &out, const SelectedFlows &selected)
{
    using nlohmann::ordered_json;
    const auto numbers = [](uint32_t nps) {
        ordered_json list = ordered_json::array();
        for (uint32_t np = 0; nps >> np != 0; ++np) {
            if ((nps >> np & 1) != 0)
                list.push_back(np);
        }
        return list;
    };
    ordered_json flows = ordered_json::array();
    for (const ShownFlow &flow : selected.flows) {
        const FlowAccount &account = flow.account;
        flows.push_back(
            {{"flow_key", flow.flow_key},
             {"protocol", account.tuple.protocol},
             {"protocol_name", protocol_name(account.tuple.protocol)},
             {"source", address_text(account.tuple.source)},
             {"source_port", account.tuple.source_port},
             {"destination", address_text(account.tuple.destination)},
             {"destination_port", account.tuple.destination_port},
             {"packets", account.packets},
             {"bytes", account.bytes},
             {"dropped_packets", account.dropped_packets},
             {"dropped_bytes", account.dropped_bytes},
             {"policed", flow.policed},
             {"first", time_text(account.first_packet)},
             {"last", account.last_packet == 0 ? ordered_json(nullptr)
                                               : ordered_json(time_text(account.last_packet))},
             {"nps", numbers(flow.nps)},
             {"rows", numbers(flow.rows)}});
    }
    const ordered_json object{
        {"flows", flows}, {"matching", selected.matching}, {"all", selected.all}};
    out << object.dump(2) << "\n";
}

} // namespace inlinectl
