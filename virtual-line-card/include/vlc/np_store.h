// The hardware: what each network processor holds, in files of the state directory, so that it
// stands when the process that hosts it is killed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "vlc/card_config.h"
#include "vlc/count_cell.h"
#include "vlc/dynamic_counters.h"
#include "vlc/np_totals.h"
#include "vlc/state_directory.h"
#include "vlc/table_kind.h"

namespace vlc {

using Bytes = std::span<const uint8_t>;

// One row of an NP's table as the hardware has it.
struct TableRow {
    static constexpr size_t key_bytes = 52;
    static constexpr size_t result_bytes = 64;
    uint32_t hash;
    uint16_t key_len;
    uint16_t result_len;
    uint8_t key[key_bytes];
    uint8_t result[result_bytes];
    uint32_t reserved;

    Bytes key_span() const { return {key, key_len}; }
    Bytes result_span() const { return {result, result_len}; }
};
static_assert(sizeof(TableRow) == 128);

enum class TableOutcome { done, duplicate, missing, full, too_wide };

// What an NP keeps of a flow's row beside its count. Both words change in one store.
class FlowCell {
public:
    struct State {
        uint64_t owed = 0;       // by the policer's bucket until it is full again: bytes * 1e9
        int64_t last_packet = 0; // when it came, in nanoseconds; 0 before the first one
    };
    State read() const noexcept
    {
        const PairCell::Words words = words_.read();
        return {words[0], static_cast<int64_t>(words[1])};
    }
    void write(const State &state) noexcept
    {
        words_.write({state.owed, static_cast<uint64_t>(state.last_packet)});
    }

private:
    PairCell words_;
};

// An exact-match table. Each row has a count of the packets that hit it: it begins with the row,
// stays through its modifies, and goes with it. Each change is one store: a row is filled while
// nothing refers to it, then its number is put into the index (or taken out), so a kill leaves
// either the old row or the new.
class NpTable {
public:
    static constexpr uint32_t largest_capacity = uint32_t{1} << 20;

    TableOutcome add(Bytes key, Bytes result);
    TableOutcome modify(Bytes key, Bytes result);
    TableOutcome remove(Bytes key);
    void clear();
    const TableRow *find(Bytes key) const noexcept; // null when absent; per packet
    uint32_t size() const noexcept { return size_; }
    uint32_t capacity() const noexcept { return capacity_; }
    void for_each(const std::function<void(const TableRow &)> &visit) const;
    // Of a row that find() or for_each() gave.
    void count_hit(const TableRow &row, uint32_t bytes) noexcept { hits_[&row - rows_].add(bytes); }
    PacketCount hits(const TableRow &row) const noexcept { return hits_[&row - rows_].read(); }
    // Of a row of the flow table; the other tables have none.
    FlowCell &flow_cell(const TableRow &row) noexcept { return flow_cells_[&row - rows_]; }
    const FlowCell &flow_cell(const TableRow &row) const noexcept
    {
        return flow_cells_[&row - rows_];
    }

private:
    friend class Np;
    NpTable() = default;
    static uint64_t bytes_for(uint32_t capacity);
    static uint64_t hit_bytes_for(uint32_t capacity);
    static uint64_t flow_bytes_for(uint32_t capacity);
    struct Memory {
        std::byte *table;
        std::byte *hits;
        std::byte *flow_cells; // null for none
    };
    // Takes the table over as the file holds it. Returns what is wrong with it, or null.
    const char *attach(const Memory &memory, uint32_t capacity);
    const char *check_rows() const;
    struct Probe;
    Probe probe(Bytes key) const noexcept;
    uint32_t fill_free_row(uint32_t hash, Bytes key, Bytes result);
    uint32_t *index_array(uint32_t which) const;
    uint32_t *blank_other_index() const;
    void switch_index();
    void rebuild_index();
    void forget_rows();

    // Two indexes of which one is in force, so that a fresh one (after many removals, or an empty
    // one) is built aside and put into force by one store.
    uint32_t *selector_ = nullptr; // which one: 0 or 1
    uint32_t *index_ = nullptr;    // the one in force; a power of two of entries, see np_table.cpp
    uint32_t index_mask_ = 0;
    TableRow *rows_ = nullptr;  // one more than the capacity, so that modify always has a free one
    CountCell *hits_ = nullptr; // one a row
    FlowCell *flow_cells_ = nullptr; // one a row of the flow table
    uint32_t capacity_ = 0;
    uint32_t size_ = 0;
    uint32_t entries_ = 0; // of the index that are not empty: rows and marks of removed ones
    std::vector<uint32_t> free_rows_;
};

// The stateless double counters of an NP.
class CounterBank {
public:
    static constexpr uint32_t first = 0xC00000;
    static constexpr uint32_t count = 65536;

    // The place of a counter's number, in either byte order of its low three bytes, or -1.
    static int64_t place(uint32_t number) noexcept;
    void add(uint32_t place, uint32_t bytes) noexcept { counters_[place].add(bytes); }
    PacketCount read(uint32_t place) const noexcept { return counters_[place].read(); }
    std::vector<PacketCount> read_all() const;
    PacketCount read_and_clear(uint32_t place) noexcept;
    void clear();

private:
    friend class Np;
    CountCell *counters_ = nullptr;
};

class Np {
public:
    NpTable &table(TableKind kind) { return tables_[static_cast<size_t>(kind)]; }
    const NpTable &table(TableKind kind) const { return tables_[static_cast<size_t>(kind)]; }
    CounterBank &counters() { return counters_; }
    const CounterBank &counters() const { return counters_; }
    DynamicCounters &dynamic_counters() { return dynamic_counters_; }
    const DynamicCounters &dynamic_counters() const { return dynamic_counters_; }
    KeptNpTotals &totals() { return *totals_; }
    const KeptNpTotals &totals() const { return *totals_; }

    Np(const StateDirectory &directory, uint32_t number, const CardConfig &config);
    ~Np();
    Np(const Np &) = delete;
    Np &operator=(const Np &) = delete;

private:
    struct Layout;
    const char *attach(std::byte *file, const Layout &layout, const CardConfig &config);
    struct File;
    std::unique_ptr<File> file_;
    NpTable tables_[table_kinds];
    CounterBank counters_;
    DynamicCounters dynamic_counters_;
    KeptNpTotals *totals_ = nullptr;
};

// All NPs of a card. An existing directory keeps its number of NPs and its capacities: opening it
// with others throws StateError. Throws for truncated, foreign or damaged files as well.
class NpStore {
public:
    NpStore(const StateDirectory &directory, const CardConfig &config);
    uint32_t size() const { return static_cast<uint32_t>(nps_.size()); }
    Np &operator[](uint32_t np) { return *nps_[np]; }
    const Np &operator[](uint32_t np) const { return *nps_[np]; }

private:
    std::vector<std::unique_ptr<Np>> nps_;
};

} // namespace vlc
