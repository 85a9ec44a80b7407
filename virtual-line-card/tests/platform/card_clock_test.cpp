#include <chrono>
#include <csignal>
#include <ctime>

#include <gtest/gtest.h>
#include <sys/time.h>
#include <unistd.h>

#include "vlc/event_manager.h"

using namespace std::chrono_literals;
using vlc::CardClock;
using vlc::ClockMode;

namespace {

class SteppedClock : public testing::Test {
protected:
    SteppedClock() { CardClock::set_mode(ClockMode::stepped); }
    ~SteppedClock() override { CardClock::set_mode(ClockMode::real); }
};

CardClock::duration read_clock(clockid_t clock)
{
    timespec time{};
    EXPECT_EQ(0, clock_gettime(clock, &time));
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

TEST_F(SteppedClock, BeginsAtTheFirstInstantOf2026)
{
    const time_t now = std::chrono::floor<std::chrono::seconds>(CardClock::now()).count();
    tm utc{};
    gmtime_r(&now, &utc);
    char text[32];
    strftime(text, sizeof text, "%F %T", &utc);
    EXPECT_STREQ("2026-01-01 00:00:00", text);
}

TEST_F(SteppedClock, StandsStillUntilItIsAdvanced)
{
    const auto begin = CardClock::now();
    EXPECT_EQ(begin, CardClock::now());
    CardClock::advance(1500ms);
    EXPECT_EQ(begin + 1500ms, CardClock::now());
}

TEST_F(SteppedClock, TheTimeOfDayOfTheProgramFollowsIt)
{
    CardClock::advance(1234567891ns);
    EXPECT_EQ(CardClock::now(), read_clock(CLOCK_REALTIME));
    EXPECT_EQ(CardClock::now(), std::chrono::system_clock::now().time_since_epoch());
}

TEST_F(SteppedClock, OtherClocksOfTheProgramDoNotFollowIt)
{
    const auto begin = read_clock(CLOCK_MONOTONIC);
    CardClock::advance(1h);
    const auto end = read_clock(CLOCK_MONOTONIC);
    EXPECT_LE(begin, end);
    EXPECT_LT(end - begin, 30min);
}

TEST_F(SteppedClock, ASleepOfThirtySecondsPassesAtOnceAndIsCounted)
{
    const auto begin = CardClock::now();
    const auto real_begin = read_clock(CLOCK_MONOTONIC);
    EXPECT_EQ(0u, sleep(30));
    EXPECT_EQ(begin + 30s, CardClock::now());
    EXPECT_LT(read_clock(CLOCK_MONOTONIC) - real_begin, 10s);
    EXPECT_EQ(30u, CardClock::slept_seconds());
    sleep(20);
    EXPECT_EQ(50u, CardClock::slept_seconds());
}

TEST(RealClock, IsTheMachines)
{
    timeval machine{};
    ASSERT_EQ(0, gettimeofday(&machine, nullptr));
    const auto now =
        std::chrono::seconds(machine.tv_sec) + std::chrono::microseconds(machine.tv_usec);
    EXPECT_LT(CardClock::now() - now, 10s);
    EXPECT_GE(CardClock::now(), now);
    EXPECT_LT(read_clock(CLOCK_REALTIME) - now, 10s);
    EXPECT_GE(read_clock(CLOCK_REALTIME), now);
}

TEST(RealClock, CannotBeAdvanced)
{
    EXPECT_THROW(CardClock::advance(1s), std::logic_error);
}

TEST(RealClock, ASleepTakesItsTime)
{
    const auto begin = read_clock(CLOCK_MONOTONIC);
    EXPECT_EQ(0u, sleep(1));
    EXPECT_GE(read_clock(CLOCK_MONOTONIC) - begin, 1s);
    EXPECT_EQ(1u, CardClock::slept_seconds());
}

TEST(RealClock, ASleepThatASignalInterruptsSaysWhatIsLeft)
{
    struct sigaction action {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(0, sigaction(SIGALRM, &action, nullptr));
    const itimerval soon{{0, 0}, {0, 50000}};
    ASSERT_EQ(0, setitimer(ITIMER_REAL, &soon, nullptr));
    EXPECT_EQ(60u, sleep(60));
}

TEST(RealClock, AnUnknownClockIsRefusedAsTheKernelDoes)
{
    timespec time{};
    EXPECT_EQ(-1, clock_gettime(12345, &time));
    EXPECT_EQ(EINVAL, errno);
}

} // namespace
