// The free blocks of a window by size, kept in the process alone.
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <utility>
#include <vector>

#include "block_map.h"

namespace vlc {

// Small blocks lie in a bin for each size. A bin's entries are not taken out when their block is
// merged into another; what counts is the map, which is asked when an entry comes up.
class FreeBlocks {
public:
    explicit FreeBlocks(const BlockMap &map) : map_(map) {}

    void add(uint64_t place, uint64_t size);
    void drop(uint64_t place, uint64_t size); // the block is about to be no free block of that size
    void clear();

    struct Block {
        uint64_t place;
        uint64_t size; // 0: none
    };
    Block take(uint64_t at_least); // the smallest that is large enough; drops it

private:
    static constexpr uint64_t bins = 64;
    struct Bin {
        std::vector<uint64_t> places;
        uint64_t live = 0;
    };
    static bool is_small(uint64_t size) { return size <= bins * BlockWord::unit; }
    static uint64_t bin_of(uint64_t size) { return size / BlockWord::unit - 1; }
    bool is_live(uint64_t place, uint64_t size) const;
    void forget_leftovers(Bin &bin, uint64_t size);

    const BlockMap &map_;
    std::array<Bin, bins> small_;
    uint64_t filled_ = 0;                           // bit b: bin b has live blocks
    std::set<std::pair<uint64_t, uint64_t>> large_; // size, place
};

} // namespace vlc
