// `inlinectl sites`: the debug points of a host, listed, switched and followed.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include "command.h"

namespace inlinectl {

struct SitesOptions {
    std::optional<std::filesystem::path> state_directory;
    std::string query;
    bool json = false;
    std::function<void(const SitesOptions &)> check_query;
    std::function<int(const SitesOptions &)> act; // without one the sites are listed
};

Command sites_command();

void declare_site_list(CLI::App &app, SitesOptions &options);
void check(const SitesOptions &options); // UsageError
int perform(const SitesOptions &options);

} // namespace inlinectl
