// What an injection came to, for a person and for a program.
#pragma once

#include <ostream>

#include "injection.h"
#include "terminal.h"

namespace inlinectl {

void write_text(std::ostream &out, const InjectionReport &report, const Style &style);
void write_json(std::ostream &out, const InjectionReport &report);

} // namespace inlinectl
