// The client's end of the socket: synchronous requests, and the announcements that came meanwhile.
#pragma once

#include <deque>
#include <filesystem>
#include <functional>

#include "frame_stream.h"
#include "messages.h"

namespace vlc {

class CardLink {
public:
    CardLink(std::filesystem::path socket, PeerRole role);

    enum class Attempt {
        connected,
        absent,     // nobody listens, or the connection broke off
        refused,    // by the card, or it is no card
        other_card, // not the card of the first connection
    };
    Attempt connect(); // why() says why not
    const std::string &why() const { return why_; }
    void close() { stream_.close(); }

    bool is_open() const { return stream_.is_open() && !is_broken_; }
    // Stays taken until close(), also when the connection has broken.
    int descriptor() const { return stream_.descriptor(); }
    const std::filesystem::path &path() const { return path_; }
    const CardHello &card() const { return card_; } // what it said at the last connection

    struct Reply {
        bool arrived = false;
        bool was_sent = false; // perhaps in part
        Payload payload = {};
    };
    // Parts of a long reply go to `on_part`.
    Reply ask(FrameKind kind, std::span<const uint8_t> payload,
              const std::function<void(const Payload &)> &on_part = {});

    void receive_announcements(); // what is there, without waiting
    std::optional<Frame> next_announcement();

private:
    void take_announcements();
    Attempt greet();
    Attempt fail(Attempt how, std::string why);

    std::filesystem::path path_;
    PeerRole role_;
    FrameStream stream_;
    bool is_broken_ = false;
    std::deque<Frame> announcements_;
    uint32_t sequence_ = 0;
    CardHello card_;
    bool was_connected_ = false;
    std::string why_;
};

} // namespace vlc
