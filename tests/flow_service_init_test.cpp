// The flow service's start: which table its calls are on, and what the table's walker does.
#include "flow_fixture.h"

using namespace test;

namespace {

class FlowServiceInitTest : public FlowTest {
protected:
    uint32_t add(uint64_t key) { return dpss_flow_add_modify(key, FLOW_ALL_NPS, 0, &flow_info_); }

private:
    int flow_info_ = 0;
};

TEST_F(FlowServiceInitTest, TheHandleIsTheTableOfTheLibrarysRoot)
{
    EXPECT_EQ(dpss_flow_get_db_handle(), table);
    shadow_db other = {};
    other.flow_db = reinterpret_cast<in_hash_table *>(0x1000);
    pshadow_db = &other; // and not the context's
    EXPECT_EQ(dpss_flow_get_db_handle(), other.flow_db);
    other.flow_db = nullptr;
    EXPECT_EQ(dpss_flow_get_db_handle(), nullptr);
    pshadow_db = nullptr;
    EXPECT_EQ(dpss_flow_get_db_handle(), nullptr);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(FlowServiceInitTest, TheEncoderIsOpenedWithTheFourArguments)
{
    EXPECT_EQ(dpss_flow_table_init(0x1122334455667788, 2, 3, UINT64_MAX), 0u);
    EXPECT_EQ(services.names(), Lines{"ac_encode_init"});
    EXPECT_EQ(services.calls()[0].args,
              (std::vector<uint64_t>{0x1122334455667788, 2, 3, UINT64_MAX}));
    EXPECT_EQ(log(), Lines{});
}

TEST_F(FlowServiceInitTest, AnEncoderThatDoesNotOpenIsNotLookedAt)
{
    services.force("ac_encode_init", 0);
    EXPECT_EQ(dpss_flow_table_init(0, 0, 0, 0), 0u);
    EXPECT_EQ(add(1), 0u);
}

TEST_F(FlowServiceInitTest, TheWalkerIsSetToPeriod300Batch20AndTheServicesCallback)
{
    dpss_flow_table_init(0, 0, 0, 0);
    EXPECT_EQ(table->scan_callback, dpss_flow_scan_callback);
    EXPECT_EQ(table->scan_period, 300u);
    EXPECT_EQ(table->scan_batch, 20u);
    EXPECT_EQ(table->scan_interval, 20u);
}

TEST_F(FlowServiceInitTest, TheWalkerHandsTheServiceItsFlows)
{
    dpss_flow_table_init(0, 0, 0, 0);
    for (uint64_t key = 0; key < 25; ++key)
        add(key);
    in_hash_periodic_walker(table);
    ASSERT_EQ(platform.scanned.size(), 2u);
    EXPECT_EQ(platform.scanned[0].size(), 20u);
    EXPECT_EQ(platform.scanned[1].size(), 5u);
    EXPECT_EQ(platform.scanned[0][0], flowdb_lookup(table, 24));
}

TEST_F(FlowServiceInitTest, BeforeTheStartTheCallsFindNoFlowsAndAnAddIs22)
{
    const uint64_t used = blocks();
    uint64_t words[2] = {1, 2};
    char out[FLOW_USER_DATA_BYTES] = {};
    EXPECT_EQ(add(1), 22u);
    EXPECT_EQ(log().back(), "flowdb_add failed, rc: 0x16");
    EXPECT_EQ(dpss_flow_lookup(1, out), 2u);
    EXPECT_EQ(dpss_flow_delete(1), 0u);
    EXPECT_EQ(dpss_flow_delete_with_stats_read(1, &words[0], &words[1]), 0u);
    EXPECT_EQ(services.count("prm_srh_flow_db_add"), 0u);
    EXPECT_EQ(blocks(), used);
}

TEST_F(FlowServiceInitTest, ARootWithoutATableIs0AndALine)
{
    root->flow_db = nullptr;
    EXPECT_EQ(dpss_flow_table_init(0, 0, 0, 0), 0u);
    EXPECT_EQ(log(), Lines{"table is NULL in in_hash_set_scan_callback"});
    EXPECT_EQ(add(1), 22u);
}

TEST_F(FlowServiceInitTest, ATableThatComesLaterIsNotUsedBeforeTheNextStart)
{
    root->flow_db = nullptr;
    dpss_flow_table_init(0, 0, 0, 0);
    root->flow_db = table;
    EXPECT_EQ(dpss_flow_get_db_handle(), table);
    EXPECT_EQ(add(1), 22u);
    dpss_flow_table_init(0, 0, 0, 0);
    EXPECT_EQ(add(1), 0u);
    EXPECT_EQ(table->count, 1u);
}

TEST_F(FlowServiceInitTest, AStartOnAnotherTableLeavesTheFirstOne)
{
    dpss_flow_table_init(0, 0, 0, 0);
    add(1);
    in_hash_table *other = flowdb_init(buckets, bucket_of_flow, match_of_flows);
    root->flow_db = other;
    dpss_flow_table_init(0, 0, 0, 0);
    EXPECT_EQ(add(1), 0u);
    EXPECT_EQ(table->count, 1u);
    EXPECT_EQ(other->count, 1u);
}

} // namespace
