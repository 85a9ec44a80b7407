// Settlement of flows: what a flow service does after a restart, before packets come. A host that
// was killed may have left one flow in flight: on some NPs and in no chain, or in its chain with
// rows and counters gone.
#pragma once

#include "inline_service_flowdb.h"
#include "settlement.h"

namespace services {

// `table` has this process's functions. What no flow has is taken from the NPs; a flow that does
// not have its rows and counters on all its NPs is deleted, for its next packet to add it again. A
// kill in the middle of it and another settlement end in the same state.
Settlement settle_flows(const SettlementInput &input, in_hash_table *table);

} // namespace services
