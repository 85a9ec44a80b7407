#include "vlc/virtual_line_card.h"

#include <stdexcept>
#include <utility>

#include "card_services.h"
#include "embedded_prm.h"
#include "host_link.h"
#include "prm_client.h"
#include "remote_card.h"
#include "site_console.h"
#include "socket_prm.h"
#include "taken_back_on_failure.h"
#include "vlc/event_debug.h"
#include "vlc/hardware.h"
#include "vlc/host_record.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr uint32_t only_window = 1;

VirtualLineCard *living_card = nullptr;

// The hardware of this process.
struct OwnCard {
    Hardware hardware;
    HardwareAccess access{hardware};
    EmbeddedPrm transport{hardware.prm()};

    OwnCard(const CardConfig &config, const StateDirectory &directory) : hardware(config, directory)
    {
    }
};

// The hardware of another process.
struct DistantCard {
    HostLink link;
    SocketPrm transport{link};
    RemoteCard access;

    DistantCard(CardLink &socket, EventManager &events)
        : link(socket, events),
          access(
              socket,
              [this](FrameKind kind, const Payload &payload, const auto &on_part) {
                  return link.ask(kind, payload, on_part);
              },
              [this] { return link.announced(); })
    {
    }
};

std::unique_ptr<CardLink> connected_to(const CardAtSocket &card)
{
    auto link = std::make_unique<CardLink>(card.socket, PeerRole::host);
    if (link->connect() != CardLink::Attempt::connected)
        throw StateError(link->why());
    return link;
}

} // namespace

// In the order in which they are built on each other: the client's half goes first, then the event
// manager with what is left on it, then PRM and the files. The window is opened behind the other
// files: it alone is repaired in that, and a refused opening changes nothing.
struct VirtualLineCard::State {
    std::unique_ptr<CardLink> link; // to the card's own process; none when it is this one
    CardConfig config;
    StateDirectory directory;
    TakenBackOnFailure start;
    std::unique_ptr<HostRecord> record; // of this host; goes behind all that it tells of
    std::unique_ptr<OwnCard> own;
    Window window;
    EventManager events;
    HostConsole console{directory, events};
    std::unique_ptr<DistantCard> distant;
    PrmClient client;
    SiteConsole sites;
    FlowScan flow_scan;
    bool data_path_statistics_started = false;

    State(std::unique_ptr<CardLink> to, const CardConfig &card, const std::filesystem::path &path)
        : link(std::move(to)), config(card), directory(path, Access::read_write), start(directory),
          own(checked_own_card()), window(directory, config.window_bytes),
          distant(link ? std::make_unique<DistantCard>(*link, events) : nullptr),
          client(transport()), sites(directory, console)
    {
        record = HostRecord::begin(directory);
        directory.complete(config, holdings());
        client.on_change([this] { tell_of_itself(); });
        if (distant)
            distant->link.on_reach = [this] { tell_of_itself(); };
        tell_of_itself();
    }

    Holdings holdings() const { return link ? Holdings::host : Holdings::card_and_host; }
    PrmTransport &transport()
    {
        if (own)
            return own->transport;
        return distant->transport;
    }
    RunningCard &access()
    {
        if (own)
            return own->access;
        return distant->access;
    }
    Hardware &own_hardware()
    {
        if (!own)
            throw std::logic_error("the hardware of this card is another process's");
        return own->hardware;
    }

private:
    void tell_of_itself()
    {
        if (record)
            record->tell({.card = reach(),
                          .prm_is_up = transport().is_connected(),
                          .is_registered = client.is_registered()},
                         client.ledger().sums());
    }
    CardReach reach() const
    {
        if (!distant)
            return CardReach::own;
        if (!distant->link.given_up().empty())
            return CardReach::given_up;
        return distant->link.is_open() ? CardReach::connected : CardReach::away;
    }
    std::unique_ptr<OwnCard> checked_own_card()
    {
        directory.require(holdings());
        EventDebug::check_files(directory.path());
        if (!link)
            return std::make_unique<OwnCard>(config, directory);
        require_same_type(directory, config);
        if (directory.card() && directory.card()->num_nps != config.num_nps)
            throw StateError(directory.path().string() + ": was made for a card of " +
                             std::to_string(directory.card()->num_nps) + " NPs, and the one at " +
                             link->path().string() + " has " + std::to_string(config.num_nps));
        return nullptr;
    }
};

VirtualLineCard::VirtualLineCard(const CardConfig &config,
                                 const std::filesystem::path &state_directory)
{
    require_none_alive();
    state_ = std::make_unique<State>(nullptr, config, state_directory);
    state_->own->hardware.power_on();
    living_card = this;
}

VirtualLineCard::VirtualLineCard(const CardAtSocket &card,
                                 const std::filesystem::path &state_directory)
{
    require_none_alive();
    std::unique_ptr<CardLink> link = connected_to(card);
    const CardConfig config = link->card().config;
    state_ = std::make_unique<State>(std::move(link), config, state_directory);
    living_card = this;
}

void VirtualLineCard::require_none_alive()
{
    if (living_card)
        throw StateError("a virtual line card is alive in this process already, in " +
                         living_card->state_->directory.path().string());
}

VirtualLineCard::~VirtualLineCard()
{
    living_card = nullptr;
}

VirtualLineCard *VirtualLineCard::current()
{
    return living_card;
}

const CardConfig &VirtualLineCard::config() const
{
    return state_->config;
}

EventManager &VirtualLineCard::events()
{
    return state_->events;
}

HostConsole &VirtualLineCard::console()
{
    return state_->console;
}

Window &VirtualLineCard::window()
{
    return state_->window;
}

uint32_t VirtualLineCard::window_id() const
{
    return only_window;
}

NpStore &VirtualLineCard::nps()
{
    return state_->own_hardware().nps();
}

Prm &VirtualLineCard::prm()
{
    return state_->own_hardware().prm();
}

RunningCard &VirtualLineCard::access()
{
    return state_->access();
}

const PrmLedger &VirtualLineCard::ledger() const
{
    return state_->client.ledger();
}

bool VirtualLineCard::is_distant() const
{
    return state_->distant != nullptr;
}

bool VirtualLineCard::card_is_away() const
{
    return state_->distant && !state_->distant->link.is_open();
}

std::string VirtualLineCard::why_given_up() const
{
    return state_->distant ? state_->distant->link.given_up() : std::string();
}

void VirtualLineCard::on_failed_answer(std::function<void(const prm_async_response &)> listener)
{
    state_->client.on_failed_answer(std::move(listener));
}

void VirtualLineCard::on_flow_scan(FlowScan scan)
{
    state_->flow_scan = std::move(scan);
}

void VirtualLineCard::scan_flows(std::span<void *const> records) const
{
    if (state_->flow_scan)
        state_->flow_scan(records);
}

bool VirtualLineCard::data_path_statistics_started() const
{
    return state_->data_path_statistics_started;
}

PrmClient *CardServices::prm_client()
{
    return living_card ? &living_card->state_->client : nullptr;
}

uint32_t CardServices::start_data_path_statistics(VirtualLineCard &card)
{
    const uint32_t code = card.state_->client.prepare_statistics();
    if (code == 0)
        card.state_->data_path_statistics_started = true;
    return code;
}

} // namespace vlc
