// Comes before all else in each source of a library whose sites are left out: what is counted then
// is the work between the lines.
#pragma once

#include "inline_service_log.h"

#undef INLINE_SVC_SITE
#define INLINE_SVC_SITE(site_level, site_function, site_format, ...)                               \
    do {                                                                                           \
        if (false)                                                                                 \
            ::inline_service::check_format(site_format __VA_OPT__(, ) __VA_ARGS__);                \
    } while (false)
