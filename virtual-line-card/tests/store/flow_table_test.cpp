// What a flow's row has beyond other rows, and a flow table's place in the files.
#include <optional>

#include "np_test_card.h"
#include "vlc/card_access.h"
#include "vlc/np_flows.h"

namespace vlc::test {

namespace {

class FlowTableTest : public testing::Test {
protected:
    FlowTableTest() { open(card_of(2, 8, 8)); }
    void open(const CardConfig &config)
    {
        nps_.reset();
        state_.reset();
        state_.emplace(directory_.path(), Access::read_write);
        nps_.emplace(*state_, config);
    }
    NpTable &flows(uint32_t np = 0) { return (*nps_)[np].table(TableKind::flow); }
    FlowCell &cell(const std::string &key) { return flows().flow_cell(*flows().find(bytes(key))); }
    int64_t last_packet(const std::string &key) { return cell(key).read().last_packet; }

    TestDirectory directory_;
    std::optional<StateDirectory> state_;
    std::optional<NpStore> nps_;
};

TEST_F(FlowTableTest, IsATableOfItsOwn)
{
    flows().add(bytes("key"), bytes("flow"));
    (*nps_)[0].table(TableKind::ext_conf).add(bytes("key"), bytes("ext"));
    EXPECT_EQ(rows_of(flows()), (std::map<std::string, std::string>{{"key", "flow"}}));
    EXPECT_EQ(rows_of(flows(1)), (std::map<std::string, std::string>{}));
    EXPECT_EQ(flows().capacity(), flow_rows);
}

TEST_F(FlowTableTest, ARowsCellBeginsEmptyAndGoesWithTheRow)
{
    flows().add(bytes("key"), bytes("one"));
    EXPECT_EQ(last_packet("key"), 0);
    cell("key").write({.owed = 5, .last_packet = 7});
    flows().remove(bytes("key"));
    for (uint32_t i = 0; i < flow_rows; ++i) { // one of them gets the row
        flows().add(bytes(std::to_string(i)), {});
        EXPECT_EQ(last_packet(std::to_string(i)), 0);
        EXPECT_EQ(cell(std::to_string(i)).read().owed, 0u);
    }
}

TEST_F(FlowTableTest, ARowsCellStaysThroughAModify)
{
    flows().add(bytes("key"), bytes("one"));
    cell("key").write({.owed = 5, .last_packet = -7});
    flows().modify(bytes("key"), bytes("two"));
    EXPECT_EQ(last_packet("key"), -7);
    EXPECT_EQ(cell("key").read().owed, 5u);
}

TEST_F(FlowTableTest, StandsInTheFileWithItsCells)
{
    flows(0).add(bytes("key"), bytes("one"));
    cell("key").write({.owed = 5, .last_packet = 7});
    flows().count_hit(*flows().find(bytes("key")), 60);
    open(card_of(2, 8, 8));
    EXPECT_EQ(flow_activity((*nps_)[0], bytes("key")), (FlowActivity{{1, 60}, 7}));
    EXPECT_EQ(flow_activity((*nps_)[0], bytes("other")), std::nullopt);
    EXPECT_EQ(flow_activity((*nps_)[1], bytes("key")), std::nullopt);
    uint32_t seen = 0;
    for_each_flow((*nps_)[0], [&](const TableRow &row, const FlowActivity &activity) {
        ++seen;
        EXPECT_EQ(text(row.result_span()), "one");
        EXPECT_EQ(activity, (FlowActivity{{1, 60}, 7}));
    });
    EXPECT_EQ(seen, 1u);
}

TEST_F(FlowTableTest, AFileMadeForOtherSizesIsRefused)
{
    const std::string made = directory_.file("np0").string() + ": was made for ";
    CardConfig other = card_of(2, 8, 8);
    other.flow_capacity = 9;
    EXPECT_EQ(refusal([&] { open(other); }), made + "8 flow rows, and 9 are asked for");
    other = card_of(2, 8, 8);
    other.dynamic_counters = 18;
    EXPECT_EQ(refusal([&] { open(other); }),
              made + std::to_string(flow_counters) + " dynamic counters, and 18 are asked for");
}

TEST_F(FlowTableTest, SizesThatCannotBeAreRefused)
{
    TestDirectory elsewhere;
    const auto told = [&](uint32_t rows, uint32_t counters) {
        CardConfig config = card_of(1, 8, 8);
        config.flow_capacity = rows;
        config.dynamic_counters = counters;
        return refusal([&] {
            const StateDirectory directory(elsewhere.path(), Access::read_write);
            const NpStore nps(directory, config);
        });
    };
    const std::string card = elsewhere.path().string() + ": a card with ";
    EXPECT_EQ(told(0, 0), card + "0 flow rows cannot be; 1 to 2000000 can");
    EXPECT_EQ(told(2000001, 0), card + "2000001 flow rows cannot be; 1 to 2000000 can");
    EXPECT_EQ(told(1, 4194305), card + "4194305 dynamic counters cannot be; 0 to 4194304 can");
}

TEST_F(FlowTableTest, AMillionFlowsWithTwoCountersEachFit)
{
    constexpr uint32_t million = 1'100'000; // so that some rows' numbers have more than 20 bits
    TestDirectory elsewhere;
    CardConfig config = card_of(1, 8, 8);
    config.flow_capacity = NpTable::largest_capacity;
    config.dynamic_counters = 2 * million;
    const auto key = [](const uint32_t &number) {
        return Bytes(reinterpret_cast<const uint8_t *>(&number), sizeof number);
    };
    {
        const StateDirectory directory(elsewhere.path(), Access::read_write);
        NpStore nps(directory, config);
        NpTable &table = nps[0].table(TableKind::flow);
        for (uint32_t i = 0; i < million; ++i) {
            const uint32_t run = nps[0].dynamic_counters().take(2);
            ASSERT_NE(run, 0u);
            ASSERT_EQ(table.add(key(i), key(run)), TableOutcome::done);
        }
    }
    const StateDirectory directory(elsewhere.path(), Access::read_write);
    const NpStore nps(directory, config);
    EXPECT_EQ(nps[0].table(TableKind::flow).size(), million);
    EXPECT_EQ(nps[0].dynamic_counters().in_use(), 2 * million);
    for (uint32_t i = 0; i < million; i += 997) {
        EXPECT_NE(nps[0].table(TableKind::flow).find(key(i)), nullptr) << i;
    }
    EXPECT_EQ(nps[0].table(TableKind::flow).find(key(million)), nullptr);
}

} // namespace

} // namespace vlc::test
