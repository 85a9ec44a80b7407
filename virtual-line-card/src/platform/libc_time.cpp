// sleep() and clock_gettime() of a program that contains the card, in place of libc's. In stepped
// mode the time of day and sleeping follow the card's clock; everything else is the kernel's.
#include <ctime>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "card_clock.h"

using vlc::CardClock;
using vlc::ClockMode;

namespace {

using ClockGettime = int (*)(clockid_t, struct timespec *);

int by_system_call(clockid_t clock, struct timespec *time)
{
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

// libc's own, which asks the kernel without a system call: every line of the log asks.
ClockGettime real_clock_gettime()
{
    static const ClockGettime found = [] {
        void *const symbol = dlsym(RTLD_NEXT, "clock_gettime");
        return symbol != nullptr ? reinterpret_cast<ClockGettime>(symbol) : by_system_call;
    }();
    return found;
}

} // namespace

extern "C" int clock_gettime(clockid_t clock, struct timespec *time) noexcept
{
    if (clock != CLOCK_REALTIME || CardClock::mode() == ClockMode::real)
        return real_clock_gettime()(clock, time);
    const auto now = CardClock::now();
    const auto seconds = std::chrono::floor<std::chrono::seconds>(now);
    time->tv_sec = seconds.count();
    time->tv_nsec = (now - seconds).count();
    return 0;
}

extern "C" unsigned sleep(unsigned seconds)
{
    vlc::note_sleep(seconds);
    if (CardClock::mode() == ClockMode::stepped)
        return 0;
    timespec left{};
    left.tv_sec = seconds;
    if (nanosleep(&left, &left) == 0)
        return 0;
    // Interrupted: the whole seconds that are left, rounded as libc does.
    return static_cast<unsigned>(left.tv_sec + (left.tv_nsec >= 500000000));
}
