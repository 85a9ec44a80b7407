// A card with its socket, on a thread of its own instead of in a process of its own.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <thread>

#include "vlc/card_server.h"

namespace card_test {

class CardThread {
public:
    CardThread(const vlc::CardConfig &config, const std::filesystem::path &state,
               const std::filesystem::path &socket);
    ~CardThread();
    CardThread(const CardThread &) = delete;
    CardThread &operator=(const CardThread &) = delete;

    const std::filesystem::path &socket() const { return socket_; }
    // On the card's thread; returns when it is done.
    void perform(const std::function<void(vlc::Hardware &)> &act);
    // To be looked at from the test's thread only while the card's has nothing to do.
    vlc::Hardware &hardware() { return *hardware_; }
    const vlc::CardServer &server() const { return *server_; }
    vlc::EventManager &events() { return events_; } // the card's own

private:
    std::filesystem::path socket_;
    vlc::StateDirectory directory_;
    std::unique_ptr<vlc::Hardware> hardware_;
    vlc::EventManager events_;
    std::unique_ptr<vlc::CardServer> server_;
    bool is_over_ = false;
    std::thread thread_;
};

} // namespace card_test
