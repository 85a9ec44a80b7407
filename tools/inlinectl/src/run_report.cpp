#include "run_report.h"

#include <algorithm>

#include "numbers.h"

namespace inlinectl {
namespace {

using services::MeterCount;
using services::MeterEntry;

template <typename Choose>
MeterCount sum_of(const std::vector<MeterEntry> &entries, Choose choose)
{
    MeterCount sum;
    for (const MeterEntry &entry : entries) {
        sum.packets += choose(entry).packets;
        sum.bytes += choose(entry).bytes;
    }
    return sum;
}

} // namespace

void rank_entries(RunReport &report)
{
    const auto ranks_before = [&report](const MeterEntry &one, const MeterEntry &other) {
        const MeterCount &first = report.shown(one);
        const MeterCount &second = report.shown(other);
        if (first.bytes != second.bytes)
            return first.bytes > second.bytes;
        if (first.packets != second.packets)
            return first.packets > second.packets;
        return one.destination < other.destination;
    };
    std::ranges::sort(report.destinations, ranks_before);
    std::ranges::sort(report.addresses, ranks_before);
}

EntryCounts count_entries(const RunReport &report)
{
    EntryCounts counts;
    for (const auto *entries : {&report.destinations, &report.addresses}) {
        for (const MeterEntry &entry : *entries)
            ++(entry.found ? counts.found : counts.made);
    }
    return counts;
}

MeterCount sum_of_run(const std::vector<MeterEntry> &entries)
{
    return sum_of(entries, [](const MeterEntry &entry) { return entry.counted; });
}

MeterCount sum_of_totals(const std::vector<MeterEntry> &entries)
{
    return sum_of(entries, [](const MeterEntry &entry) { return entry.total; });
}

TableTraffic traffic_of(const RunReport &report, vlc::TableKind table)
{
    TableTraffic sum;
    for (const vlc::NpTotals &np : report.traffic.nps) {
        const uint64_t hits = np.hits[static_cast<size_t>(table)];
        sum.hits += hits;
        sum.misses +=
            np.packets - np.policed_packets - np.encapsulated_packets - np.too_long_packets - hits;
    }
    return sum;
}

vlc::NpTotals encapsulated(const RunReport &report)
{
    vlc::NpTotals sum;
    for (const vlc::NpTotals &np : report.traffic.nps) {
        sum.encapsulated_packets += np.encapsulated_packets;
        sum.encapsulated_bytes += np.encapsulated_bytes;
        sum.too_long_packets += np.too_long_packets;
    }
    return sum;
}

uint64_t uncounted_hits(const RunReport &report)
{
    uint64_t sum = 0;
    for (const vlc::NpTotals &np : report.traffic.nps)
        sum += np.uncounted_hits;
    return sum;
}

namespace {

uint64_t unread_entries(const RunReport &report)
{
    const auto unread = [](const std::vector<MeterEntry> &entries) {
        return static_cast<uint64_t>(std::ranges::count_if(entries, &MeterEntry::unread));
    };
    return unread(report.destinations) + unread(report.addresses);
}

} // namespace

std::vector<std::string> counting_problems(const RunReport &report)
{
    std::vector<std::string> problems;
    if (const uint64_t packets = encapsulated(report).too_long_packets; packets > 0)
        problems.push_back(counted(packets, "packet was", "packets were") +
                           " too long to be encapsulated and were dropped");
    if (const uint64_t hits = uncounted_hits(report); hits > 0)
        problems.push_back(counted(hits, "hit", "hits") + " of rows that name no counter");
    if (const uint64_t unread = unread_entries(report); unread > 0)
        problems.push_back("the counters of " + counted(unread, "entry", "entries") +
                           " could not be read at the end");
    // Entries that share counters each show what all of them counted: nothing to hold against it.
    if (shares_counters(report.card))
        return problems;
    const auto compare = [&](vlc::TableKind table, const std::vector<MeterEntry> &entries) {
        const uint64_t hits = traffic_of(report, table).hits;
        const uint64_t packets = sum_of_run(entries).packets;
        const std::string name = table_name(static_cast<uint32_t>(table));
        if (packets < hits)
            problems.push_back(counted(hits - packets, "packet", "packets") + " that hit " + name +
                               " were counted by no entry: an NP's row has another counter than "
                               "its entry");
        if (packets > hits)
            problems.push_back("the entries of " + name + " counted " + grouped(packets - hits) +
                               " packets more than hit it");
    };
    compare(vlc::TableKind::service_config, report.destinations);
    compare(vlc::TableKind::ext_conf, report.addresses);
    return problems;
}

std::vector<std::string> request_problems(const RunReport &report)
{
    std::vector<std::string> problems;
    if (const uint64_t requests = report.requests.unanswered; requests > 0)
        problems.push_back(
            counted(requests, "request to the hardware was", "requests to the hardware were") +
            " never answered");
    return problems;
}

bool shares_counters(const vlc::CardConfig &card)
{
    return vlc::takes_counters_unswapped(card.card_type);
}

} // namespace inlinectl
