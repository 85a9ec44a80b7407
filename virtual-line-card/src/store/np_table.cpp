#include <algorithm>
#include <bit>
#include <cstring>

#include "object_at.h"
#include "publish.h"
#include "vlc/np_table.h"

namespace vlc {

namespace {

constexpr uint64_t selector_bytes = 64; // a cache line of its own

// At most half of the entries are rows, and at most three quarters are not empty.
uint32_t index_size(uint32_t capacity)
{
    return std::bit_ceil(std::max<uint32_t>(2 * capacity, 16));
}

uint32_t hash_of(Bytes key) noexcept
{
    return hash_of_key(key.data(), key.size());
}

bool holds_key(const TableRow &row, Bytes key) noexcept
{
    return row.key_len == key.size() &&
           (key.empty() || std::memcmp(row.key, key.data(), key.size()) == 0);
}

void copy(uint8_t *to, Bytes from)
{
    if (!from.empty()) {
        std::memcpy(to, from.data(), from.size());
    }
}

} // namespace

// Where a key is, or would go.
struct NpTable::Probe {
    uint32_t hash;
    bool found;
    uint32_t slot; // of the key; when absent, the first that can take it
};

uint64_t NpTable::bytes_for(uint32_t capacity)
{
    const uint64_t indexes = uint64_t{2} * index_size(capacity) * sizeof(uint32_t);
    return selector_bytes + indexes + (uint64_t{capacity} + 1) * sizeof(TableRow);
}

uint64_t NpTable::hit_bytes_for(uint32_t capacity)
{
    return (uint64_t{capacity} + 1) * sizeof(CountCell);
}

uint64_t NpTable::flow_bytes_for(uint32_t capacity)
{
    return (uint64_t{capacity} + 1) * sizeof(FlowCell);
}

uint32_t *NpTable::index_array(uint32_t which) const
{
    return selector_ + selector_bytes / sizeof(uint32_t) + size_t{which} * (index_mask_ + 1);
}

const TableRow *NpTable::find(Bytes key) const noexcept
{
    return find_row(hash_of(key), [key](const TableRow &row) { return holds_key(row, key); });
}

NpTable::Probe NpTable::probe(Bytes key) const noexcept
{
    const uint32_t hash = hash_of(key);
    uint32_t reusable = ~uint32_t{0};
    for (uint32_t slot = hash & index_mask_;; slot = (slot + 1) & index_mask_) {
        const uint32_t entry = index_[slot];
        if (entry == empty) {
            return {hash, false, reusable != ~uint32_t{0} ? reusable : slot};
        }
        if (entry == removed) {
            reusable = std::min(reusable, slot);
        } else if ((entry & tag_mask) == (hash & tag_mask)) {
            const TableRow &row = rows_[row_of(entry)];
            if (row.hash == hash && holds_key(row, key)) {
                return {hash, true, slot};
            }
        }
    }
}

uint32_t NpTable::fill_free_row(uint32_t hash, Bytes key, Bytes result)
{
    const uint32_t number = free_rows_.back();
    free_rows_.pop_back();
    TableRow &row = rows_[number];
    row = TableRow{};
    row.hash = hash;
    row.key_len = static_cast<uint16_t>(key.size());
    row.result_len = static_cast<uint16_t>(result.size());
    copy(row.key, key);
    copy(row.result, result);
    hits_[number].clear();
    if (flow_cells_ != nullptr) {
        flow_cells_[number].write({});
    }
    return number;
}

TableOutcome NpTable::add(Bytes key, Bytes result)
{
    if (key.size() > TableRow::key_bytes || result.size() > TableRow::result_bytes) {
        return TableOutcome::too_wide;
    }
    Probe at = probe(key);
    if (at.found) {
        return TableOutcome::duplicate;
    }
    if (size_ == capacity_) {
        return TableOutcome::full;
    }
    const uint32_t slots = index_mask_ + 1;
    if (index_[at.slot] == empty && entries_ >= slots - slots / 4) {
        rebuild_index();
        at = probe(key);
    }
    const uint32_t row = fill_free_row(at.hash, key, result);
    entries_ += index_[at.slot] == empty ? 1 : 0;
    publish(index_[at.slot], entry_of(row, at.hash));
    ++size_;
    return TableOutcome::done;
}

TableOutcome NpTable::modify(Bytes key, Bytes result)
{
    if (key.size() > TableRow::key_bytes || result.size() > TableRow::result_bytes) {
        return TableOutcome::too_wide;
    }
    const Probe at = probe(key);
    if (!at.found) {
        return TableOutcome::missing;
    }
    const uint32_t old_row = row_of(index_[at.slot]);
    const uint32_t new_row = fill_free_row(at.hash, key, result);
    hits_[new_row].take_over(hits_[old_row]);
    if (flow_cells_ != nullptr) {
        flow_cells_[new_row].write(flow_cells_[old_row].read());
    }
    publish(index_[at.slot], entry_of(new_row, at.hash));
    free_rows_.push_back(old_row);
    return TableOutcome::done;
}

TableOutcome NpTable::remove(Bytes key)
{
    const Probe at = probe(key);
    if (!at.found) {
        return TableOutcome::missing;
    }
    free_rows_.push_back(row_of(index_[at.slot]));
    // Behind an entry that is followed by none, no search has to go on.
    const bool last = index_[(at.slot + 1) & index_mask_] == empty;
    publish(index_[at.slot], last ? empty : removed);
    entries_ -= last ? 1 : 0;
    --size_;
    return TableOutcome::done;
}

uint32_t *NpTable::blank_other_index() const
{
    uint32_t *other = index_array(*selector_ ^ 1);
    std::fill_n(other, size_t{index_mask_} + 1, empty);
    return other;
}

void NpTable::switch_index()
{
    const uint32_t other = *selector_ ^ 1;
    publish(*selector_, other);
    index_ = index_array(other);
}

void NpTable::rebuild_index()
{
    uint32_t *fresh = blank_other_index();
    for (size_t i = 0; i <= index_mask_; ++i) {
        if (!is_row(index_[i])) {
            continue;
        }
        uint32_t slot = rows_[row_of(index_[i])].hash & index_mask_;
        while (fresh[slot] != empty) {
            slot = (slot + 1) & index_mask_;
        }
        fresh[slot] = index_[i];
    }
    switch_index();
    entries_ = size_;
}

void NpTable::forget_rows()
{
    size_ = 0;
    entries_ = 0;
    free_rows_.clear();
    for (uint32_t row = capacity_ + 1; row > 0; --row) {
        free_rows_.push_back(row - 1);
    }
}

void NpTable::clear()
{
    blank_other_index();
    switch_index();
    forget_rows();
}

void NpTable::for_each(const std::function<void(const TableRow &)> &visit) const
{
    // The rows stand in another order than the index, so each is fetched while others are visited.
    constexpr size_t ahead = 8;
    for (size_t i = 0; i <= index_mask_; ++i) {
        const uint32_t coming = index_[(i + ahead) & index_mask_];
        if (is_row(coming)) {
            const TableRow &row = rows_[row_of(coming)];
            __builtin_prefetch(&row);
            __builtin_prefetch(&row.result[row.result_bytes - 1]);
        }
        if (is_row(index_[i])) {
            visit(rows_[row_of(index_[i])]);
        }
    }
}

const char *NpTable::attach(const Memory &memory, uint32_t capacity)
{
    hits_ = object_at<CountCell>(memory.hits, 0);
    flow_cells_ =
        memory.flow_cells == nullptr ? nullptr : object_at<FlowCell>(memory.flow_cells, 0);
    selector_ = object_at<uint32_t>(memory.table, 0);
    index_mask_ = index_size(capacity) - 1;
    capacity_ = capacity;
    const uint32_t in_force = published(*selector_);
    if (in_force > 1) {
        return "its table names no index";
    }
    index_ = index_array(in_force);
    rows_ = object_at<TableRow>(memory.table,
                                bytes_for(capacity) - (uint64_t{capacity} + 1) * sizeof(TableRow));
    std::vector<bool> taken(size_t{capacity} + 1);
    entries_ = 0;
    size_ = 0;
    for (size_t i = 0; i <= index_mask_; ++i) {
        const uint32_t entry = published(index_[i]);
        entries_ += entry == empty ? 0 : 1;
        if (!is_row(entry)) {
            continue;
        }
        const uint32_t row = row_of(entry);
        if (row > capacity || taken[row]) {
            return "its table refers to a row that cannot be";
        }
        taken[row] = true;
        ++size_;
    }
    const uint32_t slots = index_mask_ + 1;
    if (size_ > capacity || entries_ > slots - slots / 4) {
        return "its table holds more than it can";
    }
    free_rows_.clear();
    for (uint32_t row = capacity + 1; row > 0; --row) {
        if (!taken[row - 1]) {
            free_rows_.push_back(row - 1);
        }
    }
    return check_rows();
}

const char *NpTable::check_rows() const
{
    const char *wrong = nullptr;
    for_each([this, &wrong](const TableRow &row) {
        const bool wide =
            row.key_len > TableRow::key_bytes || row.result_len > TableRow::result_bytes;
        if (wide || find(row.key_span()) != &row) {
            wrong = "its table holds a row that cannot be found";
        }
    });
    return wrong;
}

} // namespace vlc
