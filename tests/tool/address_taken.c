/* Loaded before a program: takes the address at which the window belongs. */
#include <stdint.h>
#include <sys/mman.h>

#ifndef MAP_FIXED_NOREPLACE
#define MAP_FIXED_NOREPLACE 0x100000
#endif

__attribute__((constructor)) static void take_the_address(void)
{
    const uintptr_t address = UINT64_C(0x7ea000000000);
    mmap((void *)address, 4096, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1,
         0);
}
