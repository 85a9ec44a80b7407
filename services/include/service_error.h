// What went wrong in a host or a service, in one line for a person.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "platform_error_text.h"

namespace services {

class ServiceError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
    ServiceError(const std::string &call, uint32_t code)
        : std::runtime_error(call + " failed: " + cerr_strerror(code) + " (code " +
                             std::to_string(code) + ")")
    {
    }
};

// Throws for every code but 0.
inline void require_success(const char *call, uint32_t code)
{
    if (code != 0)
        throw ServiceError(call, code);
}

} // namespace services
