// The lives of a host in the kill sweep, each in a process of its own.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "cut_scenario.h"
#include "kill_card.h"
#include "kill_point.h"

namespace test {

// How far the processes got, in memory that all see.
struct KillProgress {
    uint64_t step = 0;             // that is being carried out; those before are acknowledged
    uint64_t requests_of_step = 0; // for the hardware, that were made in it
    uint64_t requests = 0;         // and in all
    uint64_t first_request_of_step[64] = {};
    uint64_t calls = 0;         // of platform services
    uint64_t card_requests = 0; // that reached the card
    enum : uint64_t { unsaid, agreed, differs } verdict = unsaid;
    char text[6000] = "";
};

struct KillLife {
    const KillSetting &setting;
    const std::vector<Step> &steps;
    const KillCard *card; // null when the host is its own
    KillProgress &progress;
};

inline constexpr const char *host_directory = "/tmp/host";

std::unique_ptr<ScenarioHost> host_of(const KillLife &life);
void say_verdict(const std::vector<std::string> &differences, KillProgress &progress);

// Carries out the scenario on a new directory, and is killed at the point or, for an instant, stops
// there. Without a point it comes to the end.
void live_and_die(const KillLife &life, const KillPoint *point);

// The host that follows: settles, compares, goes on, and says in `progress` what it found.
void live_on_what_is_left(const KillLife &life);

// A host that lives through the death of its card.
void live_through(const KillLife &life, const KillPoint &point);

} // namespace test
