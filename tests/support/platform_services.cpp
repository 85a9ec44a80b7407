#include "platform_services.h"

#include <algorithm>

namespace test {

std::optional<Service> service_named(std::string_view name)
{
    const auto found = std::find(service_names.begin(), service_names.end(), name);
    if (found == service_names.end())
        return std::nullopt;
    return static_cast<Service>(found - service_names.begin());
}

} // namespace test
