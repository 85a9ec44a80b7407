// A card's handles for a host on it, and the card that options name.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "card_session.h"
#include "service_host.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

services::HostHandles handles_of(vlc::VirtualLineCard &card, CardSession &session);

// The card at a socket if there is one, and otherwise one in this process.
std::unique_ptr<vlc::VirtualLineCard> card_of(const std::optional<std::filesystem::path> &socket,
                                              const vlc::CardConfig &config,
                                              const std::filesystem::path &state_directory);

} // namespace inlinectl
