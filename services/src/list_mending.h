// What follows from a list's forward chain, made again from it.
#pragma once

#include <cstdint>

#include "inline_service_shadowdb.h"

namespace services {

// The chain must have been walked and found whole. Returns whether anything was wrong.
bool mend_list(list_record &list, uint32_t *num_elements);

} // namespace services
