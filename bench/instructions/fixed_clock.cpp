// The clock that a counted log reads: a line takes the same time each time, and no second passes
// while lines are counted, since a new second's text is asked for once.
#include <ctime>

int clock_gettime(clockid_t, timespec *now) noexcept
{
    constexpr long nanoseconds_a_line = 700;
    static long lines = 0;
    *now = {1'700'000'000, lines++ * nanoseconds_a_line};
    return 0;
}
