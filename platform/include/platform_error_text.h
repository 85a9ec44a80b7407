/* Texts for the platform's result codes. */
#ifndef PLATFORM_ERROR_TEXT_H
#define PLATFORM_ERROR_TEXT_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The text of a result code, errno values included; never null, also for a code unknown to it.
 * The text stays good until the process ends. */
const char *cerr_strerror(uint32_t code);

#ifdef __cplusplus
}
#endif
#endif
