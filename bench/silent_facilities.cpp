// The facilities that a line is given to, which are not what is measured. They stand in a source of
// their own, so that a line calls them as the library calls those of a platform.
#include "platform_event_debug.h"

uint32_t ed_init(ed_component *, uint64_t, uint64_t, uint64_t, uint64_t)
{
    return 0;
}
void ed_print_debug(ed_debug_point *, ed_component *, const uint64_t *, uint64_t, uint32_t,
                    uint64_t, const char *, uint64_t)
{
}
void ed_slow_debugs(ed_debug_point *, ed_component *, uint32_t *, const uint64_t *, uint64_t,
                    uint32_t, uint64_t, const char *, uint64_t)
{
}
void _ltrace(void *, uint64_t, ...) {}
