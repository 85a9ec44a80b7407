// Adding, modifying and deleting flows of a store: the hardware first, then the table.
#include "flow_fixture.h"

using namespace test;

namespace {

constexpr char update_failed[] = "inline_flow_db_update_prm failed, rc: 0x";

class FlowChangeTest : public FlowTest {
protected:
    flow_record *found(uint64_t key) const { return flowdb_lookup(table, key); }
    flow_record *add_flow(uint64_t key, uint32_t flags = FLOW_ON_ALL_NPS)
    {
        flow_record *record = flowdb_alloc();
        *record = make(flags, 0, key);
        EXPECT_EQ(flowdb_add(table, record, 0), 0u);
        return record;
    }
};

// ---- add ---------------------------------------------------------------------------------------

TEST_F(FlowChangeTest, AnAddedFlowIsProgrammedAndThenInTheTable)
{
    flow_record record = make(FLOW_ON_ALL_NPS, 0, 77);
    std::vector<bool> was_there;
    platform.also = [&](const vlc::ServiceCall &) { was_there.push_back(table->count != 0); };
    EXPECT_EQ(flowdb_add(table, &record, 0), 0u);
    EXPECT_EQ(was_there, std::vector<bool>(3));
    EXPECT_EQ(services.names(), Lines(3, "prm_srh_flow_db_add"));
    EXPECT_EQ(found(77), &record);
    EXPECT_EQ(table->count, 1u);
    EXPECT_EQ(log().size(), 4u) << "what the programming says, alone";
}

TEST_F(FlowChangeTest, ThePolicerIsPassedOnToTheProgramming)
{
    for (const uint32_t policer : {0u, 1u, 2u}) {
        flow_record record = make(FLOW_HAS_STATS, 0, policer);
        forget();
        flowdb_add(table, &record, policer);
        EXPECT_EQ(platform.taken.at(0).count, policer == 1 ? 2u : 1u);
        EXPECT_EQ(record.drop_counter[0], policer == 1 ? record.counter[0] + 1 : 0u);
    }
}

TEST_F(FlowChangeTest, AFlowThatTheHardwareRefusesIsNotInTheTable)
{
    add_flow(1);
    services.script("prm_srh_flow_db_add", refused_on(2, 0xABC));
    flow_record record = make(FLOW_ON_ALL_NPS, 0, 9);
    forget();
    EXPECT_EQ(flowdb_add(table, &record, 0), 0xABCu);
    EXPECT_EQ(log().back(), std::string(update_failed) + "abc");
    EXPECT_EQ(log_count(std::string(update_failed) + "abc"), 1u);
    EXPECT_EQ(found(9), nullptr);
    EXPECT_EQ(table->count, 1u);
    EXPECT_EQ(services.count("prm_srh_flow_db_del"), 0u) << "the other NPs keep it";
}

TEST_F(FlowChangeTest, AFlowThatTheFirstNpRefusesIsInTheTable)
{
    services.script("prm_srh_flow_db_add", refused_on(0, 5));
    flow_record record = make(FLOW_ON_ALL_NPS, 0, 9);
    EXPECT_EQ(flowdb_add(table, &record, 0), 0u);
    EXPECT_EQ(found(9), &record);
}

TEST_F(FlowChangeTest, EveryFailureOfTheProgrammingIsPassedOnAndLogged)
{
    struct Case {
        const char *service;
        uint64_t answer;
        uint32_t code;
        const char *text;
    };
    const Case cases[] = {{"plm_dpss_get_stats_tbl_id", 0, 22, "16"},
                          {"prm_stats_cl_alloc", 5, 12, "c"},
                          {"prm_srh_flow_db_add", 0xDEAD, 0xDEAD, "dead"}};
    for (const Case &row : cases) {
        services.force(row.service, row.answer);
        flow_record record = make(FLOW_HAS_STATS, 0, 9);
        forget();
        EXPECT_EQ(flowdb_add(table, &record, 0), row.code);
        EXPECT_EQ(log().back(), std::string(update_failed) + row.text);
        EXPECT_EQ(table->count, 0u);
        services.stop_forcing();
    }
}

TEST_F(FlowChangeTest, TheStoreTakesTwoFlowsWithOneKey)
{
    const flow_record *older = add_flow(5);
    const flow_record *newer = add_flow(5);
    EXPECT_EQ(table->count, 2u);
    EXPECT_EQ(found(5), newer);
    EXPECT_EQ(newer->next, older);
}

TEST_F(FlowChangeTest, AFlowWhoseHashIsOutsideTheTableIs22AndNotProgrammed)
{
    in_hash_init(
        buckets, table, [](const void *) { return int32_t{buckets}; }, match_of_flows);
    flow_record record = make(FLOW_ON_ALL_NPS, 0, 0xABCDEF0123456789);
    EXPECT_EQ(flowdb_add(table, &record, 0), 22u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{"hash of flow abcdef0123456789 is outside the table"});
    EXPECT_EQ(table->count, 0u);
}

TEST_F(FlowChangeTest, WithoutTableOrRecordAnAddIs22AndNothingIsProgrammed)
{
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(flowdb_add(nullptr, &record, 0), 22u);
    EXPECT_EQ(flowdb_add(table, nullptr, 0), 22u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), (Lines{"table is NULL in flowdb_add", "record is NULL in flowdb_add"}));
}

TEST_F(FlowChangeTest, WithoutAContextAnAddIs22AndTheTableStays)
{
    flow_record record = make(FLOW_ON_ALL_NPS);
    pgbl_ptr = nullptr;
    EXPECT_EQ(flowdb_add(table, &record, 0), 22u);
    EXPECT_EQ(table->count, 0u);
    EXPECT_EQ(log().back(), std::string(update_failed) + "16");
}

// ---- modify ------------------------------------------------------------------------------------

TEST_F(FlowChangeTest, AModifyProgramsTheRecordsPresentResultAndLeavesTheTable)
{
    add_flow(1);
    flow_record *record = add_flow(9);
    record->result[0] = 0x99;
    const flow_record before = *record;
    forget();
    EXPECT_EQ(flowdb_modify(table, record), 0u);
    EXPECT_EQ(services.names(), Lines(3, "prm_srh_flow_db_mod"));
    EXPECT_EQ(platform.requests.at(0).record.result[0], 0x99);
    EXPECT_EQ(memcmp(record, &before, sizeof before), 0);
    EXPECT_EQ(table->count, 2u);
    EXPECT_EQ(found(9), record);
}

TEST_F(FlowChangeTest, AModifyOfARecordThatIsInNoTableIsProgrammedToo)
{
    flow_record record = make(0, 1, 9);
    EXPECT_EQ(flowdb_modify(table, &record), 0u);
    EXPECT_EQ(nps(), std::vector<uint32_t>{1});
    EXPECT_EQ(table->count, 0u);
}

TEST_F(FlowChangeTest, AModifyReturnsPrmsCode)
{
    flow_record *record = add_flow(9);
    services.force("prm_srh_flow_db_mod", 0xABC);
    EXPECT_EQ(flowdb_modify(table, record), 0xABCu);
    EXPECT_EQ(found(9), record);
}

TEST_F(FlowChangeTest, WithoutARecordAModifyIs22)
{
    EXPECT_EQ(flowdb_modify(table, nullptr), 22u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(log(), Lines{"record is NULL in inline_flow_db_update_prm"});
}

// ---- delete ------------------------------------------------------------------------------------

TEST_F(FlowChangeTest, ADeletedFlowIsOffTheNpsAndThenOutOfTheTableButNotFreed)
{
    add_flow(1);
    flow_record *record = add_flow(9);
    const uint64_t used = bytes();
    std::vector<bool> was_there;
    platform.also = [&](const vlc::ServiceCall &) { was_there.push_back(table->count == 2); };
    forget();
    EXPECT_EQ(flowdb_delete(table, record), 0u);
    EXPECT_EQ(was_there, std::vector<bool>(9, true));
    EXPECT_EQ(services.count("prm_srh_flow_db_del"), 3u);
    EXPECT_EQ(services.count("prm_stats_cl_free"), 3u);
    EXPECT_EQ(services.count("shmwin_free"), 0u);
    EXPECT_EQ(bytes(), used);
    EXPECT_EQ(found(9), nullptr);
    EXPECT_NE(found(1), nullptr);
    EXPECT_EQ(table->count, 1u);
    EXPECT_EQ(flowdb_free(record), 0u);
}

TEST_F(FlowChangeTest, ADeletedFlowIsOutOfTheTableWhateverTheHardwareSays)
{
    const std::pair<const char *, uint32_t> cases[] = {{"plm_dpss_get_stats_tbl_id", 22},
                                                       {"prm_stats_cl_free", 0xABC}};
    for (const auto &[service, code] : cases) {
        flow_record *record = add_flow(9);
        services.force(service, code == 22 ? 0 : code);
        forget();
        EXPECT_EQ(flowdb_delete(table, record), code);
        EXPECT_EQ(found(9), nullptr);
        EXPECT_EQ(table->count, 0u);
        EXPECT_EQ(log_count(std::string(update_failed) + "abc"), 0u) << "said of adds alone";
        services.stop_forcing();
    }
}

TEST_F(FlowChangeTest, ADeletedFlowIsOutOfTheTableAlsoWithoutAContext)
{
    flow_record *record = add_flow(9);
    pgbl_ptr = nullptr;
    EXPECT_EQ(flowdb_delete(table, record), 22u);
    EXPECT_EQ(table->count, 0u);
}

TEST_F(FlowChangeTest, ADeleteUnlinksTheNewestRecordWithTheKey)
{
    flow_record *older = add_flow(5);
    add_flow(5);
    EXPECT_EQ(flowdb_delete(table, older), 0u);
    EXPECT_EQ(found(5), older);
    EXPECT_EQ(table->count, 1u);
}

TEST_F(FlowChangeTest, WithoutTableOrRecordADeleteIs22AndNothingIsProgrammed)
{
    flow_record *record = add_flow(9);
    forget();
    EXPECT_EQ(flowdb_delete(nullptr, record), 22u);
    EXPECT_EQ(flowdb_delete(table, nullptr), 22u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(found(9), record);
    EXPECT_EQ(log(), (Lines{"table is NULL in flowdb_delete", "record is NULL in flowdb_delete"}));
}

} // namespace
