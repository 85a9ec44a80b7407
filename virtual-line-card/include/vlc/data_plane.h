// The NPs' forwarding path in software: packets in, lookups in the programmed tables, counts out.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "vlc/card_config.h"
#include "vlc/encapsulated_packet.h"
#include "vlc/interface_map.h"
#include "vlc/np_store.h"
#include "vlc/np_totals.h"
#include "vlc/packet.h"

namespace vlc {

struct DataPlaneTotals {
    uint64_t packets = 0;        // every one given in
    uint64_t bytes = 0;          // wire lengths
    uint64_t missed_packets = 0; // read, and hit in no table
    uint64_t missed_bytes = 0;
    std::array<uint64_t, static_cast<size_t>(Unreadable::reasons)> unreadable{};
    std::vector<NpTotals> nps;

    void add(const DataPlaneTotals &more); // of a card with as many NPs
};

// A packet whose 5-tuple the flow table of its NP does not have. Who hears of it may program the
// flow before it returns; the packet is then the first that is counted on it.
struct FlowMiss {
    FiveTuple tuple;
    uint32_t np;
    uint32_t wire_length;
    int64_t nanoseconds; // when it came
};
using FlowMissHandler = std::function<void(const FlowMiss &)>;

class DataPlane {
public:
    DataPlane(const DataPlane &) = delete;
    DataPlane &operator=(const DataPlane &) = delete;
    DataPlane(NpStore &nps, const CardConfig &config);
    void process(const CapturedPacket &packet) noexcept;
    void on_output(Output output) { output_ = std::move(output); } // must not throw
    void on_flow_miss(FlowMissHandler handler) { flow_miss_ = std::move(handler); } // nor this
    // What process() would say of the packet; nothing when it would not.
    std::optional<FlowMiss> flow_miss(const CapturedPacket &packet) const noexcept;
    void start_over();                                    // the totals
    DataPlaneTotals totals() const;                       // since the last start
    uint32_t np_of(const FiveTuple &tuple) const noexcept // a hash of the 5-tuple
    {
        const uint64_t addresses = uint64_t{tuple.source} << 32 | tuple.destination;
        const uint64_t rest = uint64_t{tuple.protocol} << 32 | uint64_t{tuple.source_port} << 16 |
                              tuple.destination_port;
        const uint64_t hash = mix(addresses ^ std::rotl(rest * 0x9e3779b97f4a7c15u, 32));
        // The upper half, scaled to the number of NPs: no division on the way of a packet.
        return static_cast<uint32_t>((hash >> 32) * nps_.size() >> 32);
    }

private:
    static uint64_t mix(uint64_t word) noexcept
    {
        word = (word ^ word >> 32) * 0xd6e8feb86659fd93u;
        return (word ^ word >> 32) * 0xd6e8feb86659fd93u;
    }
    enum class FlowFate { missed, goes_on, dropped };
    FlowFate meet_flow(Np &np, const CapturedPacket &packet, const FlowMiss &seen) noexcept;
    enum class Fate { goes_on, encapsulated };
    Fate meet_service(Np &np, const CapturedPacket &packet, const ParsedPacket &parsed) noexcept;
    void count_on(Np &np, TableKind kind, const TableRow &row, uint32_t wire_length) noexcept;

    NpStore &nps_;
    CardConfig config_;
    InterfaceMap interfaces_{config_};
    bool unswapped_;               // how this card type reads a counter's number in a result
    DataPlaneTotals own_;          // what no NP counts: all packets, and the unreadable ones
    std::vector<NpTotals> before_; // of the NPs, at the start
    Output output_;
    FlowMissHandler flow_miss_;
};

// Whether NPs of this card type take the counter in a result without an exchange of its bytes.
bool takes_counters_unswapped(uint32_t card_type);

// The number of the counter that a result carries in its bytes 1 to 3, as this card type reads it.
// Card types that take it unswapped get the number's upper three bytes only, so their NPs count on
// the first counter of its 256.
inline uint32_t counter_in_result(Bytes result, bool unswapped) noexcept
{
    if (result.size() < sizeof(uint32_t))
        return 0;
    // Unswapped, the bytes are the upper three of the number as it lies in memory, its lowest byte
    // lost. Otherwise they are the lower three in network byte order, or the other way round after
    // an even number of exchanges; the bank of counters knows both.
    const auto word = static_cast<uint32_t>(word_at<uint32_t>(result.data()));
    return unswapped ? word & 0xFFFFFF00 : __builtin_bswap32(word) & 0x00FFFFFF;
}

} // namespace vlc
