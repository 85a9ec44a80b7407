#include "host_link.h"

#include <thread>

namespace vlc {

HostLink::HostLink(CardLink &link, EventManager &events)
    : link_(link), events_(events), prm_is_up_(link.card().prm_is_up)
{
    watch();
    // What came right behind the greeting, once there is somebody to hear it.
    events.post([this] { after_traffic(); });
}

HostLink::~HostLink()
{
    events_.cancel(timer_);
    if (is_watched_)
        events_.unwatch(link_.descriptor());
}

void HostLink::watch()
{
    is_watched_ = true;
    events_.watch_readable(link_.descriptor(), [this] {
        link_.receive_announcements();
        after_traffic();
    });
}

CardLink::Reply HostLink::ask(FrameKind kind, const Payload &payload,
                              const std::function<void(const Payload &)> &on_part)
{
    CardLink::Reply reply = link_.ask(kind, payload, on_part);
    after_traffic();
    return reply;
}

void HostLink::after_traffic()
{
    while (const std::optional<Frame> announcement = link_.next_announcement())
        take(*announcement);
    if (!link_.is_open() && is_watched_)
        notice_break();
}

void HostLink::take(const Frame &announcement)
{
    ++announced_;
    WireReader reader(announcement.payload);
    const auto what = reader.number<uint32_t>();
    if (announcement.kind == FrameKind::answers_waiting) {
        if (on_answers)
            on_answers(what);
        return;
    }
    if (what > static_cast<uint32_t>(PrmEvent::np_warm_boot))
        return; // of a newer card
    const auto event = static_cast<PrmEvent>(what);
    if (event == PrmEvent::connection_up || event == PrmEvent::connection_down)
        prm_is_up_ = event == PrmEvent::connection_up;
    tell(event);
}

void HostLink::tell(PrmEvent event)
{
    if (on_event)
        on_event(event);
}

void HostLink::tell_reach() const
{
    if (on_reach)
        on_reach();
}

void HostLink::notice_break()
{
    events_.unwatch(link_.descriptor());
    is_watched_ = false;
    link_.close();
    ++announced_;
    if (prm_is_up_)
        tell(PrmEvent::connection_down);
    prm_is_up_ = false;
    tell_reach();
    look_again_later();
}

void HostLink::look_again_later()
{
    events_.cancel(timer_);
    timer_ = events_.after(reconnection_interval, [this] { look_for_the_card(); });
}

void HostLink::look_for_the_card()
{
    if (link_.is_open() || !given_up_.empty())
        return;
    switch (link_.connect()) {
    case CardLink::Attempt::connected:
        events_.cancel(timer_);
        watch();
        prm_is_up_ = link_.card().prm_is_up;
        ++announced_;
        if (prm_is_up_)
            tell(PrmEvent::connection_up);
        tell_reach();
        after_traffic();
        return;
    case CardLink::Attempt::other_card:
        given_up_ = link_.why();
        tell_reach();
        return;
    case CardLink::Attempt::absent:
    case CardLink::Attempt::refused: // a card that has not noticed yet that this host is another's
        break;
    }
    // A card that starts needs real time, which a stepped clock does not let pass.
    if (CardClock::mode() == ClockMode::stepped)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    look_again_later();
}

} // namespace vlc
