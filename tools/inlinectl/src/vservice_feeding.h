// Feeds a host's library with virtual services, and hears what it says of each.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "library_complaints.h"
#include "started_host.h"
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
    std::vector<std::string> heard();

    StartedHost host_;
    LibraryComplaints complaints_;
    std::optional<services::VserviceFeeder> feeder_;
    VserviceReport report_;
};

} // namespace inlinectl
