// Answers that PRM has made and keeps back for a while. They are kept in memory alone: a PRM that
// dies forgets them, as it would.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include "vlc/event_manager.h"
#include "vlc/prm_store.h"

namespace vlc {

class HeldAnswers {
public:
    // `queue` puts an answer into its handle's queue; false when there is no room for it.
    using Queue = std::function<bool(uint32_t handle, const StoredAnswer &)>;
    // How long an answer waits that there was no room for.
    static constexpr std::chrono::milliseconds no_room_delay{100};

    explicit HeldAnswers(Queue queue) : queue_(std::move(queue)) {}

    // Runs `task` after this many turns of the event queue (0 as 1): in each, what is ready at its
    // begin is run first. Dropped when this goes before.
    void after_turns(EventManager &events, uint32_t turns, std::function<void()> task);

    // At once, or as soon as there is room.
    void deliver(EventManager &events, uint32_t handle, const StoredAnswer &answer);
    void hold(EventManager &events, uint32_t handle, const StoredAnswer &answer, uint32_t turns);
    // Until the handle's next answer is queued, or the next turn of the event queue.
    void hold_behind_next(EventManager &events, uint32_t handle, const StoredAnswer &answer);
    bool waits_for_next(uint32_t handle) const { return behind_next_.count(handle) != 0; }
    void release_behind_next(uint32_t handle);

private:
    struct Waiting {
        EventManager *events;
        StoredAnswer answer;
    };
    std::function<void()> while_alive(std::function<void()> task) const;

    Queue queue_;
    std::map<uint32_t, Waiting> behind_next_; // by handle, one each
    // Event managers may outlive this; what is left on them finds out through here.
    std::shared_ptr<const char> alive_ = std::make_shared<const char>();
};

} // namespace vlc
