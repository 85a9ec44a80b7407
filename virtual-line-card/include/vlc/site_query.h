// Words that select debug points and change their flags:
//
//   file prm* line 100-200 +p; func *register* format "rc=%s" arg rc=22 +s
//
// All words of a query must hold. Queries stand one behind the other, with a semicolon between.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "vlc/site_table.h"

namespace vlc {

// "column N: what is wrong", for a person.
class SiteQueryError : public std::runtime_error {
public:
    SiteQueryError(size_t column, const std::string &why)
        : std::runtime_error("column " + std::to_string(column) + ": " + why)
    {
    }
};

struct FlagChange {
    char how = '+'; // '+' sets, '-' clears, '=' is the built-in value with these
    uint16_t flags = 0;

    uint16_t applied_to(uint16_t before) const;
};

// An argument must have this value for a slow site to print.
struct SiteCondition {
    std::string name;
    std::string value;
};

struct SiteQuery {
    std::vector<std::function<bool(const StoredSite &)>> words; // all must hold
    std::vector<SiteCondition> conditions;
    std::optional<FlagChange> change;

    bool selects(const StoredSite &site) const;
};

// Each with its change at the end. Throws SiteQueryError.
std::vector<SiteQuery> parse_site_changes(std::string_view text);
// One without a change; without a word it selects every site. Throws SiteQueryError.
SiteQuery parse_site_selection(std::string_view text);

// "ps", or "_" for the built-in value.
std::string flag_letters(uint16_t flags);

} // namespace vlc
