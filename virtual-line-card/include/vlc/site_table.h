// The debug points of a component in the state directory, so that its traces can be read and its
// flags be seen by a process that has not loaded the component.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "platform_event_debug.h"

namespace vlc {

// A site as it stands in the file.
struct StoredSite {
    uint32_t number = 0;
    uint32_t line = 0;
    uint8_t level = 0;
    uint8_t trace_buffer = 0;
    uint16_t flags = 0;
    uint32_t line_filter = 0;
    uint64_t hits = 0; // trace events of it since the host's start
    std::string file;
    std::string function;
    std::string format;
    std::vector<std::string> arg_names;
};

// As it stands in memory; without hits.
StoredSite site_of(const ed_debug_point &point);

struct StoredSites {
    std::string name;       // of the component
    std::string short_name; // by which it is known
    uint64_t check = 0;     // of all that never changes; events say by it which table they need
    std::vector<StoredSite> sites; // by number

    const StoredSite *site(uint32_t number) const; // null when there is none
};

// Throws StateError for what is no table of sites, or damaged.
StoredSites read_sites(const std::filesystem::path &path);

// The table of a component that is registered. Flags and hits follow.
class SiteTable {
public:
    // Makes the file, or takes the one that is there for the same sites; hits begin at zero. Throws
    // StateError.
    SiteTable(const std::filesystem::path &path, const ed_component &component,
              std::span<const ed_debug_point *const> point_of_number);
    ~SiteTable();
    SiteTable(const SiteTable &) = delete;
    SiteTable &operator=(const SiteTable &) = delete;

    uint64_t check() const;
    void hit(const ed_debug_point &point) noexcept;
    void follow(const ed_debug_point &point) noexcept; // its flags and line filter

private:
    struct Table;
    std::unique_ptr<Table> table_;
};

} // namespace vlc
