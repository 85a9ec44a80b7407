// The one door from the shadow DB to the hardware.

#include "prm_table_fixture.h"

namespace test {
namespace {

class PrmDispatch : public RunningCardTest {
protected:
    PrmDispatch() : requests(services) { node.app_node = make_node(7, 0, "key", "result", 1); }

    // 22 and one line, with nothing touched.
    void expect_refused(shmem_node *refused, const std::string &line)
    {
        const shmem_node before = node;
        services.forget();
        forget_log();
        EXPECT_EQ(inline_svc_prm_update(refused), 22u);
        EXPECT_EQ(log(), (std::vector<std::string>{line}));
        EXPECT_TRUE(services.calls().empty());
        EXPECT_EQ(memcmp(&node, &before, sizeof node), 0);
    }

    PrmRequests requests;
    shmem_node node{};
};

TEST_F(PrmDispatch, WithoutAContextAValidNodeIsRefused)
{
    pgbl_ptr = nullptr;
    expect_refused(&node, "pgbl_ptr is NULL in prm update \n");
}

TEST_F(PrmDispatch, TheMissingContextIsSaidFirst)
{
    pgbl_ptr = nullptr;
    pshadow_db = nullptr;
    expect_refused(nullptr, "pgbl_ptr is NULL in prm update \n");
}

TEST_F(PrmDispatch, WithoutARootAValidNodeIsRefused)
{
    pshadow_db = nullptr;
    expect_refused(&node, "shemem ptr is NULL in prm update \n");
}

TEST_F(PrmDispatch, TheMissingRootIsSaidBeforeTheMissingNode)
{
    pshadow_db = nullptr;
    expect_refused(nullptr, "shemem ptr is NULL in prm update \n");
}

TEST_F(PrmDispatch, ANullNodeIsRefused)
{
    expect_refused(nullptr, "node pass NUL in prm update \n");
}

TEST_F(PrmDispatch, ATableAboveOneIsRefused)
{
    for (const uint32_t table : {2u, 3u, 0x100u, 0xFFFFFFFFu}) {
        node.app_node.table_type = table;
        expect_refused(&node, "node pass INCORRECT Table in prm update \n");
    }
}

TEST_F(PrmDispatch, TheTableIsLookedAtBeforeTheAction)
{
    node.app_node.table_type = 2;
    node.app_node.action = 9;
    expect_refused(&node, "node pass INCORRECT Table in prm update \n");
}

TEST_F(PrmDispatch, TheActionIsLeftToTheTable)
{
    for (const uint32_t table : {0u, 1u}) {
        node.app_node.table_type = table;
        node.app_node.action = 9;
        expect_refused(&node, "action for service config prm table is INVALID \n");
    }
}

TEST_F(PrmDispatch, ANodeGoesToTheTableThatItNames)
{
    for (const PrmTable &table : prm_tables()) {
        node.app_node.table_type = table.table_type;
        for (const PrmOperation &operation : table.operations()) {
            requests.forget();
            node.app_node.action = operation.action;
            EXPECT_EQ(inline_svc_prm_update(&node), 0u);
            ASSERT_EQ(requests.all().size(), 2u);
            EXPECT_EQ(requests.all()[0].service, operation.service);
            EXPECT_EQ(requests.all()[1].service, operation.service);
        }
    }
}

TEST_F(PrmDispatch, TheTablesStatusIsReturnedUnchanged)
{
    for (const PrmTable &table : prm_tables()) {
        node.app_node.table_type = table.table_type;
        for (const uint32_t code : {5u, 0x257C5403u, 0xFFFFFFFFu}) {
            requests.answer_all(code);
            EXPECT_EQ(inline_svc_prm_update(&node), code);
        }
    }
}

TEST_F(PrmDispatch, TheReadyFlagsAreNotAsked)
{
    root->prm_state = 0;
    root->conn_state = 0;
    requests.answer_all(0);
    EXPECT_EQ(inline_svc_prm_update(&node), 0u);
    EXPECT_EQ(requests.all().size(), 2u);
}

TEST_F(PrmDispatch, ASuccessfulUpdateSaysNothingOfItsOwn)
{
    node.app_node.action = 2;
    requests.answer_all(0);
    forget_log();
    EXPECT_EQ(inline_svc_prm_update(&node), 0u);
    EXPECT_EQ(log(), (std::vector<std::string>{"SVC CONF modify enter: \n",
                                               "SVC CONF modify successful: \n",
                                               "SVC CONF modify successful: \n"}));
}

} // namespace
} // namespace test
