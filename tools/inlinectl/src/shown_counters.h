// `inlinectl show counters`: which counters of each NP are in use, and by whom.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "snapshot.h"

namespace inlinectl {

struct CounterSelection {
    std::string sort = "number"; // or packets, bytes: most first
    size_t first = SIZE_MAX;     // of each NP
};

struct UsedCounter {
    static constexpr size_t nobody = SIZE_MAX;
    uint32_t number;
    vlc::PacketCount count;
    size_t holder = nobody;  // place of the entry in the snapshot
    bool is_dropped = false; // it counts what the entry drops
};

struct NpCounters {
    uint32_t np;
    uint64_t in_use = 0;
    uint64_t free = 0;                   // of the region
    std::optional<uint32_t> lowest_free; // number of the one that is taken next
    uint64_t leaked = 0;                 // in use and held by no entry
    uint64_t free_and_held = 0;
    uint64_t shared = 0; // held more than once
    std::vector<UsedCounter> used;
};

// By NP; `used` by number.
std::vector<NpCounters> counters_in_use(const Snapshot &state);
NpCounters counters_in_use(const Snapshot &state, uint32_t np);

// Sorted and cut as it is wanted.
std::vector<NpCounters> select(std::vector<NpCounters> counters, const CounterSelection &selection);

void write_counters_text(std::ostream &out, const Snapshot &state,
                         const CounterSelection &selection);
void write_counters_json(std::ostream &out, const Snapshot &state,
                         const CounterSelection &selection);

} // namespace inlinectl
