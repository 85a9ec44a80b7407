// The card of the scenario as a process of its own, that may be killed and started again.
#pragma once

#include <filesystem>

#include <sys/types.h>

#include "kill_point.h"
#include "scenario_card.h"

namespace test {

// When it is killed. Never, when `nth` is 0; stopped instead, to be traced, at `Instant::any`.
struct CardDeath {
    Instant instant = Instant::before_request;
    uint64_t nth = 0;
    uint64_t *requests = nullptr; // where it counts the requests that reached it, in shared memory
};

class KillCard {
public:
    static constexpr const char *socket = "/tmp/card.sock";
    static constexpr const char *state = "/tmp/card";

    explicit KillCard(vlc::CardConfig config);
    ~KillCard(); // killed when it lives
    KillCard(const KillCard &) = delete;
    KillCard &operator=(const KillCard &) = delete;

    // Returns when it listens.
    void start(const CardDeath &death = {});
    void kill();
    void is_dead() { process_ = -1; } // somebody else waited for it
    pid_t process() const { return process_; }

    // From any process that was forked from this one. Returns when it is done.
    void act(CardAct what, uint32_t handle) const;

private:
    [[noreturn]] void live(const CardDeath &death) const;

    vlc::CardConfig config_;
    int controls_ = -1;  // for whoever acts on the card
    int cards_end_ = -1; // for the card
    pid_t process_ = -1;
};

} // namespace test
