// Pairs of words in the NPs' files that change in one store.
#pragma once

#include <emmintrin.h>

#include <array>
#include <cstdint>

namespace vlc {

struct PacketCount {
    uint64_t packets;
    uint64_t bytes;
    bool operator==(const PacketCount &) const = default;
};

// Both words change in one store, so a kill cannot part them.
class PairCell {
public:
    using Words = std::array<uint64_t, 2>;

    Words read() const noexcept
    {
        alignas(16) Words words;
        _mm_store_si128(reinterpret_cast<__m128i *>(words.data()), words_);
        return words;
    }
    void write(const Words &words) noexcept
    {
        store(_mm_set_epi64x(static_cast<long long>(words[1]), static_cast<long long>(words[0])));
    }
    void add(uint32_t first, uint32_t second) noexcept
    {
        store(_mm_add_epi64(words_, _mm_set_epi64x(second, first)));
    }
    void clear() noexcept { store(_mm_setzero_si128()); }

private:
    // Volatile, so that no compiler parts or joins these stores.
    void store(__m128i value) noexcept { *const_cast<volatile __m128i *>(&words_) = value; }

    __m128i words_;
};

// A count in a file.
class CountCell {
public:
    void add(uint32_t bytes) noexcept { words_.add(1, bytes); }
    PacketCount read() const noexcept
    {
        const PairCell::Words words = words_.read();
        return {words[0], words[1]};
    }
    void clear() noexcept { words_.clear(); }
    void take_over(const CountCell &other) noexcept { words_.write(other.words_.read()); }

private:
    PairCell words_; // packets, bytes
};
static_assert(sizeof(CountCell) == sizeof(PacketCount));

} // namespace vlc
