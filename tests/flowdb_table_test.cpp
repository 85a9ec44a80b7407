// The store of flows: its table and its records in the window.
#include "flow_fixture.h"

using namespace test;

namespace {

class FlowTableTest : public FlowTest {
protected:
    static int32_t first_bucket(const void *) { return 0; }
    static std::vector<uint8_t> bytes_of(const void *block, size_t size)
    {
        const auto *bytes = static_cast<const uint8_t *>(block);
        return {bytes, bytes + size};
    }
    // A block of the window that was used before, so that the next one of its size is not new.
    static void leave_used_block(int32_t size)
    {
        void *block = inline_svc_shared_mem_alloc(size);
        ASSERT_NE(block, nullptr);
        memset(block, 0xEE, static_cast<size_t>(size));
        ASSERT_EQ(inline_svc_shared_mem_free(block), 0u);
    }
};

// ---- the table ---------------------------------------------------------------------------------

TEST_F(FlowTableTest, ATableIsOneBlockOf56BytesAnd8ForEachBucket)
{
    for (const uint32_t count : {1u, 2u, 1000u, 0u}) {
        forget();
        in_hash_table *made = flowdb_init(count, first_bucket, match_of_flows);
        ASSERT_NE(made, nullptr);
        EXPECT_TRUE(card->window().contains(made));
        const auto calls = services.calls_of("shmwin_malloc");
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].args[0], context.shmwin_id);
        EXPECT_EQ(calls[0].args[1], 56 + 8 * uint64_t{count});
        EXPECT_EQ(services.calls().size(), 1u);
        EXPECT_EQ(log(), Lines{});
    }
}

TEST_F(FlowTableTest, ANewTableIsEmptyAndHasItsFunctions)
{
    leave_used_block(56 + 8 * 5);
    in_hash_table *made = flowdb_init(5, first_bucket, match_of_flows);
    ASSERT_NE(made, nullptr);
    in_hash_table header = {};
    header.num_buckets = 5;
    header.hash = first_bucket;
    header.match = match_of_flows;
    std::vector<uint8_t> expected = bytes_of(&header, sizeof header);
    expected.resize(56 + 8 * 5);
    EXPECT_EQ(bytes_of(made, 56 + 8 * 5), expected);
}

TEST_F(FlowTableTest, WithoutRoomInTheWindowThereIsNoTable)
{
    services.force("shmwin_malloc", 12);
    EXPECT_EQ(flowdb_init(4, first_bucket, match_of_flows), nullptr);
    EXPECT_EQ(log(), Lines{"shared memory alloc failed c 88"});
}

TEST_F(FlowTableTest, ASizeThatFits31BitsIsAskedFor)
{
    services.force("shmwin_malloc", 12);
    constexpr uint32_t most = (0x7FFFFFFF - 56) / 8;
    EXPECT_EQ(flowdb_init(most, first_bucket, match_of_flows), nullptr);
    EXPECT_EQ(services.calls_of("shmwin_malloc").at(0).args[1], 56 + 8 * uint64_t{most});
}

TEST_F(FlowTableTest, ASizeThatDoesNotFit31BitsIsRefused)
{
    constexpr uint32_t most = (0x7FFFFFFF - 56) / 8;
    for (const uint32_t count : {most + 1, 0x20000000u, 0x80000000u, 0xFFFFFFFFu}) {
        forget();
        EXPECT_EQ(flowdb_init(count, first_bucket, match_of_flows), nullptr);
        EXPECT_EQ(services.names(), Lines{});
        EXPECT_EQ(log(), Lines{"flow table of " + std::to_string(count) + " buckets is too large"});
    }
}

TEST_F(FlowTableTest, ATableDoesNotBecomeTheRoots)
{
    const in_hash_table *before = root->flow_db;
    EXPECT_NE(flowdb_init(4, first_bucket, match_of_flows), before);
    EXPECT_EQ(root->flow_db, before);
}

TEST_F(FlowTableTest, ScanSettingsAreTheHashTables)
{
    EXPECT_EQ(flowdb_set_scan_callback(table, dpss_flow_scan_callback, 77, 1000), 256u);
    EXPECT_EQ(table->scan_callback, dpss_flow_scan_callback);
    EXPECT_EQ(table->scan_period, 77u);
    EXPECT_EQ(table->scan_batch, 256u);
    EXPECT_EQ(table->scan_interval, 20u);
    EXPECT_EQ(flowdb_set_scan_callback(nullptr, dpss_flow_scan_callback, 77, 20), 22u);
}

TEST_F(FlowTableTest, ReadingAllIsTheHashTables)
{
    static std::vector<std::pair<uint32_t, uint32_t>> calls;
    calls.clear();
    flow_record records[5];
    for (uint64_t key = 0; key < 5; ++key) {
        records[key] = make(0, 0, key);
        in_hash_insert(table, &records[key]);
    }
    const auto keep = [](void **, uint32_t count, uint32_t last) {
        calls.emplace_back(count, last);
        return 70 + last;
    };
    EXPECT_EQ(flowdb_read_all(table, keep, 2), 71u);
    EXPECT_EQ(calls, (std::vector<std::pair<uint32_t, uint32_t>>{{2, 0}, {2, 0}, {1, 1}}));
    EXPECT_EQ(flowdb_read_all(nullptr, keep, 2), 22u);
    EXPECT_EQ(flowdb_read_all(table, nullptr, 2), 22u);
}

// ---- records -----------------------------------------------------------------------------------

TEST_F(FlowTableTest, ARecordIsOneZeroedBlockOf304Bytes)
{
    leave_used_block(304);
    forget();
    const flow_record *record = flowdb_alloc();
    ASSERT_NE(record, nullptr);
    EXPECT_TRUE(card->window().contains(record));
    EXPECT_EQ(bytes_of(record, 304), std::vector<uint8_t>(304));
    EXPECT_EQ(services.names(), Lines{"shmwin_malloc"});
    EXPECT_EQ(services.calls()[0].args[1], 304u);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(FlowTableTest, WithoutRoomInTheWindowThereIsNoRecord)
{
    services.force("shmwin_malloc", 12);
    EXPECT_EQ(flowdb_alloc(), nullptr);
    EXPECT_EQ(log(), Lines{"shared memory alloc failed c 304"});
}

TEST_F(FlowTableTest, ARecordThatIsFreedGoesBackToTheWindow)
{
    const uint64_t before = bytes();
    flow_record *record = flowdb_alloc();
    EXPECT_GT(bytes(), before);
    EXPECT_EQ(flowdb_free(record), 0u);
    EXPECT_EQ(bytes(), before);
}

TEST_F(FlowTableTest, FreeingReturnsTheWindowsCode)
{
    flow_record *record = flowdb_alloc();
    services.force("shmwin_free", 0x1234, 1, 1);
    EXPECT_EQ(flowdb_free(record), 0x1234u);
    EXPECT_EQ(flowdb_free(record), 0u);
    EXPECT_EQ(flowdb_free(record), 22u) << "no block any more";
    EXPECT_EQ(flowdb_free(nullptr), 22u);
}

// ---- lookup ------------------------------------------------------------------------------------

TEST_F(FlowTableTest, ALookupFindsTheRecordWithAllOfThe64BitsOfTheKey)
{
    flow_record low = make(0, 0, UINT64_C(0x0000000200000001));
    flow_record high = make(0, 0, UINT64_C(0xFFFFFFFF00000001));
    in_hash_insert(table, &low);
    in_hash_insert(table, &high);
    EXPECT_EQ(flowdb_lookup(table, low.flow_key), &low);
    EXPECT_EQ(flowdb_lookup(table, high.flow_key), &high);
    EXPECT_EQ(flowdb_lookup(table, 1), nullptr);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
}

TEST_F(FlowTableTest, ALookupHandsOverARecordInWhichTheKeyAloneIsSet)
{
    static std::vector<uint8_t> seen;
    const in_hash_fn keep = [](const void *record) {
        const auto *bytes = static_cast<const uint8_t *>(record);
        seen.assign(bytes, bytes + sizeof(flow_record));
        return 0;
    };
    std::vector<uint8_t> expected(304);
    for (const uint8_t byte : {uint8_t{0x11}, uint8_t{0}}) {
        in_hash_init(buckets, table, keep, match_of_flows);
        flowdb_lookup(table, byte * UINT64_C(0x0101010101010101));
        std::fill_n(expected.begin() + 8, 8, byte);
        EXPECT_EQ(seen, expected);
    }
}

TEST_F(FlowTableTest, WithoutATableALookupFindsNothing)
{
    EXPECT_EQ(flowdb_lookup(nullptr, 1), nullptr);
}

} // namespace
