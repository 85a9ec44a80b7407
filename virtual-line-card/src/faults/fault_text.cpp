// Rules in short, for people.
#include <cstdio>

#include "fault_fields.h"

namespace vlc {

namespace {

std::string hexadecimal(uint32_t value)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%X", value);
    return text;
}

std::string hexadecimal(const std::vector<uint8_t> &bytes)
{
    std::string all;
    char text[4];
    for (const uint8_t byte : bytes) {
        std::snprintf(text, sizeof text, "%02x", byte);
        all += text;
    }
    return all;
}

// Small codes are errno values, which people know by their number.
std::string code_text(uint32_t code)
{
    return code < 256 ? std::to_string(code) : hexadecimal(code);
}

} // namespace

std::string place_text(const FaultPlan &plan, size_t rule)
{
    const FaultRule &at = plan.rules[rule];
    if (at.line == 0)
        return "rule " + std::to_string(rule + 1);
    return plan.file + ":" + std::to_string(at.line) + ":" + std::to_string(at.column);
}

std::string service_text(const FaultRule &rule)
{
    std::string text = rule.service;
    if (rule.np)
        text += " np " + std::to_string(*rule.np);
    if (rule.table)
        text += std::string(" table ") + word_of(fault_tables, *rule.table);
    if (rule.operation)
        text += std::string(" operation ") + word_of(fault_operations, *rule.operation);
    if (!rule.key.empty())
        text += " key " + hexadecimal(rule.key);
    return text;
}

std::string action_text(const FaultRule &rule)
{
    std::string text = word_of(fault_actions, rule.action);
    if (rule.code)
        text += " " + code_text(*rule.code);
    if (rule.retcode)
        text += " retcode " + code_text(*rule.retcode);
    if (rule.status)
        text += " " + code_text(*rule.status);
    if (rule.keep_tables)
        text += std::string(", tables ") + word_of(fault_table_fates, *rule.keep_tables);
    if (rule.events)
        text += (rule.action == FaultAction::restart ? ", down for " : " by ") +
                std::to_string(*rule.events);
    if (rule.target)
        text += std::string(" ") + word_of(fault_targets, *rule.target);
    return text;
}

std::string trigger_text(const FaultRule &rule)
{
    std::string text = "each match";
    if (rule.nth)
        text = "match " + std::to_string(*rule.nth);
    else if (rule.from)
        text = "from match " + std::to_string(*rule.from);
    else if (rule.every)
        text = "every " + std::to_string(*rule.every) + " matches";
    else if (rule.probability) {
        char number[32];
        std::snprintf(number, sizeof number, "%g", *rule.probability);
        text = std::string("probability ") + number;
    }
    if (rule.limit)
        text += ", at most " + std::to_string(*rule.limit);
    return text;
}

} // namespace vlc
