// The search for the lowest free counter in a bitmap.
#pragma once

#include <cstdint>

namespace inline_service {

// The first word that has a bit at 0; `end` when all bits are ones.
uint32_t *first_word_with_room(uint32_t *begin, uint32_t *end);

} // namespace inline_service
