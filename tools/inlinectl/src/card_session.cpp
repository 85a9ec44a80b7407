#include "card_session.h"

#include <optional>

#include "interrupt.h"

namespace inlinectl {

bool CardSession::run_until(const std::function<bool()> &done)
{
    using Clock = std::chrono::steady_clock;
    if (!card_.is_distant())
        return card_.events().run_until(done);
    std::optional<Clock::time_point> away_since;
    const auto is_over = [&] {
        if (!card_.card_is_away())
            away_since.reset();
        else if (!away_since)
            away_since = Clock::now();
        return interrupted() || !card_.why_given_up().empty() ||
               (away_since && Clock::now() - *away_since >= patience);
    };
    // A signal wakes the waiting.
    card_.events().watch_readable(interrupt_descriptor(), [] {});
    bool is_done = false;
    card_.events().run_until([&] { return (is_done = done()) || is_over(); });
    card_.events().unwatch(interrupt_descriptor());
    return is_done;
}

bool CardSession::wait_for_card()
{
    if (!card_.card_is_away())
        was_given_up_ = false;
    else if (!was_given_up_)
        was_given_up_ = !run_until([this] { return !card_.card_is_away(); });
    return !was_given_up_;
}

void CardSession::let_everything_arrive()
{
    wait_for_card();
    do {
        card_.events().run_until_idle();
    } while (card_.access().settle());
}

} // namespace inlinectl
