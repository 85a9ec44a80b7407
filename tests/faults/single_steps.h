// A child that asked to be traced, run instruction by instruction.
#pragma once

#include <cstdint>
#include <functional>

#include <sys/types.h>

namespace test {

bool can_trace(); // whether this process may

// Waits until it stops by itself, runs so many instructions of it, or fewer when `enough` says so,
// and kills it. The caller waits for its end. A child that ends before it stops is left as it is.
void run_steps_and_kill(pid_t child, uint64_t instructions,
                        const std::function<bool()> &enough = {});

} // namespace test
