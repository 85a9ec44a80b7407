// A capture file of whole frames, Ethernet, that grows by one frame at a time.
#pragma once

#include <cstdint>
#include <filesystem>

#include "vlc/cpu_ports.h"

namespace vlc {

class FrameCapture final : public FrameSink {
public:
    // Looks at the file, which need not be there. Throws StateError for one that is no such
    // capture. A frame that is cut off at its end counts as not there.
    explicit FrameCapture(const std::filesystem::path &file);
    ~FrameCapture() override;
    FrameCapture(const FrameCapture &) = delete;
    FrameCapture &operator=(const FrameCapture &) = delete;

    void mend() override;
    // Makes the file when it is not there. A frame that the disk
    // refuses leaves nothing behind.
    uint32_t send(std::span<const uint8_t> frame, int64_t nanoseconds) override;

private:
    uint32_t open();

    std::filesystem::path path_;
    uint64_t good_bytes_ = 0; // up to the end of the last whole frame
    bool has_more_ = false;   // behind them
    int file_ = -1;
};

} // namespace vlc
