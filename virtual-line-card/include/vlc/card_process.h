// A card without its host: the hardware of a state directory, reached by a socket alone.
#pragma once

#include <filesystem>
#include <memory>

#include "vlc/card_server.h"

namespace vlc {

class CardProcess {
public:
    // PRM is powered on and the socket listens when the constructor returns; it is served while the
    // event manager runs. Throws StateError, with nothing left behind.
    CardProcess(const CardConfig &config, const std::filesystem::path &state_directory,
                const std::filesystem::path &socket);
    ~CardProcess();
    CardProcess(const CardProcess &) = delete;
    CardProcess &operator=(const CardProcess &) = delete;

    EventManager &events();
    Hardware &hardware();
    const CardServer &server() const;

private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace vlc
