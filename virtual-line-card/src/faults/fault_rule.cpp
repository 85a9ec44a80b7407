// Which fields, services and actions go together.
#include <algorithm>
#include <limits>

#include "fault_fields.h"
#include "vlc/nearest_name.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

using Complaint = std::optional<FaultComplaint>;

std::string in_quotes(std::string_view text)
{
    return "'" + std::string(text) + "'";
}

std::string name_of(FaultAction action)
{
    return in_quotes(word_of(fault_actions, action));
}

// ---- the action's own fields -------------------------------------------------------------------

struct ActionField {
    const char *name;
    bool (*is_given)(const FaultRule &);
    FaultAction action;
    bool is_needed;
};

constexpr ActionField action_fields[] = {
    {"code", [](const FaultRule &rule) { return rule.code.has_value(); }, FaultAction::give_code,
     true},
    {"code", [](const FaultRule &rule) { return rule.code.has_value(); }, FaultAction::refuse,
     false},
    {"retcode", [](const FaultRule &rule) { return rule.retcode.has_value(); }, FaultAction::refuse,
     true},
    {"status", [](const FaultRule &rule) { return rule.status.has_value(); }, FaultAction::answer,
     true},
    {"events", [](const FaultRule &rule) { return rule.events.has_value(); }, FaultAction::late,
     true},
    {"events", [](const FaultRule &rule) { return rule.events.has_value(); }, FaultAction::restart,
     false},
    {"tables", [](const FaultRule &rule) { return rule.keep_tables.has_value(); },
     FaultAction::restart, false},
    {"target", [](const FaultRule &rule) { return rule.target.has_value(); }, FaultAction::kill,
     true},
};

// "'late' or 'restart'"
std::string actions_with(std::string_view field)
{
    std::string actions;
    for (const ActionField &known : action_fields) {
        if (known.name == field)
            actions += (actions.empty() ? "" : " or ") + name_of(known.action);
    }
    return actions;
}

Complaint about_action_fields(const FaultRule &rule)
{
    for (const ActionField &field : action_fields) {
        const bool goes = std::any_of(
            std::begin(action_fields), std::end(action_fields), [&](const ActionField &other) {
                return std::string_view(other.name) == field.name && other.action == rule.action;
            });
        if (field.is_given(rule) && !goes)
            return {{field.name, in_quotes(field.name) + " goes with the action " +
                                     actions_with(field.name) + ", not with " +
                                     name_of(rule.action)}};
        if (field.is_needed && field.action == rule.action && !field.is_given(rule))
            return {{"action",
                     "the action " + name_of(rule.action) + " needs " + in_quotes(field.name)}};
    }
    return std::nullopt;
}

// ---- the trigger -------------------------------------------------------------------------------

Complaint about_trigger(const FaultRule &rule)
{
    constexpr const char *count_range = " is 1 or more";
    const struct {
        const char *name;
        bool is_given;
        bool is_good;
        const char *range;
    } triggers[] = {
        {"nth", rule.nth.has_value(), rule.nth != 0u, count_range},
        {"from", rule.from.has_value(), rule.from != 0u, count_range},
        {"every", rule.every.has_value(), rule.every != 0u, count_range},
        {"probability", rule.probability.has_value(),
         rule.probability > 0.0 && rule.probability <= 1.0, " is above 0 and at most 1"},
    };
    const char *first = nullptr;
    for (const auto &trigger : triggers) {
        if (!trigger.is_given)
            continue;
        if (first)
            return {{trigger.name,
                     in_quotes(first) + " and " + in_quotes(trigger.name) + " do not go together"}};
        first = trigger.name;
        if (!trigger.is_good)
            return {{trigger.name, in_quotes(trigger.name) + trigger.range}};
    }
    if (rule.limit == 0u)
        return {{"limit", in_quotes("limit") + count_range}};
    return std::nullopt;
}

// ---- the service -------------------------------------------------------------------------------

Complaint about_narrowing(const FaultRule &rule, const PlatformService &service)
{
    const std::string name = in_quotes(service.name);
    if (rule.np && !service.has_np())
        return {{"np", name + " has no NP"}};
    const struct {
        const char *field;
        bool is_given;
    } of_requests[] = {{"table", rule.table.has_value()},
                       {"operation", rule.operation.has_value()},
                       {"key", !rule.key.empty()}};
    for (const auto &[field, is_given] : of_requests) {
        if (is_given && !service.is_request())
            return {{field, name + " is no request for a table and has no " + field}};
    }
    if (rule.table && *rule.table != service.table)
        return {{"table",
                 name + " goes to the table " + in_quotes(word_of(fault_tables, service.table))}};
    if (rule.operation && *rule.operation != service.operation)
        return {{"operation", name + " is the operation " +
                                  in_quotes(word_of(fault_operations, service.operation))}};
    return std::nullopt;
}

Complaint about_code(const FaultRule &rule, const PlatformService &service)
{
    switch (service.returns) {
    case PlatformService::Returns::nothing:
        return {
            {"action", in_quotes(service.name) + " returns nothing, so it cannot return a code"}};
    case PlatformService::Returns::pointer:
        if (rule.code != 0u)
            return {{"code", in_quotes(service.name) +
                                 " returns a pointer: 'code' is 0, for the null pointer"}};
        break;
    case PlatformService::Returns::word:
        break;
    }
    return std::nullopt;
}

Complaint about_action(const FaultRule &rule, const PlatformService &service)
{
    const std::string action = name_of(rule.action);
    const std::string name = in_quotes(service.name);
    switch (rule.action) {
    case FaultAction::give_code:
        return about_code(rule, service);
    case FaultAction::no_memory:
        if (std::string_view(service.name) != "shmwin_malloc")
            return {{"action", action + " happens to 'shmwin_malloc' alone, not to " + name}};
        return std::nullopt;
    case FaultAction::refuse:
        if (service.retcode_argument == PlatformService::no_argument)
            return {{"action",
                     action + " happens to services that send frames, and " + name + " is none"}};
        return std::nullopt;
    case FaultAction::table_full:
        if (!service.is_request() || service.operation != PRM_OP_ADD)
            return {{"action", action + " happens to requests that add, and " + name + " is none"}};
        return std::nullopt;
    case FaultAction::answer:
    case FaultAction::late:
    case FaultAction::lose:
    case FaultAction::twice:
    case FaultAction::reorder:
        if (!service.is_request())
            return {
                {"action", action + " happens to requests for a table, and " + name + " is none"}};
        return std::nullopt;
    case FaultAction::kill:
    case FaultAction::restart:
    case FaultAction::np_reset:
        if (side_of(rule) == FaultSide::card && service.side != PlatformService::Side::card)
            return {{"action", action + (rule.action == FaultAction::kill ? " of the card" : "") +
                                   " happens at calls that reach the card, and " + name +
                                   " stays in the host"}};
        return std::nullopt;
    }
    return std::nullopt;
}

Complaint about_unknown_service(const std::string &given)
{
    std::vector<std::string_view> known;
    for (const PlatformService &service : platform_services())
        known.emplace_back(service.name);
    const bool is_pattern = given.find('*') != std::string::npos;
    return {{"service", (is_pattern ? "no platform service matches " + in_quotes(given)
                                    : in_quotes(given) + " is no platform service") +
                            nearest_known_name(given, known)}};
}

} // namespace

Complaint complaint_about(const FaultRule &rule, const PlatformService &service)
{
    if (Complaint complaint = about_narrowing(rule, service))
        return complaint;
    return about_action(rule, service);
}

Complaint complaint_about(const FaultRule &rule)
{
    if (Complaint complaint = about_action_fields(rule))
        return complaint;
    if (Complaint complaint = about_trigger(rule))
        return complaint;
    Complaint first;
    for (const PlatformService &service : platform_services()) {
        if (!matches_pattern(service.name, rule.service))
            continue;
        Complaint complaint = complaint_about(rule, service);
        if (!complaint)
            return std::nullopt;
        if (!first)
            first = std::move(complaint);
    }
    if (!first)
        return about_unknown_service(rule.service);
    if (rule.service.find('*') != std::string::npos)
        first->why =
            "no service that " + in_quotes(rule.service) + " matches will do: " + first->why;
    return first;
}

FaultSide side_of(const FaultRule &rule)
{
    switch (rule.action) {
    case FaultAction::give_code:
    case FaultAction::no_memory:
    case FaultAction::refuse:
        return FaultSide::host;
    case FaultAction::kill:
        return rule.target.value_or(FaultSide::host);
    default:
        return FaultSide::card;
    }
}

void require_side(const FaultPlan &plan, FaultSide side)
{
    for (size_t i = 0; i < plan.rules.size(); i++) {
        const FaultRule &rule = plan.rules[i];
        if (side_of(rule) == side)
            continue;
        const bool is_card = side_of(rule) == FaultSide::card;
        throw StateError(place_text(plan, i) + ": the action '" + action_text(rule) +
                         "' happens in the " + (is_card ? "card" : "host") +
                         "'s process: give this rule to " +
                         (is_card ? "'inlinectl card'" : "'inlinectl run'"));
    }
}

} // namespace vlc
