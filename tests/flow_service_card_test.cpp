// Flows on the card itself: its encoders, its flow tables and its dynamic counters.
#include "card_fixture.h"
#include "flow_layout.h"
#include "inline_service_flowdb.h"
#include "platform_prm_stats.h"

using namespace test;

namespace {

using flow_layout::FlowInfo;
using flow_layout::Tuple;

constexpr uint64_t flow_key = 0x1122334455667788;

int32_t first_bucket(const void *)
{
    return 0;
}

int32_t same_flow(const void *entry, const void *key_record)
{
    return static_cast<const flow_record *>(entry)->flow_key ==
                   static_cast<const flow_record *>(key_record)->flow_key
               ? 1
               : 0;
}

class CardFlowTest : public CardTest {
protected:
    explicit CardFlowTest(uint32_t dynamic_counters = 64) : CardTest(3)
    {
        vlc::CardConfig with_flows = config;
        with_flows.flow_capacity = 64;
        with_flows.dynamic_counters = dynamic_counters;
        restart_card(with_flows);
        bring_up();
        root->flow_db = flowdb_init(1, first_bucket, same_flow);
        dpss_flow_table_init(0, 0, 0, 0);
        services.forget();
        forget_log();
    }
    uint32_t add(uint64_t key, uint32_t np = FLOW_ALL_NPS, uint32_t with_stats = 1)
    {
        const uint32_t code = dpss_flow_add_modify(key, np, with_stats, &info);
        run_events();
        return code;
    }
    uint32_t remove(uint64_t key)
    {
        const uint32_t code = dpss_flow_delete(key);
        run_events();
        return code;
    }
    flow_record *found(uint64_t key) const { return flowdb_lookup(root->flow_db, key); }
    vlc::Np &np(uint32_t number) const { return card->nps()[number]; }
    size_t rows(uint32_t number) const { return np(number).table(vlc::TableKind::flow).size(); }
    uint32_t counters_in_use(uint32_t number) const
    {
        return np(number).dynamic_counters().in_use();
    }
    // The result in an NP's row of the flow; nothing without one.
    std::vector<uint8_t> result_on(uint32_t number) const
    {
        const auto key = flow_layout::key_of(info.tuple);
        const vlc::TableRow *row = np(number).table(vlc::TableKind::flow).find(key);
        if (row == nullptr)
            return {};
        return {row->result, row->result + row->result_len};
    }
    // Packets that hit the flow there, as the NP would count them.
    void count(uint32_t number, uint32_t counter, uint32_t bytes)
    {
        vlc::DynamicCounters &counters = np(number).dynamic_counters();
        counters.add(static_cast<uint32_t>(counters.place(counter)), bytes);
    }

    FlowInfo info = {.tuple = Tuple{0xC0000201, 0xCB007105, 1234, 443, 6}};
};

TEST_F(CardFlowTest, AnAddedFlowIsARowOfEveryNpWithTheAddressOfItsOwnCounter)
{
    EXPECT_EQ(add(flow_key), 0u);
    const flow_record *record = found(flow_key);
    ASSERT_NE(record, nullptr);
    for (uint32_t number = 0; number < 3; ++number) {
        const std::vector<uint8_t> result = result_on(number);
        ASSERT_EQ(result.size(), 32u);
        EXPECT_EQ(result[0], flow_layout::count_action);
        EXPECT_EQ(flow_layout::counter_address(result),
                  vlc::DynamicCounters::address_of(record->counter[number]));
        EXPECT_EQ(counters_in_use(number), 1u);
    }
}

TEST_F(CardFlowTest, AFlowOfOneNpIsARowThereAlone)
{
    EXPECT_EQ(add(flow_key, 1), 0u);
    EXPECT_EQ(rows(0), 0u);
    EXPECT_EQ(rows(1), 1u);
    EXPECT_EQ(rows(2), 0u);
    EXPECT_EQ(counters_in_use(0), 0u);
}

TEST_F(CardFlowTest, AFlowThatIsModifiedCountsWhereItCounted)
{
    info.policer = true;
    info.rate = 1000;
    EXPECT_EQ(add(flow_key, 1), 0u);
    const uint32_t before = flow_layout::counter_address(result_on(1));
    EXPECT_NE(before, 0u);
    info.rate = 2000;
    const flow_layout::Result changed = flow_layout::result_of(info);
    std::copy(changed.begin(), changed.end(), found(flow_key)->result);
    EXPECT_EQ(flowdb_modify(root->flow_db, found(flow_key)), 0u);
    run_events();
    EXPECT_EQ(flow_layout::counter_address(result_on(1)), before);
    EXPECT_EQ(flow_layout::policer_in(result_on(1))->rate, 2000u);
}

TEST_F(CardFlowTest, ALookupGivesWhatTheFlowWasAddedWith)
{
    info.policer = true;
    info.burst = 1500;
    info.mark = 99;
    EXPECT_EQ(add(flow_key), 0u);
    FlowInfo out;
    EXPECT_EQ(dpss_flow_lookup(flow_key, &out), 0u);
    EXPECT_EQ(out, info);
}

TEST_F(CardFlowTest, StatisticsAreTheNpsOwnAndSummed)
{
    EXPECT_EQ(add(flow_key), 0u);
    const flow_record record = *found(flow_key);
    count(0, record.counter[0], 100);
    count(2, record.counter[2], 50);
    count(2, record.counter[2], 7);
    uint64_t packets = 0;
    uint64_t octets = 0;
    EXPECT_EQ(dpss_flow_delete_with_stats_read(flow_key, &packets, &octets), 0u);
    EXPECT_EQ(packets, 3u);
    EXPECT_EQ(octets, 157u);
}

TEST_F(CardFlowTest, FreeingARunsFirstCounterFreesTheRun)
{
    info.policer = true;
    EXPECT_EQ(add(flow_key, 1), 0u);
    EXPECT_EQ(counters_in_use(1), 2u);
    const uint32_t first = found(flow_key)->counter[1];
    EXPECT_EQ(found(flow_key)->drop_counter[1], first + 1);
    EXPECT_EQ(remove(flow_key), 0u);
    EXPECT_EQ(services.count("prm_stats_cl_free"), 1u);
    EXPECT_EQ(counters_in_use(1), 0u);
    EXPECT_EQ(rows(1), 0u);
}

TEST_F(CardFlowTest, Counter0IsAccepted)
{
    EXPECT_EQ(add(flow_key, FLOW_ALL_NPS, 0), 0u);
    EXPECT_EQ(remove(flow_key), 0u);
    const auto freed = services.calls_of("prm_stats_cl_free");
    ASSERT_EQ(freed.size(), 3u);
    for (const RecordedCall &call : freed)
        EXPECT_EQ(call.args[2], 0u);
}

TEST_F(CardFlowTest, CountersBeginAt0AlsoWhenTheyWereUsedBefore)
{
    EXPECT_EQ(add(flow_key, 1), 0u);
    const uint32_t counter = found(flow_key)->counter[1];
    count(1, counter, 1000);
    remove(flow_key);
    EXPECT_EQ(add(flow_key, 1), 0u);
    EXPECT_EQ(found(flow_key)->counter[1], counter);
    uint64_t packets = 77;
    uint64_t octets = 77;
    EXPECT_EQ(dpss_flow_delete_with_stats_read(flow_key, &packets, &octets), 0u);
    EXPECT_EQ(packets, 0u);
    EXPECT_EQ(octets, 0u);
}

TEST_F(CardFlowTest, AnAddThatTheLastNpRefusesLeavesTheFlowOnTheOthers)
{
    services.force("prm_srh_flow_db_add", 5, 3, 1);
    const uint64_t blocks = card->window().usage().blocks_in_use;
    EXPECT_EQ(add(flow_key), 5u);
    EXPECT_EQ(found(flow_key), nullptr);
    EXPECT_EQ(card->window().usage().blocks_in_use, blocks);
    EXPECT_EQ(rows(0), 1u);
    EXPECT_EQ(rows(1), 1u);
    EXPECT_EQ(rows(2), 0u);
    EXPECT_EQ(counters_in_use(2), 1u) << "nothing is undone";
}

TEST_F(CardFlowTest, NothingIsLeftOfManyFlows)
{
    const uint64_t bytes = card->window().usage().bytes_in_use;
    for (uint16_t port = 0; port < 30; ++port) {
        info.tuple.source_port = port;
        info.policer = port % 2 == 0;
        EXPECT_EQ(add(port, port % 3 == 0 ? FLOW_ALL_NPS : port % 3), 0u);
    }
    for (uint16_t port = 0; port < 30; ++port)
        EXPECT_EQ(remove(port), 0u);
    EXPECT_EQ(card->window().usage().bytes_in_use, bytes);
    for (uint32_t number = 0; number < 3; ++number) {
        EXPECT_EQ(rows(number), 0u);
        EXPECT_EQ(counters_in_use(number), 0u);
    }
}

// ---- counters that run out ---------------------------------------------------------------------

class FewCountersTest : public CardFlowTest {
protected:
    FewCountersTest() : CardFlowTest(2) {}
};

TEST_F(FewCountersTest, AnAddIs12WhenTheNpHasNoCounterLeft)
{
    info.policer = true;
    EXPECT_EQ(add(1, 1), 0u);
    EXPECT_EQ(add(2, 1), 12u);
    const std::vector<std::string> lines = log();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[lines.size() - 3].rfind(
                  "Failed to allocate dpss dynamic stats counter of chip 1, RC= ", 0),
              0u)
        << lines[lines.size() - 3];
    EXPECT_EQ(found(2), nullptr);
    EXPECT_EQ(remove(1), 0u);
    EXPECT_EQ(add(2, 1), 0u);
}

class NoCountersTest : public CardFlowTest {
protected:
    NoCountersTest() : CardFlowTest(0) {}
};

TEST_F(NoCountersTest, AnNpWithoutDynamicCountersHasNoStatisticsTable)
{
    EXPECT_EQ(add(1, 1), 22u);
    EXPECT_EQ(log_count("dpss stats tble id is NULL"), 1u);
    EXPECT_EQ(add(1, 1, 0), 0u);
    EXPECT_EQ(rows(1), 1u);
    EXPECT_EQ(remove(1), 22u) << "there is no table to give the counter back to";
    EXPECT_EQ(rows(1), 0u);
    EXPECT_EQ(found(1), nullptr);
}

} // namespace
