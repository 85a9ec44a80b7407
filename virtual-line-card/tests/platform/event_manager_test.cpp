#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "vlc/event_manager.h"

using namespace std::chrono_literals;
using vlc::CardClock;
using vlc::ClockMode;
using vlc::EventManager;

namespace {

class SteppedEvents : public testing::Test {
protected:
    SteppedEvents() { CardClock::set_mode(ClockMode::stepped); }
    ~SteppedEvents() override { CardClock::set_mode(ClockMode::real); }

    EventManager::Task note(char what)
    {
        return [this, what] { order += what; };
    }
    EventManager events;
    std::string order;
};

// Two ends of a connection, closed with the test.
class Pipe {
public:
    Pipe() { EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends_)); }
    ~Pipe()
    {
        close(ends_[0]);
        close(ends_[1]);
    }
    Pipe(const Pipe &) = delete;
    Pipe &operator=(const Pipe &) = delete;

    int reader() const { return ends_[0]; }
    void write(const char *text) const
    {
        EXPECT_EQ(static_cast<ssize_t>(std::strlen(text)),
                  ::write(ends_[1], text, std::strlen(text)));
    }
    char read() const
    {
        char byte = 0;
        EXPECT_EQ(1, ::read(ends_[0], &byte, 1));
        return byte;
    }

private:
    int ends_[2];
};

TEST_F(SteppedEvents, PostsRunInOrderAndNeverInsideTheCall)
{
    events.post(note('a'));
    events.post(note('b'));
    EXPECT_EQ("", order);
    EXPECT_EQ(2u, events.run_until_idle());
    EXPECT_EQ("ab", order);
}

TEST_F(SteppedEvents, AStepRunsOneEvent)
{
    events.post(note('a'));
    events.post(note('b'));
    EXPECT_TRUE(events.step());
    EXPECT_EQ("a", order);
    EXPECT_TRUE(events.step());
    EXPECT_FALSE(events.step());
    EXPECT_EQ("ab", order);
}

TEST_F(SteppedEvents, AnEventMayPostAnother)
{
    events.post([this] {
        order += 'a';
        events.post(note('b'));
    });
    EXPECT_EQ(2u, events.run_until_idle());
    EXPECT_EQ("ab", order);
}

TEST_F(SteppedEvents, AnEventMayRunTheEventsThatWait)
{
    events.post([this] {
        events.post(note('b'));
        events.run_until_idle();
        order += 'a';
    });
    EXPECT_TRUE(events.step());
    EXPECT_EQ("ba", order);
    EXPECT_FALSE(events.step());
}

TEST_F(SteppedEvents, AnEventMayPostManyAndRunThemAll)
{
    events.post([this] {
        for (const char what : std::string("abcdef"))
            events.post(note(what));
        events.run_until_idle();
        events.post(note('g'));
    });
    events.run_until_idle();
    EXPECT_EQ("abcdefg", order);
    events.post(note('h'));
    EXPECT_TRUE(events.step());
    EXPECT_EQ("abcdefgh", order);
}

TEST_F(SteppedEvents, ATimerIsNotReadyBeforeTheClockReachesIt)
{
    events.after(30s, note('t'));
    EXPECT_EQ(0u, events.run_until_idle());
    CardClock::advance(30s - 1ns);
    EXPECT_FALSE(events.step());
    CardClock::advance(1ns);
    EXPECT_TRUE(events.step());
    EXPECT_EQ("t", order);
    EXPECT_FALSE(events.step());
}

TEST_F(SteppedEvents, TimersRunByDueTimeAndThenByAge)
{
    events.after(2s, note('c'));
    events.after(1s, note('a'));
    events.after(1s, note('b'));
    CardClock::advance(2s);
    EXPECT_EQ(3u, events.run_until_idle());
    EXPECT_EQ("abc", order);
}

TEST_F(SteppedEvents, ADueTimerWaitsForWhatWasPostedBeforeItWasDue)
{
    events.after(1s, note('t'));
    events.post([this] {
        order += 'a';
        CardClock::advance(1s);
    });
    events.post(note('b'));
    events.run_until_idle();
    EXPECT_EQ("abt", order);
}

TEST_F(SteppedEvents, ACancelledTimerDoesNotRun)
{
    const auto waiting = events.after(1s, note('x'));
    events.cancel(waiting);
    const auto due = events.after(1s, note('y'));
    events.post([this, due] { events.cancel(due); });
    CardClock::advance(1s);
    events.cancel(due + 1); // unknown: nothing happens
    EXPECT_TRUE(events.step());
    EXPECT_FALSE(events.step());
    EXPECT_EQ("", order);
}

TEST_F(SteppedEvents, RunUntilMovesTheClockToThePendingTimer)
{
    const auto begin = CardClock::now();
    bool is_done = false;
    events.after(30s, [&is_done] { is_done = true; });
    events.after(40s, note('x'));
    EXPECT_TRUE(events.run_until([&is_done] { return is_done; }));
    EXPECT_EQ(30s, CardClock::now() - begin);
    EXPECT_EQ("", order);
}

TEST_F(SteppedEvents, RunUntilEndsWhenNothingIsLeftToWaitFor)
{
    events.after(1s, note('t'));
    EXPECT_FALSE(events.run_until([] { return false; }));
    EXPECT_EQ("t", order);
}

TEST_F(SteppedEvents, RunUntilRunsNothingWhenItIsDoneAlready)
{
    events.post(note('a'));
    EXPECT_TRUE(events.run_until([] { return true; }));
    EXPECT_EQ("", order);
}

TEST_F(SteppedEvents, AWatchIsCalledEachTimeThereIsSomethingToRead)
{
    const Pipe pipe;
    events.watch_readable(pipe.reader(), [this, &pipe] { order += pipe.read(); });
    EXPECT_EQ(0u, events.run_until_idle());
    pipe.write("ab"); // one byte is read at each call
    EXPECT_EQ(2u, events.run_until_idle());
    pipe.write("c");
    EXPECT_EQ(1u, events.run_until_idle());
    EXPECT_EQ("abc", order);
}

TEST_F(SteppedEvents, AnUnwatchedDescriptorIsLeftAloneAndOpen)
{
    const Pipe pipe;
    events.watch_readable(pipe.reader(), note('x'));
    events.unwatch(pipe.reader());
    pipe.write("a");
    EXPECT_EQ(0u, events.run_until_idle());
    EXPECT_EQ('a', pipe.read());
}

TEST_F(SteppedEvents, AWatchMayEndItselfAndBeginAnew)
{
    const Pipe pipe;
    events.watch_readable(pipe.reader(), [this, &pipe] {
        order += pipe.read();
        events.unwatch(pipe.reader());
        events.watch_readable(pipe.reader(), [this, &pipe] {
            order += static_cast<char>(pipe.read() - 'a' + 'A');
            events.unwatch(pipe.reader());
        });
    });
    pipe.write("abc");
    EXPECT_EQ(2u, events.run_until_idle());
    EXPECT_EQ("aB", order);
}

TEST_F(SteppedEvents, RunUntilWaitsForADescriptorWhenNoTimerIsLeft)
{
    const Pipe pipe;
    events.watch_readable(pipe.reader(), [this, &pipe] { order += pipe.read(); });
    std::thread writer([&pipe] {
        std::this_thread::sleep_for(20ms);
        pipe.write("w");
    });
    EXPECT_TRUE(events.run_until([this] { return !order.empty(); }));
    writer.join();
    EXPECT_EQ("w", order);
}

TEST_F(SteppedEvents, AnExceptionOfAnEventReachesWhoeverRunsIt)
{
    events.post([] { throw std::runtime_error("broken"); });
    events.post(note('a'));
    EXPECT_THROW(events.step(), std::runtime_error);
    EXPECT_TRUE(events.step());
    EXPECT_EQ("a", order);
}

TEST(EventManagerHandles, OnlyALivingEventManagerIsRecognised)
{
    auto events = std::make_unique<EventManager>();
    void *handle = events->handle();
    EXPECT_EQ(events.get(), EventManager::from_handle(handle));
    EXPECT_EQ(nullptr, EventManager::from_handle(nullptr));
    EXPECT_EQ(nullptr, EventManager::from_handle(&handle));
    events.reset();
    EXPECT_EQ(nullptr, EventManager::from_handle(handle));
}

TEST(EventsOnTheMachinesClock, ATimerTakesItsTimeAndDescriptorsAreServedMeanwhile)
{
    EventManager events;
    const Pipe pipe;
    std::string order;
    events.watch_readable(pipe.reader(), [&] { order += pipe.read(); });
    const auto begin = std::chrono::steady_clock::now();
    events.after(60ms, [&] { order += 't'; });
    std::thread writer([&pipe] {
        std::this_thread::sleep_for(10ms);
        pipe.write("w");
    });
    EXPECT_TRUE(events.run_until([&] { return order.size() == 2; }));
    writer.join();
    EXPECT_EQ("wt", order);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, 50ms);
}

} // namespace
