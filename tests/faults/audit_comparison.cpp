#include "audit_comparison.h"

#include <algorithm>

#include "card_hardware.h"
#include "predicted_audit.h"
#include "scenario_card.h"

namespace test {
namespace {

// Both sorted.
void compare(const std::string &what, const std::vector<std::string> &expected,
             const std::vector<std::string> &found, std::vector<std::string> *lines)
{
    const auto say = [&](const std::vector<std::string> &one, const std::vector<std::string> &other,
                         const std::string &how) {
        std::vector<std::string> only_one;
        std::ranges::set_difference(one, other, std::back_inserter(only_one));
        for (const std::string &line : only_one)
            lines->push_back(what + how + line);
    };
    say(expected, found, " is missing: ");
    say(found, expected, " is not predicted: ");
}

std::vector<std::string> sorted(std::vector<std::string> lines)
{
    std::ranges::sort(lines);
    return lines;
}

} // namespace

std::vector<std::string> audit_differences(const ReferenceModel &model, const shadow_db *root,
                                           vlc::VirtualLineCard &card)
{
    const inlinectl::CardHardware hardware(card.access());
    services::AuditInput input;
    input.root = root;
    input.in_shared_memory = inlinectl::in_window(card.window());
    input.counters_unswapped = card.config().card_type == unswapped_card;
    input.first_counter = ModelCard::first_counter;
    // A bitmap that was made for a smaller region ends there, and behind it lies something else.
    input.counter_count = std::min(ModelCard::counter_count, model.bitmap_places - 32);
    input.num_nps = model.card.nps;
    input.hardware = &hardware;
    const services::AuditReport report = services::audit(input);
    std::vector<std::string> lines;
    compare("finding", predicted_findings(model, input.counters_unswapped, input.counter_count),
            lines_of(report.findings), &lines);
    const std::vector<std::string> answers = lines_of(report.in_flight);
    compare("unread answer", sorted(predicted_answers(model)), sorted(answers), &lines);
    if (lines.empty() && answers != predicted_answers(model))
        lines.push_back("the unread answers stand in another order");
    return lines;
}

} // namespace test
