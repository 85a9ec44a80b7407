#include "site_console.h"

#include <cstring>
#include <string>

#include "vlc/event_debug.h"
#include "vlc/site_messages.h"
#include "vlc/site_query.h"

namespace vlc {

namespace {

ConsoleAnswer set_sites(std::string_view request)
{
    try {
        const auto queries = parse_site_changes(request);
        return {0, text_of_changes(EventDebug::instance().change_sites(queries))};
    } catch (const SiteQueryError &error) {
        return {2, error.what()};
    } catch (const SiteQueryRefused &refused) {
        return {1, refused.what()};
    }
}

} // namespace

SiteConsole::SiteConsole(const StateDirectory &directory, HostConsole &console) : console_(console)
{
    EventDebug &registry = EventDebug::instance();
    registry.keep_in(directory.path());
    registry.on_follow([this](const ed_component &component, const TraceRecord &record) {
        if (!console_.has_followers(sites_topic))
            return false;
        const std::string short_name(component.short_name,
                                     strnlen(component.short_name, sizeof component.short_name));
        console_.tell(sites_topic, text_of_print({short_name, record}));
        return true;
    });
    console_.answer(sites_verb, set_sites);
}

SiteConsole::~SiteConsole()
{
    console_.answer(sites_verb, {});
    EventDebug::instance().on_follow({});
    EventDebug::instance().keep_in_memory();
}

} // namespace vlc
