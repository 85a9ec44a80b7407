// A card as a tool sees it beside its platform services: what its hardware holds, and packets for
// its data plane. The same for a card in this process, one behind a socket and one that no process
// runs. Whatever cannot be read throws StateError.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "vlc/card_config.h"
#include "vlc/cpu_ports.h"
#include "vlc/data_plane.h"
#include "vlc/np_flows.h"
#include "vlc/np_store.h"
#include "vlc/prm_store.h"
#include "vlc/state_error.h"

namespace vlc {

// Thrown when the connection to a card in another process breaks during a look.
class CardGone : public StateError {
public:
    using StateError::StateError;
};

// Looking changes nothing and takes no lock.
class CardAccess {
public:
    using VisitRow = std::function<void(const TableRow &row)>;
    using VisitHits = std::function<void(const TableRow &row, const PacketCount &hits)>;
    using VisitAnswer = std::function<void(uint32_t handle, const StoredAnswer &answer)>;

    virtual ~CardAccess() = default;
    virtual const CardConfig &config() const = 0;
    virtual void for_each_row(uint32_t np, TableKind table, const VisitRow &visit) = 0;
    // With what each row has counted since it was added: packets that hit it, and their bytes on
    // the wire; of a row that encapsulates, the bytes that left.
    virtual void for_each_hit_count(uint32_t np, TableKind table, const VisitHits &visit) = 0;
    virtual void for_each_flow(uint32_t np, const VisitFlow &visit) = 0;
    // Nothing when the NP's flow table does not have the key.
    virtual std::optional<FlowActivity> flow_activity(uint32_t np, Bytes key) = 0;
    // The dynamic counters that are in use.
    virtual void for_each_counter_run(uint32_t np, const VisitRun &visit) = 0;
    // Of every handle, the oldest of each first.
    virtual void for_each_unread_answer(const VisitAnswer &visit) = 0;
    // By the counter's place in the bank, 0 to CounterBank::count - 1.
    virtual PacketCount counter(uint32_t np, uint32_t place) = 0;
    // All of the bank, by place.
    virtual std::vector<PacketCount> counters(uint32_t np) = 0;
    // What became of the NP's packets since its state was made.
    virtual NpTotals totals(uint32_t np) = 0;
};

// A card that runs.
class RunningCard : public CardAccess {
public:
    // Into a CPU port, whole.
    virtual FrameOutcome send_frame(uint32_t port, Bytes frame) = 0;
    // For the data plane, in order. A packet may wait for others until traffic() is asked for.
    // Returns false when it was the first of some that did not reach the card: its connection is
    // broken, and may come back.
    virtual bool process(const CapturedPacket &packet) = 0;
    // Where packets go that the card encapsulates, in order, at the latest with traffic().
    virtual void on_output(Output output) = 0;
    // Who wants to hear of the flows that the NPs do not have, packet by packet, and may program
    // them there and then. Must not throw, and must not give packets in.
    virtual void on_flow_miss(FlowMissHandler handler) = 0;
    struct Traffic {
        DataPlaneTotals totals;   // of the packets that were given in here
        uint64_t undelivered = 0; // did not reach the card, or nobody knows whether
    };
    virtual Traffic traffic() = 0;
    // Brings everything that the card has to say by now onto the event manager. Returns whether
    // there was anything since the last time: then there is more to run.
    virtual bool settle() = 0;
};

// The hardware in a state directory, whether or not a process runs it. The directory of a host that
// is connected to its card by a socket holds none and is refused.
std::unique_ptr<CardAccess> look_into_directory(const std::filesystem::path &state_directory);

// The hardware of a card that listens at a socket, beside its host if it has one.
std::unique_ptr<CardAccess> look_into_card(const std::filesystem::path &socket);

} // namespace vlc
