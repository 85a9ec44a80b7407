// What a stored entry means to the hardware: its counters' numbers, and the row that each NP holds.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

#include "inline_service_shadowdb.h"

namespace services {

bool has_counters(const app_node &entry);

// A number with the outer two of its lower three bytes in each other's place.
uint32_t exchanged(uint32_t number);

// The region of counters, and how this card's entries keep numbers of it.
struct CounterRegion {
    uint32_t first = 0;
    uint32_t count = 0;
    bool unswapped = false;

    // The allocator reaches one word past the region, so that many words a bitmap has.
    uint32_t words() const { return count / 32 + 1; }
    uint32_t places() const { return words() * 32; }
    // The place in the bitmap of a plain number, and of what a node keeps for received packets:
    // except on unswapped cards that may stand in either byte order. None: no counter's number.
    std::optional<uint32_t> place_of(uint32_t number) const;
    std::optional<uint32_t> place_of_stored(uint32_t number) const;
};

struct RowResult {
    std::array<uint8_t, SHADOW_DB_RESULT_BYTES> bytes{};
    uint32_t length = 0;
};

// The result that an entry's row on an NP must hold. The entry's lengths must be within bounds.
RowResult row_result(const shmem_node &node, uint32_t np, bool unswapped);

} // namespace services
