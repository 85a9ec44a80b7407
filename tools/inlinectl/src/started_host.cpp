#include "started_host.h"

#include "card_hardware.h"
#include "host_handles.h"
#include "settlement.h"
#include "vlc/state_error.h"

namespace inlinectl {

StartedHost::StartedHost(std::unique_ptr<vlc::VirtualLineCard> card,
                         const std::filesystem::path &state_directory)
    : card_(std::move(card)), session_(*card_), host_(handles_of(*card_, session_))
{
    host_.start();
    session_.let_everything_arrive();
    if (host_.found_root())
        settle_what_was_left(state_directory);
}

// An earlier host may have been killed with an entry in flight.
void StartedHost::settle_what_was_left(const std::filesystem::path &state_directory)
{
    const CardHardware hardware(card_->access());
    const services::Settlement settled =
        services::settle({.root = host_.root(),
                          .in_shared_memory = in_window(card_->window()),
                          .hardware = &hardware,
                          .run_events = [this] { session_.let_everything_arrive(); }});
    if (settled.is_damaged)
        throw vlc::StateError(state_directory.string() +
                              ": the shadow DB there is damaged and was left as it is; see "
                              "'inlinectl audit'");
    not_settled_ = settled.left;
}

} // namespace inlinectl
