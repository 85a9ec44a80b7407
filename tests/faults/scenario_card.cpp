#include "scenario_card.h"

#include "platform_card.h"
#include "platform_prm.h"

namespace test {
namespace {

void pass_traffic(vlc::NpStore &nps)
{
    for (uint32_t np = 0; np < nps.size(); ++np) {
        for (uint32_t place = 0; place < places_with_traffic; ++place) {
            const ModelCount count = traffic_on(np, place);
            for (uint64_t i = 0; i < count.packets; ++i)
                nps[np].counters().add(place, static_cast<uint32_t>(count.bytes / count.packets));
        }
    }
}

void queue_delayed_answer(vlc::Prm &prm, uint32_t handle)
{
    vlc::StoredAnswer answer{};
    answer.refnum = PRM_OP_MODIFY << PRM_REFNUM_OP_SHIFT | PRM_REFNUM_DELAY_QUEUE;
    prm.queue_answer(handle, answer);
}

} // namespace

vlc::CardConfig scenario_card(uint32_t card_type, uint16_t num_nps)
{
    vlc::CardConfig config;
    config.card_type = card_type;
    config.num_nps = num_nps;
    config.service_config_capacity = 512;
    config.ext_conf_capacity = 512;
    config.window_bytes = uint64_t{1} << 20;
    config.slots = {
        {.number = slot_with_endpoint, .node = 0x51, .card_type = CARD_TYPE_INFRA_SLOTS},
        {.number = other_slot, .node = 0x61, .card_type = card_type}};
    config.interfaces = {
        {.handle = ModelCard::interface, .uidb = 40, .pic = ModelCard::pic_of_interface}};
    config.vrfs = {{.id = ModelCard::vrf, .table = ModelCard::table_of_vrf}};
    return config;
}

vservice_config config_of(const VserviceRequest &wanted)
{
    vservice_config config{};
    config.vs_index = wanted.index;
    config.encap = wanted.encap;
    config.user = wanted.user;
    config.src_ip = 0xC6336401;
    config.dst_ip = wanted.destination;
    config.sport = static_cast<uint16_t>(40000 + wanted.index);
    config.dport = 4789;
    return config;
}

uidb_attribute attribute_of(const AttributeRequest &wanted)
{
    return {.app_type = wanted.app_type,
            .dirty = 1,
            .spare_5 = 0,
            .slot = wanted.slot,
            .iftype = 0x80000000 | wanted.uidb,
            .app_ID = wanted.app_ID,
            .vqi = static_cast<uint16_t>(wanted.uidb + 1)};
}

ModelCount traffic_on(uint32_t np, uint32_t place)
{
    const uint64_t packets = 1 + (place + np) % 7;
    return {packets, packets * (64 + place)};
}

void act_on_card(CardAct act, vlc::NpStore &nps, vlc::Prm &prm, uint32_t handle)
{
    switch (act) {
    case CardAct::pass_traffic:
        return pass_traffic(nps);
    case CardAct::queue_delayed_answer:
        return queue_delayed_answer(prm, handle);
    case CardAct::go_down:
        return prm.go_down();
    case CardAct::come_up:
        return prm.come_up();
    }
}

} // namespace test
