// The search for the lowest free counter of a region that is nearly full, against a read of the
// same bytes in the machine's widest registers, and against other ways to search. The rows named
// "curve" are times alone, for the picture.
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <immintrin.h>

#include <benchmark/benchmark.h>
#include <boost/dynamic_bitset.hpp>

#include "inline_service_counter_scan.h"
#include "paired.h"
#ifdef BENCH_HAS_DPDK
#include "bitmap_peer.h"
#endif

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
        : words_(counters / counters_a_word, full), free_(counters),
          used_(counters / 1000 * 999 / counters_a_word * counters_a_word)
    {
        std::fill(words_.begin() + static_cast<ptrdiff_t>(used_ / counters_a_word), words_.end(),
                  0U);
        for (size_t place = used_; place < counters; ++place)
            free_.set(place);
        if (place_of(search_words(words_.data(), words_.data() + words_.size())) !=
            place_of(ours()))
            throw std::logic_error("the searches find different counters");
#ifdef BENCH_HAS_DPDK
        bitmap_ = std::make_unique<bench::BitmapPeer>(counters, used_);
        if (bitmap_->lowest() != free_.find_first())
            throw std::logic_error("DPDK's bitmap finds another counter");
#endif
    }

    uint32_t *ours()
    {
        return inline_service::first_word_with_room(words_.data(), words_.data() + words_.size());
    }
    const uint32_t *by_words() const
    {
        return search_words(words_.data(), words_.data() + words_.size());
    }
    size_t by_bitset() const
    {
        return free_.find_first();
    }
#ifdef BENCH_HAS_DPDK
    uint64_t by_dpdk() const
    {
        return bitmap_->lowest();
    }
#endif
    uint64_t read() const
    {
        return read_all(words_.data(), used_ / counters_a_word);
    }

private:
    ptrdiff_t place_of(const uint32_t *word) const
    {
        return word - words_.data();
    }

    std::vector<uint32_t> words_;
    boost::dynamic_bitset<> free_; // a bit is set where a counter is free
    size_t used_;
#ifdef BENCH_HAS_DPDK
    std::unique_ptr<bench::BitmapPeer> bitmap_;
#endif
};

struct Way {
    const char *name;
    double gate; // of a peer; 0 for none
    double aim;
    std::function<void(Region &)> search;
};

template <typename Search>
Way way(const char *name, double gate, double aim, Search search)
{
    return {name, gate, aim, [search](Region &region) {
                benchmark::ClobberMemory(); // the compiler cannot know what the last one found
                benchmark::DoNotOptimize(search(region));
            }};
}

const Way ours = way("ours", 0, 0, [](Region &region) { return region.ours(); });
const Way limit =
    way("vector read of its bytes", 0, 0, [](Region &region) { return region.read(); });
const Way peers[] = {
    way("32-bit words", 6, 8, [](Region &region) { return region.by_words(); }),
    way("boost::dynamic_bitset", 2, 3, [](Region &region) { return region.by_bitset(); }),
#ifdef BENCH_HAS_DPDK
    // No goal: its second level is a record that ours may not have.
    way("rte_bitmap, two levels", 0, 0, [](Region &region) { return region.by_dpdk(); }),
#endif
};

bench::Slice repeated(const Way &one, Region &region)
{
    return [&one, &region](size_t operations) {
        for (size_t i = 0; i < operations; ++i)
            one.search(region);
    };
}

void add_limit_row(const std::string &size, Region &region, double gate, double aim)
{
    bench::add_pair({.what = "lowest free counter, " + size,
                     .reference = limit.name,
                     .ours = repeated(ours, region),
                     .other = repeated(limit, region),
                     .gate = gate,
                     .aim = aim});
}

void add_peer_rows(const std::string &size, Region &region)
{
    for (const Way &peer : peers)
        bench::add_pair({.what = "lowest free counter, " + size + " (" + peer.name + ")",
                         .reference = peer.name,
                         .ours = repeated(ours, region),
                         .other = repeated(peer, region),
                         .ratio = bench::Ratio::peer_over_ours,
                         .gate = peer.gate,
                         .aim = peer.aim});
}

void add_curve(const Way &one, size_t counters)
{
    const std::string name =
        "curve/" + std::string(one.name) + "/counters:" + std::to_string(counters);
    benchmark::RegisterBenchmark(name.c_str(), [&one, counters](benchmark::State &state) {
        Region region(counters);
        for ([[maybe_unused]] auto turn : state)
            one.search(region);
    });
}

} // namespace

int main(int argc, char **argv)
{
    Region small(size_t{64} << 10);
    Region usual(size_t{1} << 20);
    Region large(size_t{4} << 20);
    add_limit_row("64K", small, 1.3, 1.1);
    add_limit_row("1M", usual, 1.15, 1.05);
    add_limit_row("4M", large, 1.2, 1.08);
    add_peer_rows("1M", usual);
    for (size_t counters = size_t{4} << 10; counters <= size_t{16} << 20; counters *= 4) {
        add_curve(ours, counters);
        add_curve(limit, counters);
        for (const Way &peer : peers)
            add_curve(peer, counters);
    }
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
