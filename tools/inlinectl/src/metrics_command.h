// inlinectl metrics: a state for monitoring.
#pragma once

#include "command.h"

namespace inlinectl {

Command metrics_command();

} // namespace inlinectl
