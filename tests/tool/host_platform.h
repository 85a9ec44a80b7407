/* What a platform hands to a host, for a host in C: here, of a virtual line card. */
#ifndef HOST_PLATFORM_H
#define HOST_PLATFORM_H

#include <stdint.h>

#include "inline_service_shadowdb.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct platform_handles {
    void *event_manager;
    uint32_t window_id;
    uint16_t num_nps;
    shadow_db *root; /* null: no host has published one */
} platform_handles;

/* Opens the card in a state directory. Returns 0, or 1 after a line on standard error. */
int platform_open(const char *directory, platform_handles *handles);
void platform_publish_root(shadow_db *root);
/* Runs the event manager until `done` returns non-zero. Returns 0 when it cannot come to that. */
int platform_run_until(int (*done)(void));
void platform_close(void);

#ifdef __cplusplus
}
#endif
#endif
