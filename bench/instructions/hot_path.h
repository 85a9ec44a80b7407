// Hot paths that callgrind counts the instructions of.
//
// A program has a table of paths and runs the one that it is asked for. What a path does before and
// after is left out of the count. Nothing that is counted depends on the clock, on where the stack
// lies or on chance, so that a count is the same each time.
#pragma once

#include <cstdint>
#include <span>

#include <valgrind/callgrind.h>

namespace bench {

struct HotPath {
    const char *name;
    void (*run)(); // counts through count_instructions()
};

// Each program's own.
extern const std::span<const HotPath> hot_paths;

// What all counts of this run were made of.
extern uint64_t operations_counted;

// A path that this machine does not have is said, and is none.
inline const char *why_unavailable = nullptr;

// Runs work(), which is so many operations, with its instructions counted.
template <typename Work>
void count_instructions(uint64_t operations, const Work &work)
{
    operations_counted += operations;
    CALLGRIND_TOGGLE_COLLECT;
    work();
    CALLGRIND_TOGGLE_COLLECT;
}

} // namespace bench
