#include "interrupt.h"

#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace inlinectl {
namespace {

volatile std::sig_atomic_t signal_came = 0;
int pipe_ends[2] = {-1, -1};

extern "C" void note_signal(int)
{
    signal_came = 1;
    const int error = errno;
    [[maybe_unused]] const ssize_t ignored = write(pipe_ends[1], "", 1);
    errno = error;
}

} // namespace

void watch_interrupts()
{
    if (pipe2(pipe_ends, O_CLOEXEC | O_NONBLOCK) != 0)
        throw std::runtime_error("no pipe: " + std::generic_category().message(errno));
    struct sigaction action = {};
    action.sa_handler = note_signal;
    action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
    for (const int ending : {SIGINT, SIGTERM, SIGHUP})
        sigaction(ending, &action, nullptr);
    // A reader that is gone shows as a report that could not be written.
    std::signal(SIGPIPE, SIG_IGN);
}

bool interrupted()
{
    return signal_came != 0;
}

int interrupt_descriptor()
{
    return pipe_ends[0];
}

} // namespace inlinectl
