// A table update when PRM or the counters fail on some NPs: nothing is rolled back, the other NPs
// are still programmed, and the last NP decides what the caller hears.

#include "prm_table_fixture.h"

namespace test {
namespace {

constexpr uint32_t nps = 3;

class PrmTableFailure : public PrmTableTest {
protected:
    PrmTableFailure() : PrmTableTest(nps) {}

    // The lines that name the operation's outcome, in order.
    std::vector<std::string> outcomes(const PrmOperation &operation) const
    {
        std::vector<std::string> found;
        for (const std::string &line : log())
            if (line == operation.succeeded || line == operation.failed_with_5)
                found.push_back(line);
        return found;
    }
    std::vector<std::string> outcomes_with_failure_at(const PrmOperation &operation,
                                                      uint32_t np) const
    {
        std::vector<std::string> expected(nps, operation.succeeded);
        expected[np] = operation.failed_with_5;
        return expected;
    }
};

INSTANTIATE_TEST_SUITE_P(BothTables, PrmTableFailure, ::testing::ValuesIn(prm_tables()),
                         table_name);

// ---- PRM refuses -------------------------------------------------------------------------------

TEST_P(PrmTableFailure, AnAddThatFailsOnOneNpGoesOnAndTheLastNpDecides)
{
    for (uint32_t np = 0; np < nps; ++np) {
        shmem_node node = make(1, "key" + std::to_string(np));
        requests.answer_np(np, 5);
        start_watching();
        EXPECT_EQ(update(node), np == nps - 1 ? 5u : 0u) << "NP " << np;
        EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2}));
        EXPECT_EQ(outcomes(table().add), outcomes_with_failure_at(table().add, np));
    }
}

TEST_P(PrmTableFailure, AModifyThatFailsOnOneNpGoesOnAndTheLastNpDecides)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    for (uint32_t np = 0; np < nps; ++np) {
        requests.answer_np(np, 5);
        start_watching();
        EXPECT_EQ(update(node, 2), np == nps - 1 ? 5u : 0u) << "NP " << np;
        EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2}));
        EXPECT_EQ(log(), (std::vector<std::string>{
                             table().modify.entered,
                             np == 0 ? table().modify.failed_with_5 : table().modify.succeeded,
                             np == 1 ? table().modify.failed_with_5 : table().modify.succeeded,
                             np == 2 ? table().modify.failed_with_5 : table().modify.succeeded}));
    }
}

TEST_P(PrmTableFailure, ADeleteThatFailsIsHiddenByTheLastFreeOfACounter)
{
    for (uint32_t np = 0; np < nps; ++np) {
        shmem_node node = make(1, "key" + std::to_string(np));
        ASSERT_EQ(update(node), 0u);
        requests.answer_np(np, 5);
        start_watching();
        EXPECT_EQ(update(node, 3), 0u) << "NP " << np;
        EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2}));
        EXPECT_EQ(outcomes(table().remove), outcomes_with_failure_at(table().remove, np));
    }
}

TEST_P(PrmTableFailure, CountersAreFreedEvenWhenEveryDeleteFails)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    requests.answer_all(5);
    start_watching();
    EXPECT_EQ(update(node, 3), 0u);
    EXPECT_EQ(outcomes(table().remove),
              (std::vector<std::string>(nps, table().remove.failed_with_5)));
    for (uint32_t np = 0; np < nps; ++np)
        EXPECT_EQ(root->counters[np][0], 0u);
}

TEST_P(PrmTableFailure, CountersTakenForAFailedAddStayTaken)
{
    shmem_node node = make(1);
    requests.answer_all(5);
    EXPECT_EQ(update(node), 5u);
    for (uint32_t np = 0; np < nps; ++np)
        EXPECT_EQ(root->counters[np][0], 0xC0000000u);
}

TEST_P(PrmTableFailure, ARequestOnAnNpThatSucceededIsNotTakenBack)
{
    shmem_node node = make(1);
    requests.answer_np(2, 5);
    EXPECT_EQ(update(node), 5u);
    const auto kind = static_cast<vlc::TableKind>(table().table_type);
    EXPECT_EQ(card->nps()[0].table(kind).size(), 1u);
    EXPECT_EQ(card->nps()[1].table(kind).size(), 1u);
    EXPECT_EQ(card->nps()[2].table(kind).size(), 0u);
}

TEST_P(PrmTableFailure, ACodeAboveTheSignedRangeIsShownNegative)
{
    shmem_node node = make(2);
    requests.answer_all(0xFFFFFFFB);
    start_watching();
    EXPECT_EQ(update(node), 0xFFFFFFFBu);
    const std::string name = table().table_type == 0 ? "SVC CONF" : "SVC EXT_DB";
    EXPECT_EQ(log().at(1), name + " modification failed:  rc=Unknown error 0xfffffffb (-5)");
}

TEST_P(PrmTableFailure, ABrokenConnectionFailsEveryNp)
{
    shmem_node node = make(1);
    card->prm().go_down();
    start_watching();
    EXPECT_EQ(update(node), 0x257C5403u);
    const std::string name = table().table_type == 0 ? "SVC CONF" : "SVC EXT_DB";
    EXPECT_EQ(log_count(name + " add failed:  rc=PRM: not connected (628904963)"), nps);
}

// ---- counters cannot be taken ------------------------------------------------------------------

TEST_P(PrmTableFailure, WithoutFreeCountersTheEntryIsAddedWithWhatTheIndexesHold)
{
    shmem_node node = make(1);
    for (uint32_t np = 0; np < nps; ++np) {
        memset(root->counters[np], 0xFF, 65536 / 8 + 4);
        node.stat_index_rx[np] = 0xC01234;
        node.stat_index_drop[np] = 0xC05678;
    }
    start_watching();
    EXPECT_EQ(update(node), 0u);
    ASSERT_EQ(requests.all().size(), nps);
    EXPECT_EQ(std::string(requests.all()[0].record.result, requests.all()[0].record.result + 10),
              "0\xC0\x12\x34"
              "456789");
    EXPECT_EQ(node.stat_index_drop[0], 0xC05678u);
    std::vector<std::string> expected = {table().add.entered};
    for (uint32_t np = 0; np < nps; ++np) {
        const std::string rx = std::string(table().rx_taken) + "c01234";
        const std::string drop = std::string(table().drop_taken) + "c05678";
        for (const std::string &line :
             {std::string("max_long_counter 10000"), std::string("counter_start c00000"),
              std::string("No free long counters available"), rx,
              std::string(table().rx_refused_with_12), std::string("max_long_counter 10000"),
              std::string("counter_start c00000"), std::string("No free long counters available"),
              std::string(table().drop_refused_with_12), drop, std::string(table().add.succeeded)})
            expected.push_back(line);
    }
    EXPECT_EQ(log(), expected);
}

TEST_P(PrmTableFailure, WhenOnlyTheDropCounterIsMissingTheReceivedOneIsStillEncoded)
{
    shmem_node node = make(1);
    memset(root->counters[0], 0xFF, 65536 / 8 + 4);
    root->counters[0][0] = 0xFFFFFFFE; // the 32nd is free
    start_watching();
    EXPECT_EQ(update(node), 0u);
    EXPECT_EQ(node.stat_index_rx[0], 0x1F00C0u);
    EXPECT_EQ(node.stat_index_drop[0], 0u);
    EXPECT_EQ(
        std::count(requests.all()[0].record.result, requests.all()[0].record.result + 4, 0x1F), 1);
    EXPECT_EQ(log_count(std::string(table().rx_taken) + "c0001f"), 1u);
    EXPECT_EQ(log_count(table().drop_refused_with_12), 1u);
    EXPECT_EQ(log_count(std::string(table().drop_taken) + "0"), 1u);
}

TEST_P(PrmTableFailure, WhenOnlyTheReceivedCounterIsMissingTheDropOneIsStillTaken)
{
    shmem_node node = make(1);
    root->counters[0][0] = 0xFFFFFFFF;
    services.force("prm_stats_cl_get_stateless_double_size", 0, 1, 1); // one word, and it is full
    start_watching();
    EXPECT_EQ(update(node), 0u);
    EXPECT_EQ(node.stat_index_rx[0], 0u);
    EXPECT_EQ(node.stat_index_drop[0], 0xC00020u);
    EXPECT_EQ(log_count(std::string(table().rx_taken) + "0"), 1u);
    EXPECT_EQ(log_count(table().rx_refused_with_12), 1u);
    EXPECT_EQ(log_count(std::string(table().drop_taken) + "c00020"), 1u);
    EXPECT_EQ(requests.all()[0].record.result[1], 0u);
}

TEST_P(PrmTableFailure, ANpWithoutBitmapGivesNoCountersAndIsProgrammedAllTheSame)
{
    shmem_node node = make(1);
    root->counters[1] = nullptr;
    start_watching();
    EXPECT_EQ(update(node), 0u);
    EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(log_count("Shared memory context NULL"), 2u);
    EXPECT_EQ(node.stat_index_rx[1], 0u);
    EXPECT_EQ(node.stat_index_drop[1], 0u);
    EXPECT_EQ(node.stat_index_drop[2], 0xC00001u);
}

TEST_P(PrmTableFailure, ACounterThatCannotBeClearedIsTakenAndEncoded)
{
    shmem_node node = make(1);
    services.force("prm_stats_cl_read", 5);
    start_watching();
    EXPECT_EQ(update(node), 0u);
    EXPECT_EQ(log_count("prm stats write failed (Input/output error)"), 2 * nps);
    EXPECT_EQ(node.stat_index_drop[2], 0xC00001u);
}

// ---- counters cannot be given back -------------------------------------------------------------

TEST_P(PrmTableFailure, TheLastNpsDropCounterDecidesWhatADeleteReturns)
{
    for (uint32_t np = 0; np < nps; ++np) {
        shmem_node node = make(1, "key" + std::to_string(np));
        ASSERT_EQ(update(node), 0u);
        node.stat_index_drop[np] = 1;
        start_watching();
        EXPECT_EQ(update(node, 3), np == nps - 1 ? 22u : 0u) << "NP " << np;
        EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2}));
        EXPECT_EQ(log_count(" stats ptr 1 out of bounds, start:12582912, max:12648448"), 1u);
        EXPECT_EQ(log_count(table().free_refused_with_22), 1u);
    }
}

TEST_P(PrmTableFailure, AReceivedCounterThatIsNotFreedIsHiddenByTheDropCounter)
{
    shmem_node node = make(3);
    for (uint32_t np = 0; np < nps; ++np) {
        node.stat_index_rx[np] = 0x030201;
        node.stat_index_drop[np] = 0xC00000;
    }
    requests.answer_all(0);
    start_watching();
    EXPECT_EQ(update(node), 0u);
    std::vector<std::string> expected = {table().remove.entered};
    for (uint32_t np = 0; np < nps; ++np) {
        expected.push_back(table().remove.succeeded);
        expected.push_back(" stats ptr 66051 out of bounds, start:12582912, max:12648448");
        expected.push_back(table().free_refused_with_22);
    }
    EXPECT_EQ(log(), expected);
}

TEST_P(PrmTableFailure, BothCountersThatCannotBeFreedAreSaidOneAfterTheOther)
{
    shmem_node node = make(3);
    requests.answer_all(5);
    start_watching();
    EXPECT_EQ(update(node), 22u);
    std::vector<std::string> expected = {table().remove.entered};
    for (uint32_t np = 0; np < nps; ++np) {
        expected.push_back(table().remove.failed_with_5);
        for (uint32_t counter = 0; counter < 2; ++counter) {
            expected.push_back(" stats ptr 0 out of bounds, start:12582912, max:12648448");
            expected.push_back(table().free_refused_with_22);
        }
    }
    EXPECT_EQ(log(), expected);
}

// ---- more NPs than a node has room for ---------------------------------------------------------

class PrmTableBeyondEightNps : public PrmTableTest {
protected:
    PrmTableBeyondEightNps() : PrmTableTest(8)
    {
        context.num_nps = 10;
        NUM_LC_NPS = 10;
        requests.answer_all(0);
    }
};
INSTANTIATE_TEST_SUITE_P(BothTables, PrmTableBeyondEightNps, ::testing::ValuesIn(prm_tables()),
                         table_name);

TEST_P(PrmTableBeyondEightNps, AnAddProgramsThemAllWithoutCountersPastTheEighth)
{
    shmem_node node = make(1);
    node.reserved_240 = 0x1122334455667788;
    start_watching();
    EXPECT_EQ(update(node), 0u);
    EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    for (uint32_t np = 8; np < 10; ++np)
        EXPECT_EQ(
            std::string(requests.all()[np].record.result, requests.all()[np].record.result + 10),
            std::string("0\0\0\0"
                        "456789",
                        10));
    EXPECT_EQ(node.stat_index_drop[0], 0xC00001u) << "the array in front of it starts whole";
    EXPECT_EQ(node.reserved_240, 0x1122334455667788u) << "what follows the arrays is untouched";
    EXPECT_EQ(node.stat_index_rx[7], 0x0000C0u);
}

TEST_P(PrmTableBeyondEightNps, AnAddSaysForEachCounterThatTheNpIsOutOfBounds)
{
    shmem_node node = make(1);
    start_watching();
    EXPECT_EQ(update(node), 0u);
    const std::vector<std::string> lines = log();
    ASSERT_GE(lines.size(), 7u);
    EXPECT_EQ(std::vector<std::string>(lines.end() - 7, lines.end()),
              (std::vector<std::string>{
                  "NP id out of bounds", std::string(table().rx_taken) + "0",
                  table().rx_refused_with_22, "NP id out of bounds", table().drop_refused_with_22,
                  std::string(table().drop_taken) + "0", table().add.succeeded}));
    EXPECT_EQ(log_count("NP id out of bounds"), 4u);
}

TEST_P(PrmTableBeyondEightNps, AModifyProgramsThemAll)
{
    shmem_node node = make(2);
    node.reserved_240 = 0x1122334455667788;
    node.stat_index_drop[0] = 0xC05678;
    EXPECT_EQ(update(node), 0u);
    EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(node.stat_index_drop[0], 0xC05678u);
    EXPECT_EQ(node.reserved_240, 0x1122334455667788u);
}

TEST_P(PrmTableBeyondEightNps, ADeleteReachesThemAllAndReturnsTheLastRefusedFree)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    start_watching();
    EXPECT_EQ(update(node, 3), 22u);
    EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
    EXPECT_EQ(log_count("NP id out of bounds"), 4u);
    EXPECT_EQ(log_count(table().free_refused_with_22), 4u);
    for (uint32_t np = 0; np < 8; ++np)
        EXPECT_EQ(root->counters[np][0], 0u);
}

TEST_P(PrmTableBeyondEightNps, TheLastNpsRequestDecidesWhatAnAddReturns)
{
    shmem_node node = make(1);
    requests.answer_all(5);
    EXPECT_EQ(update(node), 5u);
}

} // namespace
} // namespace test
