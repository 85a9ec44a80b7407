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
    Replay(vlc::VirtualLineCard &card, services::TrafficMeter &meter, Progress &progress)
        : card_(card), meter_(meter), progress_(progress), plane_(card.nps(), card.config())
    {
    }

    void run(const std::filesystem::path &capture, size_t place, size_t captures)
    {
        vlc::CaptureReader reader(capture);
        vlc::CapturedPacket packet{};
        while (!interrupted() && reader.next(&packet)) {
            count_before(packet.wire_length);
            plane_.process(packet);
            if (plane_.totals().packets % packets_between_looks != 0)
                continue;
            card_.events().run_until_idle();
            progress_.show("replaying",
                           (static_cast<double>(place) + reader.progress()) /
                               static_cast<double>(captures),
                           plane_.totals().packets, "packets");
        }
    }

    const vlc::DataPlaneTotals &totals() const { return plane_.totals(); }

private:
    // The meter's sums are 32 bits: no more than they hold may come between two passes.
    void count_before(uint32_t bytes)
    {
        constexpr uint64_t highest = std::numeric_limits<uint32_t>::max();
        if (uncounted_bytes_ + bytes > highest || uncounted_packets_ == highest) {
            meter_.collect();
            uncounted_bytes_ = 0;
            uncounted_packets_ = 0;
        }
        uncounted_bytes_ += bytes;
        ++uncounted_packets_;
    }

    vlc::VirtualLineCard &card_;
    services::TrafficMeter &meter_;
    Progress &progress_;
    vlc::DataPlane plane_;
    uint64_t uncounted_bytes_ = 0;
    uint64_t uncounted_packets_ = 0;
};

} // namespace

Replayed replay(vlc::VirtualLineCard &card, services::TrafficMeter &meter,
                const std::vector<std::filesystem::path> &captures, Progress &progress)
{
    Replayed outcome;
    Replay replaying(card, meter, progress);
    try {
        for (size_t place = 0; place < captures.size(); ++place)
            replaying.run(captures[place], place, captures.size());
    } catch (const vlc::StateError &changed_since_the_scan) {
        outcome.failure = changed_since_the_scan.what();
    }
    meter.collect();
    progress.clear();
    outcome.traffic = replaying.totals();
    return outcome;
}

} // namespace inlinectl
