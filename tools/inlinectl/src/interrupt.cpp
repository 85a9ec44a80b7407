#include "interrupt.h"

#include <csignal>
#include <initializer_list>

namespace inlinectl {
namespace {

volatile std::sig_atomic_t signal_came = 0;

extern "C" void note_signal(int)
{
    signal_came = 1;
}

} // namespace

void watch_interrupts()
{
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

} // namespace inlinectl
