// What an NP knows of flows beside their rows.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "vlc/np_store.h"

namespace vlc {

// The packets that hit a flow's row since it was added, those that its policer dropped too, and
// when the last one came; 0 before the first.
struct FlowActivity {
    PacketCount hits;
    int64_t last_packet;
    bool operator==(const FlowActivity &) const = default;
};

// A run of dynamic counters that is in use.
struct CounterRun {
    uint32_t first;  // number
    uint32_t length; // 1 or 2
    PacketCount counts[DynamicCounters::longest_run];
};

using VisitFlow = std::function<void(const TableRow &row, const FlowActivity &activity)>;
void for_each_flow(const Np &np, const VisitFlow &visit);

// Nothing when the flow table does not have the key.
std::optional<FlowActivity> flow_activity(const Np &np, Bytes key);

using VisitRun = std::function<void(const CounterRun &run)>;
void for_each_counter_run(const Np &np, const VisitRun &visit);

} // namespace vlc
