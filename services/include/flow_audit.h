// The audit's part that is about flows: the flow table of the root against every NP's flow rows and
// dynamic counters. It neither changes nor trusts anything, as the shadow DB's.
#pragma once

#include "shadow_audit.h"

namespace services {

// Adds to the report of an audit, or to an empty one, and sorts its findings anew. A flow's row
// holds its result with its counter's address in bytes 3 to 5, or, since a modify, bytes 1 to 3 of
// its counter's number in bytes 1 to 3.
void audit_flows(const AuditInput &input, AuditReport &report);

} // namespace services
