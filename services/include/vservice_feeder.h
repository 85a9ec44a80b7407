// Feeds the library with virtual services: the messages that a controller of the router would send.
#pragma once

#include <cstdint>
#include <optional>

#include "inline_service_shadowdb.h"
#include "inline_service_vservice.h"

namespace services {

class VserviceFeeder {
public:
    // The host is up. Throws ServiceError when its window has no table of services.
    VserviceFeeder();

    // One message each, of one item, so that what the library says is said of that item.
    void add(const vservice_config &config) const;
    void remove(uint32_t index) const;
    void remove_all() const;

    // What is programmed for a service; nothing without an entry, and for an index that cannot be.
    std::optional<app_node> programmed(uint32_t index) const;
};

} // namespace services
