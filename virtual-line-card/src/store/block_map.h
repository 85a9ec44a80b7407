// What the allocator knows of the blocks of a window: the word in front of each, in the window, and
// which places are blocks at all, in the process.
//
// The words form a chain: a block's size leads to the next word. A word that is no longer part of
// the chain keeps its old value inside a larger block, which is why the process keeps the starts.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "object_at.h"
#include "publish.h"

namespace vlc {

// Bit 0: in use; bits 4 to 43: size in bytes, the word included; bits 44 to 63: a check of all that
// and of the place, so that neither data nor a word from elsewhere passes for one.
struct BlockWord {
    uint64_t size;
    bool used;

    static constexpr uint64_t bytes = 8;
    static constexpr uint64_t unit = 16;
    static constexpr unsigned check_shift = 44;
    static constexpr uint64_t size_mask = ((uint64_t{1} << check_shift) - 1) & ~(unit - 1);

    static constexpr uint64_t check_of(uint64_t value, uint64_t place) noexcept
    {
        uint64_t mixed = (value ^ (place * 0x9E3779B97F4A7C15)) * 0xD6E8FEB86659FD93;
        mixed ^= mixed >> 32;
        mixed *= 0xD6E8FEB86659FD93;
        return mixed >> check_shift << check_shift;
    }
    constexpr uint64_t encode(uint64_t place) const noexcept
    {
        const uint64_t value = size | (used ? 1 : 0);
        return value | check_of(value, place);
    }
    // Size 0 for what is no word of that place.
    static constexpr BlockWord decode(uint64_t word, uint64_t place) noexcept
    {
        const uint64_t value = word & ((uint64_t{1} << check_shift) - 1);
        if ((value & ~(size_mask | 1)) != 0 || check_of(value, place) != word - value) {
            return {0, false};
        }
        return {value & size_mask, (value & 1) != 0};
    }
};

// Places are offsets of words from the start of the mapping.
class BlockMap {
public:
    BlockMap(std::byte *base, uint64_t begin, uint64_t end)
        : base_(base), begin_(begin), end_(end), starts_((units() + 63) / 64)
    {
    }

    uint64_t begin() const noexcept { return begin_; }
    uint64_t end() const noexcept { return end_; }

    BlockWord word(uint64_t place) const noexcept
    {
        return BlockWord::decode(published(*at(place)), place);
    }
    void set_word(uint64_t place, BlockWord word) noexcept
    {
        publish(*at(place), word.encode(place));
    }

    bool is_start(uint64_t place) const noexcept
    {
        return place >= begin_ && place < end_ && (place - begin_) % BlockWord::unit == 0 &&
               (starts_[unit_of(place) / 64] >> (unit_of(place) % 64) & 1) != 0;
    }
    void set_start(uint64_t place) noexcept { starts_[unit_of(place) / 64] |= bit_of(place); }
    void clear_start(uint64_t place) noexcept { starts_[unit_of(place) / 64] &= ~bit_of(place); }
    void clear_starts() { starts_.assign(starts_.size(), 0); }

    // The block that begins behind `place`; end() when none does.
    uint64_t next_start(uint64_t place) const noexcept
    {
        uint64_t unit = unit_of(place) + 1;
        while (unit < units()) {
            const uint64_t rest = starts_[unit / 64] >> (unit % 64);
            if (rest != 0) {
                unit += static_cast<uint64_t>(std::countr_zero(rest));
                return begin_ + unit * BlockWord::unit;
            }
            unit = (unit / 64 + 1) * 64;
        }
        return end_;
    }

private:
    uint64_t units() const noexcept { return (end_ - begin_) / BlockWord::unit; }
    uint64_t unit_of(uint64_t place) const noexcept { return (place - begin_) / BlockWord::unit; }
    uint64_t bit_of(uint64_t place) const noexcept { return uint64_t{1} << (unit_of(place) % 64); }
    uint64_t *at(uint64_t place) const noexcept { return object_at<uint64_t>(base_, place); }

    std::byte *base_;
    uint64_t begin_;
    uint64_t end_;
    std::vector<uint64_t> starts_;
};

} // namespace vlc
