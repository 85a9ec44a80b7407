// Decoded events as a trace in the Common Trace Format, version 1.8.
//
// One stream for each buffer, one packet in each. A site is an event class, its arguments are
// fields under their expressions with underscores for what no identifier may have.
#pragma once

#include <filesystem>
#include <vector>

#include "decoded_trace.h"

namespace inlinectl {

// The directory must be missing or empty. Events are written in the order of their times, which
// the format wants. Throws StateError.
void write_ctf(const std::filesystem::path &directory, std::vector<DecodedEvent> events);

} // namespace inlinectl
