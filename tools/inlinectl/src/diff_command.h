// inlinectl diff: what two states have apart.
#pragma once

#include "command.h"

namespace inlinectl {

Command diff_command();

} // namespace inlinectl
