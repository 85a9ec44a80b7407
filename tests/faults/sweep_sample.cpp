#include "sweep_sample.h"

#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

namespace test {
namespace {

// A host's start makes calls that never come again.
constexpr uint64_t always_from_the_start = 6;

uint64_t calls_of(const std::array<uint64_t, service_count> &calls, size_t failure)
{
    return calls[static_cast<size_t>(service_failures()[failure].service)];
}

} // namespace

uint64_t all_points(const std::array<uint64_t, service_count> &calls)
{
    uint64_t sum = 0;
    for (size_t failure = 0; failure < service_failures().size(); ++failure)
        sum += 2 * calls_of(calls, failure);
    return sum;
}

SweepSample::SweepSample(const std::array<uint64_t, service_count> &calls, uint64_t points,
                         uint32_t seed)
{
    std::mt19937 random(seed);
    const uint64_t all = std::max<uint64_t>(all_points(calls), 1);
    for (size_t failure = 0; failure < service_failures().size(); ++failure) {
        const uint64_t count = calls_of(calls, failure);
        const uint64_t share = (count * points + all - 1) / all;
        std::vector<uint64_t> nths(count);
        std::iota(nths.begin(), nths.end(), 1);
        for (const bool for_ever : {false, true}) {
            std::vector<uint64_t> drawn;
            std::sample(nths.begin(), nths.end(), std::back_inserter(drawn), share, random);
            for (uint64_t nth = 1; nth <= std::min(count, always_from_the_start); ++nth)
                drawn.push_back(nth);
            if (count != 0)
                drawn.push_back(count);
            for (const uint64_t nth : drawn)
                taken_.insert({failure, nth, for_ever});
        }
    }
}

} // namespace test
