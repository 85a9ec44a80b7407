// A tap on every platform service that the card offers: sees each call in order, and may answer in
// the service's place. Tests record and force with it; a fault plan is a tap.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>

namespace vlc {

struct ServiceCall {
    const char *service;           // the C name
    std::array<uint64_t, 8> args;  // as passed, widened; pointers by address
    size_t arg_count;
};

// Returns the result to give instead of performing the service (a pointer result by address), or
// nothing to let it happen. Outputs of a forced call are the tap's to fill.
using ServiceTap = std::function<std::optional<uint64_t>(const ServiceCall &)>;

void set_service_tap(ServiceTap tap); // an empty function takes the tap off

} // namespace vlc
