// The parts of the card's clock that the interposed libc calls need.
#pragma once

#include <cstdint>

#include "vlc/event_manager.h"

namespace vlc {

// Notes a sleep() of the program; in stepped mode it moves the clock as well.
void note_sleep(uint32_t seconds);

} // namespace vlc
