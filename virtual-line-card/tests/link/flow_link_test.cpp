// Flows of a card behind a socket: programmed while their first packets wait, looked at, and asked
// for in bad ways.
#include <set>

#include "flow_layout.h"
#include "messages.h"
#include "platform_card.h"
#include "raw_peer.h"
#include "test_card.h"
#include "test_packets.h"
#include "vlc/card_access.h"
#include "vlc/state_error.h"

namespace {

using namespace vlc;
using card_test::key_of;

#define FROM_PORT(port)                                                                            \
    "020000000002 020000000001 0800 4500 0020 0001 0000 40 11 0000 0a000001 0a000002 " port        \
    "162e 000c0000 61626364"

// The small card has eight rows and eight counters an NP.
class FlowLinks : public card_test::ClientTest {
protected:
    FlowLinks() : ClientTest(card_test::Deployment::split) {}

    // As the library adds a flow, on its NP; the answer's status comes later.
    uint32_t add_flow(const FlowMiss &miss)
    {
        const flow_layout::Tuple tuple{miss.tuple.source, miss.tuple.destination,
                                       miss.tuple.source_port, miss.tuple.destination_port,
                                       miss.tuple.protocol};
        flow_layout::Result result = flow_layout::result_of({.tuple = tuple});
        uint32_t one = 1;
        uint32_t counter = 0;
        if (prm_stats_cl_alloc(nullptr, *plm_dpss_get_stats_tbl_id(miss.np), PRM_STATS_DPSS_CLIENT,
                               PRM_STATS_DPSS_KIND, &one, &counter) == 0) {
            flow_layout::Result address{};
            flow_layout::put(address, 0, prm_stats_cl_get_phy_stats_ptr(counter));
            std::copy_n(address.begin() + 1, 3, result.begin() + 3);
        }
        counters_.push_back(counter);
        const flow_layout::Key key = flow_layout::key_of(tuple);
        auto record =
            card_test::make_record(miss.np, TableKind::flow, PRM_OP_ADD, {key.begin(), key.end()},
                                   {result.begin(), result.end()});
        return prm_srh_flow_db_add(handle(), &record);
    }
    void add_what_misses()
    {
        card().access().on_flow_miss([this](const FlowMiss &miss) {
            misses_.push_back(miss);
            add_flow(miss);
        });
    }
    bool send(std::string_view hex, uint32_t wire_length = 100, int64_t time = 0)
    {
        const test_packets::Frame frame = test_packets::from_hex(hex);
        return card().access().process({LinkType::ethernet, frame, wire_length, time});
    }
    PacketCount count_of(size_t flow)
    {
        uint32_t mode = PRM_STATS_MODE;
        uint64_t words[2] = {};
        EXPECT_EQ(0u, prm_stats_cl_read(nullptr, counters_[flow], misses_[flow].np, &mode, words,
                                        nullptr, PRM_STATS_READ));
        return {words[0], words[1]};
    }
    static flow_layout::Key key_in(const FlowMiss &miss)
    {
        return flow_layout::key_of({miss.tuple.source, miss.tuple.destination,
                                    miss.tuple.source_port, miss.tuple.destination_port,
                                    miss.tuple.protocol});
    }

    std::vector<FlowMiss> misses_;
    std::vector<uint32_t> counters_; // of the flows, in their order
};

TEST_F(FlowLinks, AFlowIsThereBeforeTheFirstPacketThatMissedItGoesOn)
{
    add_what_misses();
    for (const char *packet : {FROM_PORT("0001"), FROM_PORT("0001"), FROM_PORT("0002"),
                               FROM_PORT("0001"), FROM_PORT("0003"), FROM_PORT("0002")})
        send(packet, 100, 5);
    EXPECT_TRUE(misses_.empty()) << "packets travel in batches";
    const RunningCard::Traffic traffic = card().access().traffic();
    ASSERT_EQ(3u, misses_.size());
    EXPECT_EQ(1u, misses_[0].tuple.source_port);
    EXPECT_EQ(2u, misses_[1].tuple.source_port);
    EXPECT_EQ(5678u, misses_[2].tuple.destination_port);
    EXPECT_EQ(5, misses_[0].nanoseconds);
    EXPECT_EQ(100u, misses_[0].wire_length);
    EXPECT_EQ((PacketCount{3, 300}), count_of(0));
    EXPECT_EQ((PacketCount{2, 200}), count_of(1));
    EXPECT_EQ((PacketCount{1, 100}), count_of(2));
    EXPECT_EQ(6u, traffic.totals.packets);
    EXPECT_EQ(0u, traffic.totals.missed_packets);
    EXPECT_EQ(0u, traffic.undelivered);
}

TEST_F(FlowLinks, AFlowThatIsNotAddedIsToldOfEachTimeAndItsPacketsGoOn)
{
    uint32_t told = 0;
    card().access().on_flow_miss([&told](const FlowMiss &) { ++told; });
    for (int i = 0; i < 3; i++)
        send(FROM_PORT("0001"));
    EXPECT_EQ(3u, card().access().traffic().totals.missed_packets);
    EXPECT_EQ(3u, told);
    card().access().on_flow_miss({});
    send(FROM_PORT("0001"));
    EXPECT_EQ(4u, card().access().traffic().totals.packets);
    EXPECT_EQ(3u, told);
}

TEST_F(FlowLinks, PacketsOfACardThatGoesWhileAFlowIsAddedAreUndelivered)
{
    card().access().on_flow_miss([this](const FlowMiss &miss) {
        misses_.push_back(miss);
        if (misses_.size() == 2)
            end_card();
    });
    for (const char *packet : {FROM_PORT("0001"), FROM_PORT("0002"), FROM_PORT("0003")})
        send(packet);
    const RunningCard::Traffic traffic = card().access().traffic();
    EXPECT_EQ(2u, misses_.size());
    EXPECT_EQ(1u, traffic.totals.packets);
    EXPECT_EQ(2u, traffic.undelivered);
}

TEST_F(FlowLinks, AReaderSeesFlowsTheirActivityAndTheCountersInUse)
{
    add_what_misses();
    send(FROM_PORT("0001"), 100, 5);
    send(FROM_PORT("0001"), 60, 9);
    card().access().traffic();
    const uint32_t np = misses_.at(0).np;
    const FlowActivity expected{{2, 160}, 9};
    const auto look = look_into_card(socket());
    for (CardAccess *access : {look.get(), static_cast<CardAccess *>(&card().access())}) {
        EXPECT_EQ(expected, access->flow_activity(np, key_in(misses_[0])));
        EXPECT_EQ(std::nullopt, access->flow_activity(1 - np, key_in(misses_[0])));
        EXPECT_EQ(std::nullopt, access->flow_activity(np, {}));
        EXPECT_THROW(access->flow_activity(2, {}), StateError);
        uint32_t flows = 0;
        access->for_each_flow(np, [&](const TableRow &row, const FlowActivity &activity) {
            ++flows;
            EXPECT_EQ(expected, activity);
            EXPECT_EQ(1, flow_layout::tuple_in(row.key_span())->source_port);
        });
        EXPECT_EQ(1u, flows);
        EXPECT_THROW(access->for_each_flow(2, [](const auto &, const auto &) {}), StateError);
        uint32_t runs = 0;
        access->for_each_counter_run(np, [&](const CounterRun &run) {
            ++runs;
            EXPECT_EQ(counters_[0], run.first);
            EXPECT_EQ(1u, run.length);
            EXPECT_EQ((PacketCount{2, 160}), run.counts[0]);
        });
        EXPECT_EQ(1u, runs);
        EXPECT_THROW(access->for_each_counter_run(2, [](const CounterRun &) {}), StateError);
    }
}

TEST_F(FlowLinks, ALookIntoTheDirectorySeesTheSame)
{
    add_what_misses();
    send(FROM_PORT("0001"), 100, 5);
    card().access().traffic();
    const auto look = look_into_directory(card_directory());
    const uint32_t np = misses_.at(0).np;
    EXPECT_EQ((FlowActivity{{1, 100}, 5}), look->flow_activity(np, key_in(misses_[0])));
    uint32_t seen = 0;
    look->for_each_flow(np, [&seen](const TableRow &, const FlowActivity &activity) {
        seen += activity.last_packet == 5 ? 1u : 100u;
    });
    look->for_each_counter_run(np, [&](const CounterRun &run) {
        seen += run.first == counters_[0] && run.counts[0].packets == 1 ? 1u : 100u;
    });
    EXPECT_EQ(2u, seen);
    EXPECT_THROW(look->for_each_flow(2, [](const auto &, const auto &) {}), StateError);
}

// ---- bad requests

using BadFlowRequests = FlowLinks;

TEST_F(BadFlowRequests, EndTheirOwnConnectionAndNothingElse)
{
    const struct {
        FrameKind kind;
        Payload payload;
    } bad[] = {
        {FrameKind::flows, WireWriter().number(2u).take()},
        {FrameKind::flows, WireWriter().number(uint16_t{0}).take()},
        {FrameKind::flow_activity, WireWriter().number(2u).number(7u).take()},
        {FrameKind::dynamic_counters, WireWriter().number(0u).number(uint8_t{0}).take()},
        {FrameKind::take_counters, WireWriter().number(0u).number(1u).take()}, // not a reader's
        {FrameKind::give_counters_back, WireWriter().number(0u).number(0u).take()},
        {FrameKind::go_on, {}},
    };
    for (const auto &[kind, payload] : bad) {
        card_test::RawPeer peer(socket());
        peer.greet(PeerRole::reader);
        ASSERT_TRUE(peer.receive());
        peer.send(kind, payload);
        EXPECT_FALSE(peer.receive()) << static_cast<uint32_t>(kind);
    }
    EXPECT_EQ(0u, nps()[0].dynamic_counters().in_use());
    EXPECT_EQ(0u, add("key"));
}

TEST_F(BadFlowRequests, GoingOnWithoutPacketsThatWaitIsNone)
{
    end_host();
    for (const Payload &payload : {Payload(), Payload{1}}) {
        card_test::RawPeer peer(socket());
        peer.greet(PeerRole::host);
        ASSERT_TRUE(peer.receive());
        peer.send(FrameKind::go_on, payload);
        EXPECT_FALSE(peer.receive());
    }
}

TEST_F(BadFlowRequests, AnotherHostDoesNotGetThePacketsThatWaitedForTheLast)
{
    end_host();
    WireWriter packets;
    put(packets, PacketWishes{.output = false, .flow_misses = true});
    const test_packets::Frame frame = test_packets::from_hex(FROM_PORT("0001"));
    put(packets, CapturedPacket{LinkType::ethernet, frame, 100, 0});
    {
        card_test::RawPeer first(socket());
        first.greet(PeerRole::host);
        ASSERT_TRUE(first.receive());
        first.send(FrameKind::packets, packets.take());
        ASSERT_TRUE(first.receive()) << "it has missed";
        first.close();
    }
    // The card hears of the end of the one before it hears of the other.
    for (int tries = 0;; tries++) {
        card_test::RawPeer second(socket());
        second.greet(PeerRole::host);
        const std::optional<Frame> greeted = second.receive();
        ASSERT_TRUE(greeted);
        if (greeted->kind == FrameKind::refusal && tries < 100)
            continue;
        second.send(FrameKind::go_on, {});
        EXPECT_FALSE(second.receive());
        break;
    }
    EXPECT_EQ(0u, thread().server().traffic().packets);
}

} // namespace
