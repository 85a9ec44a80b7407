// The sweep: carries out the scenario once without a failure, and wherever a platform service is
// called forks a process in which that call fails. That process goes on to the scenario's end, and
// everything that it comes to must be what the reference says.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform_services.h"
#include "scenario.h"
#include "service_failures.h"

namespace test {

struct SweepPlan {
    uint32_t card_type = 0;
    // Whether a failure is to be tried at the n-th call of its service.
    std::function<bool(const FaultPoint &point)> takes;
    std::vector<Step> scenario;
};

struct SweepResult {
    struct PerFailure {
        uint64_t points = 0;
        uint64_t failed = 0;
        double seconds = 0;
    };
    std::array<uint64_t, service_count> calls{}; // of the scenario without a failure
    std::vector<PerFailure> per_failure;         // as service_failures()
    // Where the reference was not met, with what was different. After 20 the sweep gives up.
    std::vector<std::string> texts;
    uint64_t exits = 0;      // points at which the library rightly ended the process
    uint64_t assertions = 0; // and with an assertion

    uint64_t points() const;
    uint64_t failed() const;
};

// Needs a /tmp of its own. Calls `progress` after each point with the step's number.
SweepResult sweep(const SweepPlan &plan, const std::function<void(size_t step)> &progress = {});

} // namespace test
