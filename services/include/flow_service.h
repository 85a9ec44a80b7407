// Flow service: a flow of the NPs for each 5-tuple that comes by, counted, and ended when it is
// idle.
//
// The NPs say which packet has no flow; the service adds one, and the packet is the first that is
// counted on it. A timer has the flow table walked slice by slice. Who of a slice has counted
// nothing new for the idle time is deleted, with its statistics read. What the service knows of a
// flow lies in the flow's user data (flow_layout.h), so that one that starts on a window where one
// ran before goes on with the flows that are there.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "flow_layout.h"
#include "flow_settlement.h"
#include "inline_service_flowdb.h"

namespace services {

struct FlowOptions {
    static constexpr uint32_t most_buckets = uint32_t{1} << 24;

    uint32_t buckets = 65536; // of a table that is made; one that is there keeps its own
    bool on_all_nps = true;   // or on the one where its first packet came
    std::optional<flow_layout::Policer> policer = {};              // of flows that are added
    std::chrono::nanoseconds idle_time = std::chrono::seconds(15); // of flows that are added
};

// What the platform gives the service beside the library.
struct FlowPlatform {
    // The time of the traffic, in nanoseconds since 1970. It does not go back.
    std::function<int64_t()> now;
    std::function<void(std::chrono::nanoseconds delay, std::function<void()> task)> after;
    // When the NPs saw the last packet of a flow; nothing where that is not known.
    std::function<std::optional<int64_t>(const flow_layout::Tuple &flow)> last_packet;
};

enum class FlowEnd : uint8_t { active, idle }; // active: it goes on

struct FlowAccount {
    flow_layout::Tuple tuple;
    uint64_t packets = 0; // that the NPs let pass
    uint64_t bytes = 0;
    uint64_t dropped_packets = 0; // by the policer
    uint64_t dropped_bytes = 0;
    int64_t first_packet = 0;
    int64_t last_packet = 0;
    FlowEnd end = FlowEnd::active;
};

struct FlowSums {
    uint64_t found = 0; // were there when the service started
    uint64_t added = 0;
    uint64_t ended = 0;                     // idle
    uint64_t collisions = 0;                // packets of a 5-tuple whose number another flow has
    uint64_t rowless = 0;                   // packets of a flow that their NP does not have
    std::map<uint32_t, uint64_t> refused;   // additions, by code
    std::map<uint32_t, uint64_t> undeleted; // flows that ended with a code of the hardware
};

// One a process; it lives until the last call of the library, which keeps its functions.
class FlowService {
public:
    using OnEnd = std::function<void(const FlowAccount &account)>;

    // Takes over the root's flow table, or makes it; needs a started host. Throws ServiceError when
    // the window has no room for one.
    FlowService(const FlowOptions &options, FlowPlatform platform, OnEnd on_end);
    FlowService(const FlowService &) = delete;
    FlowService &operator=(const FlowService &) = delete;

    // What a host does that found the root, before packets come; see flow_settlement.h.
    Settlement settle(const SettlementInput &input) { return settle_flows(input, table_); }
    // A packet that met no flow on its NP.
    void add(const flow_layout::Tuple &tuple, uint32_t np, int64_t when);
    // A slice of the table, from its walker.
    void look_at(std::span<void *const> records);
    // Begins to walk the table, from the next interval on.
    void start_walking();
    // Every flow that goes on, in the table's order.
    std::vector<FlowAccount> active() const;
    const FlowSums &sums() const { return sums_; }
    uint32_t flows() const { return table_->count; }

private:
    void find_or_make_table();
    void walk();
    bool is_idle(flow_record &record) const;
    void end(uint64_t flow_key);
    FlowAccount account_of(const flow_record &record) const;

    FlowOptions options_;
    FlowPlatform platform_;
    OnEnd on_end_;
    in_hash_table *table_ = nullptr;
    std::vector<uint64_t> idle_; // of the slices since the last deletion
    FlowSums sums_;
};

// The number under which a flow is kept.
uint64_t flow_number(const flow_layout::Tuple &tuple);

} // namespace services
