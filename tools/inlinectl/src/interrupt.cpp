#include "interrupt.h"

#include <csignal>

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
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool interrupted()
{
    return signal_came != 0;
}

} // namespace inlinectl
