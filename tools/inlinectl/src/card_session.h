// A run's dealings with its card, which may be in another process, and away for a while.
#pragma once

#include <chrono>
#include <functional>

#include "vlc/virtual_line_card.h"

namespace inlinectl {

class CardSession {
public:
    // How long a card that is away is waited for.
    static constexpr std::chrono::seconds patience{10};

    explicit CardSession(vlc::VirtualLineCard &card) : card_(card) {}

    // Waits for a card that is away; not again when it did not come. False: it is still away.
    bool wait_for_card();
    // Runs the card's events until all that the card has said has reached the library.
    void let_everything_arrive();
    // Runs events until `done` holds. False when it cannot come to hold, the run is interrupted, or
    // the card stays away.
    bool run_until(const std::function<bool()> &done);

private:
    vlc::VirtualLineCard &card_;
    bool was_given_up_ = false;
};

} // namespace inlinectl
