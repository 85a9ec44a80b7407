// inlinectl inject
#pragma once

#include "command.h"

namespace inlinectl {

Command inject_command();

} // namespace inlinectl
