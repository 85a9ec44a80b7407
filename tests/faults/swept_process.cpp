#include "swept_process.h"

#include <algorithm>
#include <sstream>

#include "audit_comparison.h"
#include "inline_service_attributes.h"
#include "inline_service_packet.h"
#include "platform_list.h"
#include "state_comparison.h"

namespace test {
namespace {

bool is_infallible(Service service)
{
    return std::ranges::any_of(infallible_services(), [service](const Infallible &infallible) {
        return infallible.service == service;
    });
}

Service service_of(const vlc::ServiceCall &call)
{
    // The names are literals of the card, so their addresses tell them apart at once.
    static std::vector<std::pair<const char *, Service>> known;
    for (const auto &[name, service] : known) {
        if (name == call.service)
            return service;
    }
    const std::optional<Service> service = service_named(call.service);
    if (!service)
        throw std::logic_error(std::string("unknown service ") + call.service);
    known.emplace_back(call.service, *service);
    return *service;
}

const std::filesystem::path &emptied(const std::filesystem::path &directory)
{
    std::filesystem::remove_all(directory);
    return directory;
}

} // namespace

SweptProcess::SweptProcess(uint32_t card_type, const std::filesystem::path &state_directory)
    : host_(scenario_card(card_type), emptied(state_directory)),
      model_({.nps = 2, .counters_turned_round = card_type != unswapped_card})
{
    // The library binds to the interface manager once in a process, which may carry out several
    // scenarios: so it has done that by now.
    uint32_t ignored = 0;
    inline_api_get_pic(ModelCard::interface, &ignored);
    plm_inline_spp_client_register({}); // once, too
    tap_.emplace([this](const vlc::ServiceCall &call) { return on_call(call); });
    ReferenceModel &reference = model_.reference();
    reference.set_rule([this, &reference](Service service, uint32_t) {
        const uint64_t count = reference.calls()[static_cast<size_t>(service)];
        return fault_ ? fault_->answer(service, count) : std::nullopt;
    });
}

std::optional<uint64_t> SweptProcess::on_call(const vlc::ServiceCall &call)
{
    const Service service = service_of(call);
    if (is_infallible(service))
        return std::nullopt;
    const uint64_t count = ++calls_[static_cast<size_t>(service)];
    if (!fault_ && observer_)
        observer_(service, count);
    const std::optional<uint64_t> forced = fault_ ? fault_->answer(service, count) : std::nullopt;
    if (forced && fault_->how().is_carried_out_all_the_same)
        list_remove_default(reinterpret_cast<list_record *>(call.args[0]),
                            reinterpret_cast<void *>(call.args[1]),
                            reinterpret_cast<void *>(call.args[2]));
    return forced;
}

bool SweptProcess::carry_out(const Step &step)
{
    step_ = &step;
    const StepResult found = host_.carry_out(step);
    try {
        const StepResult expected = model_.carry_out(step);
        if (!(found == expected)) {
            std::ostringstream line;
            line << "result: " << found << " instead of " << expected;
            differences_.push_back(line.str());
        }
    } catch (const ProcessEnd &) {
        differences_.push_back("the process goes on where it should have ended");
        return false;
    }
    compare_calls();
    if (host_.root() != nullptr &&
        (step.kind == StepKind::apply_batch || step.kind == StepKind::configure_vservice))
        learn_addresses(model_.reference(), *host_.root(), step.key);
    return !found.ends_the_scenario();
}

std::optional<ProcessEnd> SweptProcess::end_inside_step()
{
    try {
        model_.carry_out(*step_);
    } catch (const ProcessEnd &end) {
        compare_calls();
        return end;
    }
    return std::nullopt;
}

void SweptProcess::compare_calls()
{
    for (size_t i = 0; i < service_count; ++i) {
        const uint64_t expected = model_.reference().calls()[i];
        if (calls_[i] != expected)
            differences_.push_back("calls of " + std::string(service_names[i]) + ": " +
                                   std::to_string(calls_[i]) + " instead of " +
                                   std::to_string(expected));
    }
}

void SweptProcess::compare_state()
{
    for (const auto &found : {test::differences(model_.reference(), host_.root(), host_.card()),
                              audit_differences(model_.reference(), host_.root(), host_.card())})
        differences_.insert(differences_.end(), found.begin(), found.end());
}

} // namespace test
