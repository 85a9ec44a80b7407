#include "library_exit.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace inlinectl {
namespace {

// Never destroyed, for it is called while the process ends.
std::function<void()> &said_at_exit()
{
    static auto *say = new std::function<void()>;
    return *say;
}

extern "C" void say_at_exit()
{
    if (said_at_exit())
        said_at_exit()();
}

} // namespace

LibraryExitWatch::LibraryExitWatch(std::function<void()> say)
{
    static const bool registered = std::atexit(say_at_exit) == 0;
    if (!registered)
        throw std::runtime_error("an exit of the library cannot be watched");
    said_at_exit() = std::move(say);
}

LibraryExitWatch::~LibraryExitWatch()
{
    said_at_exit() = nullptr;
}

void say_that_the_library_ended_the_process()
{
    std::fprintf(stderr, "inlinectl: the library ended the process: it could not register with "
                         "PRM; its log says why\n");
}

} // namespace inlinectl
