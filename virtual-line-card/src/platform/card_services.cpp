// What the card says of itself.
#include "card_services.h"

#include <algorithm>
#include <cerrno>

#include "platform_card.h"
#include "statistics_tables.h"
#include "tap_words.h"

using vlc::forced_as;
using vlc::tapped_call;
using vlc::VirtualLineCard;

namespace {

// Null for a slot that the card file does not know, and without a card.
template <typename Value>
const vlc::SlotConfig *slot_with(Value vlc::SlotConfig::*field, Value value)
{
    const VirtualLineCard *card = VirtualLineCard::current();
    if (!card)
        return nullptr;
    const auto &slots = card->config().slots;
    const auto found = std::ranges::find(slots, value, field);
    return found == slots.end() ? nullptr : &*found;
}

} // namespace

uint32_t platform_get_my_card_type(void)
{
    if (auto forced = tapped_call("platform_get_my_card_type"))
        return forced_as<uint32_t>(*forced);
    const VirtualLineCard *card = VirtualLineCard::current();
    return card ? card->config().card_type : 0;
}

uint32_t platform_node_get_card_type(uint32_t nodeid)
{
    if (auto forced = tapped_call("platform_node_get_card_type", nodeid))
        return forced_as<uint32_t>(*forced);
    const vlc::SlotConfig *slot = slot_with(&vlc::SlotConfig::node, nodeid);
    return slot ? slot->card_type : 0;
}

uint32_t plm_slot_to_nodeid(uint16_t slot, uint32_t *nodeid)
{
    if (auto forced = tapped_call("plm_slot_to_nodeid", slot, nodeid))
        return forced_as<uint32_t>(*forced);
    if (!nodeid)
        return EINVAL;
    const vlc::SlotConfig *known = slot_with(&vlc::SlotConfig::number, slot);
    if (!known)
        return ENOENT;
    *nodeid = known->node;
    return 0;
}

uint32_t plm_dpss_stats_init(void)
{
    if (auto forced = tapped_call("plm_dpss_stats_init"))
        return forced_as<uint32_t>(*forced);
    VirtualLineCard *card = VirtualLineCard::current();
    return card ? vlc::CardServices::start_data_path_statistics(*card) : EINVAL;
}

const uint32_t *plm_dpss_get_stats_tbl_id(uint32_t np)
{
    if (auto forced = tapped_call("plm_dpss_get_stats_tbl_id", np))
        return forced_as<const uint32_t *>(*forced);
    const VirtualLineCard *card = VirtualLineCard::current();
    if (!card || np >= card->config().num_nps || card->config().dynamic_counters == 0)
        return nullptr;
    return &vlc::statistics_tables[np];
}
