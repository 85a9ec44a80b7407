// Counters of an NP that PRM gives out while it runs: the flows'.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "vlc/count_cell.h"

namespace vlc {

// They are given out in runs of one or two. A counter has a number, by which PRM and its clients
// know it, and an address, by which the NP's results do. The number of a run's first counter is its
// address in the upper 24 bits of the word; that of the second is the next number, and its address
// the next address. So bytes 1 to 3 of a first counter's number, as it lies in memory, are its
// address too, the lowest byte first. Addresses begin where no number is one of the stateless
// region's, in either byte order.
//
// A run is taken and given back by one store each; a kill leaves it taken or free.
class DynamicCounters {
public:
    static constexpr uint32_t most = uint32_t{1} << 22;
    static constexpr uint32_t first_address = 0x10000;
    static constexpr uint32_t longest_run = 2;

    // The address in a number; 0 for a number that is no dynamic counter's on any NP.
    static uint32_t address_of(uint32_t number) noexcept;

    // The first number of a run of counters that are 0; or 0, when none of this length is left.
    uint32_t take(uint32_t length);
    bool give_back(uint32_t number); // false for what is not the first of a run in use

    // The place of a counter in use, by its number, or -1.
    int64_t place(uint32_t number) const noexcept;
    // The place of an address, in use or not, or -1; per packet.
    int64_t place_of_address(uint32_t address) const noexcept
    {
        const uint32_t place = address - first_address;
        return place < size_ ? int64_t{place} : -1;
    }
    void add(uint32_t place, uint32_t bytes) noexcept { cells_[place].add(bytes); }
    PacketCount read(uint32_t place) const noexcept { return cells_[place].read(); }
    PacketCount read_and_clear(uint32_t place) noexcept;

    uint32_t size() const noexcept { return size_; }
    uint32_t in_use() const noexcept { return in_use_; }
    void for_each_run(const std::function<void(uint32_t number, uint32_t length)> &visit) const;

private:
    friend class Np;
    static uint64_t cell_bytes_for(uint32_t size);
    static uint64_t mark_bytes_for(uint32_t size);
    // Takes them over as the file holds them. Returns what is wrong, or null.
    const char *attach(std::byte *cells, std::byte *marks, uint32_t size);
    void note_free(uint32_t place);
    bool is_free(uint32_t place) const noexcept;
    bool has_one_free(uint32_t pair) const noexcept;
    uint32_t free_place(uint32_t length);

    CountCell *cells_ = nullptr;
    uint8_t *marks_ = nullptr; // the length of the run that begins at a place; 0 where none does
    uint32_t size_ = 0;
    uint32_t in_use_ = 0;
    // Runs are taken from pairs of places; the last place may be half of one for good.
    std::vector<uint32_t> free_pairs_;
    std::vector<uint32_t> half_pairs_; // with one free; those that no longer are stay until met
};

} // namespace vlc
