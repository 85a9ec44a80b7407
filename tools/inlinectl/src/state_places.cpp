#include "state_places.h"

#include <CLI/CLI.hpp>

#include "exit_code.h"

namespace inlinectl {
namespace {

std::unique_ptr<vlc::CardAccess> card_at(const StatePlaces &places, const vlc::StateDirectory &host)
{
    if (places.card_socket)
        return vlc::look_into_card(*places.card_socket);
    if (places.card_directory)
        return vlc::look_into_directory(*places.card_directory);
    if (host.holdings() == vlc::Holdings::host)
        throw UsageError(host.path().string() +
                         ": is a host's alone; say where its card is with --card-state or "
                         "--connect");
    return vlc::look_into_directory(host.path());
}

} // namespace

void declare_card_places(CLI::App &app, StatePlaces &places, const std::string &which)
{
    app.add_option("--card-state" + which, places.card_directory,
                   "The card's state, where it has a directory of its own")
        ->type_name("DIR");
    app.add_option("--connect" + which, places.card_socket, "The card that listens here")
        ->type_name("SOCKET");
}

void declare_state_places(CLI::App &app, StatePlaces &places)
{
    app.add_option("--state", places.state_directory, "The host's state")->type_name("DIR");
    declare_card_places(app, places);
}

void check_state_places(const StatePlaces &places)
{
    if (!places.state_directory)
        throw UsageError("nothing to look into: give --state");
    check_card_places(places);
}

void check_card_places(const StatePlaces &places)
{
    if (places.card_directory && places.card_socket)
        throw UsageError("--card-state and --connect are two places of one card: give one");
}

vlc::StateDirectory open_host(const std::filesystem::path &path)
{
    vlc::StateDirectory directory(path, vlc::Access::read_only);
    directory.require(vlc::Holdings::host);
    if (!directory.card())
        throw UsageError(path.string() + ": is not complete: its card was never up");
    return directory;
}

std::unique_ptr<vlc::CardAccess> open_card(const StatePlaces &places,
                                           const vlc::StateDirectory &host)
{
    std::unique_ptr<vlc::CardAccess> card = card_at(places, host);
    if (card->config().num_nps != host.card()->num_nps ||
        card->config().card_type != host.card()->card_type)
        throw UsageError(host.path().string() + ": is the host of another card");
    return card;
}

} // namespace inlinectl
