// What a settlement makes of the state that the reference is in.
#pragma once

#include "reference_model.h"

namespace test {

// An entry whose delete was begun is gone. The rows of all NPs are those of the entries, the
// counters in use those that entries hold, counts are those of the lists, keys without entries are
// gone, and no answer is unread.
void settle(ReferenceModel &model, bool counters_unswapped);

} // namespace test
