#include "vlc/service_tap.h"

#include <memory>
#include <utility>

namespace vlc {

bool service_tap_is_set = false;

namespace {

// Shared, so that a tap may take itself off while it runs.
std::shared_ptr<const ServiceTap> current_tap;

struct Muted {
    Muted() { service_tap_is_set = false; }
    ~Muted() { service_tap_is_set = current_tap != nullptr; }
};

} // namespace

void set_service_tap(ServiceTap tap)
{
    current_tap = tap ? std::make_shared<const ServiceTap>(std::move(tap)) : nullptr;
    service_tap_is_set = current_tap != nullptr;
}

std::optional<uint64_t> ask_service_tap(const ServiceCall &call)
{
    const auto tap = current_tap;
    const Muted muted;
    return (*tap)(call);
}

} // namespace vlc
