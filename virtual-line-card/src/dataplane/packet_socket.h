// A device of the machine, for frames to leave on.
#pragma once

#include <cstdint>
#include <string>

#include "vlc/cpu_ports.h"

namespace vlc {

class PacketSocket final : public FrameSink {
public:
    // The port is for what is said of a device that cannot be used. Throws StateError.
    PacketSocket(uint32_t port, const std::string &device);
    ~PacketSocket() override;
    PacketSocket(const PacketSocket &) = delete;
    PacketSocket &operator=(const PacketSocket &) = delete;

    uint32_t send(std::span<const uint8_t> frame, int64_t nanoseconds) override;

private:
    int socket_ = -1;
    int device_ = 0; // its index
};

} // namespace vlc
