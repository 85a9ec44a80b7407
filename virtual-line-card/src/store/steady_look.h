// Reading what another process may be writing.
#pragma once

#include <chrono>
#include <thread>

#include "vlc/state_directory.h"

namespace vlc {

// A file of the state directory holds together at every instant, but not for a look that takes
// longer than an instant while a writer lives. So a reader that finds something wrong looks again.
// `find_wrong` returns what it found, false for nothing; so does this.
template <typename FindWrong>
auto steady_look(Access access, const FindWrong &find_wrong)
{
    constexpr int attempts = 50;
    auto wrong = find_wrong();
    for (int i = 1; wrong && access == Access::read_only && i < attempts; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        wrong = find_wrong();
    }
    return wrong;
}

} // namespace vlc
