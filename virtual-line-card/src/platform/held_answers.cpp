#include "held_answers.h"

#include <utility>

namespace vlc {

std::function<void()> HeldAnswers::while_alive(std::function<void()> task) const
{
    return [alive = std::weak_ptr(alive_), task = std::move(task)] {
        if (!alive.expired())
            task();
    };
}

void HeldAnswers::after_turns(EventManager &events, uint32_t turns, std::function<void()> task)
{
    events.post(while_alive([this, &events, turns, task = std::move(task)] {
        if (turns <= 1)
            task();
        else
            after_turns(events, turns - 1, task);
    }));
}

void HeldAnswers::hold(EventManager &events, uint32_t handle, const StoredAnswer &answer,
                       uint32_t turns)
{
    after_turns(events, turns,
                [this, &events, handle, answer] { deliver(events, handle, answer); });
}

void HeldAnswers::deliver(EventManager &events, uint32_t handle, const StoredAnswer &answer)
{
    if (queue_(handle, answer))
        return;
    events.after(no_room_delay,
                 while_alive([this, &events, handle, answer] { deliver(events, handle, answer); }));
}

void HeldAnswers::hold_behind_next(EventManager &events, uint32_t handle,
                                   const StoredAnswer &answer)
{
    behind_next_[handle] = {&events, answer};
    events.post(while_alive([this, handle] { release_behind_next(handle); }));
}

void HeldAnswers::release_behind_next(uint32_t handle)
{
    const auto waiting = behind_next_.extract(handle);
    if (waiting)
        deliver(*waiting.mapped().events, handle, waiting.mapped().answer);
}

} // namespace vlc
