// inlinectl run: a card up, a traffic meter on it, captures through it, a report.
#pragma once

#include "run_options.h"

namespace inlinectl {

// Returns the exit code. Throws UsageError for input that cannot be read, with nothing changed.
int run_command(const RunOptions &options);

} // namespace inlinectl
