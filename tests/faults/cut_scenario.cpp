#include "cut_scenario.h"

#include <map>
#include <sstream>

#include "audit_comparison.h"
#include "card_hardware.h"
#include "settled_model.h"
#include "settlement.h"
#include "state_comparison.h"

namespace test {
namespace {

// An entry as its service knows it.
struct Wanted {
    uint32_t table = 0, hw_index = 0;
    std::string key, result;
    bool operator==(const Wanted &) const = default;
};
using WantedEntries = std::map<uint32_t, Wanted>; // by id

WantedEntries entries_of(const ReferenceModel &model, uint16_t key)
{
    WantedEntries found;
    const auto entry = model.entries.find(key);
    if (entry == model.entries.end())
        return found;
    for (const ModelTable &table : entry->second.tables) {
        for (const NodePointer &node : table.listed) {
            const app_node &content = node->content;
            found[content.entry_id] = {
                content.table_type,
                content.hw_index,
                {reinterpret_cast<const char *>(content.key), content.key_len},
                {reinterpret_cast<const char *>(content.result), content.result_len}};
        }
    }
    return found;
}

// What the services want to be there behind a step: as on a card where nobody is killed.
ReferenceModel &wanted_behind(ScenarioModel &model, const std::vector<Step> &steps, size_t last)
{
    for (size_t i = 0; i <= last; ++i)
        model.carry_out(steps[i]);
    return model.reference();
}

EntryRequest request_for(uint32_t action, uint32_t id, const Wanted &entry)
{
    return {action, id, entry.table, entry.hw_index, entry.key, entry.result};
}

// Brings one to the other.
std::vector<EntryRequest> requests_between(const WantedEntries &there, const WantedEntries &wanted)
{
    std::vector<EntryRequest> requests;
    for (const auto &[id, entry] : there) {
        const auto place = wanted.find(id);
        if (place == wanted.end())
            requests.push_back(request_for(SHADOW_DB_DELETE, id, entry));
        else if (!(place->second == entry))
            requests.push_back(request_for(SHADOW_DB_MODIFY, id, place->second));
    }
    for (const auto &[id, entry] : wanted) {
        if (!there.contains(id))
            requests.push_back(request_for(SHADOW_DB_CREATE, id, entry));
    }
    return requests;
}

} // namespace

std::vector<Step> kill_scenario()
{
    std::vector<Step> steps = reference_scenario();
    std::erase_if(steps, [](const Step &step) {
        return step.kind == StepKind::reset_window || step.kind == StepKind::configure_vservice ||
               step.kind == StepKind::set_attributes || step.kind == StepKind::send_packets ||
               step.kind == StepKind::look_up_interfaces;
    });
    return steps;
}

CutScenario::CutScenario(ScenarioHost &host, const std::vector<Step> &steps, size_t cut_step)
    : host_(host), steps_(steps), cut_step_(cut_step),
      unswapped_(host.card().config().card_type == unswapped_card)
{
    begin_model();
}

void CutScenario::begin_model()
{
    model_ = std::make_unique<ScenarioModel>(ReferenceModel::Rules{
        .nps = host_.card().config().num_nps, .counters_turned_round = !unswapped_});
}

void CutScenario::carry_out(const Step &step, const std::string &name)
{
    const StepResult found = host_.carry_out(step);
    const StepResult expected = model_->carry_out(step);
    if (!(found == expected)) {
        std::ostringstream line;
        line << name << ": " << found << " instead of " << expected;
        say(line.str());
    }
    if (step.kind == StepKind::apply_batch)
        learn_addresses(model_->reference(), *host_.root(), step.key);
}

void CutScenario::settle()
{
    const inlinectl::CardHardware hardware(host_.card().access());
    const services::Settlement settlement =
        services::settle({.root = host_.root(),
                          .in_shared_memory = inlinectl::in_window(host_.card().window()),
                          .hardware = &hardware,
                          .run_events = [this] { host_.let_time_pass(); }});
    for (const std::string &line : settlement.left)
        say("the settlement left: " + line);
}

std::vector<std::string> CutScenario::state_differences()
{
    const ReferenceModel &reference = model_->reference();
    for (const auto &[key, entry] : reference.entries)
        learn_addresses(reference, *host_.root(), key);
    std::vector<std::string> all = test::differences(reference, host_.root(), host_.card());
    const std::vector<std::string> more = audit_differences(reference, host_.root(), host_.card());
    all.insert(all.end(), more.begin(), more.end());
    return all;
}

void CutScenario::compare(const std::string &when)
{
    for (const std::string &line : state_differences())
        say(when + ": " + line);
}

const Step *CutScenario::cut_change() const
{
    if (cut_step_ >= steps_.size())
        return nullptr;
    const Step &step = steps_[cut_step_];
    return step.kind == StepKind::apply_batch || step.kind == StepKind::clear_key ? &step : nullptr;
}

void CutScenario::make_up_for_cut_step()
{
    const Step &cut = *cut_change();
    ScenarioModel undisturbed({.nps = model_->reference().card.nps});
    Step step = cut;
    step.missing = Missing::is_left_out;
    step.requests =
        requests_between(entries_of(model_->reference(), cut.key),
                         entries_of(wanted_behind(undisturbed, steps_, cut_step_), cut.key));
    if (!step.requests.empty())
        carry_out(step, "what was left of " + describe(cut, cut_step_));
}

size_t CutScenario::next_step() const
{
    return cut_change() != nullptr ? cut_step_ + 1 : cut_step_;
}

void CutScenario::go_on(size_t step)
{
    for (; step < steps_.size() && differences_.empty(); ++step)
        carry_out(steps_[step], describe(steps_[step], step));
    compare("at the end");
    compare_with_what_services_want();
}

void CutScenario::compare_with_what_services_want()
{
    ScenarioModel undisturbed({.nps = model_->reference().card.nps});
    const ReferenceModel &wanted = wanted_behind(undisturbed, steps_, steps_.size() - 1);
    for (uint16_t key = 0; key < SHADOW_DB_KEYS; ++key) {
        if (entries_of(model_->reference(), key) != entries_of(wanted, key))
            say("at the end: key " + std::to_string(key) + " has not what its services want");
    }
}

} // namespace test
