// What the process of a card owns: its NPs and PRM, on a state directory that is open. The host's
// process has one when it is its own card; otherwise the card's process has it alone.
#pragma once

#include "vlc/card_access.h"
#include "vlc/cpu_ports.h"
#include "vlc/prm.h"

namespace vlc {

class Hardware {
public:
    // Throws StateError, also for a directory that was made for a card of another type. PRM is off.
    Hardware(const CardConfig &config, const StateDirectory &directory);
    // Once the directory is complete. Throws StateError.
    void power_on();

    const CardConfig &config() const { return config_; }
    NpStore &nps() { return nps_; }
    PrmStore &prm_store() { return prm_store_; }
    Prm &prm() { return prm_; }
    FrameOutcome send_frame(uint32_t port, Bytes frame); // now, by the card's clock

private:
    CardConfig config_;
    NpStore nps_;
    PrmStore prm_store_;
    Prm prm_;
    CpuPorts cpu_ports_;
};

// Throws StateError when the directory was made for a card of another type: the type decides how a
// card's programs are understood, so a state stays with the one it has.
void require_same_type(const StateDirectory &directory, const CardConfig &config);

// The hardware of this process.
class HardwareAccess final : public RunningCard {
public:
    explicit HardwareAccess(Hardware &hardware);

    const CardConfig &config() const override { return hardware_.config(); }
    void for_each_row(uint32_t np, TableKind table, const VisitRow &visit) override;
    void for_each_hit_count(uint32_t np, TableKind table, const VisitHits &visit) override;
    void for_each_flow(uint32_t np, const VisitFlow &visit) override;
    std::optional<FlowActivity> flow_activity(uint32_t np, Bytes key) override;
    void for_each_counter_run(uint32_t np, const VisitRun &visit) override;
    void for_each_unread_answer(const VisitAnswer &visit) override;
    PacketCount counter(uint32_t np, uint32_t place) override;
    std::vector<PacketCount> counters(uint32_t np_number) override
    {
        return np(np_number).counters().read_all();
    }
    NpTotals totals(uint32_t np_number) override { return np(np_number).totals().read(); }

    FrameOutcome send_frame(uint32_t port, Bytes frame) override
    {
        return hardware_.send_frame(port, frame);
    }
    bool process(const CapturedPacket &packet) override;
    void on_output(Output output) override { plane_.on_output(std::move(output)); }
    void on_flow_miss(FlowMissHandler handler) override { plane_.on_flow_miss(std::move(handler)); }
    Traffic traffic() override { return {plane_.totals(), 0}; }
    bool settle() override { return false; } // what PRM says is on the event manager at once

private:
    Np &np(uint32_t number) const;

    Hardware &hardware_;
    DataPlane plane_;
};

} // namespace vlc
