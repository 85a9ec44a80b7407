// The card's end of the socket: a host, and whoever looks beside it, reach the hardware of this
// process. Whatever a peer sends, it is its connection alone that ends.
#pragma once

#include <filesystem>
#include <memory>

#include "vlc/event_manager.h"
#include "vlc/hardware.h"

namespace vlc {

class CardServer {
public:
    // Listens as soon as it is there, and serves on the event manager. The hardware's PRM tells
    // this server what happens to it. Throws StateError when the socket cannot be made.
    CardServer(Hardware &hardware, EventManager &events, const std::filesystem::path &socket);
    ~CardServer(); // the socket's name goes, the connections end
    CardServer(const CardServer &) = delete;
    CardServer &operator=(const CardServer &) = delete;

    const DataPlaneTotals &traffic() const; // of all packets that came in
    bool has_host() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
