#include "followed_sites.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>

#include "trace_report.h"
#include "vlc/site_messages.h"

namespace inlinectl {

FollowedSites::FollowedSites(std::filesystem::path state_directory, vlc::SiteQuery query, bool json)
    : state_directory_(std::move(state_directory)), query_(std::move(query)), json_(json),
      style_(standard_output_style())
{
}

// A component may come, or come anew, while it is followed.
const vlc::StoredSites *FollowedSites::sites_of(const std::string &component, uint64_t check)
{
    const auto found =
        std::ranges::find_if(tables_, [check](const auto &table) { return table->check == check; });
    if (found != tables_.end())
        return found->get();
    auto read = std::make_unique<vlc::StoredSites>(
        vlc::read_sites(state_directory_ / vlc::sites_file_name(component)));
    return tables_.emplace_back(std::move(read)).get();
}

void FollowedSites::take(std::string_view line)
{
    const vlc::SitePrint print = vlc::print_of_text(line);
    const DecodedEvent event =
        decode_event(print.component, print.record, sites_of(print.component, print.record.sites));
    if (!event.site || !query_.selects(*event.site))
        return;
    if (json_)
        write_json(std::cout, {event});
    else
        write_text(std::cout, {event}, style_);
    if (!std::cout.flush())
        throw std::runtime_error("the report could not be written");
}

} // namespace inlinectl
