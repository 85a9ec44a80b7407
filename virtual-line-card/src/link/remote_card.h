// A card behind a socket, for tools.
#pragma once

#include "card_link.h"
#include "vlc/card_access.h"

namespace vlc {

class RemoteCard final : public RunningCard {
public:
    using Ask = std::function<CardLink::Reply(FrameKind kind, const Payload &payload,
                                              const std::function<void(const Payload &)> &on_part)>;
    // `announced` says how much the card has announced up to now.
    RemoteCard(const CardLink &link, Ask ask, std::function<uint64_t()> announced);

    const CardConfig &config() const override { return link_.card().config; }
    void for_each_row(uint32_t np, TableKind table, const VisitRow &visit) override;
    void for_each_hit_count(uint32_t np, TableKind table, const VisitHits &visit) override;
    void for_each_flow(uint32_t np, const VisitFlow &visit) override;
    std::optional<FlowActivity> flow_activity(uint32_t np, Bytes key) override;
    void for_each_counter_run(uint32_t np, const VisitRun &visit) override;
    void for_each_unread_answer(const VisitAnswer &visit) override;
    PacketCount counter(uint32_t np, uint32_t place) override;
    std::vector<PacketCount> counters(uint32_t np) override;
    NpTotals totals(uint32_t np) override;

    FrameOutcome send_frame(uint32_t port, Bytes frame) override;
    bool process(const CapturedPacket &packet) override;
    void on_output(Output output) override;
    void on_flow_miss(FlowMissHandler handler) override;
    Traffic traffic() override;
    bool settle() override;

private:
    Payload look(FrameKind kind, Payload payload,
                 const std::function<void(const Payload &)> &on_part = {});
    void look_at_np(FrameKind kind, uint32_t np, WireWriter &request,
                    const std::function<void(WireReader &)> &read);
    void require_fits(const WireReader &reader, const char *what) const;
    void require_np(uint32_t np) const;
    void give_out(const Payload &part);
    bool send_packets();
    // Whether the reply came; then what it says of a miss, if anything.
    bool carry_through(FrameKind kind, Payload payload, std::optional<FlowMiss> &miss);

    const CardLink &link_;
    Ask ask_;
    std::function<uint64_t()> announced_;
    uint64_t settled_ = 0;
    WireWriter waiting_;
    uint64_t waiting_packets_ = 0;
    Output output_;
    FlowMissHandler flow_miss_;
    Traffic traffic_;
};

} // namespace vlc
