// The one store by which a change becomes true.
#pragma once

#include <atomic>

namespace vlc {

// A kill comes between two instructions of one thread, so what counts is the order in which the
// compiler leaves the stores: everything written before comes before, everything after comes after,
// and the word itself is written once and whole.
template <typename Word>
void publish(Word &place, Word value) noexcept
{
    static_assert(std::atomic_ref<Word>::is_always_lock_free);
    std::atomic_signal_fence(std::memory_order_seq_cst);
    std::atomic_ref<Word>(place).store(value, std::memory_order_release);
    std::atomic_signal_fence(std::memory_order_seq_cst);
}

// A word that another process may be publishing.
template <typename Word>
Word published(const Word &place) noexcept
{
    return std::atomic_ref<Word>(const_cast<Word &>(place)).load(std::memory_order_acquire);
}

} // namespace vlc
