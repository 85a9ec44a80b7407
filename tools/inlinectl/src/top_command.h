// inlinectl top: a card and its host while they are at work.
#pragma once

#include "command.h"

namespace inlinectl {

Command top_command();

} // namespace inlinectl
