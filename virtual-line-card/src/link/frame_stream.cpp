#include "frame_stream.h"

#include <poll.h>

#include <array>

namespace vlc {

namespace {

constexpr size_t piece_bytes = size_t{64} << 10;

} // namespace

bool FrameStream::connect(const std::filesystem::path &path)
{
    assembler_ = {};
    socket_ = UnixSocket::connect(path);
    return socket_.is_open();
}

bool FrameStream::send(std::span<const uint8_t> bytes, bool *any_sent)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t now = socket_.send_some(bytes.subspan(sent));
        if (now < 0 || (now == 0 && !socket_.wait(POLLOUT, longest_wait)))
            return false;
        sent += static_cast<size_t>(now);
        *any_sent = sent > 0;
    }
    return true;
}

std::optional<Frame> FrameStream::next()
{
    std::array<uint8_t, piece_bytes> piece;
    for (;;) {
        if (std::optional<Frame> frame = assembler_.next())
            return frame;
        if (assembler_.is_broken())
            return std::nullopt;
        const ssize_t got = socket_.receive_some(piece);
        if (got < 0 || (got == 0 && !socket_.wait(POLLIN, longest_wait)))
            return std::nullopt;
        assembler_.feed(std::span(piece).first(static_cast<size_t>(got)));
    }
}

bool FrameStream::receive()
{
    std::array<uint8_t, piece_bytes> piece;
    ssize_t got = 0;
    while ((got = socket_.receive_some(piece)) > 0)
        assembler_.feed(std::span(piece).first(static_cast<size_t>(got)));
    return got == 0;
}

} // namespace vlc
