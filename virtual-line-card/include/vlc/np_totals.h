// What became of the packets that a network processor got.
#pragma once

#include <cstdint>
#include <functional>

#include "vlc/count_cell.h"
#include "vlc/table_kind.h"

namespace vlc {

struct NpTotals {
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t hits[table_kinds] = {};
    uint64_t uncounted_hits = 0; // the entry's result carries no counter of the region
    uint64_t missed_packets = 0; // hit in no table
    uint64_t missed_bytes = 0;
    // Packets that left encapsulated instead of being looked up further, and those that no IPv4
    // packet can hold, which are dropped.
    uint64_t encapsulated_packets = 0;
    uint64_t encapsulated_bytes = 0; // as they left
    uint64_t too_long_packets = 0;
    // Dropped by a flow's policer: they are looked up no further.
    uint64_t policed_packets = 0;
    uint64_t policed_bytes = 0;

    bool operator==(const NpTotals &) const = default;
    void add(const NpTotals &more) noexcept { change(*this, more, std::plus()); }
    void subtract(const NpTotals &less) noexcept { change(*this, less, std::minus()); }

private:
    template <typename Change>
    static void change(NpTotals &totals, const NpTotals &by, Change changed) noexcept
    {
        for (uint64_t NpTotals::*word :
             {&NpTotals::packets, &NpTotals::bytes, &NpTotals::uncounted_hits,
              &NpTotals::missed_packets, &NpTotals::missed_bytes, &NpTotals::encapsulated_packets,
              &NpTotals::encapsulated_bytes, &NpTotals::too_long_packets,
              &NpTotals::policed_packets, &NpTotals::policed_bytes})
            totals.*word = changed(totals.*word, by.*word);
        for (uint32_t kind = 0; kind < table_kinds; ++kind)
            totals.hits[kind] = changed(totals.hits[kind], by.hits[kind]);
    }
};

// The same in the NP's file, from the making of the file on: neither restarts nor cleared tables
// touch it. Each count is one store, so a kill may part one count from another and never tears one.
struct KeptNpTotals {
    CountCell taken;
    CountCell hits[table_kinds];
    CountCell uncounted_hits;
    CountCell missed;
    CountCell encapsulated;
    CountCell too_long;
    CountCell policed;

    NpTotals read() const noexcept
    {
        NpTotals totals;
        const auto put = [](const CountCell &cell, uint64_t &packets, uint64_t &bytes) {
            const PacketCount count = cell.read();
            packets = count.packets;
            bytes = count.bytes;
        };
        put(taken, totals.packets, totals.bytes);
        for (uint32_t kind = 0; kind < table_kinds; ++kind)
            totals.hits[kind] = hits[kind].read().packets;
        totals.uncounted_hits = uncounted_hits.read().packets;
        put(missed, totals.missed_packets, totals.missed_bytes);
        put(encapsulated, totals.encapsulated_packets, totals.encapsulated_bytes);
        totals.too_long_packets = too_long.read().packets;
        put(policed, totals.policed_packets, totals.policed_bytes);
        return totals;
    }
};

} // namespace vlc
