// The audit of flows, on cards whose flow table and NPs were put apart on purpose, and what a
// settlement makes of it.
#include "flow_audit.h"

#include "audited_card.h"
#include "flow_layout.h"
#include "flow_settlement.h"
#include "inline_service_flowdb.h"
#include "platform_card.h"
#include "platform_prm_stats.h"

namespace test {
namespace {

using services::FindingKind;
using Texts = std::vector<std::string>;

int32_t bucket_of(const void *record)
{
    return static_cast<int32_t>(static_cast<const flow_record *>(record)->flow_key % 8);
}
int32_t has_key(const void *record, const void *key_record)
{
    return static_cast<const flow_record *>(record)->flow_key ==
           static_cast<const flow_record *>(key_record)->flow_key;
}

class FlowAudit : public AuditedCardTest {
protected:
    FlowAudit()
    {
        root->flow_db = flowdb_init(8, bucket_of, has_key);
        dpss_flow_table_init(0, 0, 0, 0);
        add(1, FLOW_ALL_NPS, true);
        add(2, FLOW_ALL_NPS, false);
        add(9, 1, false); // in the chain of flow 1
    }

    static flow_layout::Tuple tuple(uint64_t number)
    {
        return {static_cast<uint32_t>(number), 7, 1, 2, 17};
    }
    void add(uint64_t number, uint32_t np, bool policer)
    {
        flow_layout::FlowInfo info{.tuple = tuple(number), .policer = policer};
        EXPECT_EQ(dpss_flow_add_modify(number, np, 1, &info), 0u);
        run_events();
    }
    flow_record *flow(uint64_t number) { return flowdb_lookup(root->flow_db, number); }

    services::AuditReport look_at_flows() const
    {
        services::AuditReport report;
        services::audit_flows(input(), report);
        return report;
    }
    Texts found_in_flows() const
    {
        Texts texts;
        for (const services::Finding &finding : look_at_flows().findings)
            texts.push_back(short_text(finding));
        return texts;
    }
    vlc::TableOutcome remove_row(uint32_t np, uint64_t number)
    {
        return table(np, services::flow_table).remove(flow_layout::key_of(tuple(number)));
    }
    services::Settlement settle()
    {
        const services::AuditInput seen = input();
        return services::settle_flows({.root = root,
                                       .in_shared_memory = seen.in_shared_memory,
                                       .hardware = seen.hardware,
                                       .run_events = [this] { run_events(); }},
                                      root->flow_db);
    }
};

TEST_F(FlowAudit, OfWholeFlowsFindsNothingAndCountsThem)
{
    const services::AuditReport report = look_at_flows();
    EXPECT_TRUE(report.clean());
    EXPECT_EQ(report.flows, 3u);
    EXPECT_EQ(report.nps[0].flow_rows, 2u);
    EXPECT_EQ(report.nps[1].flow_rows, 3u);
    EXPECT_EQ(report.nps[0].flow_counters_in_use, 3u);
    EXPECT_EQ(report.nps[1].flow_counters_in_use, 4u);
}

TEST_F(FlowAudit, TakesARowThatAModifyWroteForWhole)
{
    ASSERT_EQ(flowdb_modify(root->flow_db, flow(1)), 0u);
    run_events();
    EXPECT_EQ(found_in_flows(), Texts{});
}

TEST_F(FlowAudit, OfARootWithoutATableFindsNothing)
{
    root->flow_db = nullptr;
    for (const uint64_t number : {1UL, 2UL, 9UL}) {
        remove_row(0, number);
        remove_row(1, number);
    }
    const services::AuditReport report = look_at_flows();
    EXPECT_EQ(report.flows, 0u);
    EXPECT_EQ(report.count()[size_t(FindingKind::counter_leaked)], 5u);
}

TEST_F(FlowAudit, FindsAFlowThatIsMissingOnOneNp)
{
    ASSERT_EQ(remove_row(1, 2), vlc::TableOutcome::done);
    EXPECT_EQ(found_in_flows(), Texts{"entry_missing NP 1"});
    EXPECT_EQ(look_at_flows().findings[0].text,
              "NP 1: flow 0000000000000002 (11000000020000000700010002) has no row");
    EXPECT_EQ(look_at_flows().findings[0].flow, flow(2));
}

TEST_F(FlowAudit, FindsARowThatNoFlowHas)
{
    ASSERT_EQ(table(0, services::flow_table).add(flow_layout::key_of(tuple(5)), bytes_of("x")),
              vlc::TableOutcome::done);
    EXPECT_EQ(found_in_flows(), Texts{"entry_stale NP 0"});
    EXPECT_EQ(look_at_flows().findings[0].text,
              "NP 0: no flow has the row 11000000050000000700010002");
}

TEST_F(FlowAudit, FindsTheRowOfAFlowOnAnNpThatIsNotItsOwn)
{
    ASSERT_EQ(table(0, services::flow_table).add(flow_layout::key_of(tuple(9)), bytes_of("x")),
              vlc::TableOutcome::done);
    EXPECT_EQ(found_in_flows(), Texts{"entry_stale NP 0"});
}

TEST_F(FlowAudit, FindsARowThatDiffers)
{
    flow(2)->result[20] ^= 1;
    EXPECT_EQ(found_in_flows(), (Texts{"entry_differs NP 0", "entry_differs NP 1"}));
}

TEST_F(FlowAudit, FindsACounterThatNoFlowHolds)
{
    uint32_t count = 2;
    uint32_t counter = 0;
    ASSERT_EQ(prm_stats_cl_alloc(context.prm_conn, *plm_dpss_get_stats_tbl_id(1), 27, 2, &count,
                                 &counter),
              0u);
    EXPECT_EQ(found_in_flows(), Texts{"counter_leaked NP 1"});
    EXPECT_EQ(look_at_flows().findings[0].counter, counter);
}

TEST_F(FlowAudit, FindsAFlowWhoseCounterIsFree)
{
    ASSERT_EQ(
        prm_stats_cl_free(context.prm_conn, *plm_dpss_get_stats_tbl_id(0), flow(1)->counter[0]),
        0u);
    EXPECT_EQ(found_in_flows(), Texts{"counter_free NP 0"});
}

TEST_F(FlowAudit, FindsACounterThatTwoFlowsHold)
{
    const uint32_t own = flow(9)->counter[1];
    flow(9)->counter[1] = flow(2)->counter[1];
    const Texts found = found_in_flows();
    EXPECT_EQ(std::ranges::count(found, "counter_shared NP 1"), 1);
    EXPECT_EQ(std::ranges::count(found, "counter_leaked NP 1"), 1) << own;
}

TEST_F(FlowAudit, FindsAFlowWithoutTheCounterThatItMustHave)
{
    flow(2)->counter[0] = 0;
    const Texts found = found_in_flows();
    EXPECT_EQ(std::ranges::count(found, "counter_invalid NP 0"), 1);
}

TEST_F(FlowAudit, FindsAFlowThatHoldsACounterOnAnNpThatIsNotItsOwn)
{
    flow(9)->counter[0] = 5;
    EXPECT_EQ(found_in_flows(), Texts{"counter_invalid NP 0"});
}

TEST_F(FlowAudit, FindsADropCounterThatIsNotTheRuns)
{
    flow(1)->drop_counter[0] = 0;
    EXPECT_EQ(found_in_flows(), Texts{"counter_invalid NP 0"});
}

TEST_F(FlowAudit, FindsACountThatIsNotTheChains)
{
    root->flow_db->count = 4;
    EXPECT_EQ(found_in_flows(), Texts{"count_wrong"});
    EXPECT_EQ(look_at_flows().findings[0].text,
              "the flow table says 4 flows and its chains hold 3");
}

TEST_F(FlowAudit, FindsAChainThatComesBackToItself)
{
    flow(1)->next = flow(1);
    const Texts found = found_in_flows();
    EXPECT_EQ(std::ranges::count(found, "list_broken"), 1);
}

TEST_F(FlowAudit, FindsAChainThatLeadsOutOfTheWindow)
{
    flow_record outside = {};
    flow(1)->next = &outside;
    const services::AuditReport report = look_at_flows();
    EXPECT_EQ(report.count()[size_t(FindingKind::list_broken)], 1u);
}

TEST_F(FlowAudit, FindsATableThatLeadsOutOfTheWindow)
{
    in_hash_table outside = {};
    root->flow_db = &outside;
    EXPECT_EQ(look_at_flows().count()[size_t(FindingKind::list_broken)], 1u);
}

TEST_F(FlowAudit, DoesNotBelieveANumberOfBucketsThatTheWindowHasNoRoomFor)
{
    root->flow_db->num_buckets = 0xFFFFFFFF;
    EXPECT_EQ(look_at_flows().findings.back().text, "the flow table lies outside shared memory");
}

using FlowSettlementTest = FlowAudit;

TEST_F(FlowSettlementTest, OfWholeFlowsDoesNothing)
{
    const services::Settlement settlement = settle();
    EXPECT_EQ(settlement.done, Texts{});
    EXPECT_EQ(settlement.left, Texts{});
}

TEST_F(FlowSettlementTest, DeletesARowThatNoFlowHas)
{
    ASSERT_EQ(table(0, services::flow_table).add(flow_layout::key_of(tuple(5)), bytes_of("x")),
              vlc::TableOutcome::done);
    EXPECT_EQ(settle().done, Texts{"deleted a stale flow row: NP 0, 11000000050000000700010002"});
    EXPECT_EQ(found_in_flows(), Texts{});
}

TEST_F(FlowSettlementTest, DeletesAFlowThatLacksARowWithItsOtherRowsAndCounters)
{
    remove_row(0, 1);
    const services::Settlement settlement = settle();
    EXPECT_EQ(settlement.done.at(0), "deleted a flow that was in flight: flow 0000000000000001 "
                                     "(11000000010000000700010002)");
    EXPECT_EQ(settlement.left, Texts{});
    EXPECT_EQ(flow(1), nullptr);
    EXPECT_NE(flow(9), nullptr);
    EXPECT_EQ(found_in_flows(), Texts{});
}

TEST_F(FlowSettlementTest, DeletesAFlowWhoseCounterIsFree)
{
    ASSERT_EQ(
        prm_stats_cl_free(context.prm_conn, *plm_dpss_get_stats_tbl_id(0), flow(2)->counter[0]),
        0u);
    EXPECT_EQ(settle().left, Texts{});
    EXPECT_EQ(flow(2), nullptr);
    EXPECT_EQ(found_in_flows(), Texts{});
}

TEST_F(FlowSettlementTest, FreesCountersThatNoFlowHolds)
{
    uint32_t count = 1;
    uint32_t counter = 0;
    ASSERT_EQ(prm_stats_cl_alloc(context.prm_conn, *plm_dpss_get_stats_tbl_id(1), 27, 2, &count,
                                 &counter),
              0u);
    EXPECT_EQ(settle().left, Texts{});
    EXPECT_EQ(found_in_flows(), Texts{});
}

TEST_F(FlowSettlementTest, CountsTheChainsAgain)
{
    root->flow_db->count = 7;
    EXPECT_EQ(settle().done, Texts{"mended the flow table's count: 3"});
    EXPECT_EQ(root->flow_db->count, 3u);
}

TEST_F(FlowSettlementTest, TouchesNothingWhenAChainIsBroken)
{
    flow(1)->next = flow(1);
    root->flow_db->count = 7;
    const services::Settlement settlement = settle();
    EXPECT_TRUE(settlement.is_damaged);
    EXPECT_EQ(settlement.done, Texts{});
    EXPECT_EQ(root->flow_db->count, 7u);
}

TEST_F(FlowSettlementTest, SaysWhatPrmRefusesAndLeavesIt)
{
    ASSERT_EQ(table(0, services::flow_table).add(flow_layout::key_of(tuple(5)), bytes_of("x")),
              vlc::TableOutcome::done);
    services.force("prm_srh_flow_db_del", 5);
    const services::Settlement settlement = settle();
    EXPECT_EQ(settlement.left.size(), 2u); // the request, and the row that is still there
}

} // namespace
} // namespace test
