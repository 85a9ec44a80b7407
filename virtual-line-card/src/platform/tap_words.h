// How a service's arguments become the words that a tap sees.
#pragma once

#include <cstdint>
#include <type_traits>

#include "vlc/service_tap.h"

namespace vlc {

template <typename T>
uint64_t tap_word(T value)
{
    if constexpr (std::is_pointer_v<T>)
        return reinterpret_cast<uintptr_t>(value);
    else
        return static_cast<uint64_t>(value);
}

template <typename... Args>
inline std::optional<uint64_t> tapped_call(const char *service, Args... args)
{
    static_assert(sizeof...(args) <= ServiceCall::max_args);
    return tapped(service, {tap_word(args)...});
}

// A forced result as the service's own type.
template <typename Result>
Result forced_as(uint64_t word)
{
    if constexpr (std::is_pointer_v<Result>)
        return reinterpret_cast<Result>(static_cast<uintptr_t>(word));
    else
        return static_cast<Result>(word);
}

} // namespace vlc
