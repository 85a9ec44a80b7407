#include "frame_server.h"

#include <array>
#include <map>

#include "unix_socket.h"

namespace vlc {

namespace {

constexpr size_t piece_bytes = size_t{64} << 10;
constexpr size_t most_peers = 64;

struct Peer {
    UnixSocket socket;
    FrameAssembler assembler;
    Payload out;
    size_t sent = 0; // of out
    bool is_flushing_later = false;
    bool is_served = false; // just now: it must not go
    bool is_ending = false;
};

} // namespace

struct FrameServer::State {
    Owner &owner;
    EventManager &events;
    ListeningSocket listening;
    Watched how;
    size_t longest_backlog;
    std::map<int, Peer> peers = {};
    std::shared_ptr<const char> alive = std::make_shared<const char>();

    void accept();
    void serve(int number);
    void end(int number);
    bool flush(int number);
    void flush_later(int number);
};

FrameServer::FrameServer(Owner &owner, EventManager &events, const std::filesystem::path &socket,
                         Watched how, size_t longest_backlog)
    : state_(new State{owner, events, ListeningSocket(socket), how, longest_backlog})
{
    State *state = state_.get();
    events.watch_readable(
        state->listening.descriptor(), [state] { state->accept(); }, how);
}

FrameServer::~FrameServer()
{
    state_->events.unwatch(state_->listening.descriptor());
    for (const auto &[number, peer] : state_->peers)
        state_->events.unwatch(number);
}

void FrameServer::State::accept()
{
    for (UnixSocket socket = listening.accept(); socket.is_open(); socket = listening.accept()) {
        if (peers.size() == most_peers)
            continue; // it is closed at once, so that descriptors remain for the process's own
        const int number = socket.descriptor();
        peers[number].socket = std::move(socket);
        events.watch_readable(
            number, [this, number] { serve(number); }, how);
    }
}

void FrameServer::State::end(int number)
{
    Peer &peer = peers.at(number);
    peer.is_ending = true;
    if (peer.is_served)
        return;
    events.unwatch(number);
    peers.erase(number);
    owner.gone(number);
}

// Reads what is there. A request may run events, among which others may be served, but never this
// peer.
void FrameServer::State::serve(int number)
{
    Peer &peer = peers.at(number);
    if (peer.is_served)
        return;
    std::array<uint8_t, piece_bytes> piece;
    ssize_t got = 0;
    bool goes_on = true;
    peer.is_served = true;
    while (goes_on && (got = peer.socket.receive_some(piece)) > 0) {
        peer.assembler.feed(std::span(piece).first(static_cast<size_t>(got)));
        while (goes_on) {
            const std::optional<Frame> frame = peer.assembler.next();
            if (!frame)
                break;
            goes_on = owner.take(number, *frame) && !peer.is_ending && flush(number);
        }
        goes_on = goes_on && !peer.assembler.is_broken();
    }
    if (!goes_on)
        flush(number); // a refusal, which fits into what the kernel keeps
    peer.is_served = false;
    if (!goes_on || got < 0)
        end(number);
}

// Whether the peer is still one. What it does not take now goes out when it does.
bool FrameServer::State::flush(int number)
{
    Peer &peer = peers.at(number);
    while (peer.sent < peer.out.size()) {
        const ssize_t now = peer.socket.send_some(std::span(peer.out).subspan(peer.sent));
        if (now < 0 || peer.out.size() - peer.sent > longest_backlog)
            return false;
        if (now == 0)
            break;
        peer.sent += static_cast<size_t>(now);
    }
    if (peer.sent == peer.out.size()) {
        peer.out.clear();
        peer.sent = 0;
    } else if (!peer.is_flushing_later) {
        flush_later(number);
    }
    return true;
}

void FrameServer::State::flush_later(int number)
{
    peers.at(number).is_flushing_later = true;
    events.when_writable(number, [this, number] {
        peers.at(number).is_flushing_later = false;
        if (!flush(number))
            end(number);
    });
}

void FrameServer::queue(int peer, FrameKind kind, uint32_t sequence,
                        std::span<const uint8_t> payload)
{
    append_frame(state_->peers.at(peer).out, kind, sequence, payload);
}

void FrameServer::announce(int peer, FrameKind kind, std::span<const uint8_t> payload)
{
    State *state = state_.get();
    queue(peer, kind, 0, payload);
    state->events.post([state, peer, still = std::weak_ptr(state->alive)] {
        if (!still.expired() && state->peers.count(peer) != 0 && !state->flush(peer))
            state->end(peer);
    });
}

} // namespace vlc
