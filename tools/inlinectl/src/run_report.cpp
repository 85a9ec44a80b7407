#include "run_report.h"

#include <algorithm>

#include "platform_card.h"

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

bool shares_counters(const vlc::CardConfig &card)
{
    switch (card.card_type) {
#define CARD_TYPE_COUNTER_UNSWAPPED(name, code) case code:
#include "card_types.def"
#undef CARD_TYPE_COUNTER_UNSWAPPED
        return true;
    default:
        return false;
    }
}

} // namespace inlinectl
