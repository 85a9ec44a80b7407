// The card's event manager: one thread, posts, timers and descriptors, on the card's own clock.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

namespace vlc {

enum class ClockMode {
    real,   // the machine's clock; waits take their time
    stepped // starts at a fixed instant and moves only when told or when nothing else is left to
            // do: a wait passes at once, and what is logged is reproducible
};

// Nanoseconds since 1970. The process has one; libc's sleep() and clock_gettime(CLOCK_REALTIME) of
// a program that contains the card follow it while it is stepped.
class CardClock {
public:
    using duration = std::chrono::nanoseconds;
    static void set_mode(ClockMode mode); // stepped begins at 2026-01-01 00:00:00 UTC
    static ClockMode mode();
    static duration now();
    static void advance(duration by); // stepped only
    static uint64_t slept_seconds();  // by sleep(), since the start
};

// Whether waiting for a descriptor is a reason to go on. What is watched beside the rest is served
// when it is ready and something else runs or is waited for: it keeps no run_until() going, and a
// stepped clock gives it no real time.
enum class Watched { waited_for, beside };

class EventManager {
public:
    using Task = std::function<void()>;
    using TimerId = uint64_t;

    EventManager();
    ~EventManager();
    EventManager(const EventManager &) = delete;
    EventManager &operator=(const EventManager &) = delete;

    void post(Task task);
    TimerId after(CardClock::duration delay, Task task);
    void cancel(TimerId timer);
    // Called each time it is readable.
    void watch_readable(int descriptor, Task task, Watched how = Watched::waited_for);
    void when_writable(int descriptor, Task task); // once, of one that is watched
    void unwatch(int descriptor);

    bool step();             // runs one ready event; false when none is ready
    size_t run_until_idle(); // runs what is ready, and what that makes ready
    // Runs until `done` holds or nothing is left to wait for. In stepped mode a pending timer is
    // reached by moving the clock; in real mode by waiting. Returns whether `done` holds.
    bool run_until(const std::function<bool()> &done);

    // What a host hands the library as its event manager, and back.
    void *handle() { return this; }
    static EventManager *from_handle(void *handle); // null for what is no event manager

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
