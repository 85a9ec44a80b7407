// What every range of an injected frame is, told of the frame's own bytes. The places are those of
// inline_service_packet.h, by which the library builds frames.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace injection_layout {

enum class Kind {
    service, // towards a service line card: a payload in UDP and IPv4
    ip       // a whole IP packet
};

struct Range {
    size_t offset;
    size_t length;
    const char *part; // "prefix", "NP header", "IPv4", "UDP", "payload" or "packet"
    std::string meaning;
};

// Gapless, in order, up to the frame's end; of a frame that is cut off, what is there.
std::vector<Range> ranges_of(Kind kind, std::span<const uint8_t> frame);

} // namespace injection_layout
