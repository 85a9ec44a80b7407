// Feeds a host's library with virtual services, and hears what it says of each.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "card_session.h"
#include "library_complaints.h"
#include "service_host.h"
#include "vlc/virtual_line_card.h"
#include "vservice_feeder.h"
#include "vservice_report.h"

namespace inlinectl {

class VserviceFeeding {
public:
    // Starts a host on the card, and settles what an earlier one left. Throws ServiceError, and
    // StateError for a shadow DB that cannot be gone on with.
    VserviceFeeding(std::unique_ptr<vlc::VirtualLineCard> card,
                    const std::filesystem::path &state_directory);

    void add(const vservice_config &record);
    void remove(uint32_t index);
    void remove_all() { feeder_->remove_all(); }
    VserviceReport finish();

private:
    void settle_what_was_left(const std::filesystem::path &state_directory);
    std::vector<std::string> heard();

    std::unique_ptr<vlc::VirtualLineCard> owned_card_;
    vlc::VirtualLineCard &card_;
    CardSession session_;
    services::ServiceHost host_;
    LibraryComplaints complaints_;
    std::optional<services::VserviceFeeder> feeder_;
    VserviceReport report_;
};

} // namespace inlinectl
