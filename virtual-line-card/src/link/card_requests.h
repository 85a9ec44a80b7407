// What the card answers to one request of a peer.
#pragma once

#include <functional>

#include "messages.h"
#include "vlc/hardware.h"

namespace vlc {

class CardRequests {
public:
    explicit CardRequests(Hardware &hardware);

    using Part = std::function<void(Payload part)>;
    // Nothing for a request that is malformed or that this peer may not make.
    std::optional<Payload> answer(const Frame &frame, PeerRole role, const Part &part);
    // Packets that wait for a host that has gone go with it.
    void forget_packets() { waiting_ = {}; }
    const DataPlaneTotals &traffic() const { return traffic_; }

private:
    struct Handler;
    static const Handler handlers[];
    void find_handle(WireReader &in, WireWriter &out, const Part &part);
    void register_handle(WireReader &in, WireWriter &out, const Part &part);
    void reregister(WireReader &in, WireWriter &out, const Part &part);
    void set_name(WireReader &in, WireWriter &out, const Part &part);
    void request(WireReader &in, WireWriter &out, const Part &part);
    void read_answer(WireReader &in, WireWriter &out, const Part &part);
    void unread(WireReader &in, WireWriter &out, const Part &part);
    void is_handle(WireReader &in, WireWriter &out, const Part &part);
    void read_counter(WireReader &in, WireWriter &out, const Part &part);
    void packets(WireReader &in, WireWriter &out, const Part &part);
    void rows(WireReader &in, WireWriter &out, const Part &part);
    void hit_counts(WireReader &in, WireWriter &out, const Part &part);
    void flows(WireReader &in, WireWriter &out, const Part &part);
    void flow_activity(WireReader &in, WireWriter &out, const Part &part);
    void counter_runs(WireReader &in, WireWriter &out, const Part &part);
    void take_counters(WireReader &in, WireWriter &out, const Part &part);
    void give_counters_back(WireReader &in, WireWriter &out, const Part &part);
    void cpu_frame(WireReader &in, WireWriter &out, const Part &part);
    void go_on(WireReader &in, WireWriter &out, const Part &part);
    void answers(WireReader &in, WireWriter &out, const Part &part);
    void counter(WireReader &in, WireWriter &out, const Part &part);
    void counters(WireReader &in, WireWriter &out, const Part &part);
    void np_totals(WireReader &in, WireWriter &out, const Part &part);

    const Np *np_in(WireReader &in) const;
    void process_waiting(bool is_first_known, WireWriter &out, const Part &part);

    Hardware &hardware_;
    DataPlane plane_;
    DataPlaneTotals traffic_;
    // Packets of the host that wait for what it makes of a flow that the first of them missed.
    struct Waiting {
        Payload bytes; // what the packets point into
        std::vector<CapturedPacket> packets;
        size_t next = 0;
        PacketWishes wishes{};
    };
    Waiting waiting_;
};

} // namespace vlc
