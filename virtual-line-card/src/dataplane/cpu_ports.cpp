#include "vlc/cpu_ports.h"

#include <cerrno>
#include <string>

#include "frame_capture.h"
#include "packet_socket.h"
#include "vlc/state_error.h"

namespace vlc {

CpuPorts::CpuPorts(const CardConfig &config, const StateDirectory &directory)
{
    for (const CpuPortConfig &row : config.cpu_ports) {
        if (row.np >= config.num_nps || row.device.empty())
            continue;
        const uint32_t port = *cpu_port_of(config, row.np);
        std::unique_ptr<FrameSink> &sink = sinks_[port];
        if (sink)
            throw StateError("CPU port " + std::to_string(port) + ": has two devices");
        sink = std::make_unique<PacketSocket>(port, row.device);
    }
    for (uint32_t np = 0; np < config.num_nps; np++) {
        const std::optional<uint32_t> port = cpu_port_of(config, np);
        if (!port || sinks_.contains(*port))
            continue;
        const std::string name = "cpu-port" + std::to_string(*port) + ".pcap";
        sinks_[*port] = std::make_unique<FrameCapture>(directory.file(name.c_str()));
    }
}

CpuPorts::~CpuPorts() = default;

void CpuPorts::mend()
{
    for (const auto &[port, sink] : sinks_)
        sink->mend();
}

FrameOutcome CpuPorts::send(uint32_t port, std::span<const uint8_t> frame, int64_t nanoseconds)
{
    const auto sink = sinks_.find(port);
    if (sink == sinks_.end())
        return {ENODEV, ENODEV};
    return {0, sink->second->send(frame, nanoseconds)};
}

} // namespace vlc
