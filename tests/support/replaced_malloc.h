// For programs that put functions of their own before libc's malloc and its like: what stands
// underneath. With a sanitizer it is the sanitizer's, so that its checks stay in force.
#pragma once

#include <cstddef>

#if defined(__SANITIZE_ADDRESS__)
#define HAS_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define HAS_ADDRESS_SANITIZER 1
#endif
#endif

#ifdef HAS_ADDRESS_SANITIZER
#define REAL(name) __interceptor_##name
#else
#define REAL(name) __libc_##name
#endif
extern "C" void *REAL(malloc)(size_t size);
extern "C" void *REAL(calloc)(size_t count, size_t size);
extern "C" void *REAL(realloc)(void *block, size_t size);
extern "C" void REAL(free)(void *block);
