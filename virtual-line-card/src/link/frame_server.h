// Peers that speak frames at a listening socket, served on an event manager. Whatever a peer sends
// or leaves unread, it is its connection alone that ends.
#pragma once

#include <filesystem>
#include <memory>
#include <span>

#include "frame.h"
#include "vlc/event_manager.h"

namespace vlc {

class FrameServer {
public:
    // What is done with what comes in. A peer is known by its number.
    class Owner {
    public:
        virtual ~Owner() = default;
        // Returns whether the peer stays; what was queued for it goes out in any case. May run the
        // event manager, on which other peers are served meanwhile.
        virtual bool take(int peer, const Frame &frame) = 0;
        virtual void gone(int peer) = 0; // its number may be another peer's from here on
    };

    // Listens as soon as it is there. Throws StateError when the socket cannot be made.
    // `longest_backlog`: what a peer may leave unread before it counts as one that never reads.
    FrameServer(Owner &owner, EventManager &events, const std::filesystem::path &socket,
                Watched how, size_t longest_backlog);
    ~FrameServer(); // the socket's name goes, the connections end; nobody is told
    FrameServer(const FrameServer &) = delete;
    FrameServer &operator=(const FrameServer &) = delete;

    // Goes out once the peer's present frame has been taken.
    void queue(int peer, FrameKind kind, uint32_t sequence, std::span<const uint8_t> payload);
    // Before the reply to the peer's present frame, or by itself in the next turn.
    void announce(int peer, FrameKind kind, std::span<const uint8_t> payload);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
