/* What the platform says of the card itself. */
#ifndef PLATFORM_CARD_H
#define PLATFORM_CARD_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Card types whose NPs take a counter number's upper three bytes as they lie in memory. */
enum {
#define CARD_TYPE_COUNTER_UNSWAPPED(name, code) name = code,
#include "card_types.def"
#undef CARD_TYPE_COUNTER_UNSWAPPED
};

/* The type code of the card that the caller runs on. */
uint32_t platform_get_my_card_type(void);

/* Starts the platform's statistics service for data-path counters. Returns 0, or a code. */
uint32_t plm_dpss_stats_init(void);

#ifdef __cplusplus
}
#endif
#endif
