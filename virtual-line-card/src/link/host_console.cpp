#include "vlc/host_console.h"

#include <poll.h>

#include <cerrno>
#include <map>
#include <set>
#include <utility>

#include "frame_server.h"
#include "frame_stream.h"
#include "messages.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr const char *socket_name = "console";
constexpr size_t longest_backlog = size_t{16} << 20;
constexpr size_t longest_part = size_t{1} << 20;

std::string_view text_in(std::span<const uint8_t> bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

} // namespace

// ---- the host's end ----------------------------------------------------------------------------

struct HostConsole::State : FrameServer::Owner {
    std::unique_ptr<FrameServer> server;
    std::string why_closed;
    std::map<std::string, Answerer, std::less<>> answerers;
    std::set<int> greeted;
    std::map<std::string, std::set<int>, std::less<>> followers; // by topic; none is empty
    std::function<void(std::string_view, bool)> listener;

    bool take(int peer, const Frame &frame) override;
    void gone(int peer) override;
    bool greet(int peer, const Frame &frame);
    ConsoleAnswer answer(std::string_view name, std::string_view request);
    void reply(int peer, const Frame &frame, const ConsoleAnswer &answer);
    void follow(int peer, const std::string &topic);
    void say(std::string_view topic, bool any) const
    {
        if (listener)
            listener(topic, any);
    }
};

HostConsole::HostConsole(const StateDirectory &directory, EventManager &events)
    : state_(std::make_unique<State>())
{
    try {
        state_->server = std::make_unique<FrameServer>(*state_, events, directory.file(socket_name),
                                                       Watched::beside, longest_backlog);
    } catch (const StateError &unusable) {
        state_->why_closed = unusable.what();
    }
}

HostConsole::~HostConsole() = default;

std::string HostConsole::why_closed() const
{
    return state_->why_closed;
}

void HostConsole::answer(const std::string &name, Answerer answerer)
{
    if (answerer)
        state_->answerers[name] = std::move(answerer);
    else
        state_->answerers.erase(name);
}

void HostConsole::on_followers(std::function<void(std::string_view, bool)> listener)
{
    state_->listener = std::move(listener);
}

bool HostConsole::has_followers(std::string_view topic) const
{
    return state_->followers.contains(topic);
}

void HostConsole::tell(std::string_view topic, std::string_view line)
{
    const auto following = state_->followers.find(topic);
    if (following == state_->followers.end())
        return;
    const Payload payload = WireWriter().text(line).take();
    for (const int peer : following->second)
        state_->server->announce(peer, FrameKind::console_line, payload);
}

void HostConsole::State::gone(int peer)
{
    greeted.erase(peer);
    for (auto topic = followers.begin(); topic != followers.end();) {
        const bool was_last = topic->second.erase(peer) > 0 && topic->second.empty();
        const std::string name = topic->first;
        topic = was_last ? followers.erase(topic) : std::next(topic);
        if (was_last)
            say(name, false);
    }
}

bool HostConsole::State::take(int peer, const Frame &frame)
{
    if (!greeted.contains(peer))
        return greet(peer, frame);
    WireReader reader(frame.payload);
    const std::string name = reader.text();
    if (frame.kind == FrameKind::console_follow && reader.is_whole()) {
        follow(peer, name);
        server->queue(peer, FrameKind::reply, frame.sequence, {});
        return true;
    }
    const std::string_view request = text_in(reader.take_rest());
    if (frame.kind != FrameKind::console_ask || !reader.fits())
        return false;
    reply(peer, frame, answer(name, request));
    return true;
}

bool HostConsole::State::greet(int peer, const Frame &frame)
{
    WireReader reader(frame.payload);
    std::string wrong = wrong_with_greeting(reader);
    if (frame.kind != FrameKind::hello)
        wrong = "speaks no protocol of a virtual line card";
    else if (wrong.empty() && (static_cast<PeerRole>(reader.number<uint8_t>()) != PeerRole::asker ||
                               !reader.is_whole()))
        wrong = "asks nothing of a host";
    if (!wrong.empty()) {
        server->queue(peer, FrameKind::refusal, frame.sequence,
                      WireWriter().text("the host there refuses a peer that " + wrong).take());
        return false;
    }
    greeted.insert(peer);
    WireWriter hello;
    put_greeting(hello);
    server->queue(peer, FrameKind::reply, frame.sequence, hello.take());
    return true;
}

ConsoleAnswer HostConsole::State::answer(std::string_view name, std::string_view request)
{
    const auto known = answerers.find(name);
    if (known == answerers.end())
        return {2, "the host there does not answer '" + std::string(name) + "'"};
    const Answerer answerer = known->second; // it may take itself off
    try {
        return answerer(request);
    } catch (const std::exception &failure) {
        return {1, failure.what()};
    }
}

// A long text comes in parts, the status behind them.
void HostConsole::State::reply(int peer, const Frame &frame, const ConsoleAnswer &answer)
{
    const std::span<const uint8_t> text(reinterpret_cast<const uint8_t *>(answer.text.data()),
                                        answer.text.size());
    for (size_t begin = 0; begin < text.size(); begin += longest_part)
        server->queue(peer, FrameKind::part, frame.sequence,
                      text.subspan(begin, std::min(longest_part, text.size() - begin)));
    server->queue(peer, FrameKind::reply, frame.sequence,
                  WireWriter().number(answer.status).take());
}

void HostConsole::State::follow(int peer, const std::string &topic)
{
    std::set<int> &following = followers[topic];
    following.insert(peer);
    if (following.size() == 1)
        say(topic, true);
}

// ---- the other end -----------------------------------------------------------------------------

struct ConsoleClient::State {
    std::filesystem::path directory;
    FrameStream stream;
    uint32_t sequence = 0;

    [[noreturn]] void fail(const std::string &why) const
    {
        throw StateError(directory.string() + ": " + why);
    }
    // The reply; parts of it are put together before it.
    Frame converse(FrameKind kind, const Payload &payload, std::string *parts);
    void greet();
};

ConsoleClient::ConsoleClient(const std::filesystem::path &state_directory)
    : state_(new State{state_directory, {}})
{
    if (!state_->stream.connect(state_directory / socket_name)) {
        if (errno == EACCES || errno == EPERM)
            state_->fail("the host there may not be asked: permission denied");
        throw StateError("no host runs in " + state_directory.string());
    }
    state_->greet();
}

ConsoleClient::~ConsoleClient() = default;

Frame ConsoleClient::State::converse(FrameKind kind, const Payload &payload, std::string *parts)
{
    Payload out;
    append_frame(out, kind, ++sequence, payload);
    bool sent = false;
    if (!stream.send(out, &sent))
        fail("the host there has ended");
    while (std::optional<Frame> frame = stream.next()) {
        if (frame->kind == FrameKind::part && frame->sequence == sequence && parts != nullptr)
            *parts += text_in(frame->payload);
        else if (frame->kind == FrameKind::refusal)
            fail(WireReader(frame->payload).text());
        else if (frame->kind == FrameKind::reply && frame->sequence == sequence)
            return std::move(*frame);
        else if (frame->kind != FrameKind::console_line)
            fail("what listens there is no host");
    }
    fail(stream.is_nonsense() ? "what listens there is no host"
                              : "the host there has ended, or did not answer in time");
}

void ConsoleClient::State::greet()
{
    WireWriter greeting;
    put_greeting(greeting);
    greeting.number(static_cast<uint8_t>(PeerRole::asker));
    const Frame frame = converse(FrameKind::hello, greeting.take(), nullptr);
    WireReader reader(frame.payload);
    const std::string wrong = wrong_with_greeting(reader);
    if (!wrong.empty())
        fail("what listens there " + wrong);
}

ConsoleAnswer ConsoleClient::ask(std::string_view name, std::string_view request)
{
    WireWriter asked;
    asked.text(name).bytes({reinterpret_cast<const uint8_t *>(request.data()), request.size()});
    ConsoleAnswer answer;
    const Frame reply = state_->converse(FrameKind::console_ask, asked.take(), &answer.text);
    answer.status = WireReader(reply.payload).number<uint32_t>();
    return answer;
}

bool ConsoleClient::follow(std::string_view topic,
                           const std::function<void(std::string_view line)> &on_line,
                           int until_readable)
{
    state_->converse(FrameKind::console_follow, WireWriter().text(topic).take(), nullptr);
    FrameStream &stream = state_->stream;
    for (;;) {
        const bool is_there = stream.receive();
        while (const std::optional<Frame> frame = stream.next_that_is_there()) {
            if (frame->kind == FrameKind::console_line)
                on_line(WireReader(frame->payload).text());
        }
        if (!is_there || stream.is_nonsense())
            return false;
        pollfd waited[] = {{stream.descriptor(), POLLIN, 0}, {until_readable, POLLIN, 0}};
        while (poll(waited, 2, -1) < 0 && errno == EINTR)
            continue;
        if (waited[1].revents != 0)
            return true;
    }
}

} // namespace vlc
