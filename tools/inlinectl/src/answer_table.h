// The table that an answer of PRM speaks of, as a number to show.
#pragma once

#include <cstdint>

#include "platform_prm.h"
#include "vlc/prm_store.h"

namespace inlinectl {

// As in TableKind; for an answer of no table what its reference number says in the table's place.
inline uint32_t number_of_table(uint32_t refnum, uint32_t flags)
{
    const auto table = vlc::table_of_answer(refnum, flags);
    return table ? static_cast<uint32_t>(*table) : refnum & PRM_REFNUM_TABLE_MASK;
}

} // namespace inlinectl
