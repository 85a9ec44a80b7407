#include "replay.h"

#include <limits>

#include "interrupt.h"
#include "vlc/capture_reader.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr uint64_t packets_between_looks = 4096;

class Replay {
public:
    Replay(vlc::VirtualLineCard &card, CardSession &session, services::TrafficMeter &meter,
           FlowRun *flows, Progress &progress)
        : card_(card), session_(session), meter_(meter), flows_(flows), progress_(progress)
    {
    }

    void run(const std::filesystem::path &capture, size_t place, size_t captures)
    {
        vlc::CaptureReader reader(capture);
        vlc::CapturedPacket packet{};
        while (!interrupted() && reader.next(&packet)) {
            count_before(packet.wire_length);
            ++packets_;
            if (flows_ != nullptr)
                flows_->pass_time_to(packet);
            if (!card_.access().process(packet) && !session_.wait_for_card())
                throw vlc::StateError("the card went away and did not come back");
            if (packets_ % packets_between_looks != 0)
                continue;
            session_.run_what_is_ready();
            progress_.show("replaying",
                           (static_cast<double>(place) + reader.progress()) /
                               static_cast<double>(captures),
                           packets_, "packets");
        }
    }

private:
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
    Progress &progress_;
    uint64_t packets_ = 0;
    uint64_t uncounted_bytes_ = 0;
    uint64_t uncounted_packets_ = 0;
};

} // namespace

Replayed replay(vlc::VirtualLineCard &card, CardSession &session, services::TrafficMeter &meter,
                FlowRun *flows, const std::vector<std::filesystem::path> &captures,
                Progress &progress)
{
    Replayed outcome;
    Replay replaying(card, session, meter, flows, progress);
    try {
        for (size_t place = 0; place < captures.size(); ++place)
            replaying.run(captures[place], place, captures.size());
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
