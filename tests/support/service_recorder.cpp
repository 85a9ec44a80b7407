#include "service_recorder.h"

#include <algorithm>
#include <array>

namespace test {
namespace {

bool is_debug_service(const std::string &service)
{
    static const std::array<std::string, 3> services = {"_ltrace", "ed_print_debug",
                                                        "ed_slow_debugs"};
    return std::find(services.begin(), services.end(), service) != services.end();
}

} // namespace

ServiceRecorder::ServiceRecorder()
    : tap_([this](const vlc::ServiceCall &call) { return on_call(call); })
{
}

void ServiceRecorder::force(const std::string &service, uint64_t result, uint64_t nth,
                            uint64_t times)
{
    rules_[service] = {nth - 1, times, result};
}

void ServiceRecorder::script(const std::string &service, Script script)
{
    scripts_[service] = std::move(script);
}

void ServiceRecorder::stop_forcing()
{
    rules_.clear();
    scripts_.clear();
}

void ServiceRecorder::forget()
{
    calls_.clear();
}

std::vector<RecordedCall> ServiceRecorder::calls_of(const std::string &service) const
{
    std::vector<RecordedCall> found;
    std::copy_if(calls_.begin(), calls_.end(), std::back_inserter(found),
                 [&](const RecordedCall &call) { return call.service == service; });
    return found;
}

std::vector<std::string> ServiceRecorder::names() const
{
    std::vector<std::string> names;
    std::transform(calls_.begin(), calls_.end(), std::back_inserter(names),
                   [](const RecordedCall &call) { return call.service; });
    return names;
}

std::optional<uint64_t> ServiceRecorder::on_call(const vlc::ServiceCall &call)
{
    const std::string service = call.service;
    if (record_debug_ || !is_debug_service(service)) {
        calls_.push_back({service, {call.args.begin(), call.args.begin() + call.arg_count}});
        if (observer_)
            observer_(call);
    }
    if (const auto script = scripts_.find(service); script != scripts_.end())
        return script->second(call);
    const auto rule = rules_.find(service);
    if (rule == rules_.end())
        return std::nullopt;
    if (rule->second.skip > 0) {
        --rule->second.skip;
        return std::nullopt;
    }
    const uint64_t result = rule->second.result;
    if (rule->second.times != 0 && --rule->second.times == 0)
        rules_.erase(rule);
    return result;
}

} // namespace test
