// What the card says of itself.
#include "card_services.h"

#include <cerrno>

#include "platform_card.h"
#include "tap_words.h"

using vlc::forced_as;
using vlc::tapped_call;
using vlc::VirtualLineCard;

uint32_t platform_get_my_card_type(void)
{
    if (auto forced = tapped_call("platform_get_my_card_type"))
        return forced_as<uint32_t>(*forced);
    const VirtualLineCard *card = VirtualLineCard::current();
    return card ? card->config().card_type : 0;
}

uint32_t plm_dpss_stats_init(void)
{
    if (auto forced = tapped_call("plm_dpss_stats_init"))
        return forced_as<uint32_t>(*forced);
    VirtualLineCard *card = VirtualLineCard::current();
    return card ? vlc::CardServices::start_data_path_statistics(*card) : EINVAL;
}
