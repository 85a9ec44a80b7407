// Packets in, lookups in the programmed tables, counts out.
#include "vlc/data_plane.h"

#include <algorithm>

#include "encapsulation_layout.h"
#include "flow_layout.h"
#include "lookup_keys.h"

namespace vlc {
namespace {

constexpr uint32_t unswapped_card_types[] = {
#define CARD_TYPE_COUNTER_UNSWAPPED(name, code) uint32_t{code},
#include "card_types.def"
#undef CARD_TYPE_COUNTER_UNSWAPPED
};

static_assert(InterfaceConfig::first_vservice_key == lookup_keys::first_vservice_key);

constexpr size_t action_place = 0;

flow_layout::Key flow_key(const FiveTuple &tuple) noexcept
{
    return flow_layout::key_of({.source = tuple.source,
                                .destination = tuple.destination,
                                .source_port = tuple.source_port,
                                .destination_port = tuple.destination_port,
                                .protocol = tuple.protocol});
}

__extension__ using Wide = unsigned __int128;

// Whether the packet conforms. The bucket is kept as what it lacks, so that a new one is full.
bool pass_policer(const flow_layout::Policer &policer, const CapturedPacket &packet,
                  FlowCell::State &state) noexcept
{
    constexpr uint64_t second = 1'000'000'000;
    if (policer.rate == 0) {
        return true;
    }
    const uint64_t room = uint64_t{policer.burst} * second;
    uint64_t owed = std::min(state.owed, room);
    if (packet.nanoseconds > state.last_packet) {
        const uint64_t elapsed =
            static_cast<uint64_t>(packet.nanoseconds) - static_cast<uint64_t>(state.last_packet);
        owed -= static_cast<uint64_t>(std::min(Wide{owed}, Wide{elapsed} * policer.rate));
    }
    const uint64_t wanted = packet.wire_length * second;
    const bool conforms = wanted <= room - owed;
    state.owed = conforms ? owed + wanted : owed;
    return conforms;
}

} // namespace

bool takes_counters_unswapped(uint32_t card_type)
{
    return std::ranges::find(unswapped_card_types, card_type) != std::end(unswapped_card_types);
}

DataPlane::DataPlane(NpStore &nps, const CardConfig &config)
    : nps_(nps), config_(config), unswapped_(takes_counters_unswapped(config.card_type))
{
    start_over();
}

void DataPlane::start_over()
{
    own_ = {};
    before_.clear();
    for (uint32_t np = 0; np < nps_.size(); ++np)
        before_.push_back(nps_[np].totals().read());
}

// A packet is counted once, in the files; what this run saw is what they have gained.
DataPlaneTotals DataPlane::totals() const
{
    DataPlaneTotals totals = own_;
    for (uint32_t np = 0; np < nps_.size(); ++np) {
        NpTotals gained = nps_[np].totals().read();
        gained.subtract(before_[np]);
        totals.missed_packets += gained.missed_packets;
        totals.missed_bytes += gained.missed_bytes;
        totals.nps.push_back(gained);
    }
    return totals;
}

void DataPlaneTotals::add(const DataPlaneTotals &more)
{
    packets += more.packets;
    bytes += more.bytes;
    missed_packets += more.missed_packets;
    missed_bytes += more.missed_bytes;
    for (size_t reason = 0; reason < unreadable.size(); ++reason)
        unreadable[reason] += more.unreadable[reason];
    nps.resize(std::max(nps.size(), more.nps.size()));
    for (size_t np = 0; np < more.nps.size(); ++np)
        nps[np].add(more.nps[np]);
}

// A packet meets the flow of its 5-tuple, which is programmed on the way when somebody wants to.
DataPlane::FlowFate DataPlane::meet_flow(Np &np, const CapturedPacket &packet,
                                         const FlowMiss &seen) noexcept
{
    NpTable &table = np.table(TableKind::flow);
    const flow_layout::Key key = flow_key(seen.tuple);
    const TableRow *row = table.find(key);
    if (row == nullptr && flow_miss_) {
        flow_miss_(seen);
        row = table.find(key);
    }
    if (row == nullptr) {
        return FlowFate::missed;
    }
    np.totals().hits[static_cast<size_t>(TableKind::flow)].add(packet.wire_length);
    table.count_hit(*row, packet.wire_length);
    FlowCell &cell = table.flow_cell(*row);
    FlowCell::State state = cell.read();
    const Bytes result = row->result_span();
    const bool is_flow = flow_layout::is_flow_result(result);
    const auto policer = is_flow ? flow_layout::policer_in(result) : std::nullopt;
    const bool conforms = !policer || pass_policer(*policer, packet, state);
    state.last_packet = packet.nanoseconds;
    cell.write(state);
    if (const uint32_t address = is_flow ? flow_layout::counter_address(result) : 0) {
        DynamicCounters &counters = np.dynamic_counters();
        const int64_t place = counters.place_of_address(address + (conforms ? 0 : 1));
        if (place >= 0) {
            counters.add(static_cast<uint32_t>(place), packet.wire_length);
        }
    }
    if (!conforms) {
        np.totals().policed.add(packet.wire_length);
    }
    return conforms ? FlowFate::goes_on : FlowFate::dropped;
}

std::optional<FlowMiss> DataPlane::flow_miss(const CapturedPacket &packet) const noexcept
{
    const ParsedPacket parsed = parse_packet(packet);
    if (parsed.unreadable != Unreadable::none) {
        return std::nullopt;
    }
    const uint32_t np = np_of(parsed.tuple);
    if (nps_[np].table(TableKind::flow).find(flow_key(parsed.tuple)) != nullptr) {
        return std::nullopt;
    }
    return FlowMiss{parsed.tuple, np, packet.wire_length, packet.nanoseconds};
}

// A packet meets the entry of the interface that it enters on.
DataPlane::Fate DataPlane::meet_service(Np &np, const CapturedPacket &packet,
                                        const ParsedPacket &parsed) noexcept
{
    const InterfaceConfig *interface = interfaces_.find(packet, parsed);
    if (interface == nullptr || !interface->key) {
        return Fate::goes_on;
    }
    NpTable &table = np.table(TableKind::service_config);
    const TableRow *row = table.find(lookup_keys::service_key(*interface->key));
    if (row == nullptr) {
        return Fate::goes_on;
    }
    const auto wanted = encapsulation_layout::encapsulation_in(row->result_span());
    if (!wanted) {
        return Fate::goes_on; // the row says nothing that an NP could do
    }
    const uint32_t length = encapsulated_length(parsed);
    if (length == 0) {
        np.totals().too_long.add(packet.wire_length);
        return Fate::encapsulated;
    }
    table.count_hit(*row, length);
    np.totals().encapsulated.add(length);
    if (output_) {
        output_(encapsulate(parsed, packet.nanoseconds,
                            {.source = wanted->source,
                             .destination = wanted->destination,
                             .source_port = wanted->source_port,
                             .destination_port = wanted->destination_port}));
    }
    return Fate::encapsulated;
}

// A row that was hit. One that counts is counted on.
[[gnu::always_inline]] inline void DataPlane::count_on(Np &np, TableKind kind, const TableRow &row,
                                                       uint32_t wire_length) noexcept
{
    np.totals().hits[static_cast<size_t>(kind)].add(wire_length);
    np.table(kind).count_hit(row, wire_length);
    const Bytes result = row.result_span();
    const bool counts = !result.empty() && result[action_place] == lookup_keys::count_action;
    const int64_t place = counts ? CounterBank::place(counter_in_result(result, unswapped_)) : -1;
    if (place < 0) {
        np.totals().uncounted_hits.add(wire_length);
    } else {
        np.counters().add(static_cast<uint32_t>(place), wire_length);
    }
}

void DataPlane::process(const CapturedPacket &packet) noexcept
{
    ++own_.packets;
    own_.bytes += packet.wire_length;
    const ParsedPacket parsed = parse_packet(packet);
    if (parsed.unreadable != Unreadable::none) {
        ++own_.unreadable[static_cast<size_t>(parsed.unreadable)];
        return;
    }
    const FiveTuple &tuple = parsed.tuple;
    const uint32_t np_number = np_of(tuple);
    Np &np = nps_[np_number];
    np.totals().taken.add(packet.wire_length);

    // What the card has no use of costs a packet no more than these looks.
    FlowFate flow = FlowFate::missed;
    if (np.table(TableKind::flow).size() != 0 || flow_miss_) {
        flow = meet_flow(np, packet, {tuple, np_number, packet.wire_length, packet.nanoseconds});
    }
    if (flow == FlowFate::dropped) {
        return;
    }
    if (!interfaces_.empty() && meet_service(np, packet, parsed) == Fate::encapsulated) {
        return;
    }
    const TableRow *destination =
        np.table(TableKind::service_config)
            .find_word<lookup_keys::DestinationKey{}.size()>(lookup_keys::destination_word(
                tuple.protocol, tuple.destination, tuple.destination_port));
    const TableRow *address = np.table(TableKind::ext_conf)
                                  .find_word<lookup_keys::AddressKey{}.size()>(
                                      lookup_keys::address_word(tuple.destination));
    if (destination != nullptr) {
        count_on(np, TableKind::service_config, *destination, packet.wire_length);
    }
    if (address != nullptr) {
        count_on(np, TableKind::ext_conf, *address, packet.wire_length);
    }
    if (destination == nullptr && address == nullptr && flow == FlowFate::missed) {
        np.totals().missed.add(packet.wire_length);
    }
}

} // namespace vlc
