// Modifying nodes: content changes in shadow and hardware, and what is refused or breaks.
#include <cstring>

#include "shadow_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77; // a code of PRM's own; its text is the system's
constexpr uint32_t no_counters = 0xFFFFFFFF;

class NodeModify : public ShadowDbTest {};

TEST_F(NodeModify, TheRequestReplacesTheContentAndKeepsLinkAndCounters)
{
    store(5, 1, 0, "first");
    shmem_node *node = store(5, 7, 0, "abc");
    store(5, 9, 0, "last");
    const list_link link = node->link;
    const uint32_t drop = node->stat_index_drop[1];
    node->reserved_240 = 0x55; // behind the request's 176 bytes
    app_node request = make_node(8, 0, "abc", "longer result", SHADOW_DB_MODIFY, 3);
    request.shmem_node = node;
    Batch batch(5);
    batch.add(request);
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(memcmp(&node->app_node, &request, sizeof request), 0);
    EXPECT_EQ(memcmp(&node->link, &link, sizeof link), 0);
    EXPECT_EQ(node->stat_index_drop[1], drop);
    EXPECT_EQ(node->reserved_240, 0x55u);
    EXPECT_EQ(entry(5)->num_elements[0], 3u);
}

TEST_F(NodeModify, SaysItsLinesInOrder)
{
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    Batch batch(5, 2);
    batch.modify(node, "4567");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(log(), joined({{" Query Main entry found for uidb_index 5", "MAIN entry updated",
                              "Table is present in the main", "Insert the node in shared_db "},
                             printed_node("616263", 3, "34353637", 4, 0, 2, 7),
                             {" Query Main entry found for uidb_index 5",
                              " table_array is present for the table 0",
                              "SVC CONF modify enter: \n", "SVC CONF modify successful: \n",
                              "SVC CONF modify successful: \n", "enqueue modify successful \n",
                              "shadow mem node action handled successfully"},
                             printed_main_entry(5, 5, "1", "1", 1)}));
    EXPECT_EQ(services.names(),
              (Lines{"prm_srh_service_config_mod", "prm_srh_service_config_mod"}));
}

TEST_F(NodeModify, ReachesEveryNpsHardware)
{
    shmem_node *node = store(5, 7, 1, "abc");
    Batch batch(5);
    batch.modify(node, "W4567");
    ASSERT_EQ(insert(batch), 0u);
    for (uint32_t np = 0; np < 2; ++np) {
        const vlc::TableRow *row =
            card->nps()[np].table(vlc::TableKind::ext_conf).find(vlc::Bytes(node->app_node.key, 3));
        ASSERT_NE(row, nullptr);
        EXPECT_EQ(row->result_len, 5u);
        EXPECT_EQ(row->result[0], 'W');
        EXPECT_EQ(row->result[4], '7');
    }
}

TEST_F(NodeModify, TakesTheNewVersionFromTheBatch)
{
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5, 0xABCD);
    batch.modify(node, "4567");
    ASSERT_EQ(insert(batch), 0u);
    EXPECT_EQ(entry(5)->entry_version, 0xABCDu);
}

TEST_F(NodeModify, TheNewContentStaysAlsoWhenTheHardwareRefusesIt)
{
    shmem_node *node = store(5, 7, 0, "abc", no_counters);
    Batch batch(5, 2);
    batch.modify(node, "4567");
    services.force("prm_srh_service_config_mod", refusal);
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(memcmp(node->app_node.result, "4567", 4), 0);
    EXPECT_EQ(node->app_node.action, 2u);
    EXPECT_EQ(log_from("SVC CONF modify enter: \n"),
              joined({{"SVC CONF modify enter: \n",
                       "SVC CONF modification failed:  rc=File descriptor in bad state (77)",
                       "SVC CONF modification failed:  rc=File descriptor in bad state (77)",
                       "PRM node modification failed\n", "shadow mem node modification failed",
                       "shadow_db insert node failed"},
                      printed_main_entry(5, 5, "1", "1", 1)}));
}

TEST_F(NodeModify, ARefusalOnAnEarlierNpAloneGoesUnnoticed)
{
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5);
    batch.modify(node, "4567");
    services.script("prm_srh_service_config_mod", refused_on(0, refusal));
    EXPECT_EQ(insert(batch), 0u);
    EXPECT_EQ(log_count("enqueue modify successful \n"), 1u);
}

TEST_F(NodeModify, ARefusalOnTheLastNpIsTheResult)
{
    shmem_node *node = store(5, 7, 1, "abc");
    Batch batch(5);
    batch.modify(node, "4567");
    services.script("prm_srh_ext_service_db_mod", refused_on(1, refusal));
    EXPECT_EQ(insert(batch), refusal);
    EXPECT_EQ(services.count("prm_srh_ext_service_db_mod"), 2u);
}

TEST_F(NodeModify, ATooLongKeyIsKeptInTheShadowAndRefusedTowardsTheHardware)
{
    shmem_node *node = store(5, 7, 0, "abc");
    app_node request = node->app_node;
    request.action = SHADOW_DB_MODIFY;
    request.key_len = 49;
    Batch batch(5);
    batch.add(request);
    EXPECT_EQ(insert(batch), 22u);
    EXPECT_EQ(node->app_node.key_len, 49u);
    EXPECT_EQ(services.names(), Lines{});
}

// ---- refusals: nothing is overwritten, nothing reaches the hardware

class RefusedModify : public NodeModify {
protected:
    void expect_refused(const app_node &request, const shmem_node *untouched)
    {
        const shmem_node before = *untouched;
        Batch batch(5);
        batch.add(request);
        EXPECT_EQ(insert(batch), 22u);
        EXPECT_EQ(memcmp(untouched, &before, sizeof before), 0);
        EXPECT_EQ(services.names(), Lines{});
        const Lines lines =
            log_from(" table_array is present for the table " + std::to_string(request.table_type));
        ASSERT_EQ(lines.size(), 4u + 5u); // that one, the refusal's own, the failure's two, a print
        EXPECT_EQ(lines[2], "shadow mem node modification failed");
        EXPECT_EQ(lines[3], "shadow_db insert node failed");
    }
};

TEST_F(RefusedModify, ATableAboveOneIsRefused)
{
    shmem_node *node = store(5, 7, 0, "abc");
    app_node request = node->app_node;
    request.action = SHADOW_DB_MODIFY;
    for (const uint32_t table : {2u, 0xFFFFu}) {
        request.table_type = table;
        expect_refused(request, node);
    }
}

TEST_F(RefusedModify, ATableOfTheNodeAboveOneIsRefusedAlsoWhenTheRequestSaysTheSame)
{
    shmem_node *node = store(5, 7, 0, "abc");
    node->app_node.table_type = 2;
    app_node request = node->app_node;
    request.action = SHADOW_DB_MODIFY;
    expect_refused(request, node);
    node->app_node.table_type = 0;
}

TEST_F(RefusedModify, AnotherTableThanTheNodesIsRefused)
{
    shmem_node *node = store(5, 7, 0, "abc");
    app_node request = node->app_node;
    request.action = SHADOW_DB_MODIFY;
    request.table_type = 1;
    expect_refused(request, node);
}

TEST_F(RefusedModify, ANodeThatDoesNotNameItselfIsNotLiveAndRefused)
{
    store(5, 7, 0, "abc");
    shmem_node stranger = {};
    stranger.app_node = make_node(7, 0, "abc", "0123", SHADOW_DB_CREATE);
    app_node request = stranger.app_node;
    request.action = SHADOW_DB_MODIFY;
    request.shmem_node = &stranger;
    expect_refused(request, &stranger);
}

TEST_F(RefusedModify, ADeletedNodeIsNotLiveAndRefused)
{
    store(5, 1, 0, "stays");
    shmem_node *node = store(5, 7, 0, "abc");
    app_node request = node->app_node;
    request.action = SHADOW_DB_MODIFY;
    Batch batch(5);
    batch.remove(node).add(request);
    EXPECT_EQ(insert(batch), 22u);
    EXPECT_EQ(services.count("prm_srh_service_config_mod"), 0u);
    EXPECT_EQ(log_count("shadow mem node modification failed"), 1u);
}

// ---- broken invariants

TEST_F(NodeModify, AMainEntryThatVanishedEndsTheProcess)
{
    shmem_node *node = store(5, 7, 0, "abc");
    Batch batch(5);
    batch.modify(node, "4567");
    when_said("*******entry_id %d\n", [this] { root->main_table[5] = nullptr; });
    EXPECT_SHADOWDB_ASSERTION(insert(batch), "FALSE");
}

TEST_F(NodeModify, ARequestWithoutANodeEndsTheProcessAfterItsTableWasNamed)
{
    store(5, 7, 0, "abc");
    Batch batch(5);
    batch.add(make_node(7, 2, "abc", "4567", SHADOW_DB_MODIFY));
    EXPECT_SHADOWDB_ASSERTION(insert(batch), "shmem_node");
    EXPECT_EQ(log().back(), " table_array is present for the table 2");
}

} // namespace
