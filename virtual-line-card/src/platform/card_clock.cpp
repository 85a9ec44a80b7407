#include "card_clock.h"

#include <atomic>
#include <ctime>
#include <stdexcept>

namespace vlc {

namespace {

constexpr std::chrono::seconds first_stepped_instant{1767225600}; // 2026-01-01 00:00:00 UTC

std::atomic<ClockMode> current_mode{ClockMode::real};
std::atomic<int64_t> stepped_now{0}; // nanoseconds since 1970
std::atomic<uint64_t> seconds_slept{0};

} // namespace

void CardClock::set_mode(ClockMode mode)
{
    if (mode == ClockMode::stepped)
        stepped_now = duration(first_stepped_instant).count();
    current_mode = mode;
}

ClockMode CardClock::mode()
{
    return current_mode.load(std::memory_order_relaxed);
}

CardClock::duration CardClock::now()
{
    if (mode() == ClockMode::stepped)
        return duration(stepped_now.load(std::memory_order_relaxed));
    // libc reads the machine's clock here without its clock_gettime(), which follows this clock.
    timespec time{};
    timespec_get(&time, TIME_UTC);
    return std::chrono::seconds(time.tv_sec) + duration(time.tv_nsec);
}

void CardClock::advance(duration by)
{
    if (mode() != ClockMode::stepped)
        throw std::logic_error("only a stepped clock can be advanced");
    stepped_now += by.count();
}

uint64_t CardClock::slept_seconds()
{
    return seconds_slept;
}

void note_sleep(uint32_t seconds)
{
    seconds_slept += seconds;
    if (CardClock::mode() == ClockMode::stepped)
        CardClock::advance(std::chrono::seconds(seconds));
}

} // namespace vlc
