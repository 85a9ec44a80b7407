// The request that is made of a flow's record.
#include "flow_fixture.h"

using namespace test;

namespace {

class FlowEntryTest : public FlowTest {
protected:
    static prm_config_record made_of(const flow_record &record)
    {
        prm_config_record entry;
        memset(&entry, 0xEE, sizeof entry);
        inline_flow_make_prm_entry(&record, &entry);
        return entry;
    }
    static std::vector<uint8_t> bytes_of(const prm_config_record &entry)
    {
        const auto *bytes = reinterpret_cast<const uint8_t *>(&entry);
        return {bytes, bytes + sizeof entry};
    }
};

TEST_F(FlowEntryTest, TheEntryIs636BytesOfZeroesButForKindKeyAndResult)
{
    std::vector<uint8_t> expected(636);
    expected[4] = 4;
    expected[12] = 5;
    for (size_t i = 0; i < 5; ++i)
        expected[20 + i] = static_cast<uint8_t>(0xA0 + i);
    expected[120] = 32;
    for (size_t i = 0; i < 32; ++i)
        expected[124 + i] = static_cast<uint8_t>(0x10 + i);
    EXPECT_EQ(bytes_of(made_of(make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS, 7))), expected);
}

TEST_F(FlowEntryTest, BytesBehindTheLengthsStayZero)
{
    flow_record record = make(0);
    memset(record.key, 0xAA, sizeof record.key);
    memset(record.result, 0xBB, sizeof record.result);
    record.key_len = 2;
    record.result_len = 3;
    const prm_config_record entry = made_of(record);
    EXPECT_EQ(entry.key[1], 0xAA);
    EXPECT_EQ(entry.key[2], 0);
    EXPECT_EQ(entry.result[2], 0xBB);
    EXPECT_EQ(entry.result[3], 0);
}

TEST_F(FlowEntryTest, LengthsOf0MakeAnEntryWithoutKeyAndResult)
{
    flow_record record = make(0);
    record.key_len = 0;
    record.result_len = 0;
    std::vector<uint8_t> expected(636);
    expected[4] = 4;
    EXPECT_EQ(bytes_of(made_of(record)), expected);
}

TEST_F(FlowEntryTest, AllThatARecordHoldsFits)
{
    flow_record record = make(0);
    memset(record.key, 0xAA, sizeof record.key);
    memset(record.result, 0xBB, sizeof record.result);
    record.key_len = 32;
    record.result_len = 36;
    const prm_config_record entry = made_of(record);
    EXPECT_EQ(entry.key_len, 32u);
    EXPECT_EQ(entry.key[31], 0xAA);
    EXPECT_EQ(entry.key[32], 0);
    EXPECT_EQ(entry.result_len, 36u);
    EXPECT_EQ(entry.result[35], 0xBB);
    EXPECT_EQ(entry.result[36], 0);
}

TEST_F(FlowEntryTest, LengthsThatTheRecordHasNoRoomForAreRefusedAndTheEntryStays)
{
    const std::pair<uint8_t, uint8_t> cases[] = {{33, 32}, {5, 37}, {255, 255}};
    for (const auto &[key_len, result_len] : cases) {
        flow_record record = make(0);
        record.key_len = key_len;
        record.result_len = result_len;
        forget_log();
        EXPECT_EQ(bytes_of(made_of(record)), std::vector<uint8_t>(636, 0xEE));
        EXPECT_EQ(log(), Lines{"flow entry too long: key " + std::to_string(key_len) + " result " +
                               std::to_string(result_len)});
    }
}

TEST_F(FlowEntryTest, WithoutRecordOrEntryNothingIsMade)
{
    const flow_record record = make(0);
    prm_config_record entry;
    memset(&entry, 0xEE, sizeof entry);
    inline_flow_make_prm_entry(nullptr, &entry);
    inline_flow_make_prm_entry(&record, nullptr);
    EXPECT_EQ(bytes_of(entry), std::vector<uint8_t>(636, 0xEE));
    EXPECT_EQ(log(), (Lines{"record is NULL in inline_flow_make_prm_entry",
                            "entry is NULL in inline_flow_make_prm_entry"}));
}

TEST_F(FlowEntryTest, MakingAnEntryCallsNobodyAndSaysNothing)
{
    made_of(make(FLOW_HAS_STATS));
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{});
}

} // namespace
