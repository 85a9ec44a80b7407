#include "kill_life.h"

#include <csignal>
#include <cstdio>
#include <cstring>

#include <sys/ptrace.h>
#include <unistd.h>

#include "vlc/service_tap.h"

namespace test {
namespace {

bool is_hardware_request(const char *service)
{
    return std::strncmp(service, "prm_srh_service_config_", 23) == 0 ||
           std::strncmp(service, "prm_srh_ext_service_db_", 23) == 0;
}

// Counts the platform calls of this process, and ends it at one.
vlc::ServiceTap counting_tap(const KillLife &life, const KillPoint *point)
{
    const Instant instant = life.setting.kind.instant;
    return [&life, point, instant](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        KillProgress &progress = life.progress;
        ++progress.calls;
        const bool is_request = is_hardware_request(call.service);
        if (is_request) {
            ++progress.requests;
            ++progress.requests_of_step;
        }
        if (point == nullptr)
            return std::nullopt;
        if (instant == Instant::any && progress.calls == point->nth)
            raise(SIGSTOP);
        if (instant == Instant::before_request && is_request && progress.requests == point->nth)
            kill(getpid(), SIGKILL);
        return std::nullopt;
    };
}

} // namespace

std::unique_ptr<ScenarioHost> host_of(const KillLife &life)
{
    if (life.card == nullptr)
        return std::make_unique<ScenarioHost>(
            scenario_card(life.setting.card.type, life.setting.num_nps), host_directory);
    return std::make_unique<ScenarioHost>(
        vlc::CardAtSocket{KillCard::socket}, host_directory,
        [card = life.card](CardAct what, uint32_t handle) { card->act(what, handle); });
}

void say_verdict(const std::vector<std::string> &differences, KillProgress &progress)
{
    std::string text;
    for (const std::string &line : differences)
        text += "    " + line + "\n";
    std::snprintf(progress.text, sizeof progress.text, "%s", text.c_str());
    progress.verdict = differences.empty() ? KillProgress::agreed : KillProgress::differs;
}

void live_and_die(const KillLife &life, const KillPoint *point)
{
    if (point != nullptr && life.setting.kind.instant == Instant::any)
        ptrace(PTRACE_TRACEME, 0, nullptr, nullptr);
    vlc::set_service_tap(counting_tap(life, point));
    const std::unique_ptr<ScenarioHost> host = host_of(life);
    for (life.progress.step = 0; life.progress.step < life.steps.size(); ++life.progress.step) {
        life.progress.requests_of_step = 0;
        life.progress.first_request_of_step[life.progress.step] = life.progress.requests + 1;
        host->carry_out(life.steps[life.progress.step]);
    }
    vlc::set_service_tap({});
    life.progress.verdict = KillProgress::agreed;
    // Not many instructions were left, and it is killed here.
    while (point != nullptr && life.setting.kind.instant == Instant::any)
        pause();
}

} // namespace test
