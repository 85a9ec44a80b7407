// A host's connection to a card in another process: requests go out and wait, announcements come on
// the event manager, and a broken connection is made again from there.
#pragma once

#include "card_link.h"
#include "vlc/event_manager.h"
#include "vlc/prm.h"

namespace vlc {

class HostLink {
public:
    // How often a card that is away is looked for, on the card's clock.
    static constexpr std::chrono::milliseconds reconnection_interval{100};

    HostLink(CardLink &link, EventManager &events); // of a link that is connected
    ~HostLink();
    HostLink(const HostLink &) = delete;
    HostLink &operator=(const HostLink &) = delete;

    CardLink::Reply ask(FrameKind kind, const Payload &payload,
                        const std::function<void(const Payload &)> &on_part = {});
    bool is_open() const { return link_.is_open(); }
    bool prm_is_up() const { return link_.is_open() && prm_is_up_; }
    void look_for_the_card(); // now, when it is away
    uint64_t announced() const { return announced_; }
    // Why the card that is away is not looked for any more; empty while it is, or is here.
    const std::string &given_up() const { return given_up_; }

    // Called when it is heard, which may be behind the reply of ask(): they post what is to come
    // of it.
    std::function<void(PrmEvent)> on_event;
    std::function<void(uint32_t handle)> on_answers;
    // Called when the connection broke, was made again, or is given up.
    std::function<void()> on_reach;

private:
    void watch();
    void after_traffic();
    void take(const Frame &announcement);
    void tell(PrmEvent event);
    void tell_reach() const;
    void notice_break();
    void look_again_later();

    CardLink &link_;
    EventManager &events_;
    bool prm_is_up_;
    bool is_watched_ = false;
    EventManager::TimerId timer_ = 0;
    uint64_t announced_ = 0;
    std::string given_up_;
};

} // namespace vlc
