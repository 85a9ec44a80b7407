// Debug points switched by queries while their component runs.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "event_registration.h"
#include "vlc/event_debug.h"
#include "vlc/site_query.h"

namespace vlc {

class SiteSwitches {
public:
    // Throws SiteQueryRefused, with nothing changed, when a query selects no site.
    std::vector<SiteChange> carry_out(const std::vector<SiteQuery> &queries,
                                      const std::vector<Registration *> &components);
    // Whether a message of a slow site passes: a query made it slow, and its conditions hold.
    bool passes(const ed_debug_point &point, const uint64_t *args) const;

private:
    void change(const SiteQuery &query, ed_debug_point &point);

    std::map<const ed_debug_point *, std::vector<SiteCondition>> slow_;
};

} // namespace vlc
