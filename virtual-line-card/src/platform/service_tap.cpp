#include "vlc/service_tap.h"

#include <utility>
#include <vector>

namespace vlc {

bool service_tap_is_set = false;

struct AddedServiceTap::Entry {
    ServiceTap tap;
    bool is_on = true;
};

namespace {

using Taps = std::vector<std::shared_ptr<AddedServiceTap::Entry>>;

// Never changed in place: a tap may put on or take off any, itself too, while they are asked.
std::shared_ptr<const Taps> &taps()
{
    static auto &all = *new std::shared_ptr<const Taps>(std::make_shared<const Taps>());
    return all;
}

bool is_asking = false;

void replace(Taps all)
{
    taps() = std::make_shared<const Taps>(std::move(all));
    service_tap_is_set = !is_asking && !taps()->empty();
}

struct Muted {
    Muted()
    {
        is_asking = true;
        service_tap_is_set = false;
    }
    ~Muted()
    {
        is_asking = false;
        service_tap_is_set = !taps()->empty();
    }
};

} // namespace

AddedServiceTap::AddedServiceTap(ServiceTap tap, Place place) : entry_(std::make_shared<Entry>())
{
    entry_->tap = std::move(tap);
    Taps all = *taps();
    all.insert(place == Place::first ? all.begin() : all.end(), entry_);
    replace(std::move(all));
}

AddedServiceTap::~AddedServiceTap()
{
    entry_->is_on = false;
    Taps all = *taps();
    std::erase(all, entry_);
    replace(std::move(all));
}

void set_service_tap(ServiceTap tap)
{
    static auto &only = *new std::unique_ptr<AddedServiceTap>;
    only.reset();
    if (tap)
        only = std::make_unique<AddedServiceTap>(std::move(tap));
}

std::optional<uint64_t> ask_service_tap(const ServiceCall &call)
{
    const std::shared_ptr<const Taps> all = taps();
    const Muted muted;
    for (const auto &entry : *all) {
        if (!entry->is_on)
            continue;
        if (const auto forced = entry->tap(call))
            return forced;
    }
    return std::nullopt;
}

} // namespace vlc
