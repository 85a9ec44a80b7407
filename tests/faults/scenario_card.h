// The card that the scenario is made for, and what happens on it that no host has asked for.
#pragma once

#include <cstdint>
#include <functional>

#include "model_card.h"
#include "vlc/card_config.h"
#include "vlc/np_store.h"
#include "vlc/prm.h"

namespace test {

vlc::CardConfig scenario_card(uint32_t card_type, uint16_t num_nps = 2);
inline constexpr uint32_t ordinary_card = 0xD20001;
inline constexpr uint32_t unswapped_card = 0xD10001; // takes counters as they lie in memory

// Packets that the scenario's traffic counts on one counter.
ModelCount traffic_on(uint32_t np, uint32_t place);

enum class CardAct : uint32_t { pass_traffic, queue_delayed_answer, go_down, come_up };

// In the card's process. The handle is the host's, for what it gets.
void act_on_card(CardAct act, vlc::NpStore &nps, vlc::Prm &prm, uint32_t handle);

// From the host's, wherever the card is.
using ActOnCard = std::function<void(CardAct act, uint32_t handle)>;

} // namespace test
