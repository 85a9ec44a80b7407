// The kill sweep: a host, or its card, is killed at one point of the scenario, started again on
// what is left, and must come to the scenario's end with everything as the reference says.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kill_point.h"

namespace test {

struct KillSweepPlan {
    KillSetting setting;
    uint64_t points =
        0; // drawn by the seed, the first and the last in any case; 0 for all there are
    uint32_t seed = 1;
    std::vector<KillPoint> these = {}; // these alone
};

struct KillSweepResult {
    uint64_t requests = 0; // of the scenario, for the hardware
    uint64_t calls = 0;    // of platform services
    uint64_t points = 0;
    uint64_t failed = 0;
    double seconds = 0;
    bool cannot_be_traced = false;  // what needs single steps was not tried
    std::vector<std::string> texts; // of what failed; after 10 the sweep gives up
};

// Needs a /tmp of its own, and that this process has had no card. Calls `progress` after each
// point.
KillSweepResult sweep_kills(const KillSweepPlan &plan,
                            const std::function<void(uint64_t points)> &progress = {});

} // namespace test
