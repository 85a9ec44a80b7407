// The hash by which an NP's table finds a key. It stands in the rows of the files, so it is the
// same in every build; another one is another version of those files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace vlc {

__extension__ using Product = unsigned __int128;

inline uint64_t mix_key(uint64_t value) noexcept
{
    const Product product = static_cast<Product>(value) * 0x9E3779B97F4A7C15;
    return static_cast<uint64_t>(product) ^ static_cast<uint64_t>(product >> 64);
}

template <typename Word>
uint64_t word_at(const uint8_t *from) noexcept
{
    Word word;
    std::memcpy(&word, from, sizeof word);
    return word;
}

inline uint64_t hash_begin(size_t length) noexcept
{
    return (length + 1) * 0xD6E8FEB86659FD93;
}

inline uint32_t hash_end(uint64_t hash) noexcept
{
    hash = mix_key(hash);
    return static_cast<uint32_t>(hash ^ hash >> 32);
}

// One multiplication for eight bytes; the last eight may overlap those before.
inline uint32_t hash_of_key(const uint8_t *key, size_t length) noexcept
{
    uint64_t hash = hash_begin(length);
    if (length >= 8) {
        for (size_t at = 0; at + 8 < length; at += 8) {
            hash = mix_key(hash ^ word_at<uint64_t>(key + at));
        }
        hash = mix_key(hash ^ word_at<uint64_t>(key + length - 8));
    } else if (length >= 4) {
        const uint64_t first = word_at<uint32_t>(key);
        hash = mix_key(hash ^ (first << 32 | word_at<uint32_t>(key + length - 4)));
    } else if (length > 0) {
        const uint64_t first = key[0];
        const uint64_t middle = key[length / 2];
        hash = mix_key(hash ^ (first << 16 | middle << 8 | key[length - 1]));
    }
    return hash_end(hash);
}

// The same of a key that lies in a word as it would in memory.
template <size_t length>
uint32_t hash_of_key_word(uint64_t key) noexcept
{
    static_assert(length >= 4 && length <= sizeof key, "shorter keys are hashed byte by byte");
    if constexpr (length == sizeof key)
        return hash_end(mix_key(hash_begin(length) ^ key));
    const uint64_t first = key & 0xFFFFFFFF;
    const uint64_t last = key >> (8 * (length - 4)) & 0xFFFFFFFF;
    return hash_end(mix_key(hash_begin(length) ^ (first << 32 | last)));
}

} // namespace vlc
