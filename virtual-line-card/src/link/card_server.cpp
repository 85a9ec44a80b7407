#include "vlc/card_server.h"

#include <map>

#include "card_requests.h"
#include "frame_server.h"

namespace vlc {

namespace {

// The longest reply, all rows of the largest table, stays below it.
constexpr size_t longest_backlog = size_t{512} << 20;

} // namespace

struct CardServer::State : FrameServer::Owner {
    Hardware &hardware;
    EventManager &events;
    CardRequests requests;
    FrameServer server;
    std::map<int, PeerRole> roles; // of the peers that have greeted
    int host = -1;                 // which of them is

    State(Hardware &of, EventManager &on, const std::filesystem::path &socket)
        : hardware(of), events(on), requests(of),
          server(*this, on, socket, Watched::waited_for, longest_backlog)
    {
    }

    bool take(int peer, const Frame &frame) override;
    void gone(int peer) override;
    bool greet(int peer, const Frame &frame);
    void refuse(int peer, const Frame &frame, const std::string &why);
    void announce(FrameKind kind, uint32_t what);
};

CardServer::CardServer(Hardware &hardware, EventManager &events,
                       const std::filesystem::path &socket)
    : state_(std::make_unique<State>(hardware, events, socket))
{
    State *state = state_.get();
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
}

const DataPlaneTotals &CardServer::traffic() const
{
    return state_->requests.traffic();
}

bool CardServer::has_host() const
{
    return state_->host >= 0;
}

void CardServer::State::gone(int peer)
{
    roles.erase(peer);
    if (host == peer)
        host = -1;
}

bool CardServer::State::take(int peer, const Frame &frame)
{
    const auto role = roles.find(peer);
    if (role == roles.end())
        return greet(peer, frame);
    Payload reply;
    if (frame.kind == FrameKind::settle) {
        events.run_until_idle();
    } else {
        std::optional<Payload> answer =
            requests.answer(frame, role->second, [&](const Payload &part) {
                server.queue(peer, FrameKind::part, frame.sequence, part);
            });
        if (!answer)
            return false;
        reply = std::move(*answer);
    }
    server.queue(peer, FrameKind::reply, frame.sequence, reply);
    return true;
}

bool CardServer::State::greet(int peer, const Frame &frame)
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
    roles[peer] = role;
    if (role == PeerRole::host) {
        host = peer;
        requests.forget_packets();
    }
    WireWriter hello;
    put_greeting(hello);
    put(hello, hardware.config());
    hello.number(static_cast<uint8_t>(hardware.prm().is_up()));
    server.queue(peer, FrameKind::reply, frame.sequence, hello.take());
    return true;
}

void CardServer::State::refuse(int peer, const Frame &frame, const std::string &why)
{
    server.queue(peer, FrameKind::refusal, frame.sequence, WireWriter().text(why).take());
}

void CardServer::State::announce(FrameKind kind, uint32_t what)
{
    if (host >= 0)
        server.announce(host, kind, WireWriter().number(what).take());
}

} // namespace vlc
