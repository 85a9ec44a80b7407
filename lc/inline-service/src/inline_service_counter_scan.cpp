// A region that is nearly full is searched from end to end, so this reads memory as fast as the
// machine can: 256 bytes a step in its widest registers, one test a step.

#include "inline_service_counter_scan.h"

#include <cstddef>
#include <cstring>

#include <immintrin.h>

namespace inline_service {
namespace {

constexpr uint32_t full_word = 0xFFFFFFFF;
constexpr size_t words_a_step = 256 / sizeof(uint32_t);
constexpr size_t words_before_steps = 16; // a region that is nearly empty needs no more

uint32_t *search_pairs(uint32_t *begin, uint32_t *end)
{
    uint64_t pair = 0;
    while (end - begin >= 2) {
        std::memcpy(&pair, begin, sizeof pair);
        if (pair != UINT64_MAX)
            return *begin != full_word ? begin : begin + 1;
        begin += 2;
    }
    return begin == end || *begin != full_word ? begin : end;
}

// The unrolling is the compiler's: written out, g++ 12 keeps the vectors on the stack.
[[gnu::target("avx2")]] uint32_t *skip_full_steps_avx2(uint32_t *begin, uint32_t *end)
{
    constexpr size_t vectors = words_a_step * sizeof(uint32_t) / sizeof(__m256i);
    const __m256i ones = _mm256_set1_epi32(-1);
    for (; static_cast<size_t>(end - begin) >= words_a_step; begin += words_a_step) {
        const auto *step = reinterpret_cast<const __m256i *>(begin);
        __m256i all = ones;
#pragma GCC unroll 8
        for (size_t i = 0; i < vectors; ++i)
            all = _mm256_and_si256(all, _mm256_loadu_si256(step + i));
        if (_mm256_testc_si256(all, ones) == 0)
            break;
    }
    return begin;
}

[[gnu::target("avx512f")]] uint32_t *skip_full_steps_avx512(uint32_t *begin, uint32_t *end)
{
    constexpr size_t vectors = words_a_step * sizeof(uint32_t) / sizeof(__m512i);
    const __m512i ones = _mm512_set1_epi32(-1);
    for (; static_cast<size_t>(end - begin) >= words_a_step; begin += words_a_step) {
        __m512i all = ones;
#pragma GCC unroll 4
        for (size_t i = 0; i < vectors; ++i)
            all = _mm512_and_si512(all, _mm512_loadu_si512(begin + i * 16));
        if (_mm512_cmpneq_epi32_mask(all, ones) != 0)
            break;
    }
    return begin;
}

uint32_t *skip_nothing(uint32_t *begin, uint32_t *)
{
    return begin;
}

using SkipFullSteps = uint32_t *(*)(uint32_t *, uint32_t *);
SkipFullSteps skip_full_steps = skip_nothing;

// What the machine has is asked once, when the library is loaded.
[[gnu::constructor]] void choose_registers()
{
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx512f"))
        skip_full_steps = skip_full_steps_avx512;
    else if (__builtin_cpu_supports("avx2"))
        skip_full_steps = skip_full_steps_avx2;
}

} // namespace

uint32_t *first_word_with_room(uint32_t *begin, uint32_t *end)
{
    if (static_cast<size_t>(end - begin) > words_before_steps) {
        uint32_t *const steps = begin + words_before_steps;
        uint32_t *const found = search_pairs(begin, steps);
        if (found != steps)
            return found;
        begin = skip_full_steps(steps, end);
    }
    return search_pairs(begin, end);
}

} // namespace inline_service
