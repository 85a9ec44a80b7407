// Packets that meet a flow: where they are counted, which a policer drops, and who hears of the
// others.
#include <gtest/gtest.h>

#include <optional>
#include <random>

#include "flow_layout.h"
#include "kept_totals.h"
#include "lookup_keys.h"
#include "test_packets.h"
#include "vlc/data_plane.h"
#include "vlc/np_flows.h"
#include "vlc/state_directory.h"

namespace {

using flow_layout::FlowInfo;
using test_packets::address;
using vlc::FlowMiss;
using vlc::NpTotals;
using vlc::PacketCount;
using vlc::TableKind;

constexpr int64_t second = 1'000'000'000;
const vlc::FiveTuple udp_tuple{address(10, 0, 0, 1), address(10, 0, 0, 2), 1234, 5678, 17};
const vlc::FiveTuple fragment_tuple{address(10, 0, 0, 1), address(10, 0, 0, 2), 0, 0, 17};
const vlc::FiveTuple icmp_tuple{address(10, 0, 0, 1), address(10, 0, 0, 2), 0, 0, 1};

#define MACS "020000000002 020000000001 "
#define UDP_5678                                                                                   \
    MACS "0800 4500 0020 0001 0000 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364"
#define FIRST_FRAGMENT                                                                             \
    MACS "0800 4500 0020 0001 2000 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364"
#define LAST_FRAGMENT                                                                              \
    MACS "0800 4500 0020 0001 00b9 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364"
#define ICMP MACS "0800 4500 001c 0001 0000 40 01 0000 0a000001 0a000002 0800f7ff00000000"
#define ARP MACS "0806 0001 0800 06 04 0001"

flow_layout::Tuple tuple_of(const vlc::FiveTuple &tuple)
{
    return {tuple.source, tuple.destination, tuple.source_port, tuple.destination_port,
            tuple.protocol};
}

FlowInfo flow_of(const vlc::FiveTuple &tuple)
{
    FlowInfo flow;
    flow.tuple = tuple_of(tuple);
    return flow;
}

FlowInfo policed_flow(uint64_t rate, uint32_t burst)
{
    FlowInfo flow = flow_of(udp_tuple);
    flow.policer = true;
    flow.rate = rate;
    flow.burst = burst;
    return flow;
}

class FlowTest : public testing::Test {
protected:
    FlowTest() { open(2); }
    void open(uint16_t num_nps)
    {
        vlc::CardConfig config;
        config.num_nps = num_nps;
        plane_.reset();
        nps_.reset();
        state_.reset();
        directory_.emplace();
        state_.emplace(directory_->file("state"), vlc::Access::read_write);
        nps_.emplace(*state_, config);
        plane_.emplace(*nps_, config);
    }
    vlc::Np &np_of(const FlowInfo &flow)
    {
        const flow_layout::Tuple &tuple = flow.tuple;
        return (*nps_)[plane_->np_of({tuple.source, tuple.destination, tuple.source_port,
                                      tuple.destination_port, tuple.protocol})];
    }
    // As the library's add puts it: the address in bytes 3 to 5. Returns the run's number.
    uint32_t add(const FlowInfo &flow)
    {
        vlc::Np &np = np_of(flow);
        const uint32_t run = np.dynamic_counters().take(flow.policer ? 2 : 1);
        const uint32_t place = vlc::DynamicCounters::address_of(run);
        flow_layout::Result result = flow_layout::result_of(flow);
        for (int i = 0; i < 3; ++i)
            result[static_cast<size_t>(3 + i)] = lookup_keys::byte_of(place, 2 - i);
        EXPECT_EQ(np.table(TableKind::flow).add(flow_layout::key_of(flow.tuple), result),
                  vlc::TableOutcome::done);
        return run;
    }
    // As the library's modify does: the upper three bytes of the number in bytes 1 to 3.
    void modify(const FlowInfo &flow, uint32_t run)
    {
        flow_layout::Result result = flow_layout::result_of(flow);
        for (int i = 1; i < 4; ++i)
            result[static_cast<size_t>(i)] = lookup_keys::byte_of(run, i);
        EXPECT_EQ(
            np_of(flow).table(TableKind::flow).modify(flow_layout::key_of(flow.tuple), result),
            vlc::TableOutcome::done);
    }
    PacketCount counted(const FlowInfo &flow, uint32_t number)
    {
        const vlc::DynamicCounters &counters = np_of(flow).dynamic_counters();
        return counters.read(static_cast<uint32_t>(counters.place(number)));
    }
    void send(std::string_view hex, uint32_t wire_length = 100, int64_t time = 0)
    {
        const test_packets::Frame frame = test_packets::from_hex(hex);
        plane_->process({vlc::LinkType::ethernet, frame, wire_length, time});
    }
    NpTotals sum() const
    {
        vlc::NpTotals sum;
        for (const NpTotals &np : plane_->totals().nps) {
            sum.packets += np.packets;
            for (size_t kind = 0; kind < vlc::table_kinds; ++kind)
                sum.hits[kind] += np.hits[kind];
            sum.policed_packets += np.policed_packets;
            sum.policed_bytes += np.policed_bytes;
            sum.uncounted_hits += np.uncounted_hits;
        }
        return sum;
    }
    std::vector<FlowMiss> &heard_misses()
    {
        plane_->on_flow_miss([this](const FlowMiss &miss) { misses_.push_back(miss); });
        return misses_;
    }

    std::optional<test_packets::TemporaryDirectory> directory_;
    std::optional<vlc::StateDirectory> state_;
    std::optional<vlc::NpStore> nps_;
    std::optional<vlc::DataPlane> plane_;
    std::vector<FlowMiss> misses_;
};

TEST_F(FlowTest, AHitCountsOnePacketAndItsWireLengthAtTheResultsAddress)
{
    const FlowInfo flow = flow_of(udp_tuple);
    const uint32_t other = add(flow_of(icmp_tuple));
    const uint32_t run = add(flow);
    send(UDP_5678, 100, 5);
    send(UDP_5678, 60, 9);
    EXPECT_EQ(counted(flow, run), (PacketCount{2, 160}));
    EXPECT_EQ(counted(flow_of(icmp_tuple), other), (PacketCount{0, 0}));
    EXPECT_EQ(sum().hits[2], 2u);
    EXPECT_EQ(plane_->totals().missed_packets, 0u) << "a flow is a hit";
    EXPECT_EQ(vlc::flow_activity(np_of(flow), flow_layout::key_of(flow.tuple)),
              (vlc::FlowActivity{{2, 160}, 9}));
}

TEST_F(FlowTest, AModifiedFlowGoesOnCountingWhereItCounted)
{
    for (uint32_t others = 0; others < 300; ++others) // so that the address fills two bytes
        np_of(flow_of(udp_tuple)).dynamic_counters().take(2);
    FlowInfo flow = policed_flow(1, 1000);
    const uint32_t run = add(flow);
    send(UDP_5678, 900);
    flow.burst = 900;
    modify(flow, run);
    send(UDP_5678, 50);
    EXPECT_EQ(counted(flow, run), (PacketCount{1, 900}));
    EXPECT_EQ(counted(flow, run + 1), (PacketCount{1, 50})) << "its bucket is still empty";
    modify(flow_of(udp_tuple), run); // the policer goes
    send(UDP_5678, 50);
    EXPECT_EQ(counted(flow, run), (PacketCount{2, 950}));
}

TEST_F(FlowTest, AFlowWithoutACounterIsHitAndCountsInItsRowAlone)
{
    const FlowInfo flow = flow_of(udp_tuple);
    np_of(flow)
        .table(TableKind::flow)
        .add(flow_layout::key_of(flow.tuple), flow_layout::result_of(flow));
    send(UDP_5678);
    EXPECT_EQ(sum().hits[2], 1u);
    EXPECT_EQ(sum().uncounted_hits, 0u);
    EXPECT_EQ(vlc::flow_activity(np_of(flow), flow_layout::key_of(flow.tuple))->hits.packets, 1u);
}

TEST_F(FlowTest, OddResultsCountNowhere)
{
    const FlowInfo flow = flow_of(udp_tuple);
    vlc::NpTable &table = np_of(flow).table(TableKind::flow);
    const flow_layout::Key key = flow_layout::key_of(flow.tuple);
    const uint32_t run = np_of(flow).dynamic_counters().take(2);
    flow_layout::Result good = flow_layout::result_of(flow);
    good[3] = 1; // the first address
    const flow_layout::Result unknown_action = [&] {
        flow_layout::Result result = good;
        result[0] = 9;
        return result;
    }();
    flow_layout::Result behind_the_last = good;
    behind_the_last[3] = 0xFF;
    table.add(key, {});
    for (const vlc::Bytes result : {vlc::Bytes(), vlc::Bytes(good).first(31),
                                    vlc::Bytes(unknown_action), vlc::Bytes(behind_the_last)}) {
        table.modify(key, result);
        send(UDP_5678);
        EXPECT_EQ(counted(flow, run).packets, 0u) << result.size();
    }
    table.modify(key, good);
    send(UDP_5678);
    EXPECT_EQ(counted(flow, run).packets, 1u);
}

TEST_F(FlowTest, TheOtherTablesAreLookedUpAsEver)
{
    add(flow_of(udp_tuple));
    for (uint32_t np = 0; np < nps_->size(); ++np) {
        (*nps_)[np]
            .table(TableKind::ext_conf)
            .add(lookup_keys::address_key(udp_tuple.destination), lookup_keys::counting_result(1));
    }
    send(UDP_5678);
    EXPECT_EQ(sum().hits[1], 1u);
    EXPECT_EQ(sum().hits[2], 1u);
    EXPECT_EQ(sum().uncounted_hits, 1u) << "of the ext conf row, which has no counter";
}

TEST_F(FlowTest, FragmentsBehindTheFirstAreAFlowWithoutPorts)
{
    const uint32_t whole = add(flow_of(udp_tuple));
    const uint32_t rest = add(flow_of(fragment_tuple));
    send(FIRST_FRAGMENT);
    send(LAST_FRAGMENT);
    send(LAST_FRAGMENT);
    EXPECT_EQ(counted(flow_of(udp_tuple), whole).packets, 1u);
    EXPECT_EQ(counted(flow_of(fragment_tuple), rest).packets, 2u);
}

// ---- misses

TEST_F(FlowTest, AMissIsToldWithItsTupleNpLengthAndTime)
{
    std::vector<FlowMiss> &misses = heard_misses();
    add(flow_of(icmp_tuple));
    send(UDP_5678, 100, 7);
    send(ICMP);
    send(ARP);
    ASSERT_EQ(misses.size(), 1u);
    EXPECT_EQ(misses[0].tuple, udp_tuple);
    EXPECT_EQ(misses[0].np, plane_->np_of(udp_tuple));
    EXPECT_EQ(misses[0].wire_length, 100u);
    EXPECT_EQ(misses[0].nanoseconds, 7);
    EXPECT_EQ(plane_->totals().missed_packets, 1u);
    send(UDP_5678);
    EXPECT_EQ(misses.size(), 2u) << "each time, while the flow is not there";
    plane_->on_flow_miss({});
    send(UDP_5678);
    EXPECT_EQ(misses.size(), 2u);
}

TEST_F(FlowTest, TheFirstPacketIsCountedOnTheFlowThatIsAddedForIt)
{
    uint32_t run = 0;
    uint32_t told = 0;
    plane_->on_flow_miss([&](const FlowMiss &miss) {
        ++told;
        run = add(flow_of(miss.tuple));
    });
    send(UDP_5678);
    send(UDP_5678);
    EXPECT_EQ(told, 1u);
    EXPECT_EQ(counted(flow_of(udp_tuple), run), (PacketCount{2, 200}));
    EXPECT_EQ(plane_->totals().missed_packets, 0u);
}

TEST_F(FlowTest, AnEmptyTableIsAskedToo)
{
    const test_packets::Frame frame = test_packets::from_hex(UDP_5678);
    const vlc::CapturedPacket packet{vlc::LinkType::ethernet, frame, 100, 7};
    const std::optional<FlowMiss> miss = plane_->flow_miss(packet);
    ASSERT_TRUE(miss);
    EXPECT_EQ(miss->tuple, udp_tuple);
    EXPECT_EQ(plane_->totals().packets, 0u) << "asking is not processing";
    add(flow_of(udp_tuple));
    EXPECT_FALSE(plane_->flow_miss(packet));
    const test_packets::Frame arp = test_packets::from_hex(ARP);
    EXPECT_FALSE(plane_->flow_miss({vlc::LinkType::ethernet, arp, 100, 7}));
}

// ---- the policer

TEST_F(FlowTest, PacketsBeyondTheBurstAreDroppedAndCountedOnTheSecondCounter)
{
    const FlowInfo flow = policed_flow(100, 250);
    const uint32_t run = add(flow);
    for (int i = 0; i < 5; ++i)
        send(UDP_5678);
    EXPECT_EQ(counted(flow, run), (PacketCount{2, 200}));
    EXPECT_EQ(counted(flow, run + 1), (PacketCount{3, 300}));
    EXPECT_EQ(sum().policed_packets, 3u);
    EXPECT_EQ(sum().policed_bytes, 300u);
    test_packets::expect_kept(*nps_, plane_->totals());
    EXPECT_EQ(vlc::flow_activity(np_of(flow), flow_layout::key_of(flow.tuple))->hits.packets, 5u);
}

TEST_F(FlowTest, ADroppedPacketIsLookedUpNoFurther)
{
    add(policed_flow(1, 99));
    for (uint32_t np = 0; np < nps_->size(); ++np) {
        (*nps_)[np]
            .table(TableKind::ext_conf)
            .add(lookup_keys::address_key(udp_tuple.destination), lookup_keys::counting_result(1));
    }
    send(UDP_5678, 100);
    EXPECT_EQ(sum().hits[1], 0u);
    send(UDP_5678, 99);
    EXPECT_EQ(sum().hits[1], 1u);
    EXPECT_EQ(plane_->totals().missed_packets, 0u);
}

TEST_F(FlowTest, TheBucketFillsWithTimeAndNoFurtherThanTheBurst)
{
    const FlowInfo flow = policed_flow(100, 200);
    const uint32_t run = add(flow);
    const auto conforming = [&](uint32_t length, int64_t time) {
        const uint64_t before = counted(flow, run).packets;
        send(UDP_5678, length, time);
        return counted(flow, run).packets > before;
    };
    EXPECT_TRUE(conforming(200, second)) << "it is full at first";
    EXPECT_FALSE(conforming(1, second + second / 100 - 1));
    EXPECT_TRUE(conforming(1, second + second / 100)) << "a hundredth of a second is a byte";
    EXPECT_FALSE(conforming(101, 2 * second + second / 100));
    EXPECT_TRUE(conforming(100, 2 * second + second / 100)) << "what is dropped takes nothing";
    EXPECT_FALSE(conforming(201, 1000 * second));
    EXPECT_TRUE(conforming(200, 1000 * second));
}

TEST_F(FlowTest, NothingFlowsInWhereTimeGoesBack)
{
    const FlowInfo flow = policed_flow(100, 200);
    const uint32_t run = add(flow);
    send(UDP_5678, 200, 100 * second);
    send(UDP_5678, 1, 50 * second);
    EXPECT_EQ(counted(flow, run + 1).packets, 1u);
    send(UDP_5678, 100, 51 * second);
    EXPECT_EQ(counted(flow, run).packets, 2u) << "it fills from then on";
}

TEST_F(FlowTest, ARateOfZeroDropsNothing)
{
    const FlowInfo flow = policed_flow(0, 10);
    const uint32_t run = add(flow);
    for (int i = 0; i < 5; ++i)
        send(UDP_5678);
    EXPECT_EQ(counted(flow, run).packets, 5u);
    EXPECT_EQ(counted(flow, run + 1).packets, 0u);
    EXPECT_EQ(sum().policed_packets, 0u);
}

TEST_F(FlowTest, ExtremeRatesBurstsLengthsAndTimesDoNotWrap)
{
    FlowInfo flow = policed_flow(UINT64_MAX, UINT32_MAX);
    const uint32_t run = add(flow);
    send(UDP_5678, UINT32_MAX, INT64_MIN);
    send(UDP_5678, 1, INT64_MIN);
    EXPECT_EQ(counted(flow, run), (PacketCount{1, UINT32_MAX}));
    send(UDP_5678, UINT32_MAX, INT64_MAX);
    EXPECT_EQ(counted(flow, run).packets, 2u);
    EXPECT_EQ(counted(flow, run + 1).packets, 1u);
}

// The same bucket in another way: what is in it, as an exact fraction.
TEST_F(FlowTest, ThePolicerAgreesWithABucketThatIsKeptByWhatItHolds)
{
    std::mt19937 random(5);
    for (const auto &[rate, burst] :
         {std::pair<uint64_t, uint32_t>{1000, 1500}, {1, 3000}, {123457, 9999}, {7, 1}}) {
        open(1);
        const FlowInfo flow = policed_flow(rate, burst);
        const uint32_t run = add(flow);
        int64_t holds = int64_t{burst} * second;
        int64_t last = 0;
        PacketCount conforming{};
        PacketCount dropped{};
        int64_t time = 0;
        for (int i = 0; i < 2000; ++i) {
            time += static_cast<int64_t>(random() % 2'000'000'000);
            const auto length = static_cast<uint32_t>(40 + random() % 1460);
            holds = std::min(holds + int64_t{time - last} * static_cast<int64_t>(rate),
                             int64_t{burst} * second);
            last = time;
            const bool fits = int64_t{length} * second <= holds;
            holds -= fits ? int64_t{length} * second : 0;
            PacketCount &count = fits ? conforming : dropped;
            count.packets++;
            count.bytes += length;
            send(UDP_5678, length, time);
        }
        EXPECT_EQ(counted(flow, run), conforming) << rate;
        EXPECT_EQ(counted(flow, run + 1), dropped) << rate;
    }
}

} // namespace
