// The flow service on a card, packet by packet.
#include "flow_service.h"

#include <algorithm>
#include <cstring>

#include "host_on_card.h"
#include "platform_flow.h"
#include "platform_prm_stats.h"
#include "service_error.h"
#include "vlc/service_tap.h"

namespace {

using services::FlowAccount;
using services::FlowEnd;
using services::FlowOptions;
using services::FlowService;
using test::MadePacket;

constexpr int64_t second = 1'000'000'000;
constexpr int64_t start = 1'700'000'000 * second;

class FlowServiceTest : public test::HostOnCard {
protected:
    FlowServiceTest()
    {
        config.flow_capacity = 64;
        config.dynamic_counters = 128;
        open_card();
        start_host();
    }

    void begin(const FlowOptions &options = {})
    {
        service = std::make_unique<FlowService>(
            options,
            services::FlowPlatform{
                .now = [this] { return now; },
                .after =
                    [this](std::chrono::nanoseconds delay, std::function<void()> task) {
                        card->events().after(delay, std::move(task));
                    },
                .last_packet = {}},
            [this](const FlowAccount &account) { ended.push_back(account); });
        card->on_flow_scan([this](std::span<void *const> records) { service->look_at(records); });
        plane->on_flow_miss([this](const vlc::FlowMiss &miss) {
            service->add({miss.tuple.source, miss.tuple.destination, miss.tuple.source_port,
                          miss.tuple.destination_port, miss.tuple.protocol},
                         miss.np, miss.nanoseconds);
        });
        service->start_walking();
    }
    static FlowOptions with_policer(uint64_t rate, uint32_t burst)
    {
        FlowOptions options;
        options.policer = flow_layout::Policer{rate, burst};
        return options;
    }
    static FlowOptions with_idle_seconds(int64_t seconds)
    {
        FlowOptions options;
        options.idle_time = std::chrono::seconds(seconds);
        return options;
    }

    static MadePacket packet(uint16_t source_port)
    {
        MadePacket made;
        made.source_port = source_port;
        return made;
    }
    void arrive(uint16_t source_port, uint32_t wire_length = 100)
    {
        const std::vector<uint8_t> frame = test::frame_of(packet(source_port));
        plane->process({.link = vlc::LinkType::ethernet,
                        .bytes = frame,
                        .wire_length = wire_length,
                        .nanoseconds = now});
        run_events();
    }
    // The walker's timer runs in between.
    void pass(int64_t seconds)
    {
        for (int64_t tenth = 0; tenth < 10 * seconds; ++tenth) {
            now += second / 10;
            vlc::CardClock::advance(std::chrono::milliseconds(100));
            run_events();
        }
    }
    void restart_all(const FlowOptions &options = {})
    {
        service.reset();
        restart();
        begin(options);
    }
    size_t rows(uint32_t np)
    {
        size_t count = 0;
        card->access().for_each_row(np, vlc::TableKind::flow,
                                    [&count](const vlc::TableRow &) { ++count; });
        return count;
    }
    size_t counter_runs(uint32_t np)
    {
        size_t count = 0;
        card->access().for_each_counter_run(np, [&count](const vlc::CounterRun &) { ++count; });
        return count;
    }
    // As long as what it returns lives, the service gives the code.
    static std::unique_ptr<vlc::AddedServiceTap> failing(const char *name, uint64_t code)
    {
        return std::make_unique<vlc::AddedServiceTap>(
            [name, code](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
                return std::strcmp(call.service, name) == 0 ? std::optional(code) : std::nullopt;
            });
    }

    int64_t now = start;
    std::unique_ptr<FlowService> service;
    std::vector<FlowAccount> ended;
};

TEST_F(FlowServiceTest, MakesTheTableAndGivesItToTheRoot)
{
    begin();
    ASSERT_NE(host->root()->flow_db, nullptr);
    EXPECT_EQ(host->root()->flow_db->num_buckets, 65536u);
    EXPECT_EQ(service->flows(), 0u);
}

TEST_F(FlowServiceTest, CountsTheFirstPacketOfAFlowAndThoseBehindIt)
{
    begin();
    arrive(1000, 100);
    arrive(1000, 60);
    const std::vector<FlowAccount> active = service->active();
    ASSERT_EQ(active.size(), 1u);
    EXPECT_EQ(active[0].packets, 2u);
    EXPECT_EQ(active[0].bytes, 160u);
    EXPECT_EQ(active[0].tuple.source_port, 1000);
    EXPECT_EQ(active[0].first_packet, start);
    EXPECT_EQ(active[0].end, FlowEnd::active);
    EXPECT_EQ(service->sums().added, 1u);
}

TEST_F(FlowServiceTest, ProgramsAFlowIntoEveryNp)
{
    begin();
    arrive(1000);
    EXPECT_EQ(rows(0), 1u);
    EXPECT_EQ(rows(1), 1u);
}

TEST_F(FlowServiceTest, ProgramsAFlowIntoTheNpOfItsPacketsAloneWhenAsked)
{
    FlowOptions options;
    options.on_all_nps = false;
    begin(options);
    for (uint16_t port = 1000; port < 1016; ++port) {
        arrive(port);
        arrive(port);
    }
    EXPECT_EQ(rows(0) + rows(1), 16u);
    EXPECT_GT(rows(0), 0u);
    EXPECT_GT(rows(1), 0u);
    for (const FlowAccount &flow : service->active())
        EXPECT_EQ(flow.packets, 2u);
}

TEST_F(FlowServiceTest, EndsAFlowThatIsIdleAndGivesEverythingBack)
{
    begin(with_idle_seconds(3));
    arrive(1000, 70);
    pass(10);
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0].end, FlowEnd::idle);
    EXPECT_EQ(ended[0].packets, 1u);
    EXPECT_EQ(ended[0].bytes, 70u);
    EXPECT_EQ(service->flows(), 0u);
    EXPECT_EQ(rows(0) + rows(1), 0u);
    EXPECT_EQ(counter_runs(0) + counter_runs(1), 0u);
    EXPECT_EQ(service->sums().ended, 1u);
}

TEST_F(FlowServiceTest, KeepsAFlowForItsIdleTime)
{
    begin(with_idle_seconds(30));
    arrive(1000);
    pass(29);
    EXPECT_TRUE(ended.empty());
}

TEST_F(FlowServiceTest, EndsAFlowBeforeItHasBeenIdleForTwiceItsTime)
{
    begin(with_idle_seconds(30));
    arrive(1000);
    pass(59);
    EXPECT_EQ(ended.size(), 1u);
}

TEST_F(FlowServiceTest, KeepsAFlowThatHasPackets)
{
    begin(with_idle_seconds(3));
    for (int i = 0; i < 10; ++i) {
        arrive(1000);
        pass(1);
    }
    EXPECT_TRUE(ended.empty());
    EXPECT_EQ(service->flows(), 1u);
}

TEST_F(FlowServiceTest, KeepsAFlowWhoseEveryPacketIsDropped)
{
    FlowOptions options = with_policer(1, 50);
    options.idle_time = std::chrono::seconds(3);
    begin(options);
    for (int i = 0; i < 10; ++i) {
        arrive(1000, 100);
        pass(1);
    }
    EXPECT_TRUE(ended.empty());
    EXPECT_EQ(service->active().at(0).dropped_packets, 10u);
    EXPECT_EQ(service->active().at(0).packets, 0u);
}

TEST_F(FlowServiceTest, GivesA5TupleThatComesBackAnotherFlow)
{
    begin(with_idle_seconds(3));
    arrive(1000);
    pass(10);
    arrive(1000);
    EXPECT_EQ(ended.size(), 1u);
    EXPECT_EQ(service->sums().added, 2u);
    EXPECT_EQ(service->active().at(0).packets, 1u);
}

TEST_F(FlowServiceTest, CountsWhatAPolicerDropsApart)
{
    begin(with_policer(1, 150));
    arrive(1000, 100);
    arrive(1000, 100);
    const FlowAccount flow = service->active().at(0);
    EXPECT_EQ(flow.packets, 1u);
    EXPECT_EQ(flow.bytes, 100u);
    EXPECT_EQ(flow.dropped_packets, 1u);
    EXPECT_EQ(flow.dropped_bytes, 100u);
}

TEST_F(FlowServiceTest, GoesOnWithTheFlowsThatAreThere)
{
    begin(with_idle_seconds(3));
    arrive(1000);
    restart_all(with_idle_seconds(3));
    EXPECT_EQ(service->sums().found, 1u);
    arrive(1000);
    EXPECT_EQ(service->sums().added, 0u);
    EXPECT_EQ(service->active().at(0).packets, 2u);
    pass(10);
    EXPECT_EQ(ended.size(), 1u);
}

TEST_F(FlowServiceTest, KeepsTheIdleTimeWithWhichAFlowWasAdded)
{
    begin(with_idle_seconds(3));
    arrive(1000);
    restart_all(with_idle_seconds(600));
    arrive(2000);
    pass(300);
    arrive(2000);
    pass(400); // the table is walked once in 600 seconds
    ASSERT_EQ(ended.size(), 1u);
    EXPECT_EQ(ended[0].tuple.source_port, 1000);
}

TEST_F(FlowServiceTest, CountsPacketsThatCouldNotBeGivenAFlowByCode)
{
    begin();
    const auto no_counters = failing("prm_stats_cl_alloc", 5);
    arrive(1000);
    arrive(1000);
    EXPECT_EQ(service->sums().refused, (std::map<uint32_t, uint64_t>{{12, 2}}));
    EXPECT_EQ(service->flows(), 0u);
}

TEST_F(FlowServiceTest, CountsFlowsThatEndedWithACode)
{
    begin(with_idle_seconds(3));
    arrive(1000);
    const auto kept = failing("prm_stats_cl_free", 5);
    pass(10);
    EXPECT_EQ(service->sums().undeleted, (std::map<uint32_t, uint64_t>{{5, 1}}));
    EXPECT_EQ(service->sums().ended, 1u);
    EXPECT_EQ(service->flows(), 0u);
}

TEST_F(FlowServiceTest, NoticesA5TupleWhoseNumberAnotherFlowHas)
{
    begin();
    flow_layout::Tuple wanted{.source = 1, .destination = 2, .protocol = 17};
    flow_layout::FlowInfo other{.tuple = {.source = 3, .destination = 4, .protocol = 17}};
    ASSERT_EQ(dpss_flow_add_modify(services::flow_number(wanted), FLOW_ALL_NPS, 1, &other), 0u);
    service->add(wanted, 0, now);
    EXPECT_EQ(service->sums().collisions, 1u);
    EXPECT_EQ(service->sums().added, 0u);
}

TEST_F(FlowServiceTest, NoticesPacketsOfAFlowThatTheirNpDoesNotHave)
{
    begin();
    arrive(1000);
    for (uint32_t np = 0; np < 2; ++np) {
        std::vector<uint8_t> key;
        card->access().for_each_row(np, vlc::TableKind::flow, [&key](const vlc::TableRow &row) {
            key.assign(row.key_span().begin(), row.key_span().end());
        });
        card->nps()[np].table(vlc::TableKind::flow).remove(key);
    }
    arrive(1000);
    EXPECT_EQ(service->sums().rowless, 1u);
}

TEST_F(FlowServiceTest, TellsTupleByTupleWhichNumberAFlowHas)
{
    const flow_layout::Tuple base{1, 2, 3, 4, 17};
    const flow_layout::Tuple others[] = {{2, 1, 3, 4, 17}, {1, 2, 4, 3, 17}, {1, 2, 3, 4, 6},
                                         {1, 3, 3, 4, 17}, {1, 2, 3, 5, 17}, {0, 2, 3, 4, 17}};
    for (const flow_layout::Tuple &other : others)
        EXPECT_NE(services::flow_number(base), services::flow_number(other));
    EXPECT_EQ(services::flow_number(base), services::flow_number(base));
}

TEST_F(FlowServiceTest, SaysThatTheWindowHasNoRoomForATable)
{
    FlowOptions options;
    options.buckets = FlowOptions::most_buckets; // 128 MiB, of a window of 4
    try {
        begin(options);
        ADD_FAILURE() << "made";
    } catch (const services::ServiceError &error) {
        EXPECT_STREQ(error.what(), "the window has no room for a flow table of 16777216 buckets");
    }
    EXPECT_EQ(host->root()->flow_db, nullptr);
}

TEST_F(FlowServiceTest, LooksThroughTheWholeTableOnceInAnIdleTime)
{
    begin(with_idle_seconds(30));
    for (uint16_t port = 1000; port < 1040; ++port)
        arrive(port);
    size_t looked_at = 0;
    card->on_flow_scan(
        [&looked_at](std::span<void *const> records) { looked_at += records.size(); });
    pass(120);
    EXPECT_EQ(looked_at, 4u * 40u);
}

} // namespace
