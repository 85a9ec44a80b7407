// Which card a command is about, of all that says so.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

#include "vlc/card_config.h"

namespace inlinectl {

struct CardChoice {
    std::optional<std::filesystem::path> card_file;
    std::optional<uint16_t> num_nps; // instead of the card's own number
};

// A state goes on as the card that it was made for. Throws UsageError for another.
vlc::CardConfig card_of_state(const CardChoice &choice,
                              const std::optional<std::filesystem::path> &state_directory);

// The card that listens at a socket. Throws UsageError when another is asked for.
vlc::CardConfig card_at_socket(const CardChoice &choice, const std::filesystem::path &socket);

std::string card_text(const vlc::CardConfig &card); // "2 NPs, type 0xD20001"

} // namespace inlinectl
