// inlinectl vservice: feed a card's library with virtual services.
#pragma once

#include "command.h"

namespace inlinectl {

Command vservice_command();

} // namespace inlinectl
