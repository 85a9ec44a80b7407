#include "replay.h"

#include <algorithm>
#include <chrono>
#include <limits>

#include "interrupt.h"
#include "vlc/capture_reader.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr uint64_t packets_between_looks = 4096;
constexpr uint32_t looks_per_second = 100; // of a replay that keeps a pace

class Replay {
public:
    Replay(vlc::VirtualLineCard &card, CardSession &session, services::TrafficMeter &meter,
           FlowRun *flows, const ReplayPlan &plan, Progress &progress)
        : card_(card), session_(session), meter_(meter), flows_(flows), plan_(plan),
          progress_(progress)
    {
        if (plan.packets_per_second)
            between_looks_ = std::max(1U, *plan.packets_per_second / looks_per_second);
    }

    // Returns whether it was interrupted before its end, if it has one.
    bool run()
    {
        for (uint64_t time = 0; plan_.times == 0 || time < plan_.times; ++time) {
            const uint64_t before = packets_;
            for (size_t place = 0; !was_cut_short_ && place < plan_.captures.size(); ++place)
                run(plan_.captures[place], time, place);
            if (was_cut_short_ || packets_ == before)
                break; // captures without a packet have no end either
        }
        return was_cut_short_ && plan_.times != 0;
    }

private:
    void run(const std::filesystem::path &capture, uint64_t time, size_t place)
    {
        vlc::CaptureReader reader(capture);
        vlc::CapturedPacket packet{};
        while (reader.next(&packet)) {
            was_cut_short_ = interrupted();
            if (was_cut_short_)
                return;
            count_before(packet.wire_length);
            ++packets_;
            if (flows_ != nullptr)
                flows_->pass_time_to(packet);
            if (!card_.access().process(packet) && !session_.wait_for_card())
                throw vlc::StateError("the card went away and did not come back");
            if (packets_ % between_looks_ != 0)
                continue;
            keep_pace();
            session_.run_what_is_ready();
            progress_.show("replaying", share_done(time, place, reader.progress()), packets_,
                           "packets");
        }
    }

    // Of all times, or of this one when there is no end.
    double share_done(uint64_t time, size_t place, double of_capture) const
    {
        const double of_time =
            (static_cast<double>(place) + of_capture) / static_cast<double>(plan_.captures.size());
        return plan_.times == 0
                   ? of_time
                   : (static_cast<double>(time) + of_time) / static_cast<double>(plan_.times);
    }

    void keep_pace()
    {
        if (!plan_.packets_per_second)
            return;
        const std::chrono::duration<double> due(static_cast<double>(packets_) /
                                                *plan_.packets_per_second);
        const auto early = due - (Clock::now() - begin_);
        if (early.count() > 0)
            session_.run_for(std::chrono::duration_cast<vlc::CardClock::duration>(early));
    }

    // The meter's sums are 32 bits: no more than they hold may come between two passes.
    void count_before(uint32_t bytes)
    {
        constexpr uint64_t highest = std::numeric_limits<uint32_t>::max();
        if (uncounted_bytes_ + bytes > highest || uncounted_packets_ == highest) {
            card_.access().settle(); // what was given to the card has been counted there
            meter_.collect();
            uncounted_bytes_ = 0;
            uncounted_packets_ = 0;
        }
        uncounted_bytes_ += bytes;
        ++uncounted_packets_;
    }

    vlc::VirtualLineCard &card_;
    CardSession &session_;
    services::TrafficMeter &meter_;
    FlowRun *flows_;
    const ReplayPlan &plan_;
    Progress &progress_;
    using Clock = std::chrono::steady_clock;
    const Clock::time_point begin_ = Clock::now();
    uint64_t between_looks_ = packets_between_looks;
    bool was_cut_short_ = false;
    uint64_t packets_ = 0;
    uint64_t uncounted_bytes_ = 0;
    uint64_t uncounted_packets_ = 0;
};

} // namespace

Replayed replay(vlc::VirtualLineCard &card, CardSession &session, services::TrafficMeter &meter,
                FlowRun *flows, const ReplayPlan &plan, Progress &progress)
{
    Replayed outcome;
    Replay replaying(card, session, meter, flows, plan, progress);
    try {
        outcome.was_cut_short = replaying.run();
    } catch (const vlc::StateError &cut_short) {
        outcome.failure = cut_short.what();
    }
    outcome.traffic = card.access().traffic();
    session.let_everything_arrive();
    meter.collect();
    progress.clear();
    return outcome;
}

} // namespace inlinectl
