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
#include "vlc/np_table.h"
#include "vlc/np_totals.h"
#include "vlc/state_directory.h"
#include "vlc/table_kind.h"

namespace vlc {

// The stateless double counters of an NP.
class CounterBank {
public:
    static constexpr uint32_t first = 0xC00000;
    static constexpr uint32_t count = 65536;

    // The place of a counter's number, in either byte order of its low three bytes, or -1.
    static int64_t place(uint32_t number) noexcept
    {
        if (number - first < count)
            return number - first;
        const uint32_t exchanged = __builtin_bswap32(number) >> 8;
        return number >> 24 == 0 && exchanged - first < count ? int64_t{exchanged - first} : -1;
    }
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
