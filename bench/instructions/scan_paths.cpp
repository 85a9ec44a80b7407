// The search for the lowest free counter of a region of which 99.9 percent are taken.
#include "hot_path.h"
#include "inline_service_counter_scan.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace {

constexpr size_t counters_a_word = 32;

void search(size_t counters)
{
    if (__builtin_cpu_supports("avx2") == 0) {
        bench::why_unavailable = "no AVX2";
        return;
    }
    std::vector<uint32_t> words(counters / counters_a_word, 0xFFFFFFFF);
    const size_t first_free = counters / 1000 * 999 / counters_a_word;
    words[first_free] = 0;
    bool found = true;
    constexpr uint64_t searches = 20;
    bench::count_instructions(searches, [&] {
        for (uint64_t i = 0; i < searches; ++i) {
            uint32_t *const end = words.data() + words.size();
            found &= inline_service::first_word_with_room(words.data(), end) ==
                     words.data() + first_free;
        }
    });
    if (!found)
        bench::why_unavailable = "the search missed the free counter";
}

constexpr bench::HotPath paths[] = {
    {"lowest free counter, 64K, AVX2", [] { search(size_t{64} << 10); }},
    {"lowest free counter, 1M, AVX2", [] { search(size_t{1} << 20); }},
};

} // namespace

const std::span<const bench::HotPath> bench::hot_paths = paths;
