// A host that is killed in the middle of its work and starts again on the same directory. Each life
// is a process of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "card_hardware.h"
#include "service_host.h"
#include "settlement.h"
#include "vlc/virtual_line_card.h"

namespace test {

struct CardKind {
    uint32_t card_type;
    uint16_t num_nps;
};

vlc::CardConfig config_of(const CardKind &kind);

// A started host, for the life of a process.
class KillableHost {
public:
    KillableHost(const CardKind &kind, const std::filesystem::path &directory);

    services::Settlement settle();
    services::AuditReport look(); // the audit's, as the host would ask for it
    void run_events() { card.events().run_until_idle(); }
    services::SettlementInput input();

    vlc::VirtualLineCard card;
    services::ServiceHost host;

private:
    inlinectl::CardHardware hardware_{card.access()};
};

// Runs `life` in a process of its own. Returns how it ended: 0, or 1 when an expectation failed in
// it, or -SIGKILL.
int live(const std::function<void()> &life);

// From the `nth` call of a platform service on there is no further one: the process kills itself
// before it. Calls of the debug and trace services do not count.
void die_at_call(uint64_t nth);

} // namespace test
