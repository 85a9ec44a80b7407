#include "killable_host.h"

#include <csignal>
#include <cstdio>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "vlc/service_tap.h"

namespace test {
namespace {

services::HostHandles handles_of(vlc::VirtualLineCard &card)
{
    return {
        .event_manager = card.events().handle(),
        .window_id = card.window_id(),
        .num_nps = card.config().num_nps,
        .root = static_cast<shadow_db *>(card.window().root()),
        .publish_root = [&card](shadow_db *root) { card.window().set_root(root); },
        .run_until =
            [&card](const std::function<bool()> &done) { return card.events().run_until(done); }};
}

bool is_debug_service(const std::string &service)
{
    return service.starts_with("ed_") || service == "_ltrace" || service == "cerr_strerror";
}

} // namespace

vlc::CardConfig config_of(const CardKind &kind)
{
    vlc::CardConfig config;
    config.card_type = kind.card_type;
    config.num_nps = kind.num_nps;
    config.service_config_capacity = 32;
    config.ext_conf_capacity = 32;
    config.window_bytes = uint64_t{1} << 20;
    return config;
}

KillableHost::KillableHost(const CardKind &kind, const std::filesystem::path &directory)
    : card(config_of(kind), directory), host(handles_of(card))
{
    host.start();
}

services::SettlementInput KillableHost::input()
{
    return {.root = host.root(),
            .in_shared_memory = inlinectl::in_window(card.window()),
            .hardware = &hardware_,
            .run_events = [this] { run_events(); }};
}

services::Settlement KillableHost::settle()
{
    return services::settle(input());
}

services::AuditReport KillableHost::look()
{
    return services::audit(services::audit_input_of(input()));
}

int live(const std::function<void()> &life)
{
    std::fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        vlc::CardClock::set_mode(vlc::ClockMode::stepped);
        try {
            life();
        } catch (const std::exception &error) {
            ADD_FAILURE() << error.what();
        }
        std::fflush(nullptr);
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

void die_at_call(uint64_t nth)
{
    vlc::set_service_tap([nth, calls = uint64_t{0}](
                             const vlc::ServiceCall &call) mutable -> std::optional<uint64_t> {
        if (!is_debug_service(call.service) && ++calls == nth)
            kill(getpid(), SIGKILL);
        return std::nullopt;
    });
}

} // namespace test
