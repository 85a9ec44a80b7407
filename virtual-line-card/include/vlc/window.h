// The shared-memory window: a file of the state directory, mapped at one fixed address.
//
// Absolute pointers inside it stay good in every process and after a restart. All of the
// allocator's metadata is one word in front of each block, and every change is published by a
// single store of such a word, so a kill at any machine instruction leaves a window that opens.
// Free lists live in the process alone and are made again at each opening.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "vlc/state_directory.h"

namespace vlc {

class Window {
public:
    // Left free by every sanitizer and by valgrind.
    static constexpr uintptr_t address = 0x7ea000000000;

    // Opens the window of a state directory, or makes one of `bytes` (all of it reserved on disk,
    // so that a full file system is an error here and never a SIGBUS later). An existing window
    // keeps its size. With read-only access the window is mapped for reading. Throws StateError for
    // a full file system, a taken address, a file that is truncated, of another version or no
    // window, and for a block chain that does not add up.
    Window(const StateDirectory &directory, uint64_t bytes);
    ~Window();
    Window(const Window &) = delete;
    Window &operator=(const Window &) = delete;

    // The operations behind shmwin_malloc, shmwin_free and shmwin_reset; errno values.
    uint32_t allocate(int64_t size, void **block); // 0; 12 none large enough; 22 size below 1
    uint32_t release(void *block);                 // 0; 22 for no block in use
    void reset();                                  // every block gone, the root too

    // One pointer by which a restarted host finds what it left; null in a new window.
    void *root() const;
    void set_root(void *block);

    struct Usage {
        uint64_t blocks_in_use;
        uint64_t bytes_in_use; // headers included
        uint64_t bytes_total;
    };
    Usage usage() const;
    bool contains(const void *address) const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
