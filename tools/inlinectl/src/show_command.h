// inlinectl show: what a host's window and its card hold.
#pragma once

#include "command.h"

namespace inlinectl {

Command show_command();

} // namespace inlinectl
