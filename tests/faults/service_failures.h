// How each platform service fails: what it gives instead of being carried out.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform_services.h"

namespace test {

struct ServiceFailure {
    Service service;
    const char *what;
    uint64_t result;
    bool is_carried_out_all_the_same = false;
};

// In the order of their services. A service may have several.
std::span<const ServiceFailure> service_failures();

// Services that cannot fail, and why.
struct Infallible {
    Service service;
    const char *why;
};
std::span<const Infallible> infallible_services();

// Not called on the scenario's road: the tests of flows make them fail, and those of lookups the
// binding to the interface manager, which the library does once in a process.
std::span<const std::string_view> services_elsewhere();

// One failure at one place of the scenario.
struct FaultPoint {
    size_t failure = 0; // its place in service_failures()
    uint64_t nth = 1;
    bool for_ever = false; // from the n-th call on; otherwise this call alone

    const ServiceFailure &how() const { return service_failures()[failure]; }
    // What the count-th call of a service gives.
    std::optional<uint64_t> answer(Service service, uint64_t count) const;
};

// "shmwin_malloc:0:17:once": service, its failure's number, call. The form that is read again.
std::string describe(const FaultPoint &point);
std::optional<FaultPoint> point_named(const std::string &text);

} // namespace test
