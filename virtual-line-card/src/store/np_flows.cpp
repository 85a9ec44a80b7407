#include "vlc/np_flows.h"

namespace vlc {

namespace {

FlowActivity activity_of(const NpTable &flows, const TableRow &row)
{
    return {flows.hits(row), flows.flow_cell(row).read().last_packet};
}

} // namespace

void for_each_flow(const Np &np, const VisitFlow &visit)
{
    const NpTable &flows = np.table(TableKind::flow);
    flows.for_each([&](const TableRow &row) { visit(row, activity_of(flows, row)); });
}

std::optional<FlowActivity> flow_activity(const Np &np, Bytes key)
{
    const NpTable &flows = np.table(TableKind::flow);
    const TableRow *row = flows.find(key);
    return row == nullptr ? std::nullopt : std::optional(activity_of(flows, *row));
}

void for_each_counter_run(const Np &np, const VisitRun &visit)
{
    const DynamicCounters &counters = np.dynamic_counters();
    counters.for_each_run([&](uint32_t number, uint32_t length) {
        CounterRun run{number, length, {}};
        for (uint32_t i = 0; i < length; ++i) {
            const int64_t place = counters.place(number + i);
            if (place >= 0) // another process may be giving it back
                run.counts[i] = counters.read(static_cast<uint32_t>(place));
        }
        visit(run);
    });
}

} // namespace vlc
