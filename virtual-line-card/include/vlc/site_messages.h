// What a host's console and its clients say to each other about sites.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "vlc/trace_file.h"

namespace vlc {

inline constexpr const char *sites_verb = "sites set"; // asked with queries
inline constexpr const char *sites_topic = "sites";    // what sites print, a line each

// What queries came to at one site.
struct SiteChange {
    std::string component; // its short name
    uint32_t number = 0;
    uint16_t before = 0;
    uint16_t after = 0;
};

// What a site printed.
struct SitePrint {
    std::string component;
    TraceRecord record;
};

std::string text_of_changes(const std::vector<SiteChange> &changes);
std::string text_of_print(const SitePrint &print);
// Throw StateError for what a host of this version does not say.
std::vector<SiteChange> changes_of_text(std::string_view text);
SitePrint print_of_text(std::string_view line);

} // namespace vlc
