// Whether this build is slowed down by a sanitizer, so that sweeps try fewer points.
#pragma once

namespace test {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool slow_build = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr bool slow_build = true;
#else
inline constexpr bool slow_build = false;
#endif
#else
inline constexpr bool slow_build = false;
#endif

} // namespace test
