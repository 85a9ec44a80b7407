// Programming one entry into a table of every NP: what PRM is given and what is said of it.

#include "prm_table_fixture.h"

namespace test {
namespace {

using Bytes = std::vector<uint8_t>;

// The record's 636 bytes, put together by hand.
class RecordBytes {
public:
    RecordBytes() : bytes_(636) {}
    RecordBytes &word(size_t offset, uint32_t value)
    {
        for (size_t i = 0; i < 4; ++i)
            bytes_.at(offset + i) = static_cast<uint8_t>(value >> (8 * i));
        return *this;
    }
    RecordBytes &text(size_t offset, const std::string &text)
    {
        for (size_t i = 0; i < text.size(); ++i)
            bytes_.at(offset + i) = static_cast<uint8_t>(text[i]);
        return *this;
    }
    operator const Bytes &() const { return bytes_; }

private:
    Bytes bytes_;
};

Bytes bytes_of(const prm_config_record &record)
{
    Bytes bytes(sizeof record);
    memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

// The record of the entry that these tests send: "key" with ten bytes of result.
Bytes record_bytes(uint32_t np, uint32_t refnum, const std::string &result)
{
    return RecordBytes()
        .word(0, np)
        .word(4, 4)
        .word(8, refnum)
        .word(12, 3)
        .word(16, 0)
        .text(20, "key")
        .word(120, 10)
        .text(124, result);
}

using PrmTableUpdate = PrmTableTest;

INSTANTIATE_TEST_SUITE_P(BothTables, PrmTableUpdate, ::testing::ValuesIn(prm_tables()), table_name);

// ---- the record --------------------------------------------------------------------------------

TEST_P(PrmTableUpdate, AnAddSendsTheEntryWithItsCounterToEveryNpInOrder)
{
    use_counters_below(0x1234);
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);

    ASSERT_EQ(requests.all().size(), 2u);
    for (uint32_t np = 0; np < 2; ++np) {
        const PrmRequest &request = requests.all()[np];
        EXPECT_EQ(request.service, table().add.service);
        EXPECT_EQ(request.handle, root->prm_srh_hdl);
        EXPECT_EQ(bytes_of(request.record), record_bytes(np, table().add.refnum,
                                                         "0\xC0\x12\x34"
                                                         "456789"))
            << "NP " << np;
    }
}

TEST_P(PrmTableUpdate, AModifySendsTheNewResultWithTheCounterInIt)
{
    use_counters_below(0x1234);
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    ASSERT_EQ(update(node, 2), 0u); // puts the stored order right again
    memcpy(node.app_node.result, "abcdefghij", 10);
    start_watching();
    ASSERT_EQ(update(node, 2), 0u);

    ASSERT_EQ(requests.all().size(), 2u);
    for (uint32_t np = 0; np < 2; ++np) {
        const PrmRequest &request = requests.all()[np];
        EXPECT_EQ(request.service, table().modify.service);
        EXPECT_EQ(request.handle, root->prm_srh_hdl);
        EXPECT_EQ(bytes_of(request.record), record_bytes(np, table().modify.refnum,
                                                         "a\xC0\x12\x34"
                                                         "efghij"))
            << "NP " << np;
    }
}

TEST_P(PrmTableUpdate, ADeleteSendsTheResultWithTheCounterInIt)
{
    use_counters_below(0x1234);
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    ASSERT_EQ(update(node, 2), 0u);
    start_watching();
    ASSERT_EQ(update(node, 3), 0u);

    ASSERT_EQ(requests.all().size(), 2u);
    for (uint32_t np = 0; np < 2; ++np) {
        const PrmRequest &request = requests.all()[np];
        EXPECT_EQ(request.service, table().remove.service);
        EXPECT_EQ(request.handle, root->prm_srh_hdl);
        EXPECT_EQ(bytes_of(request.record), record_bytes(np, table().remove.refnum,
                                                         "0\xC0\x12\x34"
                                                         "456789"))
            << "NP " << np;
    }
}

TEST_P(PrmTableUpdate, AFullKeyAndAFullResultAreSentWhole)
{
    const std::string key(48, 'k');
    std::string result(64, 'r');
    shmem_node node = make(1, key, result);
    ASSERT_EQ(update(node), 0u);

    result.replace(1, 3, std::string("\xC0\x00\x00", 3));
    ASSERT_EQ(requests.all().size(), 2u);
    const Bytes expected = RecordBytes()
                               .word(0, 1)
                               .word(4, 4)
                               .word(8, table().add.refnum)
                               .word(12, 48)
                               .text(20, key)
                               .word(120, 64)
                               .text(124, result);
    EXPECT_EQ(bytes_of(requests.all()[1].record), expected);
}

TEST_P(PrmTableUpdate, OnlyTheBytesThatTheLengthsCoverAreSent)
{
    shmem_node node = make(2, "a longer key", "a longer result");
    node.app_node.key_len = 3;
    node.app_node.result_len = 5;
    requests.answer_all(0);
    ASSERT_EQ(update(node), 0u);
    const Bytes expected = RecordBytes()
                               .word(0, 0)
                               .word(4, 4)
                               .word(8, table().modify.refnum)
                               .word(12, 3)
                               .text(20, "a l")
                               .word(120, 5)
                               .text(124, "a")
                               .text(128, "n"); // the counter's three bytes are 0
    ASSERT_EQ(requests.all().size(), 2u);
    EXPECT_EQ(bytes_of(requests.all()[0].record), expected);
}

TEST_P(PrmTableUpdate, AnEntryWithoutResultStillCarriesItsCounter)
{
    use_counters_below(0x1234);
    shmem_node node = make(1, "key", "");
    ASSERT_EQ(update(node), 0u);
    const Bytes expected = RecordBytes()
                               .word(0, 0)
                               .word(4, 4)
                               .word(8, table().add.refnum)
                               .word(12, 3)
                               .text(20, "key")
                               .word(120, 0)
                               .text(125, "\xC0\x12\x34");
    ASSERT_EQ(requests.all().size(), 2u);
    EXPECT_EQ(bytes_of(requests.all()[0].record), expected);
}

TEST_P(PrmTableUpdate, TheNodesOwnKeyAndResultAreLeftAsTheyAre)
{
    shmem_node node = make(1);
    const app_node before = node.app_node;
    ASSERT_EQ(update(node), 0u);
    EXPECT_EQ(memcmp(&node.app_node, &before, sizeof before), 0);
}

TEST_P(PrmTableUpdate, TheNpsHoldWhatWasSent)
{
    use_counters_below(0x1234);
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    const auto kind = static_cast<vlc::TableKind>(table().table_type);
    const std::string key = "key";
    for (uint32_t np = 0; np < 2; ++np) {
        const vlc::TableRow *row =
            card->nps()[np].table(kind).find({reinterpret_cast<const uint8_t *>(key.data()), 3});
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(std::string(row->result, row->result + row->result_len), "0\xC0\x12\x34"
                                                                           "456789");
        EXPECT_EQ(card->nps()[np].table(kind).size(), 1u);
    }
    ASSERT_EQ(update(node, 3), 0u);
    for (uint32_t np = 0; np < 2; ++np)
        EXPECT_EQ(card->nps()[np].table(kind).size(), 0u);
}

// ---- counters ----------------------------------------------------------------------------------

TEST_P(PrmTableUpdate, AnAddTakesAPairOfCountersOnEveryNp)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    for (uint32_t np = 0; np < 2; ++np) {
        EXPECT_EQ(node.stat_index_rx[np], 0x0000C0u) << "bytes 0 and 2 exchanged";
        EXPECT_EQ(node.stat_index_drop[np], 0xC00001u) << "only the received counter is encoded";
        EXPECT_EQ(root->counters[np][0], 0xC0000000u);
    }
    for (uint32_t np = 2; np < 8; ++np) {
        EXPECT_EQ(node.stat_index_rx[np], 0u);
        EXPECT_EQ(node.stat_index_drop[np], 0u);
    }
}

TEST_P(PrmTableUpdate, AModifyTakesAndGivesBackNoCounter)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    start_watching();
    ASSERT_EQ(update(node, 2), 0u);
    EXPECT_EQ(services.names(),
              (std::vector<std::string>{table().modify.service, table().modify.service}));
    for (uint32_t np = 0; np < 2; ++np) {
        EXPECT_EQ(root->counters[np][0], 0xC0000000u);
        EXPECT_EQ(node.stat_index_drop[np], 0xC00001u);
    }
}

TEST_P(PrmTableUpdate, ADeleteGivesBothCountersOfEveryNpBack)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    ASSERT_EQ(update(node, 3), 0u);
    for (uint32_t np = 0; np < 2; ++np)
        EXPECT_EQ(root->counters[np][0], 0u);
}

TEST_P(PrmTableUpdate, CountersComeFromTheContextsRootAndGoBackToTheRootInForce)
{
    uint32_t bitmaps[2][2052] = {};
    shadow_db other = {};
    other.prm_srh_hdl = root->prm_srh_hdl;
    other.counters[0] = bitmaps[0];
    other.counters[1] = bitmaps[1];
    context.shadow_db = &other;
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    EXPECT_EQ(other.counters[0][0], 0xC0000000u);
    EXPECT_EQ(root->counters[0][0], 0u);
    root->counters[0][0] = 0xC0000000;
    ASSERT_EQ(update(node, 3), 0u);
    EXPECT_EQ(other.counters[0][0], 0xC0000000u);
    EXPECT_EQ(root->counters[0][0], 0u);
    context.shadow_db = root;
}

TEST_P(PrmTableUpdate, TheHandleIsThatOfTheContextsRoot)
{
    shadow_db other = *root;
    other.prm_srh_hdl = &other;
    context.shadow_db = &other;
    requests.answer_all(0);
    shmem_node node = make(1);
    for (const PrmOperation &operation : table().operations()) {
        requests.forget();
        update(node, operation.action);
        ASSERT_EQ(requests.all().size(), 2u);
        EXPECT_EQ(requests.all()[0].handle, &other);
        EXPECT_EQ(requests.all()[1].handle, &other);
    }
    context.shadow_db = root;
}

// ---- transcripts -------------------------------------------------------------------------------

TEST_P(PrmTableUpdate, AnAddSaysItsStepsInOrder)
{
    shmem_node node = make(1);
    start_watching();
    ASSERT_EQ(update(node), 0u);
    std::vector<std::string> expected = {table().add.entered};
    for (uint32_t np = 0; np < 2; ++np) {
        for (const std::string &taken :
             {std::string(table().rx_taken) + "c00000", std::string(table().drop_taken) + "c00001"})
            for (const std::string &line :
                 {std::string("max_long_counter 10000"), std::string("counter_start c00000"),
                  std::string("Found free counter at word 0"),
                  std::string("Found free counter at word 0"), taken})
                expected.push_back(line);
        expected.push_back(table().add.succeeded);
    }
    EXPECT_EQ(log(), expected);
}

TEST_P(PrmTableUpdate, AnAddCallsThePlatformInOrder)
{
    shmem_node node = make(1);
    start_watching();
    ASSERT_EQ(update(node), 0u);
    std::vector<std::string> expected;
    for (uint32_t np = 0; np < 2; ++np) {
        for (uint32_t counter = 0; counter < 2; ++counter) {
            expected.push_back("prm_stats_cl_get_stateless_double_size");
            expected.push_back("prm_stats_cl_get_stateless_double_start");
            expected.push_back("prm_stats_cl_read");
        }
        expected.push_back(table().add.service);
    }
    EXPECT_EQ(services.names(), expected);
}

TEST_P(PrmTableUpdate, AModifySaysItsStepsInOrder)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    start_watching();
    ASSERT_EQ(update(node, 2), 0u);
    EXPECT_EQ(log(), (std::vector<std::string>{table().modify.entered, table().modify.succeeded,
                                               table().modify.succeeded}));
}

TEST_P(PrmTableUpdate, ADeleteSaysItsStepsInOrder)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    start_watching();
    ASSERT_EQ(update(node, 3), 0u);
    EXPECT_EQ(log(), (std::vector<std::string>{table().remove.entered, table().remove.succeeded,
                                               table().remove.succeeded}));
}

TEST_P(PrmTableUpdate, ADeleteFreesTheCountersOfAnNpRightAfterItsRequest)
{
    shmem_node node = make(1);
    ASSERT_EQ(update(node), 0u);
    start_watching();
    ASSERT_EQ(update(node, 3), 0u);
    std::vector<std::string> expected;
    for (uint32_t np = 0; np < 2; ++np) {
        expected.push_back(table().remove.service);
        for (uint32_t counter = 0; counter < 2; ++counter) {
            expected.push_back("prm_stats_cl_get_stateless_double_size");
            expected.push_back("prm_stats_cl_get_stateless_double_start");
        }
    }
    EXPECT_EQ(services.names(), expected);
}

// ---- cards without NPs -------------------------------------------------------------------------

TEST_P(PrmTableUpdate, WithoutNpsTheEnterLineIsAllThatHappens)
{
    context.num_nps = 0;
    for (const PrmOperation &operation : table().operations()) {
        shmem_node node = make(operation.action);
        node.stat_index_rx[0] = 0xC01234;
        start_watching();
        EXPECT_EQ(update(node), 0u);
        EXPECT_EQ(log(), (std::vector<std::string>{operation.entered}));
        EXPECT_TRUE(services.calls().empty());
        EXPECT_EQ(node.stat_index_rx[0], 0xC01234u);
    }
}

class PrmTableOnEightNps : public PrmTableTest {
protected:
    PrmTableOnEightNps() : PrmTableTest(8) {}
};
INSTANTIATE_TEST_SUITE_P(BothTables, PrmTableOnEightNps, ::testing::ValuesIn(prm_tables()),
                         table_name);

TEST_P(PrmTableOnEightNps, EveryOperationReachesAllOfThem)
{
    shmem_node node = make(1);
    for (const PrmOperation &operation : table().operations()) {
        requests.forget();
        ASSERT_EQ(update(node, operation.action), 0u);
        EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0, 1, 2, 3, 4, 5, 6, 7}));
    }
}

class PrmTableOnOneNp : public PrmTableTest {
protected:
    PrmTableOnOneNp() : PrmTableTest(1) {}
};
INSTANTIATE_TEST_SUITE_P(BothTables, PrmTableOnOneNp, ::testing::ValuesIn(prm_tables()),
                         table_name);

TEST_P(PrmTableOnOneNp, EveryOperationReachesItOnce)
{
    shmem_node node = make(1);
    for (const PrmOperation &operation : table().operations()) {
        requests.forget();
        ASSERT_EQ(update(node, operation.action), 0u);
        EXPECT_EQ(requests.nps(), (std::vector<uint32_t>{0}));
    }
}

} // namespace
} // namespace test
