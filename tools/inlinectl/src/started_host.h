// A host of the tool's own on a card: started, with what an earlier one left settled.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "card_session.h"
#include "service_host.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {

class StartedHost {
public:
    // Throws ServiceError, and StateError for a shadow DB that cannot be gone on with.
    StartedHost(std::unique_ptr<vlc::VirtualLineCard> card,
                const std::filesystem::path &state_directory);

    vlc::VirtualLineCard &card() { return *card_; }
    CardSession &session() { return session_; }
    const std::vector<std::string> &not_settled() const { return not_settled_; }

private:
    void settle_what_was_left(const std::filesystem::path &state_directory);

    std::unique_ptr<vlc::VirtualLineCard> card_;
    CardSession session_;
    services::ServiceHost host_;
    std::vector<std::string> not_settled_;
};

} // namespace inlinectl
