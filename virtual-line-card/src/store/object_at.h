// Records inside a mapped file.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vlc {

// Files are laid out so that the offset suits the type's alignment.
template <typename Type>
Type *object_at(std::byte *base, uint64_t offset) noexcept
{
    return static_cast<Type *>(static_cast<void *>(base + offset));
}

} // namespace vlc
