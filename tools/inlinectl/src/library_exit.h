// The library ends the process when it cannot register with PRM, and says so in its log alone.
#pragma once

#include <functional>

namespace inlinectl {

// While one is alive, an exit of the process that is not inlinectl's own calls `say`.
class LibraryExitWatch {
public:
    explicit LibraryExitWatch(std::function<void()> say);
    ~LibraryExitWatch();
    LibraryExitWatch(const LibraryExitWatch &) = delete;
    LibraryExitWatch &operator=(const LibraryExitWatch &) = delete;
};

// On standard error, for whoever waits for a report that will not come.
void say_that_the_library_ended_the_process();

} // namespace inlinectl
