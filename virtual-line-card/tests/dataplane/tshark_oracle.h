// What tshark reads of a capture, as the yardstick of the parser.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace tshark_oracle {

struct Frame {
    std::string protocols;
    uint32_t wire_length = 0;
    std::optional<uint32_t> destination; // of the first IPv4 header, where its options let it stand
    uint8_t protocol = 0;
    uint16_t port = 0; // the destination's, of TCP and UDP
    uint32_t source = 0;
    uint16_t source_port = 0;

    // Whether IPv4 stands behind nothing but the link header, tags and LLC.
    bool is_direct_ipv4() const;
};

// Every frame of the capture, in order. Throws std::runtime_error when tshark cannot be run.
std::vector<Frame> read(const std::filesystem::path &capture);

} // namespace tshark_oracle
