// Writes what a card sends out: a capture of raw IPv4 packets.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>

#include "vlc/encapsulated_packet.h"

namespace vlc {

class CaptureWriter {
public:
    // Replaces the file. Throws StateError when it cannot be made.
    explicit CaptureWriter(const std::filesystem::path &file);
    ~CaptureWriter();
    CaptureWriter(const CaptureWriter &) = delete;
    CaptureWriter &operator=(const CaptureWriter &) = delete;

    void write(const EncapsulatedPacket &packet) noexcept; // a failure is told by finish()
    // Throws StateError when not all of it is in the file.
    void finish();

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
