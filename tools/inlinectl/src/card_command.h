// inlinectl card: a card in a process of its own, that hosts reach by a socket.
#pragma once

#include "command.h"

namespace inlinectl {

Command card_command();

} // namespace inlinectl
