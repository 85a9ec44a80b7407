// Settlement: what a host does after a restart, before its services go on. A host that was killed
// may have left one entry in flight: on some NPs and not in the shadow DB, half modified, half
// deleted, with counters taken. docs/HOSTING.md, "Settling after a kill", has every case.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "shadow_audit.h"

namespace services {

struct SettlementInput {
    shadow_db *root = nullptr;
    std::function<bool(const void *address, size_t bytes)> in_shared_memory;
    const HardwareView *hardware = nullptr;
    std::function<void()> run_events; // reads the late answers that are ready
};

struct Settlement {
    std::vector<std::string> done; // in words for a person, in order
    std::vector<std::string> left; // differences that are still there
    // Pointers in the shadow DB lead out of shared memory or round in a circle. Nothing was
    // touched, and neither the library nor a service may follow them: the host must not go on.
    bool is_damaged = false;
    bool settled() const { return left.empty(); }
};

// Needs a started host: the library connected and registered, and no service programming yet.
// A kill in the middle of it and another settlement end in the same state.
Settlement settle(const SettlementInput &input);

// The audit's input for the card that this process runs on, as its platform describes it.
AuditInput audit_input_of(const SettlementInput &input);

} // namespace services
