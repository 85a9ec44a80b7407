// A state directory with very many entries, written as hosts leave one, without running one.
#pragma once

#include <cstdint>
#include <filesystem>

namespace test {

struct LargeState {
    uint32_t entries = 100'000;
    uint32_t counted = 30'000; // of them, in either table; the rest is in table 0 without counters
    uint16_t nps = 2;
    uint32_t rowless = 1000; // NP 1 has no row for each so-many-th entry; 0 for none
};

// Entry ids run from 0 on, over a hundred keys in turn. The row of an entry was hit by as many
// packets as the last two digits of its id say, of 100 bytes each, on every NP.
void make_large_state(const std::filesystem::path &directory, const LargeState &wanted);

} // namespace test
