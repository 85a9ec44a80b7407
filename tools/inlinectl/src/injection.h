// One packet sent through a host's library, and what became of it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "injection_layout.h"

namespace inlinectl {

struct Injection {
    injection_layout::Kind kind = injection_layout::Kind::service;
    uint32_t tag = 0;
    uint32_t source = 0; // these two of a packet to a service line card, in host byte order
    uint32_t destination = 0;
    std::vector<uint8_t> bytes; // payload, or the IP packet
};

struct InjectionReport {
    injection_layout::Kind kind = injection_layout::Kind::service;
    bool is_sent = false;
    std::vector<std::string> said; // by the library, in order; the last is the outcome
    struct Frame {
        uint32_t port = 0;
        std::vector<uint8_t> bytes;
    };
    std::optional<Frame> frame; // none when the packet path was not reached
};

// In the host's process, on its thread, with its library started.
InjectionReport inject(const Injection &injection);

// For a host in another process. Reading throws std::invalid_argument for what is no such text.
std::string text_of(const Injection &injection);
Injection injection_of(std::string_view text);
std::string text_of(const InjectionReport &report);
InjectionReport injection_report_of(std::string_view text);

} // namespace inlinectl
