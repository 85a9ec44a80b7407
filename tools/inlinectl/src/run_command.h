// inlinectl run: a card up, a traffic meter on it, captures through it, a report.
#pragma once

#include "command.h"

namespace inlinectl {

Command run_command();

} // namespace inlinectl
