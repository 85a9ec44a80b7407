// Posts, descriptors and real waiting are Boost.Asio's. Timers are kept here, by due time and then
// by age, and become posts once they are due: a timer queue of Asio's learns of a due timer from
// the kernel's clock, which makes the order against posts depend on the machine.
#include "vlc/event_manager.h"

#include <algorithm>
#include <map>
#include <mutex>
#include <set>
#include <utility>

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/post.hpp>

namespace asio = boost::asio;

namespace vlc {

namespace {

constexpr std::chrono::milliseconds real_time_for_others{2};

// Those alive in this process, by which a host's pointer is recognised.
struct Living {
    std::mutex mutex;
    std::set<void *> managers;
};

Living &living()
{
    static auto &all = *new Living;
    return all;
}

} // namespace

struct EventManager::State {
    struct Watch {
        asio::posix::stream_descriptor descriptor;
        Task task;
        Watched how;

        Watch(asio::io_context &io, int number, Task what, Watched as)
            : descriptor(io), task(std::move(what)), how(as)
        {
            descriptor.assign(number);
        }
        ~Watch() { stop(); }
        Watch(const Watch &) = delete;
        Watch &operator=(const Watch &) = delete;

        void stop() // the number stays its owner's to close
        {
            if (descriptor.is_open())
                descriptor.release();
        }
    };
    using Due = std::pair<CardClock::duration, TimerId>;

    // Without the hint that there is one thread: with it, what an event posts is not counted until
    // the event is over, and events that it runs itself make the count reach 0, which stops `io`.
    asio::io_context io;
    asio::executor_work_guard<asio::io_context::executor_type> keep_running{io.get_executor()};
    TimerId last_timer = 0;
    std::map<Due, Task> waiting;
    std::map<TimerId, CardClock::duration> due_times;
    std::map<TimerId, Task> due; // posted, not yet run
    std::map<int, std::shared_ptr<Watch>> watches;
    bool ran_a_task = false; // by the last handler: cancelled ones run nothing

    void run(const Task &task)
    {
        task();
        ran_a_task = true; // after the task, which may have run events itself
    }
    void post_due_timers();
    void run_timer(TimerId timer);
    void wait_for(const std::shared_ptr<Watch> &watch);
    bool has_descriptors_to_wait_for() const;
    void wait_for_an_event();
};

void EventManager::State::post_due_timers()
{
    while (!waiting.empty() && waiting.begin()->first.first <= CardClock::now()) {
        auto first = waiting.extract(waiting.begin());
        const TimerId timer = first.key().second;
        due_times.erase(timer);
        due.emplace(timer, std::move(first.mapped()));
        asio::post(io, [this, timer] { run_timer(timer); });
    }
}

void EventManager::State::run_timer(TimerId timer)
{
    const auto task = due.extract(timer);
    if (task)
        run(task.mapped());
}

void EventManager::State::wait_for(const std::shared_ptr<Watch> &watch)
{
    const std::weak_ptr<Watch> watched = watch;
    watch->descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                                 [this, watched](const boost::system::error_code &error) {
                                     const auto alive = watched.lock();
                                     if (!alive || error)
                                         return;
                                     run(alive->task);
                                     const auto place =
                                         watches.find(alive->descriptor.native_handle());
                                     if (place != watches.end() && place->second == alive)
                                         wait_for(alive);
                                 });
}

bool EventManager::State::has_descriptors_to_wait_for() const
{
    return std::ranges::any_of(
        watches, [](const auto &watch) { return watch.second->how == Watched::waited_for; });
}

// With nothing ready: until a descriptor is, or the first timer is due.
void EventManager::State::wait_for_an_event()
{
    if (waiting.empty()) {
        io.run_one();
        return;
    }
    const auto left = waiting.begin()->first.first - CardClock::now();
    if (CardClock::mode() == ClockMode::stepped) {
        // What a descriptor's other end is about to do takes real time, of which none passes here.
        if (!has_descriptors_to_wait_for() || io.run_one_for(real_time_for_others) == 0)
            CardClock::advance(left);
    } else if (left.count() > 0) {
        io.run_one_for(left);
    }
}

EventManager::EventManager() : state_(std::make_unique<State>())
{
    const std::lock_guard lock(living().mutex);
    living().managers.insert(this);
}

EventManager::~EventManager()
{
    const std::lock_guard lock(living().mutex);
    living().managers.erase(this);
}

EventManager *EventManager::from_handle(void *handle)
{
    const std::lock_guard lock(living().mutex);
    const bool alive = living().managers.count(handle) != 0;
    return alive ? static_cast<EventManager *>(handle) : nullptr;
}

void EventManager::post(Task task)
{
    asio::post(state_->io, [state = state_.get(), task = std::move(task)] { state->run(task); });
}

EventManager::TimerId EventManager::after(CardClock::duration delay, Task task)
{
    const TimerId timer = ++state_->last_timer;
    const auto due_time = CardClock::now() + delay;
    state_->waiting.emplace(State::Due{due_time, timer}, std::move(task));
    state_->due_times.emplace(timer, due_time);
    return timer;
}

void EventManager::cancel(TimerId timer)
{
    state_->due.erase(timer);
    const auto due_time = state_->due_times.extract(timer);
    if (due_time)
        state_->waiting.erase({due_time.mapped(), timer});
}

void EventManager::watch_readable(int descriptor, Task task, Watched how)
{
    unwatch(descriptor);
    auto watch = std::make_shared<State::Watch>(state_->io, descriptor, std::move(task), how);
    state_->watches.emplace(descriptor, watch);
    state_->wait_for(watch);
}

void EventManager::when_writable(int descriptor, Task task)
{
    State *state = state_.get();
    const std::shared_ptr<State::Watch> watch = state->watches.at(descriptor);
    watch->descriptor.async_wait(asio::posix::stream_descriptor::wait_write,
                                 [state, watched = std::weak_ptr(watch),
                                  task = std::move(task)](const boost::system::error_code &error) {
                                     if (!watched.expired() && !error)
                                         state->run(task);
                                 });
}

void EventManager::unwatch(int descriptor)
{
    const auto watch = state_->watches.extract(descriptor);
    if (watch)
        watch.mapped()->stop(); // at once, even when it is the watch whose task is running
}

bool EventManager::step()
{
    state_->post_due_timers();
    state_->ran_a_task = false;
    while (!state_->ran_a_task && state_->io.poll_one() > 0)
        continue;
    return state_->ran_a_task;
}

size_t EventManager::run_until_idle()
{
    size_t count = 0;
    while (step())
        count++;
    return count;
}

bool EventManager::run_until(const std::function<bool()> &done)
{
    while (!done()) {
        if (step())
            continue;
        if (state_->waiting.empty() && !state_->has_descriptors_to_wait_for())
            return false;
        state_->wait_for_an_event();
    }
    return true;
}

} // namespace vlc
