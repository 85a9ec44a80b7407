// Programming a flow into its NPs: what does not depend on where its counters come from.
#include "flow_fixture.h"

using namespace test;

namespace {

struct Variant {
    const char *name; // as part of a test's name
    uint32_t (*update)(uint32_t action, flow_record *record);
    const char *function;
};

uint32_t update_with_dynamic_counters(uint32_t action, flow_record *record)
{
    return inline_flow_db_update_prm(action, record, 0);
}

const Variant variants[] = {
    {"WithDynamicCounters", update_with_dynamic_counters, "inline_flow_db_update_prm"},
    {"WithCountersOfThePool", inline_flow_update_prm, "inline_flow_update_prm"}};

// What an action calls and says for one NP of a flow without statistics.
struct Action {
    uint32_t action;
    const char *service;
    uint32_t refnum;
    const char *np_line; // in front of the NP
    const char *call_line;
};
const Action actions[] = {
    {1, "prm_srh_flow_db_add", 0x001, "flow_prm_add: npnum ", nullptr},
    {2, "prm_srh_flow_db_mod", 0x101, "flow_prm_modify: npnum ", "prm_update: modify called\n"},
    {3, "prm_srh_flow_db_del", 0x201, "flow_prm_del: npnum ", "prm_update: delete called\n"}};

class FlowUpdateTest : public FlowTest, public testing::WithParamInterface<Variant> {
protected:
    uint32_t update(uint32_t action, flow_record &record)
    {
        return GetParam().update(action, &record);
    }
    bool is_dynamic() const { return GetParam().update == update_with_dynamic_counters; }

    // Lines and calls of one NP, in order.
    Lines steps_of(const Action &action, uint32_t np) const
    {
        Lines steps = {action.np_line + std::to_string(np) + "\n"};
        if (action.call_line != nullptr)
            steps.emplace_back(action.call_line);
        steps.emplace_back(action.service);
        if (action.action == FLOW_DELETE && is_dynamic()) {
            steps.emplace_back("plm_dpss_get_stats_tbl_id");
            steps.emplace_back("prm_stats_cl_free");
        }
        return steps;
    }
    // 22 and one line, with nobody called and the record as it was.
    void expect_refused(uint32_t action, flow_record record, const Lines &lines)
    {
        const flow_record before = record;
        forget();
        EXPECT_EQ(update(action, record), 22u);
        EXPECT_EQ(log(), lines);
        EXPECT_EQ(services.names(), Lines{});
        EXPECT_EQ(memcmp(&record, &before, sizeof before), 0);
    }
};

INSTANTIATE_TEST_SUITE_P(Flows, FlowUpdateTest, testing::ValuesIn(variants),
                         [](const auto &row) { return row.param.name; });

// ---- NPs, requests, order ----------------------------------------------------------------------

TEST_P(FlowUpdateTest, AFlowOfAllNpsIsOneRequestForEachAscendingWithItsLines)
{
    for (const Action &action : actions) {
        flow_record record = make(FLOW_ON_ALL_NPS, 7);
        start_transcript();
        EXPECT_EQ(update(action.action, record), 0u);
        EXPECT_EQ(transcript(), joined({{begins(record, std::to_string(action.action), "0", "2")},
                                        steps_of(action, 0),
                                        steps_of(action, 1),
                                        steps_of(action, 2)}));
        EXPECT_EQ(nps(), (std::vector<uint32_t>{0, 1, 2}));
    }
}

TEST_P(FlowUpdateTest, AFlowOfOneNpIsOneRequest)
{
    for (const Action &action : actions) {
        for (const uint8_t np : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
            flow_record record = make(0, np);
            const std::string text = std::to_string(np);
            start_transcript();
            EXPECT_EQ(update(action.action, record), 0u);
            EXPECT_EQ(transcript(),
                      joined({{begins(record, std::to_string(action.action), text, text)},
                              steps_of(action, np)}));
            EXPECT_EQ(nps(), std::vector<uint32_t>{np});
        }
    }
}

TEST_P(FlowUpdateTest, AFlowsOneNpIsNotHeldAgainstTheNumberOfNps)
{
    for (const Action &action : actions) {
        flow_record record = make(0, 200);
        forget();
        EXPECT_EQ(update(action.action, record), 0u);
        EXPECT_EQ(nps(), std::vector<uint32_t>{200});
    }
}

TEST_P(FlowUpdateTest, TheNumberOfNpsIsTheContextsAtTheTimeOfTheCall)
{
    context.num_nps = 1;
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(update(FLOW_ADD, record), 0u);
    EXPECT_EQ(nps(), std::vector<uint32_t>{0});
}

TEST_P(FlowUpdateTest, ARequestIsTheRecordsEntryWithNpAndOperation)
{
    for (const Action &action : actions) {
        flow_record record = make(FLOW_ON_ALL_NPS);
        forget();
        update(action.action, record);
        ASSERT_EQ(platform.requests.size(), 3u);
        for (uint32_t np = 0; np < 3; ++np) {
            prm_config_record expected;
            inline_flow_make_prm_entry(&record, &expected);
            expected.np = np;
            expected.refnum = action.refnum;
            const FlowRequest &request = platform.requests[np];
            EXPECT_EQ(request.service, action.service);
            EXPECT_EQ(memcmp(&request.record, &expected, sizeof expected), 0);
        }
    }
}

TEST_P(FlowUpdateTest, RequestsGoToTheHandleOfTheContextsRoot)
{
    static shadow_db other; // outlives the context that names it
    other = *root;
    other.prm_srh_hdl = reinterpret_cast<void *>(0x123456789A);
    context.shadow_db = &other;
    for (const Action &action : actions) {
        flow_record record = make(0);
        forget();
        update(action.action, record);
        EXPECT_EQ(platform.requests.at(0).handle, 0x123456789Au);
    }
}

TEST_P(FlowUpdateTest, OtherBitsOfTheFlagsMeanNothing)
{
    flow_record record = make(0xFFFFFFFC, 1);
    start_transcript();
    EXPECT_EQ(update(FLOW_ADD, record), 0u);
    EXPECT_EQ(transcript(), (Lines{begins(record, "1", "1", "1"), "flow_prm_add: npnum 1\n",
                                   "prm_srh_flow_db_add"}));
}

// ---- the codes of requests ---------------------------------------------------------------------

TEST_P(FlowUpdateTest, AnAddThatFailsOnAnNpIsLoggedAndTheNextNpIsTried)
{
    services.script("prm_srh_flow_db_add", refused_on(0, 0x2A));
    flow_record record = make(FLOW_ON_ALL_NPS);
    start_transcript();
    EXPECT_EQ(update(FLOW_ADD, record), 0u);
    EXPECT_EQ(
        transcript(),
        (Lines{begins(record, "1", "0", "2"), "flow_prm_add: npnum 0\n", "prm_srh_flow_db_add",
               "Error in prm_srh_ext_service_db_add(), rc: 0x2a", "flow_prm_add: npnum 1\n",
               "prm_srh_flow_db_add", "flow_prm_add: npnum 2\n", "prm_srh_flow_db_add"}));
}

TEST_P(FlowUpdateTest, TheCodeOfAnAddIsThatOfTheLastNp)
{
    services.script("prm_srh_flow_db_add", refused_on(2, 0xDEADBEEF));
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(update(FLOW_ADD, record), 0xDEADBEEF);
    EXPECT_EQ(log().back(), "Error in prm_srh_ext_service_db_add(), rc: 0xdeadbeef");
    EXPECT_EQ(log_count("Error in prm_srh_ext_service_db_add(), rc: 0xdeadbeef"), 1u);
}

TEST_P(FlowUpdateTest, AnAddThatFailsOnEveryNpIsLoggedForEach)
{
    services.force("prm_srh_flow_db_add", 5);
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(update(FLOW_ADD, record), 5u);
    EXPECT_EQ(log_count("Error in prm_srh_ext_service_db_add(), rc: 0x5"), 3u);
    EXPECT_EQ(nps(), (std::vector<uint32_t>{0, 1, 2}));
}

TEST_P(FlowUpdateTest, TheCodeOfAModifyIsThatOfTheLastNpAndOthersAreNotLookedAt)
{
    services.script("prm_srh_flow_db_mod", refused_on(0, 5));
    flow_record record = make(FLOW_ON_ALL_NPS);
    EXPECT_EQ(update(FLOW_MODIFY, record), 0u);
    EXPECT_EQ(nps(), (std::vector<uint32_t>{0, 1, 2}));
    services.script("prm_srh_flow_db_mod", refused_on(2, 7));
    EXPECT_EQ(update(FLOW_MODIFY, record), 7u);
}

TEST_P(FlowUpdateTest, AModifyOrDeleteThatFailsIsNotLogged)
{
    for (const Action &action : {actions[1], actions[2]}) {
        services.force(action.service, 5);
        flow_record record = make(0, 1);
        forget();
        update(action.action, record);
        Lines lines = {begins(record, std::to_string(action.action), "1", "1")};
        lines.push_back(std::string(action.np_line) + "1\n");
        lines.emplace_back(action.call_line);
        EXPECT_EQ(log(), lines);
    }
}

// ---- the stored counter in a modify and a delete -----------------------------------------------

TEST_P(FlowUpdateTest, AModifyOrDeleteCarriesThreeBytesOfTheStoredCounterAtResultByte1)
{
    for (const Action &action : {actions[1], actions[2]}) {
        flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
        record.counter[0] = 0x44332211;
        record.counter[1] = 0x88776655;
        record.counter[2] = 0xCCBBAA99;
        forget();
        update(action.action, record);
        ASSERT_EQ(platform.requests.size(), 3u);
        EXPECT_EQ(platform.requests[0].result(0, 6),
                  (std::vector<uint8_t>{0x10, 0x22, 0x33, 0x44, 0x14, 0x15}));
        EXPECT_EQ(platform.requests[1].result(0, 6),
                  (std::vector<uint8_t>{0x10, 0x66, 0x77, 0x88, 0x14, 0x15}));
        EXPECT_EQ(platform.requests[2].result(0, 6),
                  (std::vector<uint8_t>{0x10, 0xAA, 0xBB, 0xCC, 0x14, 0x15}));
    }
}

TEST_P(FlowUpdateTest, WithoutStatisticsTheResultIsTheRecords)
{
    for (const Action &action : actions) {
        flow_record record = make(FLOW_ON_ALL_NPS);
        for (uint32_t &counter : record.counter)
            counter = 0x44332211;
        forget();
        update(action.action, record);
        ASSERT_EQ(platform.requests.size(), 3u);
        for (const FlowRequest &request : platform.requests)
            EXPECT_EQ(request.result(0, 6),
                      (std::vector<uint8_t>{0x10, 0x11, 0x12, 0x13, 0x14, 0x15}));
    }
}

TEST_P(FlowUpdateTest, TheCountersOfAnEntryAreWrittenAlsoBehindAShortResult)
{
    flow_record record = make(FLOW_HAS_STATS);
    record.result_len = 0;
    record.counter[0] = 0x44332211;
    update(FLOW_MODIFY, record);
    EXPECT_EQ(platform.requests.at(0).record.result_len, 0u);
    EXPECT_EQ(platform.requests.at(0).result(0, 5), (std::vector<uint8_t>{0, 0x22, 0x33, 0x44, 0}));
}

TEST_P(FlowUpdateTest, TheRecordsOwnResultIsNeverWritten)
{
    for (const Action &action : actions) {
        flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
        const flow_record before = record;
        update(action.action, record);
        EXPECT_EQ(memcmp(record.result, before.result, sizeof record.result), 0);
        EXPECT_EQ(memcmp(record.key, before.key, sizeof record.key), 0);
    }
}

TEST_P(FlowUpdateTest, AnNpPastTheEighthHasNoStoredCounter)
{
    flow_record record = make(FLOW_HAS_STATS, 8);
    for (uint32_t &counter : record.counter)
        counter = 0x44332211;
    for (uint32_t &counter : record.drop_counter)
        counter = 0x44332211;
    record.reserved_300 = 0x44332211;
    const flow_record before = record;
    EXPECT_EQ(update(FLOW_MODIFY, record), 0u);
    EXPECT_EQ(update(FLOW_DELETE, record), 0u);
    for (const FlowRequest &request : platform.requests)
        EXPECT_EQ(request.result(0, 5), (std::vector<uint8_t>{0x10, 0, 0, 0, 0x14}));
    EXPECT_EQ(platform.requests.size(), 2u);
    EXPECT_EQ(memcmp(&record, &before, sizeof before), 0);
}

TEST_P(FlowUpdateTest, AnAddWithStatisticsOnAnNpPastTheEighthIs22)
{
    for (const uint8_t np : {uint8_t{8}, uint8_t{255}}) {
        const std::string text = std::to_string(np);
        flow_record record = make(FLOW_HAS_STATS, np);
        const flow_record before = record;
        forget();
        EXPECT_EQ(update(FLOW_ADD, record), 22u);
        EXPECT_EQ(log(),
                  (Lines{begins(record, "1", text, text), "flow_prm_add: npnum " + text + "\n",
                         "flow_prm_add: npnum " + text + " has no counters"}));
        EXPECT_EQ(services.names(), Lines{});
        EXPECT_EQ(memcmp(&record, &before, sizeof before), 0);
    }
}

TEST_P(FlowUpdateTest, AnAddWithoutStatisticsOnAnNpPastTheEighthIsProgrammed)
{
    flow_record record = make(0, 8);
    EXPECT_EQ(update(FLOW_ADD, record), 0u);
    EXPECT_EQ(nps(), std::vector<uint32_t>{8});
}

// ---- what is refused ---------------------------------------------------------------------------

TEST_P(FlowUpdateTest, AnUnknownActionIs22AfterTheFirstLine)
{
    const std::pair<uint32_t, const char *> cases[] = {
        {0, "0"}, {4, "4"}, {0x101, "257"}, {0xFFFFFFFF, "-1"}};
    for (const auto &[action, text] : cases) {
        flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
        forget();
        EXPECT_EQ(update(action, record), 22u);
        EXPECT_EQ(log(), Lines{begins(record, text, "0", "2")});
        EXPECT_EQ(services.names(), Lines{});
    }
}

TEST_P(FlowUpdateTest, AFlowOfAllNpsOnACardWithoutNpsIs22AfterTheFirstLine)
{
    context.num_nps = 0;
    for (const Action &action : actions) {
        flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
        forget();
        EXPECT_EQ(update(action.action, record), 22u);
        EXPECT_EQ(log(), Lines{begins(record, std::to_string(action.action), "0", "-1")});
        EXPECT_EQ(services.names(), Lines{});
    }
}

TEST_P(FlowUpdateTest, AFlowOfOneNpNeedsNoNumberOfNps)
{
    context.num_nps = 0;
    flow_record record = make(0, 1);
    EXPECT_EQ(update(FLOW_ADD, record), 0u);
    EXPECT_EQ(nps(), std::vector<uint32_t>{1});
}

TEST_P(FlowUpdateTest, LengthsThatTheRecordHasNoRoomForAre22)
{
    for (const Action &action : actions) {
        flow_record record = make(FLOW_HAS_STATS | FLOW_ON_ALL_NPS);
        record.key_len = 33;
        expect_refused(action.action, record, {"flow too long: key 33 result 32"});
        record.key_len = 32;
        record.result_len = 37;
        expect_refused(action.action, record, {"flow too long: key 32 result 37"});
    }
}

TEST_P(FlowUpdateTest, WithoutARecordItIs22)
{
    for (const Action &action : actions) {
        forget();
        EXPECT_EQ(GetParam().update(action.action, nullptr), 22u);
        EXPECT_EQ(log(), Lines{std::string("record is NULL in ") + GetParam().function});
        EXPECT_EQ(services.names(), Lines{});
    }
}

TEST_P(FlowUpdateTest, WithoutAContextItIs22)
{
    pgbl_ptr = nullptr;
    for (const Action &action : actions)
        expect_refused(action.action, make(0),
                       {std::string("pgbl_ptr is NULL in ") + GetParam().function});
}

TEST_P(FlowUpdateTest, WithoutTheContextsRootItIs22)
{
    context.shadow_db = nullptr;
    for (const Action &action : actions)
        expect_refused(action.action, make(0),
                       {std::string("pgbl_ptr->shadow_db is NULL in ") + GetParam().function});
}

} // namespace
