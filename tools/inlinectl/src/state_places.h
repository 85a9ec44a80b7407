// Where a command finds a host's state and the card under it.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "vlc/card_access.h"
#include "vlc/state_directory.h"

namespace CLI {
class App;
}

namespace inlinectl {

struct StatePlaces {
    std::optional<std::filesystem::path> state_directory; // the host's
    std::optional<std::filesystem::path> card_directory;  // the card's, where it is another
    std::optional<std::filesystem::path> card_socket;     // of a card that runs
};

// Declares the options that say where a card is, of the host that `which` of several names.
void declare_card_places(CLI::App &app, StatePlaces &places, const std::string &which = "");

// Declares all of the options, which must outlive the parsing.
void declare_state_places(CLI::App &app, StatePlaces &places);

// Throws UsageError for what is missing or cannot be asked for together.
void check_state_places(const StatePlaces &places);
void check_card_places(const StatePlaces &places);

// A host's directory, for looking alone. Throws UsageError and StateError.
vlc::StateDirectory open_host(const std::filesystem::path &path);

// The card of that host. Throws UsageError when nobody says where it is, or for another's;
// StateError when it cannot be looked into.
std::unique_ptr<vlc::CardAccess> open_card(const StatePlaces &places,
                                           const vlc::StateDirectory &host);

} // namespace inlinectl
