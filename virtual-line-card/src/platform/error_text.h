// Texts of result codes, shared by the services that hand them out.
#pragma once

#include <cstdint>

namespace vlc {

// Never null; stays good until the process ends.
const char *error_text(uint32_t code);

} // namespace vlc
