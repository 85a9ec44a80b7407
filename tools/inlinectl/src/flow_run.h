// The flow service on a card whose traffic is replayed: the traffic's time is the card's.
#pragma once

#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <optional>

#include "card_session.h"
#include "flow_options.h"
#include "flow_report.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

class FlowRun {
public:
    // The host is up, and the card's clock is stepped. `look` reads what the library has said; it
    // is called before that is overwritten. Throws ServiceError, and UsageError for an export that
    // cannot be written.
    FlowRun(const FlowChoice &choice, vlc::VirtualLineCard &card, CardSession &session,
            std::function<void()> look);
    ~FlowRun();
    FlowRun(const FlowRun &) = delete;
    FlowRun &operator=(const FlowRun &) = delete;

    services::FlowService &service() { return service_; }
    // Before the card gets the packet: lets the time pass that lies before it.
    void pass_time_to(const vlc::CapturedPacket &packet);
    // Behind the last packet. Accounts for the flows that go on.
    FlowReport finish();

private:
    class Export;

    std::optional<int64_t> last_packet_of(const flow_layout::Tuple &flow);
    void account_for(const services::FlowAccount &account);
    void note_change(); // of a flow, which the library has said much about

    vlc::VirtualLineCard &card_;
    CardSession &session_;
    std::function<void()> look_;
    uint32_t changes_ = 0; // since the last look
    int64_t now_ = 0;      // of the traffic; 0 before its first packet
    int64_t events_ran_at_ = 0;
    int64_t between_events_;
    FlowReport report_;
    std::unique_ptr<Export> export_; // null when none is wanted
    services::FlowService service_;
};

} // namespace inlinectl
