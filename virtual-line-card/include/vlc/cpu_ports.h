// The ports through which the card's CPU reaches its NPs. What is sent into a port is kept in a
// capture file of the state directory, or leaves on a device of the machine.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <span>

#include "vlc/card_config.h"
#include "vlc/state_directory.h"

namespace vlc {

// What became of a frame, as platform_packet_path.h has it: a code, and the service's retcode.
struct FrameOutcome {
    uint32_t code = 0;
    uint32_t retcode = 0;
    bool operator==(const FrameOutcome &) const = default;
};

// Where a port's frames go.
class FrameSink {
public:
    virtual ~FrameSink() = default;
    virtual void mend() {}
    // 0, or an errno value with nothing sent. Never SPP_RETCODE_QUEUE_FULL.
    virtual uint32_t send(std::span<const uint8_t> frame, int64_t nanoseconds) = 0;
};

class CpuPorts {
public:
    // Opens the devices, and looks at the files without changing them. Throws StateError for a
    // device that is not there or not permitted, and for a file that is no capture of a port.
    CpuPorts(const CardConfig &config, const StateDirectory &directory);
    ~CpuPorts();

    // Cuts off what a kill left of a frame at the end of a file. Throws StateError.
    void mend();
    // At this time, in nanoseconds since 1970.
    FrameOutcome send(uint32_t port, std::span<const uint8_t> frame, int64_t nanoseconds);

private:
    std::map<uint32_t, std::unique_ptr<FrameSink>> sinks_; // by port
};

} // namespace vlc
