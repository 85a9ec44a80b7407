#include "vlc/card_server.h"

#include <array>
#include <map>

#include "card_requests.h"
#include "unix_socket.h"

namespace vlc {

namespace {

constexpr size_t piece_bytes = size_t{64} << 10;
// What a peer may leave unread before it counts as one that never reads. The longest reply, all
// rows of the largest table, stays below it.
constexpr size_t longest_backlog = size_t{512} << 20;
constexpr size_t most_peers = 64;
constexpr std::chrono::milliseconds retry_sending{1};

struct Peer {
    UnixSocket socket;
    FrameAssembler assembler;
    Payload out;
    size_t sent = 0; // of out
    bool is_flushing_later = false;
    bool has_greeted = false;
    bool is_served = false; // just now: it must not go
    bool is_ending = false;
    PeerRole role = PeerRole::reader;
};

} // namespace

struct CardServer::State {
    Hardware &hardware;
    EventManager &events;
    CardRequests requests;
    ListeningSocket listening;
    std::map<int, Peer> peers;
    int host = -1; // its descriptor
    std::shared_ptr<const char> alive = std::make_shared<const char>();

    State(Hardware &of, EventManager &on, const std::filesystem::path &socket)
        : hardware(of), events(on), requests(of), listening(socket)
    {
    }

    void accept();
    void serve(int number);
    void end(int number);
    bool take(Peer &peer, const Frame &frame);
    bool greet(Peer &peer, const Frame &frame);
    void refuse(Peer &peer, const Frame &frame, const std::string &why);
    bool flush(int number);
    void announce(FrameKind kind, uint32_t number);
};

CardServer::CardServer(Hardware &hardware, EventManager &events,
                       const std::filesystem::path &socket)
    : state_(std::make_unique<State>(hardware, events, socket))
{
    State *state = state_.get();
    events.watch_readable(state->listening.descriptor(), [state] { state->accept(); });
    hardware.prm().on_event([state](PrmEvent event) {
        state->announce(FrameKind::prm_event, static_cast<uint32_t>(event));
    });
    hardware.prm().on_answer(
        [state](uint32_t handle) { state->announce(FrameKind::answers_waiting, handle); });
}

CardServer::~CardServer()
{
    state_->hardware.prm().on_event({});
    state_->hardware.prm().on_answer({});
    state_->events.unwatch(state_->listening.descriptor());
    for (const auto &[number, peer] : state_->peers)
        state_->events.unwatch(number);
}

const DataPlaneTotals &CardServer::traffic() const
{
    return state_->requests.traffic();
}

bool CardServer::has_host() const
{
    return state_->host >= 0;
}

void CardServer::State::accept()
{
    for (UnixSocket socket = listening.accept(); socket.is_open(); socket = listening.accept()) {
        if (peers.size() == most_peers)
            continue; // it is closed at once, so that descriptors remain for the card's own
        const int number = socket.descriptor();
        peers[number].socket = std::move(socket);
        events.watch_readable(number, [this, number] { serve(number); });
    }
}

void CardServer::State::end(int number)
{
    Peer &peer = peers.at(number);
    peer.is_ending = true;
    if (peer.is_served)
        return;
    events.unwatch(number);
    if (host == number)
        host = -1;
    peers.erase(number);
}

// Reads what is there. A request may run the card's events, among which others may be served, but
// never this peer.
void CardServer::State::serve(int number)
{
    Peer &peer = peers.at(number);
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
            goes_on = take(peer, *frame) && !peer.is_ending && flush(number);
        }
        goes_on = goes_on && !peer.assembler.is_broken();
    }
    if (!goes_on)
        flush(number); // a refusal, which fits into what the kernel keeps
    peer.is_served = false;
    if (!goes_on || got < 0)
        end(number);
}

bool CardServer::State::take(Peer &peer, const Frame &frame)
{
    if (!peer.has_greeted)
        return greet(peer, frame);
    Payload reply;
    if (frame.kind == FrameKind::settle) {
        events.run_until_idle();
    } else {
        std::optional<Payload> answer =
            requests.answer(frame, peer.role, [&peer, &frame](const Payload &part) {
                append_frame(peer.out, FrameKind::part, frame.sequence, part);
            });
        if (!answer)
            return false;
        reply = std::move(*answer);
    }
    append_frame(peer.out, FrameKind::reply, frame.sequence, reply);
    return true;
}

bool CardServer::State::greet(Peer &peer, const Frame &frame)
{
    WireReader reader(frame.payload);
    std::string wrong = wrong_with_greeting(reader);
    const auto role = static_cast<PeerRole>(reader.number<uint8_t>());
    if (frame.kind != FrameKind::hello)
        wrong = "speaks no protocol of a virtual line card";
    else if (wrong.empty() &&
             (!reader.is_whole() || (role != PeerRole::host && role != PeerRole::reader)))
        wrong = "is neither a host nor a reader";
    if (!wrong.empty()) {
        refuse(peer, frame, "the card there refuses a peer that " + wrong);
        return false;
    }
    if (role == PeerRole::host && host >= 0) {
        refuse(peer, frame, "the card there has a host already");
        return false;
    }
    peer.role = role;
    peer.has_greeted = true;
    if (role == PeerRole::host) {
        host = peer.socket.descriptor();
        requests.forget_packets();
    }
    WireWriter hello;
    put_greeting(hello);
    put(hello, hardware.config());
    hello.number(static_cast<uint8_t>(hardware.prm().is_up()));
    append_frame(peer.out, FrameKind::reply, frame.sequence, hello.take());
    return true;
}

void CardServer::State::refuse(Peer &peer, const Frame &frame, const std::string &why)
{
    append_frame(peer.out, FrameKind::refusal, frame.sequence, WireWriter().text(why).take());
}

// Whether the peer is still one. What it does not take now is tried again.
bool CardServer::State::flush(int number)
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
        peer.is_flushing_later = true;
        events.after(retry_sending, [this, number, still = std::weak_ptr(alive)] {
            if (still.expired() || peers.count(number) == 0)
                return;
            peers.at(number).is_flushing_later = false;
            if (!flush(number))
                end(number);
        });
    }
    return true;
}

// Before the reply of the request that it comes of, and at once when it comes of none.
void CardServer::State::announce(FrameKind kind, uint32_t what)
{
    if (host < 0)
        return;
    append_frame(peers.at(host).out, kind, 0, WireWriter().number(what).take());
    events.post([this, number = host, still = std::weak_ptr(alive)] {
        if (!still.expired() && peers.count(number) != 0 && !flush(number))
            end(number);
    });
}

} // namespace vlc
