#include "host_handles.h"

namespace inlinectl {

services::HostHandles handles_of(vlc::VirtualLineCard &card, CardSession &session)
{
    return {.event_manager = card.events().handle(),
            .window_id = card.window_id(),
            .num_nps = card.config().num_nps,
            .root = static_cast<shadow_db *>(card.window().root()),
            .publish_root = [&card](shadow_db *root) { card.window().set_root(root); },
            .run_until =
                [&session](const std::function<bool()> &done) { return session.run_until(done); }};
}

std::unique_ptr<vlc::VirtualLineCard> card_of(const std::optional<std::filesystem::path> &socket,
                                              const vlc::CardConfig &config,
                                              const std::filesystem::path &state_directory)
{
    if (socket)
        return std::make_unique<vlc::VirtualLineCard>(vlc::CardAtSocket{*socket}, state_directory);
    return std::make_unique<vlc::VirtualLineCard>(config, state_directory);
}

} // namespace inlinectl
