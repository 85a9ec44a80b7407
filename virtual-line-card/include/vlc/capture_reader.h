// Reads classic pcap and pcapng captures.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "vlc/packet.h"

namespace vlc {

// Throws StateError, naming the file, when it cannot be opened, is no capture, has another link
// type than Ethernet and LINUX_SLL (named), or breaks off in the middle (with the number of the
// packet).
class CaptureReader {
public:
    explicit CaptureReader(const std::filesystem::path &file);
    ~CaptureReader();
    CaptureReader(CaptureReader &&) noexcept;
    CaptureReader(const CaptureReader &) = delete;

    bool next(CapturedPacket *packet); // false at the end; bytes are good until the next call
    double progress() const;           // 0 to 1, by bytes read

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
