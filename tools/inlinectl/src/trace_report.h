// Decoded events for a person and for programs.
#pragma once

#include <ostream>
#include <vector>

#include "decoded_trace.h"
#include "terminal.h"

namespace inlinectl {

void write_text(std::ostream &out, const std::vector<DecodedEvent> &events, const Style &style);
void write_json(std::ostream &out, const std::vector<DecodedEvent> &events); // an object a line

} // namespace inlinectl
