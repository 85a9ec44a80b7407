// `inlinectl util`: a utility message for a running host, and its answer.
#pragma once

#include "command.h"

namespace inlinectl {

Command util_command();

} // namespace inlinectl
