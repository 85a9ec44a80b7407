// What a table update refuses before it takes a counter or calls PRM.

#include "prm_table_fixture.h"

namespace test {
namespace {

class PrmTableRefusal : public PrmTableTest {
protected:
    // 22 and one line, with the node, the counters and PRM untouched.
    void expect_refused(shmem_node node, const std::string &line)
    {
        const shmem_node before = node;
        start_watching();
        EXPECT_EQ(update(node), 22u);
        EXPECT_EQ(log(), (std::vector<std::string>{line}));
        EXPECT_TRUE(services.calls().empty());
        EXPECT_EQ(memcmp(&node, &before, sizeof node), 0);
        EXPECT_EQ(root->counters[0][0], 0u);
    }
};

INSTANTIATE_TEST_SUITE_P(BothTables, PrmTableRefusal, ::testing::ValuesIn(prm_tables()),
                         table_name);

// The text names the service config table for the other one too.
TEST_P(PrmTableRefusal, AnUnknownActionIsRefusedInTheNameOfTheServiceConfigTable)
{
    for (const uint32_t action : {0u, 4u, 0x101u, 0xFFFFFFFFu})
        expect_refused(make(action), "action for service config prm table is INVALID \n");
}

TEST_P(PrmTableRefusal, AnUnknownActionIsRefusedAlsoWithoutNps)
{
    context.num_nps = 0;
    expect_refused(make(4), "action for service config prm table is INVALID \n");
}

TEST_P(PrmTableRefusal, AKeyOf49BytesIsRefusedForEveryAction)
{
    for (const uint32_t action : {1u, 2u, 3u}) {
        shmem_node node = make(action);
        node.app_node.key_len = 49;
        expect_refused(node, "key_len 49 or result_len 10 is too long");
    }
}

TEST_P(PrmTableRefusal, AResultOf65BytesIsRefusedForEveryAction)
{
    for (const uint32_t action : {1u, 2u, 3u}) {
        shmem_node node = make(action);
        node.app_node.result_len = 65;
        expect_refused(node, "key_len 3 or result_len 65 is too long");
    }
}

TEST_P(PrmTableRefusal, LengthsThatWouldBeNegativeAreRefused)
{
    shmem_node node = make(1);
    node.app_node.key_len = 0xFFFFFFFF;
    expect_refused(node, "key_len -1 or result_len 10 is too long");
    node.app_node.key_len = 3;
    node.app_node.result_len = 0x80000000;
    expect_refused(node, "key_len 3 or result_len -2147483648 is too long");
}

TEST_P(PrmTableRefusal, ANullNodeIs22WithOneLine)
{
    start_watching();
    EXPECT_EQ(table().update(nullptr), 22u);
    EXPECT_EQ(log().size(), 1u);
    EXPECT_TRUE(services.calls().empty());
}

TEST_P(PrmTableRefusal, WithoutAContextEveryActionIs22)
{
    pgbl_ptr = nullptr;
    for (const PrmOperation &operation : table().operations()) {
        shmem_node node = make(operation.action);
        start_watching();
        EXPECT_EQ(update(node), 22u);
        EXPECT_EQ(log().size(), 1u);
        EXPECT_TRUE(services.calls().empty());
    }
}

TEST_P(PrmTableRefusal, WithAContextThatHasNoRootEveryActionIs22)
{
    context.shadow_db = nullptr;
    for (const PrmOperation &operation : table().operations()) {
        shmem_node node = make(operation.action);
        start_watching();
        EXPECT_EQ(update(node), 22u);
        EXPECT_EQ(log().size(), 1u);
        EXPECT_TRUE(services.calls().empty());
    }
    context.shadow_db = root;
}

} // namespace
} // namespace test
