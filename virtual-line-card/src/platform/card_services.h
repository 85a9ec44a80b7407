// The platform services' way to the card that is alive.
#pragma once

#include "vlc/virtual_line_card.h"

namespace vlc {

class PrmClient;

struct CardServices {
    static PrmClient *prm_client(); // null without a card
    static uint32_t start_data_path_statistics(VirtualLineCard &card);
};

} // namespace vlc
