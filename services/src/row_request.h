// A host's own requests to PRM: one row of one table on one NP.
#pragma once

#include <cstdint>

#include "hardware_view.h"

namespace services {

struct RowRequest {
    uint32_t operation; // PRM_OP_ADD, PRM_OP_MODIFY or PRM_OP_DELETE
    uint32_t np;
    uint32_t table;
    ByteSpan key;
    ByteSpan result;
};

// PRM's code; what it came to is said in the late answer.
uint32_t send(void *handle, const RowRequest &request);

} // namespace services
