// What the frames carry.
#pragma once

#include "frame.h"
#include "platform_prm.h"
#include "vlc/card_config.h"
#include "vlc/data_plane.h"
#include "vlc/np_flows.h"
#include "vlc/np_store.h"
#include "vlc/prm_store.h"

namespace vlc {

constexpr std::string_view link_magic = "vlc-link";
constexpr uint32_t link_version = 4;

// An asker is at a host, the others at a card.
enum class PeerRole : uint8_t { host = 1, reader = 2, asker = 3 };

// The first message of each side. A magic and a version come first in every version.
struct ClientHello {
    PeerRole role = PeerRole::reader;
};
struct CardHello {
    CardConfig config;
    bool prm_is_up = false;
};

// What a host wants to hear of packets that it gives in.
struct PacketWishes {
    bool output = false; // those that leave encapsulated
    bool flow_misses = false;
};

// What is wrong with the other side's greeting, for a person; empty for nothing.
std::string wrong_with_greeting(WireReader &reader);
void put_greeting(WireWriter &writer);

void put(WireWriter &writer, const CardConfig &config);
void get(WireReader &reader, CardConfig &config);
void put(WireWriter &writer, const prm_config_record &record);
void get(WireReader &reader, prm_config_record &record);
void put(WireWriter &writer, const prm_async_response &response);
void get(WireReader &reader, prm_async_response &response);
void put(WireWriter &writer, const TableRow &row);
void get(WireReader &reader, TableRow &row);
void put(WireWriter &writer, const PacketCount &count);
void get(WireReader &reader, PacketCount &count);
void put(WireWriter &writer, const FlowActivity &activity);
void get(WireReader &reader, FlowActivity &activity);
void put(WireWriter &writer, const CounterRun &run);
void get(WireReader &reader, CounterRun &run);
void put(WireWriter &writer, const FlowMiss &miss);
void get(WireReader &reader, FlowMiss &miss);
void put(WireWriter &writer, const PacketWishes &wishes);
void get(WireReader &reader, PacketWishes &wishes);
void put(WireWriter &writer, const StoredAnswer &answer);
void get(WireReader &reader, StoredAnswer &answer);
void put(WireWriter &writer, const NpTotals &totals);
void get(WireReader &reader, NpTotals &totals);
void put(WireWriter &writer, const DataPlaneTotals &totals);
void get(WireReader &reader, DataPlaneTotals &totals);
// The bytes of a packet that was read stay where they came from.
void put(WireWriter &writer, const CapturedPacket &packet);
void get(WireReader &reader, CapturedPacket &packet);
void put(WireWriter &writer, const EncapsulatedPacket &packet);
void get(WireReader &reader, EncapsulatedPacket &packet);

} // namespace vlc
