#include "listed_sites.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "decoded_trace.h"
#include "numbers.h"
#include "text_table.h"
#include "vlc/event_text.h"
#include "vlc/site_query.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"
#include "vlc/trace_file.h"

namespace inlinectl {
namespace {

using Align = TextTable::Align;
using Json = nlohmann::ordered_json;

// What a line of JSON says of a site that never changes.
Json json_of(const std::string &component, const vlc::StoredSite &site)
{
    return {{"component", component},
            {"number", site.number},
            {"file", site.file},
            {"line", site.line},
            {"function", site.function}};
}

void write_line(std::ostream &out, const Json &json)
{
    out << json.dump(-1, ' ', false, Json::error_handler_t::replace) << "\n";
}

} // namespace

ListedSites sites_in(const std::filesystem::path &state_directory)
{
    const vlc::StateDirectory directory(state_directory, vlc::Access::read_only);
    ListedSites listed;
    for (const std::string &component : vlc::traced_components(directory.path())) {
        try {
            const auto file = directory.path() / vlc::sites_file_name(component);
            for (vlc::StoredSite &site : vlc::read_sites(file).sites)
                listed.sites.push_back({component, std::move(site)});
        } catch (const vlc::StateError &error) {
            listed.notes.emplace_back(error.what());
        }
    }
    if (listed.sites.empty() && !listed.notes.empty())
        throw vlc::StateError(listed.notes.front());
    return listed;
}

std::vector<ChangedSite> with_sites(const std::vector<vlc::SiteChange> &changes,
                                    const std::vector<ListedSite> &sites)
{
    std::vector<ChangedSite> changed;
    for (const vlc::SiteChange &change : changes) {
        const auto found = std::ranges::find_if(sites, [&change](const ListedSite &one) {
            return one.component == change.component && one.site.number == change.number;
        });
        changed.push_back({change, found == sites.end() ? vlc::StoredSite{} : found->site});
    }
    return changed;
}

void write_text(std::ostream &out, const std::vector<ListedSite> &sites)
{
    if (sites.empty()) {
        out << "No site is listed.\n";
        return;
    }
    TextTable table({Align::left, Align::left, Align::right, Align::left, Align::left, Align::right,
                     Align::left});
    table.add({"site", "function", "number", "level", "flags", "hits", "text"});
    for (const auto &[component, site] : sites)
        table.add({site_place(site), printable(site.function), std::to_string(site.number),
                   trace_buffers[site.level != 0 ? 1 : 0], vlc::flag_letters(site.flags),
                   grouped(site.hits), printable(vlc::on_one_line(site.format))});
    table.write(out);
}

void write_json(std::ostream &out, const std::vector<ListedSite> &sites)
{
    for (const auto &[component, site] : sites) {
        Json json = json_of(component, site);
        json["level"] = site.level;
        json["buffer"] = trace_buffers[site.trace_buffer != 0 ? 1 : 0];
        json["flags"] = vlc::flag_letters(site.flags);
        json["flag_word"] = site.flags;
        json["line_filter"] = site.line_filter;
        json["hits"] = site.hits;
        json["text"] = site.format;
        json["arguments"] = site.arg_names;
        write_line(out, json);
    }
}

void write_text(std::ostream &out, const std::vector<ChangedSite> &changes)
{
    TextTable table({Align::left, Align::left, Align::right, Align::left, Align::left});
    table.add({"site", "function", "number", "before", "after"});
    size_t same = 0;
    for (const auto &[change, site] : changes) {
        same += change.before == change.after ? 1U : 0U;
        table.add({site_place(site), printable(site.function), std::to_string(change.number),
                   vlc::flag_letters(change.before), vlc::flag_letters(change.after)});
    }
    table.write(out);
    out << "\n"
        << counted(changes.size() - same, "site", "sites") << " changed, " << grouped(same)
        << " had it already\n";
}

void write_json(std::ostream &out, const std::vector<ChangedSite> &changes)
{
    for (const auto &[change, site] : changes) {
        Json json = json_of(change.component, site);
        json["before"] = vlc::flag_letters(change.before);
        json["after"] = vlc::flag_letters(change.after);
        json["flag_word"] = change.after;
        write_line(out, json);
    }
}

} // namespace inlinectl
