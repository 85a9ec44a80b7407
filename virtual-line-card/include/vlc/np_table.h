// A table of an NP: exact matches of keys of up to 52 bytes, in memory that a file backs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>
#include <vector>

#include "vlc/count_cell.h"
#include "vlc/key_hash.h"

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
    static constexpr uint32_t largest_capacity = 2'000'000;

    TableOutcome add(Bytes key, Bytes result);
    TableOutcome modify(Bytes key, Bytes result);
    TableOutcome remove(Bytes key);
    void clear();
    const TableRow *find(Bytes key) const noexcept; // null when absent
    // The same for a key of at most eight bytes, given as the word that they make in memory with
    // zeros behind them. This is the way of a packet: it stands here so that the compiler knows the
    // length, and hashes and compares without touching memory but the table's.
    template <size_t length>
    const TableRow *find_word(uint64_t key) const noexcept;
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
    // An entry of the index: the number of the row plus 1 in the low 21 bits, and the upper 11 bits
    // of its hash, so that the rows of other keys are hardly ever looked at.
    static constexpr uint32_t row_bits = 21;
    static constexpr uint32_t row_mask = (uint32_t{1} << row_bits) - 1;
    static constexpr uint32_t tag_mask = ~row_mask;
    static constexpr uint32_t empty = 0;
    static constexpr uint32_t removed = ~uint32_t{0}; // the row's number would be out of range
    static_assert(largest_capacity + 1 < row_mask);

    static bool is_row(uint32_t entry) noexcept { return entry != empty && entry != removed; }
    static uint32_t row_of(uint32_t entry) noexcept { return (entry & row_mask) - 1; }
    static uint32_t entry_of(uint32_t row, uint32_t hash) noexcept
    {
        return (hash & tag_mask) | (row + 1);
    }
    template <typename HoldsKey>
    const TableRow *find_row(uint32_t hash, HoldsKey holds_key) const noexcept;
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

// What a search does for any form of the key.
template <typename HoldsKey>
const TableRow *NpTable::find_row(uint32_t hash, HoldsKey holds_key) const noexcept
{
    for (uint32_t slot = hash & index_mask_;; slot = (slot + 1) & index_mask_) {
        const uint32_t entry = index_[slot];
        if (entry == empty)
            return nullptr;
        if ((entry & tag_mask) == (hash & tag_mask) && entry != removed) {
            const TableRow &row = rows_[row_of(entry)];
            if (row.hash == hash && holds_key(row))
                return &row;
        }
    }
}

template <size_t length>
[[gnu::always_inline]] inline const TableRow *NpTable::find_word(uint64_t key) const noexcept
{
    static_assert(length > 0 && length <= sizeof key);
    constexpr uint64_t of_the_key = ~uint64_t{0} >> (8 * (sizeof key - length));
    return find_row(hash_of_key_word<length>(key), [key](const TableRow &row) {
        return row.key_len == length && ((word_at<uint64_t>(row.key) ^ key) & of_the_key) == 0;
    });
}

} // namespace vlc
