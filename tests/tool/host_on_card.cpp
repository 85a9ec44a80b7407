#include "host_on_card.h"

#include <filesystem>

#include "inline_service_context.h"

namespace test {

vlc::CardConfig small_card(uint16_t num_nps)
{
    vlc::CardConfig config;
    config.num_nps = num_nps;
    config.service_config_capacity = 256;
    config.ext_conf_capacity = 256;
    config.window_bytes = uint64_t{4} << 20;
    return config;
}

services::HostHandles handles_of(vlc::VirtualLineCard &card)
{
    return {
        .event_manager = card.events().handle(),
        .window_id = card.window_id(),
        .num_nps = card.config().num_nps,
        .root = static_cast<shadow_db *>(card.window().root()),
        .publish_root = [&card](shadow_db *root) { card.window().set_root(root); },
        .run_until =
            [&card](const std::function<bool()> &done) { return card.events().run_until(done); }};
}

HostOnCard::HostOnCard()
{
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    std::filesystem::remove_all(card_directory);
}

void HostOnCard::open_card()
{
    card = std::make_unique<vlc::VirtualLineCard>(config, card_directory);
    plane = std::make_unique<vlc::DataPlane>(card->nps(), card->config());
}

void HostOnCard::start_host()
{
    host = std::make_unique<services::ServiceHost>(handles_of(*card));
    host->start();
}

void HostOnCard::restart()
{
    plane.reset();
    card.reset();
    host.reset();
    pgbl_ptr = nullptr; // what a new process begins with
    pshadow_db = nullptr;
    NUM_LC_NPS = 0;
    open_card();
    start_host();
}

uint64_t HostOnCard::requests() const
{
    uint64_t sum = 0;
    for (const auto &table : card->prm().totals().requests) {
        for (const uint64_t operation : table)
            sum += operation;
    }
    return sum;
}

void HostOnCard::send(const MadePacket &packet, uint32_t wire_length)
{
    const std::vector<uint8_t> frame = frame_of(packet);
    plane->process({.link = vlc::LinkType::ethernet,
                    .bytes = frame,
                    .wire_length = wire_length,
                    .nanoseconds = 0});
}

} // namespace test
