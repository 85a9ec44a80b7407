#include "free_blocks.h"

#include <algorithm>
#include <bit>

namespace vlc {

bool FreeBlocks::is_live(uint64_t place, uint64_t size) const
{
    if (!map_.is_start(place)) {
        return false;
    }
    const BlockWord word = map_.word(place);
    return !word.used && word.size == size;
}

// A place may be in a bin twice: merged, parted again and freed again. So the same place is kept
// once, and the memory of a bin stays within its live blocks.
void FreeBlocks::forget_leftovers(Bin &bin, uint64_t size)
{
    std::sort(bin.places.begin(), bin.places.end());
    const auto last = std::unique(bin.places.begin(), bin.places.end());
    bin.places.erase(std::remove_if(bin.places.begin(), last,
                                    [this, size](uint64_t place) { return !is_live(place, size); }),
                     bin.places.end());
}

void FreeBlocks::add(uint64_t place, uint64_t size)
{
    if (!is_small(size)) {
        large_.emplace(size, place);
        return;
    }
    Bin &bin = small_[bin_of(size)];
    if (bin.places.size() > 2 * bin.live + 64) {
        forget_leftovers(bin, size);
    }
    bin.places.push_back(place);
    ++bin.live;
    filled_ |= uint64_t{1} << bin_of(size);
}

void FreeBlocks::drop(uint64_t place, uint64_t size)
{
    if (!is_small(size)) {
        large_.erase({size, place});
        return;
    }
    Bin &bin = small_[bin_of(size)];
    bin.live -= bin.live > 0 ? 1 : 0;
    if (bin.live == 0) {
        bin.places.clear();
        filled_ &= ~(uint64_t{1} << bin_of(size));
    }
}

void FreeBlocks::clear()
{
    for (Bin &bin : small_) {
        bin.places.clear();
        bin.live = 0;
    }
    filled_ = 0;
    large_.clear();
}

FreeBlocks::Block FreeBlocks::take(uint64_t at_least)
{
    const uint64_t fitting = is_small(at_least) ? filled_ >> bin_of(at_least) : 0;
    if (fitting != 0) {
        const uint64_t size =
            at_least + static_cast<uint64_t>(std::countr_zero(fitting)) * BlockWord::unit;
        Bin &bin = small_[bin_of(size)];
        while (!bin.places.empty()) {
            const uint64_t place = bin.places.back();
            bin.places.pop_back();
            if (is_live(place, size)) {
                drop(place, size);
                return {place, size};
            }
        }
        // Only words that were overwritten from outside lead here: those blocks are lost.
        bin.live = 0;
        filled_ &= ~(uint64_t{1} << bin_of(size));
        return take(at_least);
    }
    const auto found = large_.lower_bound({at_least, 0});
    if (found == large_.end()) {
        return {0, 0};
    }
    const Block block{found->second, found->first};
    large_.erase(found);
    return is_live(block.place, block.size) ? block : take(at_least);
}

} // namespace vlc
