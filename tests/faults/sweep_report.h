// What a sweep came to, for a person.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

#include "call_sweep.h"

namespace test {

void print_sweep(const std::string &card, const SweepPlan &plan, const SweepResult &result);
void print_failures_of_services();

// A line on standard error, redrawn in place, where that is a terminal.
class SweepProgress {
public:
    SweepProgress(std::string what, size_t steps);
    ~SweepProgress();
    SweepProgress(const SweepProgress &) = delete;
    SweepProgress &operator=(const SweepProgress &) = delete;
    void show(size_t step);

private:
    std::string what_;
    size_t steps_;
    size_t points_ = 0;
    bool shown_;
};

} // namespace test
