// Which NP a packet goes to, what it finds there, and on which counter it counts.
#include <gtest/gtest.h>

#include <optional>
#include <set>

#include "kept_totals.h"
#include "lookup_keys.h"
#include "test_packets.h"
#include "vlc/data_plane.h"
#include "vlc/state_directory.h"

namespace {

using test_packets::address;
using test_packets::Frame;
using vlc::Bytes;
using vlc::CardConfig;
using vlc::CounterBank;
using vlc::FiveTuple;
using vlc::NpTotals;
using vlc::PacketCount;
using vlc::TableKind;

constexpr uint32_t other_card = 0xD20001;
constexpr uint32_t unswapped_card = 0xD10001;
constexpr uint32_t wire_length = 1400;
const uint32_t server = address(10, 0, 0, 2);

enum class Order { network, reversed, unswapped };

// A result as the library leaves it in a record.
lookup_keys::CountingResult result_of(uint32_t counter, Order order)
{
    lookup_keys::CountingResult result = lookup_keys::counting_result(1);
    for (int i = 0; i < 3; ++i) {
        const int place = order == Order::network ? 2 - i : order == Order::reversed ? i : i + 1;
        result[static_cast<size_t>(i) + 1] = lookup_keys::byte_of(counter, place);
    }
    return result;
}

class DataPlaneTest : public testing::Test {
protected:
    void open(uint16_t num_nps, uint32_t card_type = other_card)
    {
        config_.card_type = card_type;
        config_.num_nps = num_nps;
        directory_.emplace();
        reopen();
    }

    void reopen()
    {
        plane_.reset();
        nps_.reset();
        state_.reset();
        state_.emplace(directory_->file("state"), vlc::Access::read_write);
        nps_.emplace(*state_, config_);
        plane_.emplace(*nps_, config_);
    }

    void program(TableKind kind, Bytes key, Bytes result)
    {
        for (uint32_t np = 0; np < nps_->size(); ++np) {
            ASSERT_EQ((*nps_)[np].table(kind).add(key, result), vlc::TableOutcome::done);
        }
    }

    void program_destination(uint16_t port, Bytes result, uint8_t protocol = 17)
    {
        program(TableKind::service_config, lookup_keys::destination_key(protocol, server, port),
                result);
    }

    void program_address(Bytes result)
    {
        program(TableKind::ext_conf, lookup_keys::address_key(server), result);
    }

    void send(std::string_view hex) { process(test_packets::from_hex(hex)); }

    void process(const Frame &frame)
    {
        plane_->process({vlc::LinkType::ethernet, frame, wire_length, 0});
    }

    // Over all NPs.
    PacketCount counted(uint32_t counter) const
    {
        PacketCount sum{};
        for (uint32_t np = 0; np < nps_->size(); ++np) {
            const PacketCount count = (*nps_)[np].counters().read(counter - CounterBank::first);
            sum.packets += count.packets;
            sum.bytes += count.bytes;
        }
        return sum;
    }

    vlc::DataPlaneTotals totals() const { return plane_->totals(); }

    NpTotals sum_of_nps() const
    {
        NpTotals sum;
        for (const NpTotals &np : totals().nps) {
            sum.packets += np.packets;
            sum.bytes += np.bytes;
            sum.hits[0] += np.hits[0];
            sum.hits[1] += np.hits[1];
            sum.uncounted_hits += np.uncounted_hits;
            sum.missed_packets += np.missed_packets;
            sum.missed_bytes += np.missed_bytes;
        }
        return sum;
    }

    CardConfig config_;
    std::optional<test_packets::TemporaryDirectory> directory_;
    std::optional<vlc::StateDirectory> state_;
    std::optional<vlc::NpStore> nps_;
    std::optional<vlc::DataPlane> plane_;
};

#define MACS "020000000002 020000000001 "
#define UDP_5678                                                                                   \
    MACS "0800 4500 0020 0001 0000 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364"
#define LAST_FRAGMENT                                                                              \
    MACS "0800 4500 0020 0001 00b9 40 11 0000 0a000001 0a000002 04d2162e 000c0000 61626364"
#define ICMP MACS "0800 4500 001c 0001 0000 40 01 0000 0a000001 0a000002 0800f7ff00000000"

constexpr uint32_t counter = 0xC00123;
constexpr uint32_t other_counter = 0xC0FFFE;

void expect_count(PacketCount count, uint64_t packets)
{
    EXPECT_EQ(count.packets, packets);
    EXPECT_EQ(count.bytes, packets * wire_length);
}

TEST_F(DataPlaneTest, AHitCountsOnePacketAndItsWireLength)
{
    open(2);
    program_destination(5678, result_of(counter, Order::network));
    send(UDP_5678);
    expect_count(counted(counter), 1);
    send(UDP_5678);
    expect_count(counted(counter), 2);
    EXPECT_EQ(totals().missed_packets, 0u);
    EXPECT_EQ(sum_of_nps().uncounted_hits, 0u);
}

TEST_F(DataPlaneTest, BothTablesAreLookedUpAndCountApart)
{
    open(2);
    program_destination(5678, result_of(counter, Order::network));
    program_address(result_of(other_counter, Order::network));
    send(UDP_5678);
    send(ICMP);
    expect_count(counted(counter), 1);
    expect_count(counted(other_counter), 2);
    EXPECT_EQ(sum_of_nps().hits[0], 1u);
    EXPECT_EQ(sum_of_nps().hits[1], 2u);
}

TEST_F(DataPlaneTest, PacketsWithoutPortsAreLookedUpUnderPortZero)
{
    open(2);
    program_destination(0, result_of(counter, Order::network));
    program_destination(0, result_of(other_counter, Order::network), 1);
    send(LAST_FRAGMENT);
    send(ICMP);
    send(UDP_5678);
    expect_count(counted(counter), 1);
    expect_count(counted(other_counter), 1);
    EXPECT_EQ(totals().missed_packets, 1u);
}

TEST_F(DataPlaneTest, EachNpKeepsWhatBecameOfItsPackets)
{
    open(2);
    program_destination(5678, result_of(counter, Order::network));
    program_address(result_of(0, Order::network)); // no counter's number
    send(UDP_5678);
    send(ICMP);
    process(test_packets::from_hex(
        MACS "0800 4500 0020 0001 0000 40 11 0000 0a000001 0a0000ff 04d2162e 000c0000 61626364"));
    EXPECT_EQ(sum_of_nps().uncounted_hits, 2u);
    EXPECT_EQ(sum_of_nps().missed_packets, 1u);
    EXPECT_EQ(sum_of_nps().missed_bytes, uint64_t{wire_length});
    test_packets::expect_kept(*nps_, totals());
}

TEST_F(DataPlaneTest, AnNpGoesOnCountingItsPacketsAfterARestartAndAClearedTable)
{
    open(1);
    program_destination(5678, result_of(counter, Order::network));
    send(UDP_5678);
    (*nps_)[0].table(TableKind::service_config).clear();
    reopen();
    send(UDP_5678);
    const NpTotals kept = (*nps_)[0].totals().read();
    EXPECT_EQ(kept.packets, 2u);
    EXPECT_EQ(kept.bytes, 2 * uint64_t{wire_length});
    EXPECT_EQ(kept.hits[0], 1u);
    EXPECT_EQ(kept.missed_packets, 1u);
    EXPECT_EQ(totals().nps[0].packets, 1u);
}

TEST_F(DataPlaneTest, BothByteOrdersOfACounterAreTheSameCounter)
{
    open(2);
    program_destination(5678, result_of(counter, Order::network));
    program_address(result_of(counter, Order::reversed));
    send(UDP_5678);
    expect_count(counted(counter), 2);
}

TEST_F(DataPlaneTest, AnUnswappedCardCountsOnTheFirstCounterOf256)
{
    open(2, unswapped_card);
    program_destination(5678, result_of(counter, Order::unswapped));
    send(UDP_5678);
    expect_count(counted(0xC00100), 1);
    expect_count(counted(counter), 0);
}

TEST_F(DataPlaneTest, ExactlyTheListedCardTypesTakeCountersUnswapped)
{
    for (uint32_t card_type = 0xD10000; card_type <= 0xD10016; ++card_type) {
        open(1, card_type);
        program_destination(5678, result_of(counter, Order::unswapped));
        send(UDP_5678);
        const bool listed = card_type >= 0xD10001 && card_type <= 0xD10015;
        EXPECT_EQ(counted(0xC00100).packets, listed ? 1u : 0u) << std::hex << card_type;
    }
}

TEST_F(DataPlaneTest, AHitWhoseResultDoesNotCountIsUncounted)
{
    const lookup_keys::CountingResult outside = result_of(0xBFFFFF, Order::network);
    lookup_keys::CountingResult other_action = result_of(counter, Order::network);
    other_action[0] = 0x02;
    const Frame short_result = {lookup_keys::count_action, 0xc0, 0x01};
    const Frame no_result;
    const lookup_keys::CountingResult no_counter = lookup_keys::counting_result(1);
    for (const Bytes result : {Bytes(outside), Bytes(other_action), Bytes(short_result),
                               Bytes(no_result), Bytes(no_counter)}) {
        open(2);
        program_destination(5678, result);
        send(UDP_5678);
        EXPECT_EQ(sum_of_nps().hits[0], 1u);
        EXPECT_EQ(sum_of_nps().uncounted_hits, 1u);
        EXPECT_EQ(totals().missed_packets, 0u);
        expect_count(counted(counter), 0);
    }
}

TEST_F(DataPlaneTest, APacketThatHitsNothingIsMissed)
{
    open(2);
    program_destination(5679, result_of(counter, Order::network));
    send(UDP_5678);
    EXPECT_EQ(totals().missed_packets, 1u);
    EXPECT_EQ(totals().missed_bytes, wire_length);
    EXPECT_EQ(sum_of_nps().packets, 1u);
}

TEST_F(DataPlaneTest, AHitInOneTableIsNoMiss)
{
    open(2);
    program_destination(5678, result_of(counter, Order::network));
    send(UDP_5678);
    EXPECT_EQ(totals().missed_packets, 0u);
    open(2);
    program_address(result_of(counter, Order::network));
    send(UDP_5678);
    EXPECT_EQ(totals().missed_packets, 0u);
}

TEST_F(DataPlaneTest, UnreadablePacketsAreCountedByReasonAndGoToNoNp)
{
    open(2);
    send(MACS "08");
    send(MACS "0806 0001");
    send(MACS "0806 0001");
    send(MACS "0800 4500");
    send(MACS "0800 3500 0020 0001 0000 40 11 0000 0a000001 0a000002");
    const auto unreadable = [&](vlc::Unreadable reason) {
        return totals().unreadable[static_cast<size_t>(reason)];
    };
    EXPECT_EQ(unreadable(vlc::Unreadable::link_cut), 1u);
    EXPECT_EQ(unreadable(vlc::Unreadable::not_ipv4), 2u);
    EXPECT_EQ(unreadable(vlc::Unreadable::ipv4_cut), 1u);
    EXPECT_EQ(unreadable(vlc::Unreadable::ipv4_broken), 1u);
    EXPECT_EQ(totals().packets, 5u);
    EXPECT_EQ(totals().bytes, 5u * wire_length);
    EXPECT_EQ(totals().missed_packets, 0u);
    EXPECT_EQ(sum_of_nps().packets, 0u);
}

TEST_F(DataPlaneTest, APacketIsLookedUpInItsOwnNpAlone)
{
    open(8);
    const FiveTuple tuple{address(10, 0, 0, 1), server, 1234, 5678, 17};
    const uint32_t np = plane_->np_of(tuple);
    const auto key = lookup_keys::destination_key(17, server, 5678);
    (*nps_)[np].table(TableKind::service_config).add(key, result_of(counter, Order::network));
    send(UDP_5678);
    EXPECT_EQ((*nps_)[np].counters().read(counter - CounterBank::first).packets, 1u);
    EXPECT_EQ(totals().nps[np].packets, 1u);
    EXPECT_EQ(totals().nps[np].bytes, wire_length);
    EXPECT_EQ(totals().nps[np].hits[0], 1u);
    (*nps_)[np].table(TableKind::service_config).clear();
    for (uint32_t other = 0; other < 8; ++other) {
        if (other != np) {
            (*nps_)[other]
                .table(TableKind::service_config)
                .add(key, lookup_keys::counting_result(1));
        }
    }
    send(UDP_5678);
    EXPECT_EQ(totals().missed_packets, 1u);
}

TEST_F(DataPlaneTest, TuplesSpreadEvenlyOverTheNps)
{
    for (const uint16_t num_nps : {uint16_t{1}, uint16_t{2}, uint16_t{3}, uint16_t{8}}) {
        open(num_nps);
        std::vector<uint32_t> tuples(num_nps);
        constexpr uint32_t total = 48'000;
        for (uint32_t i = 0; i < total; ++i) { // a busy server: clients and their ports differ
            tuples[plane_->np_of({address(10, 0, 0, 1) + i % 16, server,
                                  static_cast<uint16_t>(32'768 + i / 16), 443, 6})]++;
        }
        for (const uint32_t count : tuples) {
            EXPECT_NEAR(count, total / num_nps, total / num_nps / 20.0) << num_nps;
        }
    }
}

TEST_F(DataPlaneTest, EachPartOfTheTupleDecidesAboutTheNp)
{
    open(8);
    const FiveTuple start{address(192, 0, 2, 1), address(203, 0, 113, 9), 1024, 80, 6};
    for (int part = 0; part < 5; ++part) {
        std::set<uint32_t> nps;
        for (uint16_t step = 0; step < 200; ++step) {
            FiveTuple tuple = start;
            tuple.source += part == 0 ? step : 0u;
            tuple.destination += part == 1 ? step : 0u;
            tuple.source_port = static_cast<uint16_t>(1024 + (part == 2 ? step : 0));
            tuple.destination_port = static_cast<uint16_t>(80 + (part == 3 ? step : 0));
            tuple.protocol = static_cast<uint8_t>(6 + (part == 4 ? step : 0));
            nps.insert(plane_->np_of(tuple));
        }
        EXPECT_EQ(nps.size(), 8u) << part;
    }
}

TEST_F(DataPlaneTest, ATupleStaysAtItsNp)
{
    open(8);
    const FiveTuple tuple{address(192, 0, 2, 1), address(203, 0, 113, 9), 1024, 80, 6};
    const uint32_t np = plane_->np_of(tuple);
    open(8);
    EXPECT_EQ(plane_->np_of(tuple), np);
}

TEST(CounterInAResult, IsReadInTheCardsLayout)
{
    const Frame result = {0x01, 0xc0, 0x12, 0x34, 0, 0, 0, 1};
    EXPECT_EQ(vlc::counter_in_result(result, false), 0xc01234u);
    EXPECT_EQ(vlc::counter_in_result(result, true), 0x3412c000u);
    EXPECT_EQ(vlc::counter_in_result(std::span(result).first(3), false), 0u);
}

} // namespace
