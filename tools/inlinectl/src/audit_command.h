// inlinectl audit: a host's shadow DB against the hardware, with or without a live process.
#pragma once

#include "command.h"

namespace inlinectl {

Command audit_command();

} // namespace inlinectl
