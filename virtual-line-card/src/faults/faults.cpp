#include "vlc/faults.h"

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstring>
#include <random>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <unistd.h>

#include "fault_fields.h"
#include "vlc/service_tap.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr int probability_bits = 53; // as many as a double holds exactly

// A call as a rule looks at it.
struct SeenCall {
    const PlatformService *service;
    const prm_config_record *record; // of a request; null for a call without one
    std::optional<uint32_t> np;
};

const PlatformService *find_service(std::string_view name)
{
    static const auto by_name = [] {
        std::unordered_map<std::string_view, const PlatformService *> services;
        for (const PlatformService &service : platform_services())
            services.emplace(service.name, &service);
        return services;
    }();
    const auto found = by_name.find(name);
    return found == by_name.end() ? nullptr : found->second;
}

class ActiveRule {
public:
    ActiveRule(const FaultRule &rule, uint64_t seed, size_t number) : rule_(rule)
    {
        std::seed_seq seeds{static_cast<uint32_t>(seed), static_cast<uint32_t>(seed >> 32),
                            static_cast<uint32_t>(number)};
        random_.seed(seeds);
        if (rule.probability)
            threshold_ = static_cast<uint64_t>(
                std::llround(std::ldexp(*rule.probability, probability_bits)));
        for (const PlatformService &service : platform_services()) {
            if (matches_pattern(service.name, rule.service) && !complaint_about(rule, service))
                services_.push_back(&service);
        }
    }

    bool matches(const SeenCall &call) const
    {
        if (std::find(services_.begin(), services_.end(), call.service) == services_.end())
            return false;
        if (rule_.np && call.np != rule_.np)
            return false;
        return rule_.key.empty() ||
               (call.record && call.record->key_len <= PRM_KEY_BYTES &&
                call.record->key_len >= rule_.key.size() &&
                std::memcmp(call.record->key, rule_.key.data(), rule_.key.size()) == 0);
    }

    // Whether the rule is due at its `match`-th match, having acted `fired` times.
    bool is_due(uint64_t match, uint64_t fired)
    {
        // Drawn at each match, so that what other rules do does not change what this one does.
        const bool drawn = !rule_.probability || random_() >> (64 - probability_bits) < threshold_;
        if (rule_.limit && fired >= *rule_.limit)
            return false;
        if (rule_.nth)
            return match == *rule_.nth;
        if (rule_.from)
            return match >= *rule_.from;
        if (rule_.every)
            return match % *rule_.every == 0;
        return drawn;
    }

private:
    const FaultRule &rule_;
    std::vector<const PlatformService *> services_;
    std::mt19937_64 random_;
    uint64_t threshold_ = 0;
};

[[noreturn]] void end_process()
{
    for (;;)
        kill(getpid(), SIGKILL);
}

PrmFault::Answer answer_of(FaultAction action)
{
    switch (action) {
    case FaultAction::answer:
    case FaultAction::table_full:
        return PrmFault::Answer::instead;
    case FaultAction::late:
        return PrmFault::Answer::late;
    case FaultAction::lose:
        return PrmFault::Answer::lost;
    case FaultAction::twice:
        return PrmFault::Answer::twice;
    case FaultAction::reorder:
        return PrmFault::Answer::behind_the_next;
    default:
        return PrmFault::Answer::as_it_is;
    }
}

// Puts the rule's part into the fault; false when a rule before it has decided that part.
bool add_to(PrmFault &fault, const FaultRule &rule)
{
    if (rule.action == FaultAction::restart || rule.action == FaultAction::np_reset) {
        if (fault.then != PrmFault::Then::nothing)
            return false;
        fault.then = rule.action == FaultAction::restart ? PrmFault::Then::restart
                                                         : PrmFault::Then::np_reset;
        fault.keep_tables = rule.keep_tables.value_or(true);
        fault.down_turns = rule.events.value_or(0);
        return true;
    }
    if (fault.answer != PrmFault::Answer::as_it_is)
        return false;
    fault.answer = answer_of(rule.action);
    fault.status =
        rule.action == FaultAction::table_full ? uint32_t{prm_table_full} : rule.status.value_or(0);
    fault.late_turns = rule.events.value_or(0);
    return true;
}

void require_good(const FaultPlan &plan)
{
    for (size_t i = 0; i < plan.rules.size(); i++) {
        if (const auto complaint = complaint_about(plan.rules[i]))
            throw StateError(place_text(plan, i) + ": " + complaint->why);
    }
}

} // namespace

struct Faults::State {
    FaultPlan plan;
    std::vector<ActiveRule> rules;
    std::vector<Count> counts;
    std::optional<AddedServiceTap> tap;

    explicit State(FaultPlan given) : plan(std::move(given)), counts(plan.rules.size())
    {
        require_good(plan);
        for (size_t i = 0; i < plan.rules.size(); i++)
            rules.emplace_back(plan.rules[i], plan.seed, i);
    }

    // The rules of one side that are due at a call; a kill among them does not return.
    std::vector<size_t> due(FaultSide side, const SeenCall &call)
    {
        std::vector<size_t> found;
        bool is_fatal = false;
        for (size_t i = 0; i < rules.size(); i++) {
            if (side_of(plan.rules[i]) != side || !rules[i].matches(call))
                continue;
            counts[i].matched++;
            if (!rules[i].is_due(counts[i].matched, counts[i].fired))
                continue;
            is_fatal |= plan.rules[i].action == FaultAction::kill;
            found.push_back(i);
        }
        if (is_fatal)
            end_process();
        return found;
    }

    std::optional<uint64_t> on_service(const ServiceCall &call);
    PrmFault on_prm(const PrmCall &call);
};

std::optional<uint64_t> Faults::State::on_service(const ServiceCall &call)
{
    SeenCall seen{find_service(call.service), nullptr, std::nullopt};
    if (!seen.service)
        return std::nullopt;
    if (seen.service->is_request() && call.args[1] != 0) {
        seen.record = reinterpret_cast<const prm_config_record *>(call.args[1]);
        seen.np = seen.record->np;
    } else if (seen.service->np_argument < call.arg_count) {
        seen.np = static_cast<uint32_t>(call.args[seen.service->np_argument]);
    }
    const std::vector<size_t> acting = due(FaultSide::host, seen);
    if (acting.empty())
        return std::nullopt;
    const FaultRule &rule = plan.rules[acting.front()];
    counts[acting.front()].fired++;
    if (rule.action == FaultAction::refuse) {
        const uint64_t retcode = call.args[seen.service->retcode_argument];
        if (retcode != 0)
            *reinterpret_cast<uint32_t *>(retcode) = *rule.retcode;
    }
    return rule.action == FaultAction::no_memory ? uint64_t{ENOMEM} : rule.code.value_or(0);
}

PrmFault Faults::State::on_prm(const PrmCall &call)
{
    PrmFault fault;
    for (const size_t i :
         due(FaultSide::card, {find_service(call.service), call.record, call.np})) {
        if (add_to(fault, plan.rules[i]))
            counts[i].fired++;
    }
    return fault;
}

Faults::Faults(FaultPlan plan) : state_(std::make_shared<State>(std::move(plan))) {}

Faults::~Faults() = default;

void Faults::attach_host()
{
    state_->tap.emplace(
        [state = state_.get()](const ServiceCall &call) { return state->on_service(call); });
}

void Faults::attach_card(Prm &prm, EventManager &events)
{
    // PRM may go before this or after it.
    prm.set_faults(
        [state = std::weak_ptr(state_)](const PrmCall &call) {
            const auto alive = state.lock();
            return alive ? alive->on_prm(call) : PrmFault{};
        },
        events);
}

const FaultPlan &Faults::plan() const
{
    return state_->plan;
}

const std::vector<Faults::Count> &Faults::counts() const
{
    return state_->counts;
}

} // namespace vlc
