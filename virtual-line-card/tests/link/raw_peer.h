// A peer of a card that may send anything.
#pragma once

#include <poll.h>

#include <array>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "card_link.h"

namespace card_test {

class RawPeer {
public:
    explicit RawPeer(const std::filesystem::path &path) : socket_(vlc::UnixSocket::connect(path))
    {
        EXPECT_TRUE(socket_.is_open());
    }
    void send(const vlc::Payload &bytes)
    {
        size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t now = socket_.send_some(std::span(bytes).subspan(sent));
            if (now < 0)
                return; // the card has ended it
            sent += static_cast<size_t>(now);
            if (now == 0)
                socket_.wait(POLLOUT, std::chrono::seconds(1));
        }
    }
    void send(vlc::FrameKind kind, const vlc::Payload &payload)
    {
        vlc::Payload bytes;
        vlc::append_frame(bytes, kind, ++sequence_, payload);
        send(bytes);
    }
    void greet(vlc::PeerRole role)
    {
        vlc::WireWriter greeting;
        vlc::put_greeting(greeting);
        send(vlc::FrameKind::hello, greeting.number(static_cast<uint8_t>(role)).take());
    }
    // Nothing when the card ended the connection.
    std::optional<vlc::Frame> receive()
    {
        std::array<uint8_t, 4096> piece;
        for (;;) {
            if (std::optional<vlc::Frame> frame = assembler_.next())
                return frame;
            if (!socket_.wait(POLLIN, std::chrono::seconds(10))) {
                ADD_FAILURE() << "the card says nothing";
                return std::nullopt;
            }
            const ssize_t got = socket_.receive_some(piece);
            if (got < 0)
                return std::nullopt;
            assembler_.feed(std::span(piece).first(static_cast<size_t>(got)));
        }
    }
    std::string refusal()
    {
        const std::optional<vlc::Frame> frame = receive();
        if (!frame || frame->kind != vlc::FrameKind::refusal)
            return "no refusal";
        vlc::WireReader reader(frame->payload);
        return reader.text();
    }
    void close() { socket_.close(); }

private:
    vlc::UnixSocket socket_;
    vlc::FrameAssembler assembler_;
    uint32_t sequence_ = 0;
};

} // namespace card_test
