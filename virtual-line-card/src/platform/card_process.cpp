#include "vlc/card_process.h"

#include "taken_back_on_failure.h"

namespace vlc {

namespace {

const StateDirectory &of_a_card_alone(const StateDirectory &directory)
{
    directory.require(Holdings::card);
    return directory;
}

} // namespace

struct CardProcess::State {
    StateDirectory directory;
    TakenBackOnFailure start;
    Hardware hardware;
    EventManager events;
    CardServer server;

    State(const CardConfig &config, const std::filesystem::path &path,
          const std::filesystem::path &socket)
        : directory(path, Access::read_write), start(directory),
          hardware(config, of_a_card_alone(directory)), server(hardware, events, socket)
    {
        directory.complete(config, Holdings::card);
        hardware.power_on();
    }
};

CardProcess::CardProcess(const CardConfig &config, const std::filesystem::path &state_directory,
                         const std::filesystem::path &socket)
    : state_(std::make_unique<State>(config, state_directory, socket))
{
}

CardProcess::~CardProcess() = default;

EventManager &CardProcess::events()
{
    return state_->events;
}

Hardware &CardProcess::hardware()
{
    return state_->hardware;
}

const CardServer &CardProcess::server() const
{
    return state_->server;
}

} // namespace vlc
