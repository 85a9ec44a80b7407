// The search for the lowest free counter of a region that is nearly full, against a read of the
// same bytes in the machine's widest registers, and against other ways to search.
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <immintrin.h>

#include <benchmark/benchmark.h>
#include <boost/dynamic_bitset.hpp>

#include "inline_service_counter_scan.h"
#include "paired.h"

namespace {

constexpr uint32_t full = 0xFFFFFFFF;
constexpr size_t counters_a_word = 32;

// What a search cannot be faster than: each byte is read, and one value depends on all.
[[gnu::target("avx512f")]] uint64_t read_avx512(const uint32_t *begin, size_t words)
{
    __m512i all = _mm512_set1_epi32(-1);
#pragma GCC unroll 8
    for (size_t i = 0; i + 16 <= words; i += 16)
        all = _mm512_and_si512(all, _mm512_loadu_si512(begin + i));
    return _mm512_cmpneq_epi32_mask(all, _mm512_set1_epi32(-1));
}

[[gnu::target("avx2")]] uint64_t read_avx2(const uint32_t *begin, size_t words)
{
    __m256i all = _mm256_set1_epi32(-1);
#pragma GCC unroll 8
    for (size_t i = 0; i + 8 <= words; i += 8)
        all =
            _mm256_and_si256(all, _mm256_loadu_si256(reinterpret_cast<const __m256i *>(begin + i)));
    return static_cast<uint64_t>(_mm256_movemask_epi8(all));
}

uint64_t read_all(const uint32_t *begin, size_t words)
{
    static const bool has_avx512 = __builtin_cpu_supports("avx512f") != 0;
    return has_avx512 ? read_avx512(begin, words) : read_avx2(begin, words);
}

// One word at a time, as the compiler leaves it.
[[gnu::noinline]] const uint32_t *search_words(const uint32_t *begin, const uint32_t *end)
{
    while (begin != end && *begin == full)
        ++begin;
    return begin;
}

// 99.9 percent of the counters are taken; the rest, at the end, is free.
class Region {
public:
    explicit Region(size_t counters)
        : words_(counters / counters_a_word, full), free_(counters), used_(counters / 1000 * 999)
    {
        std::fill(words_.begin() + static_cast<ptrdiff_t>(used_ / counters_a_word), words_.end(),
                  0U);
        for (size_t place = used_; place < counters; ++place)
            free_.set(place);
        if (place_of(search_words(words_.data(), words_.data() + words_.size())) !=
            place_of(ours()))
            throw std::logic_error("the searches find different counters");
    }

    uint32_t *ours()
    {
        return inline_service::first_word_with_room(words_.data(), words_.data() + words_.size());
    }
    const uint32_t *by_words() const
    {
        return search_words(words_.data(), words_.data() + words_.size());
    }
    size_t by_bitset() const { return free_.find_first(); }
    uint64_t read() const { return read_all(words_.data(), used_ / counters_a_word); }

private:
    ptrdiff_t place_of(const uint32_t *word) const { return word - words_.data(); }

    std::vector<uint32_t> words_;
    boost::dynamic_bitset<> free_; // a bit is set where a counter is free
    size_t used_;
};

// Each search starts where the compiler cannot know what the last one found.
template <typename Search>
bench::Slice repeated(const Search &search)
{
    return [search](size_t operations) {
        for (size_t i = 0; i < operations; ++i) {
            benchmark::ClobberMemory();
            benchmark::DoNotOptimize(search());
        }
    };
}

void add_rows(const std::string &size, Region &region, double gate, double aim)
{
    const bench::Slice ours = repeated([&region] { return region.ours(); });
    bench::add_pair({.what = "lowest free counter, " + size,
                     .reference = "vector read of its bytes",
                     .ours = ours,
                     .other = repeated([&region] { return region.read(); }),
                     .gate = gate,
                     .aim = aim});
    if (size != "1M")
        return;
    const auto add_peer = [&](const char *peer, const bench::Slice &search, double least,
                              double wanted) {
        bench::add_pair({.what = "lowest free counter, " + size + " (" + peer + ")",
                         .reference = peer,
                         .ours = ours,
                         .other = search,
                         .ratio = bench::Ratio::peer_over_ours,
                         .gate = least,
                         .aim = wanted});
    };
    add_peer("32-bit words", repeated([&region] { return region.by_words(); }), 6, 8);
    add_peer("boost::dynamic_bitset", repeated([&region] { return region.by_bitset(); }), 2, 3);
}

} // namespace

int main(int argc, char **argv)
{
    Region small(size_t{64} << 10);
    Region usual(size_t{1} << 20);
    Region large(size_t{4} << 20);
    add_rows("64K", small, 1.3, 1.1);
    add_rows("1M", usual, 1.15, 1.05);
    add_rows("4M", large, 1.2, 1.08);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
