// Every platform service by name, with what can be told apart of its calls and how it can fail.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "vlc/np_store.h"

namespace vlc {

struct PlatformService {
    enum class Returns { word, pointer, nothing };
    // Whether calls reach the card, or stay in the host's process.
    enum class Side { host, card };
    static constexpr uint32_t no_operation = UINT32_MAX;
    static constexpr size_t no_argument = SIZE_MAX;

    const char *name;
    Returns returns;
    Side side = Side::host;
    // Of a request for a table; its second argument is the record.
    TableKind table = TableKind::service_config;
    uint32_t operation = no_operation;
    size_t np_argument = no_argument;      // where the NP is passed by itself
    size_t retcode_argument = no_argument; // where it writes what became of a frame

    bool is_request() const { return operation != no_operation; }
    bool has_np() const { return is_request() || np_argument != no_argument; }
};

std::span<const PlatformService> platform_services();

// A name in which each * stands for any letters, none too.
bool matches_pattern(std::string_view name, std::string_view pattern);

} // namespace vlc
