// The card's time for a person.
#pragma once

#include <cstdint>
#include <string>

namespace inlinectl {

// Nanoseconds since 1970 as "2026-11-21T13:40:07.123456789Z".
std::string utc_text(int64_t nanoseconds);

} // namespace inlinectl
