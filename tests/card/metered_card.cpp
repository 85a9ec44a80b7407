#include "metered_card.h"

namespace test {

namespace {

std::unique_ptr<vlc::VirtualLineCard> embedded_card(uint32_t card_type, uint16_t num_nps)
{
    vlc::CardConfig config;
    config.card_type = card_type;
    config.num_nps = num_nps;
    config.window_bytes = uint64_t{16} << 20;
    return std::make_unique<vlc::VirtualLineCard>(config, metered_card_directory);
}

} // namespace

MeteredCard::MeteredCard(uint32_t card_type, uint16_t num_nps)
    : MeteredCard(embedded_card(card_type, num_nps))
{
}

MeteredCard::MeteredCard(std::unique_ptr<vlc::VirtualLineCard> on) : card(std::move(on))
{
    services::HostHandles handles;
    handles.event_manager = card->events().handle();
    handles.window_id = card->window_id();
    handles.num_nps = card->config().num_nps;
    handles.root = static_cast<shadow_db *>(card->window().root());
    handles.publish_root = [this](shadow_db *root) { card->window().set_root(root); };
    handles.run_until = [this](const std::function<bool()> &done) {
        return card->events().run_until(done);
    };
    host = std::make_unique<services::ServiceHost>(handles);
    host->start();
    meter = std::make_unique<services::TrafficMeter>();
}

services::TrafficMeter::Programmed
MeteredCard::program(const std::vector<services::Destination> &wanted)
{
    return meter->program(wanted, [this](size_t, size_t) {
        card->events().run_until_idle();
        return true;
    });
}

} // namespace test
