// A fault plan at work.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "vlc/event_manager.h"
#include "vlc/fault_plan.h"
#include "vlc/prm.h"

namespace vlc {

// Faults happen for as long as this lives; answers that PRM keeps back are given afterwards too.
// Each rule counts the calls that it matches, whatever other rules do to them. Of several rules
// that are due at one call, the first in the plan decides the code, the first the answer, and the
// first what happens to PRM; a kill always happens.
class Faults {
public:
    explicit Faults(FaultPlan plan); // throws StateError for a rule that cannot be
    ~Faults();
    Faults(const Faults &) = delete;
    Faults &operator=(const Faults &) = delete;

    // Each puts the rules of its side to work: in a process that is both, call both.
    void attach_host();
    void attach_card(Prm &prm, EventManager &events);

    struct Count {
        uint64_t matched = 0;
        uint64_t fired = 0;
    };
    const FaultPlan &plan() const;
    const std::vector<Count> &counts() const; // by rule, in the plan's order

private:
    struct State;
    std::shared_ptr<State> state_;
};

} // namespace vlc
