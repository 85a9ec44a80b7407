// Which points of a sweep are tried when not all are.
#pragma once

#include <array>
#include <cstdint>
#include <set>
#include <tuple>

#include "service_failures.h"

namespace test {

// Of every failure, once and for ever, the first calls and the last and as many others as its share
// comes to, drawn by the seed. The same numbers and seed give the same points.
class SweepSample {
public:
    SweepSample(const std::array<uint64_t, service_count> &calls, uint64_t points, uint32_t seed);

    bool takes(const FaultPoint &point) const
    {
        return taken_.contains({point.failure, point.nth, point.for_ever});
    }
    uint64_t size() const { return taken_.size(); }

private:
    std::set<std::tuple<size_t, uint64_t, bool>> taken_;
};

// How many points there are.
uint64_t all_points(const std::array<uint64_t, service_count> &calls);

} // namespace test
