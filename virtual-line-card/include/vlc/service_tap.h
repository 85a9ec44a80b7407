// Taps on every platform service that the card offers: each sees the calls in order, and may answer
// in the service's place. Tests record and force with them; a fault plan is a tap.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <memory>
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

// A tap that is on for as long as this lives. Taps are asked in the order in which they were put
// on, or before those that are there; the first result is given, and those behind it do not see the
// call.
class AddedServiceTap {
public:
    enum class Place { last, first };
    explicit AddedServiceTap(ServiceTap tap, Place place = Place::last);
    ~AddedServiceTap();
    AddedServiceTap(const AddedServiceTap &) = delete;
    AddedServiceTap &operator=(const AddedServiceTap &) = delete;

    struct Entry;

private:
    std::shared_ptr<Entry> entry_;
};

// One tap that stays until another is set in its place; an empty function takes it off.
void set_service_tap(ServiceTap tap);

// For the services themselves: the forced result, if a tap gives one. A service that a tap itself
// calls is performed without asking any.
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
