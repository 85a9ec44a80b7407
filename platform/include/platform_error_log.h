/* The platform's error log: where an operator of the router looks. */
#ifndef PLATFORM_ERROR_LOG_H
#define PLATFORM_ERROR_LOG_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Writes one message. `record` describes the message's kind to the platform. Returns 0, or a code
 * that may be ignored. */
uint32_t zem_errmsg(const void *record, uint32_t zero, const char *text);

#ifdef __cplusplus
}
#endif
#endif
