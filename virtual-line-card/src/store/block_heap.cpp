#include "block_heap.h"

namespace vlc {

BlockHeap::BlockHeap(std::byte *base, uint64_t begin, uint64_t end)
    : map_(base, begin, end), free_(map_)
{
}

void BlockHeap::format()
{
    map_.set_word(map_.begin(), {bytes_total(), false});
    map_.clear_starts();
    map_.set_start(map_.begin());
    free_.clear();
    free_.add(map_.begin(), bytes_total());
    blocks_in_use_ = 0;
    bytes_in_use_ = 0;
    freed_since_merge_ = false;
}

std::optional<uint64_t> BlockHeap::load(bool merge)
{
    map_.clear_starts();
    free_.clear();
    blocks_in_use_ = 0;
    bytes_in_use_ = 0;
    bool free_before = false;
    bool neighbours = false;
    for (uint64_t place = map_.begin(); place != map_.end();) {
        const BlockWord word = map_.word(place);
        if (word.size == 0 || word.size > map_.end() - place) {
            return place;
        }
        map_.set_start(place);
        if (word.used) {
            ++blocks_in_use_;
            bytes_in_use_ += word.size;
        } else {
            neighbours = neighbours || free_before;
            free_.add(place, word.size);
        }
        free_before = !word.used;
        place += word.size;
    }
    freed_since_merge_ = neighbours;
    if (merge && neighbours) {
        merge_all();
    }
    return std::nullopt;
}

uint64_t BlockHeap::absorb_free_blocks_behind(uint64_t place, uint64_t size)
{
    uint64_t end = place + size;
    while (end < map_.end() && map_.is_start(end)) {
        const BlockWord next = map_.word(end);
        if (next.used || next.size == 0) {
            break;
        }
        free_.drop(end, next.size);
        map_.clear_start(end);
        end += next.size;
    }
    return end - place;
}

// Goes by the starts that the process knows, so that a word that was overwritten from outside costs
// its own block and not the rest of the window.
void BlockHeap::merge_all()
{
    for (uint64_t place = map_.begin(); place != map_.end(); place = map_.next_start(place)) {
        const BlockWord word = map_.word(place);
        if (word.used || word.size == 0) {
            continue;
        }
        const uint64_t merged = absorb_free_blocks_behind(place, word.size);
        if (merged != word.size) {
            free_.drop(place, word.size);
            map_.set_word(place, {merged, false});
            free_.add(place, merged);
        }
    }
    freed_since_merge_ = false;
}

uint64_t BlockHeap::allocate(uint64_t bytes)
{
    if (bytes > bytes_total() - BlockWord::bytes) {
        return 0;
    }
    const uint64_t size = (bytes + BlockWord::bytes + BlockWord::unit - 1) & ~(BlockWord::unit - 1);
    FreeBlocks::Block block = free_.take(size);
    if (block.size == 0 && freed_since_merge_) {
        merge_all();
        block = free_.take(size);
    }
    if (block.size == 0) {
        return 0;
    }
    if (block.size > size) {
        const uint64_t rest = block.place + size;
        map_.set_word(rest, {block.size - size, false});
        map_.set_start(rest);
        free_.add(rest, block.size - size);
    }
    map_.set_word(block.place, {size, true});
    ++blocks_in_use_;
    bytes_in_use_ += size;
    return block.place + BlockWord::bytes;
}

bool BlockHeap::release(uint64_t offset)
{
    const uint64_t place = offset - BlockWord::bytes;
    if (!map_.is_start(place)) {
        return false;
    }
    const BlockWord word = map_.word(place);
    if (!word.used) {
        return false;
    }
    const uint64_t merged = absorb_free_blocks_behind(place, word.size);
    map_.set_word(place, {merged, false});
    free_.add(place, merged);
    freed_since_merge_ = true;
    --blocks_in_use_;
    bytes_in_use_ -= word.size;
    return true;
}

} // namespace vlc
