// The console of a running host: what can be asked of it from outside, by a Unix socket in its
// state directory. It is served on the host's event manager, so whoever answers is alone with the
// library; and it never keeps a host waiting or going.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "vlc/event_manager.h"
#include "vlc/state_directory.h"

namespace vlc {

struct ConsoleAnswer {
    uint32_t status = 0; // 0 done, 1 failed, 2 cannot be asked so
    std::string text = {};
};

class HostConsole {
public:
    // Listens as soon as it is there. Where no socket can be made nobody can ask, and the host goes
    // on all the same.
    HostConsole(const StateDirectory &directory, EventManager &events);
    ~HostConsole();
    HostConsole(const HostConsole &) = delete;
    HostConsole &operator=(const HostConsole &) = delete;

    std::string why_closed() const; // why nobody can ask; empty when it listens

    // Who answers requests of that name, in place of the one before; an empty function takes it
    // off. What the answerer throws is an answer with status 1.
    using Answerer = std::function<ConsoleAnswer(std::string_view request)>;
    void answer(const std::string &name, Answerer answerer);

    // A line for whoever follows the topic. Who leaves very much unread follows no longer.
    void tell(std::string_view topic, std::string_view line);
    bool has_followers(std::string_view topic) const;
    // Called when the first follower of a topic comes, and when the last one goes.
    void on_followers(std::function<void(std::string_view topic, bool any)> listener);

private:
    struct State;
    std::unique_ptr<State> state_;
};

// The other end. Throws StateError "no host runs in DIR" and for whatever goes wrong on the way.
class ConsoleClient {
public:
    explicit ConsoleClient(const std::filesystem::path &state_directory);
    ~ConsoleClient();
    ConsoleClient(const ConsoleClient &) = delete;
    ConsoleClient &operator=(const ConsoleClient &) = delete;

    // Status 2 where the host does not know the name.
    ConsoleAnswer ask(std::string_view name, std::string_view request);
    // Gives each line from now on to `on_line` until the host ends, which returns false, or
    // `until_readable`, a descriptor, is readable, which returns true.
    bool follow(std::string_view topic, const std::function<void(std::string_view line)> &on_line,
                int until_readable);

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
