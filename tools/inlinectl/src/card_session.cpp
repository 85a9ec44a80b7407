#include "card_session.h"

#include "interrupt.h"

namespace inlinectl {

bool CardSession::run_until(const std::function<bool()> &done)
{
    bool is_done = false;
    if (!card_.is_distant()) {
        // What a card in this process has to say is there: an interrupted run hears it out.
        card_.events().run_until([&] { return (is_done = done()) || must_end(); });
        return is_done;
    }
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
    card_.events().run_until([&] { return (is_done = done()) || is_over(); });
    card_.events().unwatch(interrupt_descriptor());
    return is_done;
}

void CardSession::run_for(vlc::CardClock::duration time)
{
    bool is_over = false;
    const auto timer = card_.events().after(time, [&is_over] { is_over = true; });
    run_until([&is_over] { return is_over || interrupted(); });
    card_.events().cancel(timer);
}

void CardSession::stay()
{
    card_.events().watch_readable(interrupt_descriptor(), [] {});
    card_.events().run_until([] { return interrupted(); });
    card_.events().unwatch(interrupt_descriptor());
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
        run_what_is_ready();
    } while (!must_end() && card_.access().settle());
}

void CardSession::run_what_is_ready()
{
    while (!must_end() && card_.events().step())
        continue;
}

bool CardSession::must_end()
{
    if (!interrupted())
        return false;
    if (!interrupted_at_)
        interrupted_at_ = Clock::now();
    return Clock::now() - *interrupted_at_ >= patience_when_interrupted;
}

} // namespace inlinectl
