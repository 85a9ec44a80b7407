// Flows that are programmed as their first packets come are those that tshark sees, with its
// packets and bytes.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <optional>
#include <tuple>
#include <vector>

#include "flow_layout.h"
#include "lookup_keys.h"
#include "test_packets.h"
#include "tshark_oracle.h"
#include "vlc/capture_reader.h"
#include "vlc/data_plane.h"
#include "vlc/np_flows.h"
#include "vlc/state_directory.h"

namespace {

namespace fs = std::filesystem;
using Tuple = std::tuple<uint8_t, uint32_t, uint16_t, uint32_t, uint16_t>;
using Counts = std::map<Tuple, std::pair<uint64_t, uint64_t>>; // packets, bytes

Counts counts_of_tshark(const fs::path &capture)
{
    Counts counts;
    for (const tshark_oracle::Frame &frame : tshark_oracle::read(capture)) {
        if (!frame.is_direct_ipv4() || !frame.destination)
            continue;
        auto &[packets, bytes] = counts[{frame.protocol, frame.source, frame.source_port,
                                         *frame.destination, frame.port}];
        ++packets;
        bytes += frame.wire_length;
    }
    return counts;
}

// A card whose flows are added when their first packets miss, on the NPs' own tables.
class CountingCard {
public:
    CountingCard(uint16_t num_nps, bool policer) : policer_(policer)
    {
        config_.num_nps = num_nps;
        config_.flow_capacity = 1 << 15;
        config_.dynamic_counters = 1 << 16;
        state_.emplace(directory_.file("state"), vlc::Access::read_write);
        nps_.emplace(*state_, config_);
        plane_.emplace(*nps_, config_);
        plane_->on_flow_miss([this](const vlc::FlowMiss &miss) { add(miss); });
    }
    void replay(const fs::path &capture)
    {
        vlc::CaptureReader reader(capture);
        for (vlc::CapturedPacket packet; reader.next(&packet);)
            plane_->process(packet);
    }
    // Conforming and dropped packets together.
    Counts counts() const
    {
        Counts counts;
        for (uint32_t np = 0; np < nps_->size(); ++np)
            take_counts((*nps_)[np], counts);
        return counts;
    }
    uint64_t policed() const
    {
        uint64_t sum = 0;
        for (const vlc::NpTotals &np : plane_->totals().nps)
            sum += np.policed_packets;
        return sum;
    }

private:
    void add(const vlc::FlowMiss &miss)
    {
        vlc::Np &np = (*nps_)[miss.np];
        FlowInfo flow;
        flow.tuple = {miss.tuple.source, miss.tuple.destination, miss.tuple.source_port,
                      miss.tuple.destination_port, miss.tuple.protocol};
        flow.policer = policer_;
        flow.rate = 1000;
        flow.burst = 3000;
        flow_layout::Result result = flow_layout::result_of(flow);
        const uint32_t run = np.dynamic_counters().take(policer_ ? 2 : 1);
        const uint32_t address = vlc::DynamicCounters::address_of(run);
        for (int i = 0; i < 3; ++i)
            result[static_cast<size_t>(3 + i)] = lookup_keys::byte_of(address, 2 - i);
        np.table(vlc::TableKind::flow).add(flow_layout::key_of(flow.tuple), result);
    }
    static void take_counts(const vlc::Np &np, Counts &counts)
    {
        std::map<uint32_t, std::pair<uint64_t, uint64_t>> by_address;
        vlc::for_each_counter_run(np, [&](const vlc::CounterRun &run) {
            auto &[packets, bytes] = by_address[vlc::DynamicCounters::address_of(run.first)];
            for (const vlc::PacketCount &count : run.counts) {
                packets += count.packets;
                bytes += count.bytes;
            }
        });
        vlc::for_each_flow(np, [&](const vlc::TableRow &row, const vlc::FlowActivity &activity) {
            const auto flow = *flow_layout::tuple_in(row.key_span());
            const auto count = by_address.at(flow_layout::counter_address(row.result_span()));
            const Tuple tuple{flow.protocol, flow.source, flow.source_port, flow.destination,
                              flow.destination_port};
            EXPECT_TRUE(counts.emplace(tuple, count).second) << "on two NPs";
            EXPECT_EQ(activity.hits, (vlc::PacketCount{count.first, count.second}));
        });
    }

    using FlowInfo = flow_layout::FlowInfo;
    bool policer_;
    vlc::CardConfig config_;
    test_packets::TemporaryDirectory directory_;
    std::optional<vlc::StateDirectory> state_;
    std::optional<vlc::NpStore> nps_;
    std::optional<vlc::DataPlane> plane_;
};

std::vector<fs::path> captures()
{
    std::vector<fs::path> found;
    for (const char *directory :
         {PROJECT_SOURCE_DIR "/captures", PROJECT_SOURCE_DIR "/../shared/captures"}) {
        std::error_code missing;
        for (const auto &entry : fs::directory_iterator(directory, missing)) {
            const fs::path extension = entry.path().extension();
            if (extension == ".pcap" || extension == ".pcapng")
                found.push_back(entry.path());
        }
    }
    return found;
}

TEST(FlowsOfCaptures, AreTsharksWhateverTheNumberOfNpsAndWithAPolicerToo)
{
    uint64_t policed = 0;
    for (const fs::path &capture : captures()) {
        SCOPED_TRACE(capture.filename());
        const Counts expected = counts_of_tshark(capture);
        EXPECT_FALSE(expected.empty());
        for (const uint16_t nps : {uint16_t{1}, uint16_t{2}, uint16_t{8}}) {
            for (const bool policer : {false, true}) {
                CountingCard card(nps, policer);
                card.replay(capture);
                EXPECT_EQ(card.counts(), expected) << nps << " NPs, policer " << policer;
                EXPECT_TRUE(policer || card.policed() == 0);
                policed += card.policed();
            }
        }
    }
    EXPECT_GT(policed, 0u) << "the policers have something to do";
}

} // namespace
