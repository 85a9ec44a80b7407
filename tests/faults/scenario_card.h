// The card that the scenario is made for, and what happens on it that no host has asked for.
#pragma once

#include <cstdint>
#include <functional>

#include "inline_service_attributes.h"
#include "inline_service_vservice.h"
#include "model_card.h"
#include "scenario.h"
#include "vlc/card_config.h"
#include "vlc/np_store.h"
#include "vlc/prm.h"

namespace test {

vlc::CardConfig scenario_card(uint32_t card_type, uint16_t num_nps = 2);
inline constexpr uint32_t ordinary_card = 0xD20001;
inline constexpr uint32_t unswapped_card = 0xD10001; // takes counters as they lie in memory

// What it knows of slots, interfaces and VRFs.
inline constexpr uint16_t slot_with_endpoint = ModelCard::slot_with_endpoint;
inline constexpr uint16_t other_slot = ModelCard::other_slot;

// Records that a host hands over, of what a step asks for.
vservice_config config_of(const VserviceRequest &wanted);
uidb_attribute attribute_of(const AttributeRequest &wanted);
// Of the second the slot is of another type, of the last one it is none that the card has.
inline constexpr uint16_t interfaces_looked_up[] = {40, 41, 42};

// Packets that are sent: the tag of both kinds, and how long each is.
inline constexpr uint16_t tag_of_packets = 0x0ABC;
inline constexpr uint32_t service_packet_bytes = 33;
inline constexpr uint32_t ip_packet_bytes = 44;

// Packets that the scenario's traffic counts on one counter.
ModelCount traffic_on(uint32_t np, uint32_t place);

enum class CardAct : uint32_t { pass_traffic, queue_delayed_answer, go_down, come_up };

// In the card's process. The handle is the host's, for what it gets.
void act_on_card(CardAct act, vlc::NpStore &nps, vlc::Prm &prm, uint32_t handle);

// From the host's, wherever the card is.
using ActOnCard = std::function<void(CardAct act, uint32_t handle)>;

} // namespace test
