// The sites of a state directory, and what a change came to, for a person and for programs.
#pragma once

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "vlc/site_messages.h"
#include "vlc/site_table.h"

namespace inlinectl {

struct ListedSite {
    std::string component; // its short name
    vlc::StoredSite site;
};

struct ListedSites {
    std::vector<ListedSite> sites;
    std::vector<std::string> notes; // tables that cannot be read
};

// Throws StateError for a directory that is none of a card, and when no table of it can be read.
ListedSites sites_in(const std::filesystem::path &state_directory);

struct ChangedSite {
    vlc::SiteChange change;
    vlc::StoredSite site; // empty when the directory does not have it
};
std::vector<ChangedSite> with_sites(const std::vector<vlc::SiteChange> &changes,
                                    const std::vector<ListedSite> &sites);

void write_text(std::ostream &out, const std::vector<ListedSite> &sites);
void write_json(std::ostream &out, const std::vector<ListedSite> &sites); // an object a line
void write_text(std::ostream &out, const std::vector<ChangedSite> &changes);
void write_json(std::ostream &out, const std::vector<ChangedSite> &changes);

} // namespace inlinectl
