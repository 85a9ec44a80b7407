// A packet through the data plane of an embedded card, with entries for its destinations.
#include "hot_path.h"

#include "bench_card.h"
#include "traffic_meter.h"
#include "vlc/capture_reader.h"
#include "vlc/data_plane.h"

#include <set>
#include <vector>

namespace {

class Packets {
public:
    Packets()
    {
        vlc::CaptureReader reader(CAPTURE);
        vlc::CapturedPacket packet{};
        while (reader.next(&packet)) {
            bytes_.emplace_back(packet.bytes.begin(), packet.bytes.end());
            packets_.push_back(packet);
        }
        for (size_t i = 0; i < packets_.size(); ++i) {
            packets_[i].bytes = bytes_[i];
            packets_[i].capture = "capture";
        }
    }
    const std::vector<vlc::CapturedPacket> &all() const { return packets_; }

    std::vector<services::Destination> destinations() const
    {
        std::set<services::Destination> found;
        for (const vlc::CapturedPacket &packet : packets_) {
            const vlc::ParsedPacket parsed = vlc::parse_packet(packet);
            if (parsed.unreadable == vlc::Unreadable::none)
                found.insert({parsed.tuple.protocol, parsed.tuple.destination,
                              parsed.tuple.destination_port});
        }
        return {found.begin(), found.end()};
    }

private:
    std::vector<std::vector<uint8_t>> bytes_;
    std::vector<vlc::CapturedPacket> packets_;
};

void packet()
{
    const Packets packets;
    vlc::CardConfig config;
    config.num_nps = 2;
    bench::BenchCard card(config);
    services::TrafficMeter meter;
    const auto programmed = meter.program(packets.destinations(), [&card](size_t, size_t) {
        card.run_events();
        return true;
    });
    if (!programmed.failure.empty()) {
        bench::why_unavailable = "the entries could not be programmed";
        return;
    }
    card.run_events();
    const auto process_all = [&] {
        for (const vlc::CapturedPacket &one : packets.all())
            card.card().access().process(one);
    };
    process_all();
    bench::count_instructions(packets.all().size(), process_all);
}

constexpr bench::HotPath paths[] = {{"packet through the data plane", packet}};

} // namespace

const std::span<const bench::HotPath> bench::hot_paths = paths;
