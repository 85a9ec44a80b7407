// A tap on every platform service that the card offers: sees each call in order, and may answer in
// the service's place. Tests record and force with it; a fault plan is a tap.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>

namespace vlc {

struct ServiceCall {
    static constexpr size_t max_args = 10;
    const char *service;                 // the C name
    std::array<uint64_t, max_args> args; // as passed, widened; pointers by address
    size_t arg_count;
};

// Returns the result to give instead of performing the service (a pointer result by address), or
// nothing to let it happen. Outputs of a forced call are the tap's to fill.
using ServiceTap = std::function<std::optional<uint64_t>(const ServiceCall &)>;

void set_service_tap(ServiceTap tap); // an empty function takes the tap off

// For the services themselves: the forced result, if the tap gives one. A service that the tap
// itself calls is performed without asking it again.
extern bool service_tap_is_set;
std::optional<uint64_t> ask_service_tap(const ServiceCall &call);

inline std::optional<uint64_t> tapped(const char *service, std::initializer_list<uint64_t> args)
{
    if (!service_tap_is_set) [[likely]]
        return std::nullopt;
    ServiceCall call{service, {}, args.size()};
    std::copy(args.begin(), args.end(), call.args.begin());
    return ask_service_tap(call);
}

} // namespace vlc
