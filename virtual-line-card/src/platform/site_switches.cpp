#include "site_switches.h"

#include <algorithm>
#include <set>
#include <span>

#include "vlc/event_text.h"
#include "vlc/nearest_name.h"

namespace vlc {

namespace {

std::span<ed_debug_point> points_of(const Registration &registration)
{
    return {registration.component->debug_points, registration.component->debug_point_count};
}

template <typename Visit>
void for_each_selected(const SiteQuery &query, const std::vector<Registration *> &components,
                       const Visit &visit)
{
    for (Registration *registration : components) {
        for (ed_debug_point &point : points_of(*registration)) {
            if (query.selects(site_of(point)))
                visit(*registration, point);
        }
    }
}

[[noreturn]] void refuse(const SiteQuery &query, size_t place, size_t queries,
                         const std::vector<Registration *> &components)
{
    const std::string which = queries > 1 ? "query " + std::to_string(place + 1) : "the query";
    if (components.empty())
        throw SiteQueryRefused("no component has registered its sites yet");
    std::set<std::string> names;
    for (const Registration *registration : components) {
        for (const ed_debug_point &point : points_of(*registration)) {
            const StoredSite site = site_of(point);
            names.insert(site.arg_names.begin(), site.arg_names.end());
        }
    }
    for (const SiteCondition &condition : query.conditions) {
        if (!names.contains(condition.name))
            throw SiteQueryRefused(which + " selects no site: none has an argument '" +
                                   condition.name + "'" +
                                   nearest_known_name(condition.name, names));
    }
    throw SiteQueryRefused(which + " selects no site");
}

bool holds(const SiteCondition &condition, const ed_debug_point &point, const uint64_t *args)
{
    for (uint32_t i = 0; args && point.arg_names && i < point.arg_count; i++) {
        if (condition.name == point.arg_names[i] &&
            argument_is(point.format, {args, point.arg_count}, i, condition.value))
            return true;
    }
    return false;
}

} // namespace

std::vector<SiteChange> SiteSwitches::carry_out(const std::vector<SiteQuery> &queries,
                                                const std::vector<Registration *> &components)
{
    std::map<ed_debug_point *, SiteChange> changes;
    for (size_t place = 0; place < queries.size(); place++) {
        bool selects = false;
        for_each_selected(queries[place], components, [&](Registration &of, ed_debug_point &point) {
            selects = true;
            changes.try_emplace(&point,
                                SiteChange{of.short_name, point.number, point.flags, point.flags});
        });
        if (!selects)
            refuse(queries[place], place, queries.size(), components);
    }
    for (const SiteQuery &query : queries) {
        for_each_selected(query, components, [&](Registration &of, ed_debug_point &point) {
            change(query, point);
            changes.at(&point).after = point.flags;
            of.sites->follow(point);
        });
    }
    std::vector<SiteChange> result;
    for (const auto &[point, change] : changes)
        result.push_back(change);
    std::ranges::sort(result, {}, [](const SiteChange &change) {
        return std::pair(change.component, change.number);
    });
    return result;
}

void SiteSwitches::change(const SiteQuery &query, ed_debug_point &point)
{
    const uint16_t flags = query.change->applied_to(point.flags);
    if ((flags & ED_SLOW) == 0)
        slow_.erase(&point);
    else if (query.change->how != '-' && (query.change->flags & ED_SLOW) != 0)
        slow_[&point] = query.conditions;
    // The component reads it whenever it says something.
    __atomic_store_n(&point.flags, flags, __ATOMIC_RELAXED);
}

bool SiteSwitches::passes(const ed_debug_point &point, const uint64_t *args) const
{
    const auto slow = slow_.find(&point);
    return slow != slow_.end() && std::ranges::all_of(slow->second, [&](const SiteCondition &one) {
               return holds(one, point, args);
           });
}

} // namespace vlc
