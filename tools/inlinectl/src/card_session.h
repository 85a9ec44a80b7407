// A run's dealings with its card, which may be in another process, and away for a while.
#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "vlc/virtual_line_card.h"

namespace inlinectl {

class CardSession {
public:
    // How long a card that is away is waited for.
    static constexpr std::chrono::seconds patience{10};
    // How long an interrupted run still takes in what the card says: a fault plan may make it say
    // something new for ever.
    static constexpr std::chrono::seconds patience_when_interrupted{1};

    explicit CardSession(vlc::VirtualLineCard &card) : card_(card) {}

    // Waits for a card that is away; not again when it did not come. False: it is still away.
    bool wait_for_card();
    // Runs the card's events until all that the card has said has reached the library.
    void let_everything_arrive();
    void run_what_is_ready(); // the same without asking a card in another process
    // Runs events for so long, or until the run is interrupted.
    void run_for(vlc::CardClock::duration time);
    // Runs events until the run is interrupted, however long that takes.
    void stay();
    // Runs events until `done` holds. False when it cannot come to hold, the run is interrupted, or
    // the card stays away.
    bool run_until(const std::function<bool()> &done);

private:
    using Clock = std::chrono::steady_clock;

    bool must_end();

    vlc::VirtualLineCard &card_;
    bool was_given_up_ = false;
    std::optional<Clock::time_point> interrupted_at_; // when it was noticed
};

} // namespace inlinectl
