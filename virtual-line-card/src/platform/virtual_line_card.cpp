#include "vlc/virtual_line_card.h"

#include "card_services.h"
#include "embedded_prm.h"
#include "prm_client.h"
#include "vlc/hardware.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"

namespace vlc {

namespace {

constexpr uint32_t only_window = 1;

VirtualLineCard *living_card = nullptr;

// What a failed start made goes again.
class TakenBackOnFailure {
public:
    explicit TakenBackOnFailure(StateDirectory &directory) : directory_(directory)
    {
        directory_.start_over();
    }
    ~TakenBackOnFailure() { directory_.take_back(); } // nothing once the directory is complete
    TakenBackOnFailure(const TakenBackOnFailure &) = delete;
    TakenBackOnFailure &operator=(const TakenBackOnFailure &) = delete;

private:
    StateDirectory &directory_;
};

const StateDirectory &of_a_card_with_its_host(const StateDirectory &directory)
{
    directory.require(Holdings::card_and_host);
    return directory;
}

} // namespace

// In the order in which they are built on each other: the client's half goes first, then the event
// manager with what is left on it, then PRM and the files. The window is opened behind the other
// files: it alone is repaired in that, and a refused opening changes nothing.
struct VirtualLineCard::State {
    CardConfig config;
    StateDirectory directory;
    TakenBackOnFailure start;
    Hardware hardware;
    HardwareAccess access;
    Window window;
    EventManager events;
    EmbeddedPrm transport;
    PrmClient client;
    bool data_path_statistics_started = false;

    State(const CardConfig &card, const std::filesystem::path &path)
        : config(card), directory(path, Access::read_write), start(directory),
          hardware(config, of_a_card_with_its_host(directory)), access(hardware),
          window(directory, config.window_bytes), transport(hardware.prm()), client(transport)
    {
        directory.complete(config);
    }
};

VirtualLineCard::VirtualLineCard(const CardConfig &config,
                                 const std::filesystem::path &state_directory)
{
    if (living_card)
        throw StateError("a virtual line card is alive in this process already, in " +
                         living_card->state_->directory.path().string());
    state_ = std::make_unique<State>(config, state_directory);
    state_->hardware.prm().power_on();
    living_card = this;
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
    return state_->hardware.nps();
}

Prm &VirtualLineCard::prm()
{
    return state_->hardware.prm();
}

RunningCard &VirtualLineCard::access()
{
    return state_->access;
}

void VirtualLineCard::on_failed_answer(std::function<void(const prm_async_response &)> listener)
{
    state_->client.on_failed_answer(std::move(listener));
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
