// What a host tells of itself, in words.
#pragma once

#include <cstdint>
#include <string>

#include "vlc/host_record.h"

namespace inlinectl {

const char *name_of(vlc::HostLife life);   // "running", "stopped", "killed"
const char *name_of(vlc::CardReach reach); // "own", "connected", "away", "given up"

// "2026-11-21 20:00:00", in UTC; "-" for 0.
std::string second_text(int64_t nanoseconds);

// "running since 2026-11-21 20:00:00, process 4711"
std::string life_text(const vlc::HostState &host);

// "PRM up, registered", "card away", ...
std::string connection_text(const vlc::HostConnection &connection);

// All that were taken in.
uint64_t requests_taken(const vlc::PrmLedger::Sums &sums);

} // namespace inlinectl
