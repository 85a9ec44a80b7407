/* The platform's shared-memory window: memory that outlives the process and lies at the same
 * address in every process that attaches it, so that absolute pointers inside it stay good. */
#ifndef PLATFORM_SHARED_WINDOW_H
#define PLATFORM_SHARED_WINDOW_H

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Takes `size` bytes out of the window and stores the block's address in *block. Returns 0, or a
 * code (errno values) with *block untouched: 22 for an unknown window, a size of 0 or less or a
 * null `block`, 12 when no free block is large enough. The content of the block is not defined. */
uint32_t shmwin_malloc(uint32_t window, int32_t size, void **block);

/* Gives a block back. Returns 0, or 22 for an address that is no block in use; null too. */
uint32_t shmwin_free(void *block);

/* Throws away every block of the window at once. Returns 0, or 22 for an unknown window. */
uint32_t shmwin_reset(uint32_t window);

#ifdef __cplusplus
}
#endif
#endif
