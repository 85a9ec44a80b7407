// The allocator of the shared-memory window.
//
// In the window there is nothing but one word in front of each block. Each change is one store of
// one such word: a block is parted by writing the word of its rest, which nothing leads to yet,
// and then its own; it is freed, alone or together with free blocks behind it, by its own word.
#pragma once

#include <cstdint>
#include <optional>

#include "block_map.h"
#include "free_blocks.h"

namespace vlc {

class BlockHeap {
public:
    // Words lie from `begin` up to `end`, offsets from `base` that are 8 more than a multiple of
    // 16, so that blocks are aligned to 16.
    BlockHeap(std::byte *base, uint64_t begin, uint64_t end);
    BlockHeap(const BlockHeap &) = delete;
    BlockHeap &operator=(const BlockHeap &) = delete;

    void format(); // one free block; whatever there was is gone by one store
    // Follows the chain and learns where the blocks are; with `merge`, neighbours that are free
    // become one. Returns the place where the chain breaks, if it does.
    std::optional<uint64_t> load(bool merge);

    uint64_t allocate(uint64_t bytes); // offset of the block; 0 when none is large enough
    bool release(uint64_t offset);     // false for what is no block in use

    uint64_t blocks_in_use() const { return blocks_in_use_; }
    uint64_t bytes_in_use() const { return bytes_in_use_; } // words included
    uint64_t bytes_total() const { return map_.end() - map_.begin(); }

private:
    uint64_t absorb_free_blocks_behind(uint64_t place, uint64_t size);
    void merge_all();

    BlockMap map_;
    FreeBlocks free_;
    bool freed_since_merge_ = false;
    uint64_t blocks_in_use_ = 0;
    uint64_t bytes_in_use_ = 0;
};

} // namespace vlc
