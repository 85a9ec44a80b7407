#include "traffic_meter.h"

#include <cstring>
#include <optional>
#include <set>

#include "action_batch.h"
#include "host_on_card.h"
#include "lookup_keys.h"
#include "service_error.h"
#include "vlc/service_tap.h"

namespace {

using services::Destination;
using services::MeterEntry;
using services::MeterTable;
using services::ServiceError;
using services::TrafficMeter;
using test::MadePacket;

constexpr uint8_t udp = 17;
constexpr uint32_t address_1 = 0x0A000001; // 10.0.0.1
constexpr uint32_t address_2 = 0x0A000002;

class Meter : public test::HostOnCard {
protected:
    Meter()
    {
        open_card();
        start_host();
        meter = std::make_unique<TrafficMeter>();
    }

    void restart_all()
    {
        meter.reset();
        restart();
        meter = std::make_unique<TrafficMeter>();
    }

    TrafficMeter::Programmed program(const std::vector<Destination> &wanted)
    {
        return meter->program(wanted, [this](size_t, size_t) {
            run_events();
            return true;
        });
    }

    MeterEntry entry(MeterTable table, const Destination &destination) const
    {
        for (const MeterEntry &each : meter->entries()) {
            if (each.table == table && each.destination == destination)
                return each;
        }
        ADD_FAILURE() << "no such entry";
        return {};
    }
    MeterEntry destination(uint32_t address, uint16_t port = 53) const
    {
        return entry(MeterTable::destinations, {udp, address, port});
    }
    MeterEntry address(uint32_t number) const
    {
        return entry(MeterTable::addresses, {0, number, 0});
    }

    std::unique_ptr<TrafficMeter> meter;
};

std::vector<Destination> many_destinations(uint16_t count)
{
    std::vector<Destination> destinations;
    for (uint16_t port = 1; port <= count; ++port)
        destinations.push_back({udp, address_1, port});
    return destinations;
}

TEST_F(Meter, KeepsAddressesApartThatDifferOnlyAfterAZeroByte)
{
    program({{udp, address_1, 53}, {udp, address_2, 53}});
    send({.destination = "10.0.0.1"}, 60);
    send({.destination = "10.0.0.2"}, 70);
    send({.destination = "10.0.0.2"}, 70);
    meter->collect();
    EXPECT_EQ(destination(address_1).counted.packets, 1u);
    EXPECT_EQ(destination(address_1).counted.bytes, 60u);
    EXPECT_EQ(destination(address_2).counted.packets, 2u);
    EXPECT_EQ(destination(address_2).counted.bytes, 140u);
    EXPECT_EQ(address(address_1).counted.packets, 1u);
    EXPECT_EQ(address(address_2).counted.packets, 2u);
}

TEST_F(Meter, ProgramsOneEntryADestinationAndOneAnAddress)
{
    const auto programmed =
        program({{udp, address_1, 53}, {udp, address_1, 54}, {6, address_1, 53}});
    EXPECT_EQ(programmed.made, 4u);
    EXPECT_EQ(requests(), 4u * config.num_nps);
    EXPECT_EQ(card->nps()[1].table(vlc::TableKind::service_config).size(), 3u);
    EXPECT_EQ(card->nps()[1].table(vlc::TableKind::ext_conf).size(), 1u);
}

TEST_F(Meter, SendsNothingForEntriesThatARestartFinds)
{
    program(many_destinations(100));
    restart_all();
    const auto programmed = program(many_destinations(100));
    EXPECT_EQ(programmed.found, 101u);
    EXPECT_EQ(programmed.made, 0u);
    EXPECT_EQ(requests(), 0u);
    EXPECT_TRUE(destination(address_1, 100).found);
}

TEST_F(Meter, SendsOnlyWhatIsNewBesideWhatItFound)
{
    program(many_destinations(10));
    restart_all();
    EXPECT_EQ(program(many_destinations(11)).made, 1u);
    EXPECT_EQ(requests(), 1u * config.num_nps);
    EXPECT_FALSE(destination(address_1, 11).found);
}

TEST_F(Meter, GivesEveryEntryAnIdOfItsOwnOverBothTablesAndRestarts)
{
    program(many_destinations(70));
    restart_all();
    program(many_destinations(140));
    std::set<uint32_t> ids;
    for (const MeterEntry &each : meter->entries())
        ids.insert(each.entry_id);
    EXPECT_EQ(ids.size(), 141u);
}

TEST_F(Meter, RunsTheEventManagerBetweenBatches)
{
    std::vector<size_t> made;
    meter->program(many_destinations(129), [&made](size_t so_far, size_t all) {
        EXPECT_EQ(all, 130u);
        made.push_back(so_far);
        return true;
    });
    EXPECT_EQ(made, (std::vector<size_t>{64, 128, 130}));
}

TEST_F(Meter, StopsAfterTheBatchWhereItIsAskedTo)
{
    const auto programmed =
        meter->program(many_destinations(129), [](size_t, size_t) { return false; });
    EXPECT_TRUE(programmed.stopped);
    EXPECT_EQ(programmed.made, 64u);
    EXPECT_EQ(meter->entries().size(), 64u);
}

TEST_F(Meter, CountsOnWhenTheLibrarysSumsWrap)
{
    program({{udp, address_1, 53}});
    for (int pass = 0; pass < 3; ++pass) {
        send({.destination = "10.0.0.1"}, 0xFFFFFFF0);
        meter->collect();
    }
    EXPECT_EQ(destination(address_1).counted.packets, 3u);
    EXPECT_EQ(destination(address_1).counted.bytes, 3 * uint64_t{0xFFFFFFF0});
}

// Every n-th read fails, in the library's pass or the meter's own, and then none.
class MeterWithFailingReads : public Meter, public ::testing::WithParamInterface<int> {};

TEST_P(MeterWithFailingReads, CountsRightOnceTheyWorkAgain)
{
    program(many_destinations(3));
    for (uint16_t source = 1; source <= 8; ++source)
        send({.destination = "10.0.0.1", .source_port = source, .destination_port = 1});
    meter->collect();
    vlc::set_service_tap([reads = 0](const vlc::ServiceCall &call) mutable {
        const bool fails =
            std::strcmp(call.service, "prm_stats_cl_read") == 0 && ++reads % GetParam() == 0;
        return fails ? std::optional<uint64_t>(5) : std::nullopt;
    });
    send({.destination = "10.0.0.1", .destination_port = 1});
    meter->collect();
    EXPECT_LE(destination(address_1, 1).counted.packets, 9u);
    vlc::set_service_tap({});
    meter->collect();
    EXPECT_EQ(destination(address_1, 1).counted.packets, 9u);
    EXPECT_EQ(destination(address_1, 1).counted.bytes, 900u);
    EXPECT_EQ(address(address_1).counted.packets, 9u);
    EXPECT_FALSE(address(address_1).unread);
}

INSTANTIATE_TEST_SUITE_P(Meter, MeterWithFailingReads, ::testing::Range(1, 8));

TEST_F(Meter, SaysWhichEntriesItCouldNotRead)
{
    program(many_destinations(2));
    vlc::set_service_tap([](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        if (std::strcmp(call.service, "prm_stats_cl_read") == 0)
            return 5;
        return std::nullopt;
    });
    meter->collect();
    EXPECT_TRUE(destination(address_1, 1).unread);
    EXPECT_TRUE(address(address_1).unread);
    EXPECT_TRUE(meter->has_unread());
    vlc::set_service_tap({});
    meter->collect();
    EXPECT_FALSE(meter->has_unread());
}

TEST_F(Meter, BeginsAnewBehindCountersThatWereCleared)
{
    program({{udp, address_1, 53}});
    send({.destination = "10.0.0.1"});
    send({.destination = "10.0.0.1"});
    meter->collect();
    for (uint32_t np = 0; np < config.num_nps; ++np) {
        for (uint32_t counter = 0; counter < 64; ++counter)
            card->nps()[np].counters().read_and_clear(counter);
    }
    send({.destination = "10.0.0.1"});
    meter->collect();
    send({.destination = "10.0.0.1"});
    meter->collect();
    EXPECT_EQ(destination(address_1).counted.packets, 3u) << "two before, one behind the next pass";
}

TEST_F(Meter, TellsThisRunFromAllRuns)
{
    program({{udp, address_1, 53}});
    send({.destination = "10.0.0.1"}, 100);
    send({.destination = "10.0.0.1"}, 100);
    restart_all();
    program({{udp, address_1, 53}});
    send({.destination = "10.0.0.1"}, 50);
    meter->collect();
    EXPECT_EQ(destination(address_1).counted.packets, 1u);
    EXPECT_EQ(destination(address_1).counted.bytes, 50u);
    EXPECT_EQ(destination(address_1).total.packets, 3u);
    EXPECT_EQ(destination(address_1).total.bytes, 250u);
}

TEST_F(Meter, NamesTheNpsThatCounted)
{
    program({{udp, address_1, 53}});
    const MadePacket packet{.destination = "10.0.0.1"};
    send(packet);
    meter->collect();
    const uint32_t np = plane->np_of({.source = 0xC6336401, // 198.51.100.1
                                      .destination = address_1,
                                      .source_port = packet.source_port,
                                      .destination_port = 53,
                                      .protocol = udp});
    EXPECT_EQ(destination(address_1).nps, 1u << np);
}

TEST_F(Meter, RemembersTheNpsOfEarlierRunsApart)
{
    program({{udp, address_1, 53}});
    send({.destination = "10.0.0.1"});
    restart_all();
    EXPECT_EQ(destination(address_1).nps, 0u);
    EXPECT_NE(destination(address_1).total_nps, 0u);
}

TEST_F(Meter, SaysThatARefusedBatchLeftNothing)
{
    program(many_destinations(10));
    vlc::set_service_tap([](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        if (std::strcmp(call.service, "shmwin_malloc") == 0)
            return 12;
        return std::nullopt;
    });
    const auto programmed = program(many_destinations(12));
    EXPECT_EQ(programmed.failure, "a batch of 2 entries for key 1 was refused; of 11 entries "
                                  "before it 0 are left");
    EXPECT_TRUE(meter->entries().empty());
    EXPECT_EQ(card->nps()[0].table(vlc::TableKind::service_config).size(), 0u);
}

TEST_F(Meter, LeavesEntriesOfAnotherLayoutAloneAndTheirIdsToThem)
{
    const std::vector<uint8_t> key{0x77, 1, 2};
    services::ActionBatch batch(meter->key(), 1, 1);
    batch.create({.entry_id = 500, .table = SHADOW_DB_SERVICE_CONFIG, .key = key, .result = key});
    ASSERT_EQ(batch.insert(), 0u);
    restart_all();
    EXPECT_TRUE(meter->entries().empty());
    program({{udp, address_1, 53}});
    EXPECT_GT(destination(address_1).entry_id, 500u);
    EXPECT_GT(address(address_1).entry_id, 500u);
}

TEST_F(Meter, IsTheOnlyOneOfItsProcess)
{
    EXPECT_THROW(TrafficMeter second(2), ServiceError);
}

TEST_F(Meter, HasAnIndexBelow256)
{
    EXPECT_THROW(TrafficMeter other(256), ServiceError);
}

TEST_F(Meter, WritesKeysAndResultsInTheAgreedLayout)
{
    program({{udp, address_1, 0x1234}});
    const vlc::NpTable &table = card->nps()[0].table(vlc::TableKind::service_config);
    const std::vector<uint8_t> key{0x11, 17, 10, 0, 0, 1, 0x12, 0x34};
    const vlc::TableRow *row = table.find(key);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->result[0], 0x01);
    const uint32_t id = destination(address_1, 0x1234).entry_id;
    EXPECT_EQ(row->result[7], id);
    const std::vector<uint8_t> address_key{0x12, 10, 0, 0, 1};
    EXPECT_NE(card->nps()[0].table(vlc::TableKind::ext_conf).find(address_key), nullptr);
}

} // namespace
