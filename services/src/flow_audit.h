// The audit's part that is about flows.
#pragma once

#include "shadow_audit.h"

namespace services {

// Compares the flow table with every NP's flow rows and dynamic counters.
void audit_flows(const AuditInput &input, uint32_t nps, AuditReport &report);

} // namespace services
