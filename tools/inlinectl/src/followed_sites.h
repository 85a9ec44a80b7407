// What a running host's sites print, shown as it comes.
#pragma once

#include <filesystem>
#include <string_view>

#include "decoded_trace.h"
#include "terminal.h"
#include "vlc/site_query.h"

namespace inlinectl {

class FollowedSites {
public:
    FollowedSites(std::filesystem::path state_directory, vlc::SiteQuery query, bool json);
    // A line of the host's console. Throws StateError for another's words, and runtime_error when
    // nobody reads what is shown.
    void take(std::string_view line);

private:
    const vlc::StoredSites *sites_of(const std::string &component, uint64_t check);

    std::filesystem::path state_directory_;
    vlc::SiteQuery query_;
    bool json_;
    Style style_;
    std::vector<std::unique_ptr<vlc::StoredSites>> tables_;
};

} // namespace inlinectl
