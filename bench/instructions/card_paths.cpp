// A packet through the data plane of an embedded card, with entries for its destinations.
#include "hot_path.h"

#include "bench_card.h"
#include "packets_in_memory.h"
#include "traffic_meter.h"
#include "vlc/data_plane.h"

#include <vector>

namespace {

void packet()
{
    const bench::PacketsInMemory packets(CAPTURE);
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
