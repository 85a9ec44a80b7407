// One end of a socket that carries frames, for an end that waits for what it asked for.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

#include "frame.h"
#include "unix_socket.h"

namespace vlc {

class FrameStream {
public:
    // How long the other end may take before the connection counts as broken.
    static constexpr std::chrono::seconds longest_wait{30};

    // False, with errno set, when nobody listens there.
    bool connect(const std::filesystem::path &path);
    void close() { socket_.close(); }
    bool is_open() const { return socket_.is_open(); }
    int descriptor() const { return socket_.descriptor(); }
    bool is_nonsense() const { return assembler_.is_broken(); } // what came is no frames

    // False when the connection broke. `*any_sent`: something went out, perhaps in part.
    bool send(std::span<const uint8_t> bytes, bool *any_sent);
    // Waits. Nothing when the connection broke.
    std::optional<Frame> next();
    // What has been read already.
    std::optional<Frame> next_that_is_there() { return assembler_.next(); }
    // Reads what is there, without waiting. False when the other end is gone.
    bool receive();

private:
    UnixSocket socket_;
    FrameAssembler assembler_;
};

} // namespace vlc
