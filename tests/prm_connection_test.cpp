// Opening the connection to PRM, and what the library asks of the platform while it comes up.

#include "card_fixture.h"
#include "vlc/event_manager.h"

namespace test {
namespace {

using Names = std::vector<std::string>;
using Log = std::vector<std::string>;

template <typename T>
uint64_t word(T *pointer)
{
    return reinterpret_cast<uintptr_t>(pointer);
}

std::string text_at(uint64_t address)
{
    return reinterpret_cast<const char *>(address);
}

// The library has its context; PRM was not spoken to.
class PrmInit : public CardTest {
protected:
    PrmInit()
    {
        attach_context();
        set_context();
        initialize_shadow_db();
        services.forget();
        forget_log();
    }
};

// ---- the initialisation ------------------------------------------------------------------------

TEST_F(PrmInit, WithoutAContextItIs22AndSilent)
{
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_prm_init(), 22u);
    EXPECT_TRUE(log().empty());
    EXPECT_TRUE(services.calls().empty());
    EXPECT_EQ(root->prm_state, 0u);
}

TEST_F(PrmInit, ItReadsTheCardTypeAndThenOpensTheConnection)
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(services.names(), (Names{"platform_get_my_card_type", "prm_mgr_open"}));
    EXPECT_EQ(log(), (Log{"PRM_INIT enter\n", "PRM_INIT exit\n"}));
}

TEST_F(PrmInit, TheConnectionIsOpenedWithExactlyTheseArguments)
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    const RecordedCall open = services.calls_of("prm_mgr_open").at(0);
    ASSERT_EQ(open.args.size(), 7u);
    EXPECT_EQ(open.args[0], word(card->events().handle()));
    EXPECT_EQ(open.args[1], 0u);
    EXPECT_EQ(text_at(open.args[2]), "inline_service");
    EXPECT_EQ(open.args[3], word(inline_svc_prm_notif_handler));
    EXPECT_EQ(open.args[4], 7u);
    EXPECT_EQ(open.args[5], word(root));
    EXPECT_EQ(open.args[6], word(&context.prm_conn));
}

TEST_F(PrmInit, TheConnectionHandleIsZeroWhenTheOpenBegins)
{
    context.prm_conn = &context;
    void *seen = &context;
    services.script("prm_mgr_open", [&](const vlc::ServiceCall &call) {
        seen = *reinterpret_cast<void **>(call.args[6]);
        return std::nullopt;
    });
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(seen, nullptr);
    EXPECT_NE(context.prm_conn, nullptr);
    EXPECT_NE(context.prm_conn, &context);
}

TEST_F(PrmInit, AnOpenConnectionSetsTheReadyFlagBesideTheOthers)
{
    root->prm_state = 0x8003;
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(root->prm_state, 0x8007u);
    EXPECT_EQ(root->conn_state, 0u) << "the connection is reported up later";
}

TEST_F(PrmInit, AFailedOpenPassesItsCodeOnSilentlyAndLeavesTheFlag)
{
    context.prm_conn = &context;
    services.force("prm_mgr_open", 0x257C5403);
    EXPECT_EQ(inline_svc_prm_init(), 0x257C5403u);
    EXPECT_EQ(log(), (Log{"PRM_INIT enter\n"}));
    EXPECT_EQ(root->prm_state, 0u);
    EXPECT_EQ(context.prm_conn, nullptr);
}

TEST_F(PrmInit, AFailedOpenTakesNoEarlierReadyFlagAway)
{
    root->prm_state = 4;
    services.force("prm_mgr_open", 5);
    EXPECT_EQ(inline_svc_prm_init(), 5u);
    EXPECT_EQ(root->prm_state, 4u);
}

TEST_F(PrmInit, NothingIsRegisteredBeforeTheConnectionIsReportedUp)
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(root->prm_srh_hdl, nullptr);
    EXPECT_EQ(services.count("prm_srh_get_handle"), 0u);
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
    EXPECT_EQ(root->counters[0], nullptr);
}

TEST_F(PrmInit, AContextThatLostItsRootPassesAndTheRootInForceIsUsed)
{
    context.shadow_db = nullptr;
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(services.calls_of("prm_mgr_open").at(0).args[5], word(root));
    EXPECT_EQ(root->prm_state, 4u);
    context.shadow_db = root;
}

TEST_F(PrmInit, AContextThatNeverHadARootPasses)
{
    pshadow_db = nullptr;
    context.shadow_db = nullptr;
    EXPECT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(services.calls_of("prm_mgr_open").at(0).args[5], 0u);
    EXPECT_NE(context.prm_conn, nullptr);
    EXPECT_EQ(log(), (Log{"PRM_INIT enter\n", "PRM_INIT exit\n"}));
}

// ---- the first connection-up, on the card's events ---------------------------------------------

TEST_F(PrmInit, TheFirstConnectionUpCallsThePlatformInOrder)
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    run_events();
    EXPECT_EQ(services.names(),
              (Names{"platform_get_my_card_type", "prm_mgr_open", "prm_srh_get_handle",
                     "prm_srh_register", "prm_srh_set_name", "plm_dpss_stats_init",
                     "prm_stats_cl_pre_init", "prm_stats_cl_get_stateless_double_size",
                     "prm_stats_cl_get_stateless_double_size", "shmwin_malloc", "shmwin_malloc",
                     "prm_srh_delay_util_init"}));
}

TEST_F(PrmInit, TheFirstConnectionUpSaysItsStepsInOrder)
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    run_events();
    EXPECT_EQ(log(), (Log{"PRM_INIT enter\n", "PRM_INIT exit\n", "PRM notify handler enter\n",
                          "PRM CONN notification handler enter\n",
                          "PRM CONN UP registering enter\n", "Reregister with PRM Enter\n",
                          "Total counters available for inline service on this LC65536",
                          "counter_word_per_np 65568", "Reregister with PRM Exit\n",
                          " PRM ready and conn up \n", "PRM notification handler exit\n"}));
}

TEST_F(PrmInit, TheFirstConnectionUpLeavesTheLibraryReady)
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    run_events();
    EXPECT_EQ(root->prm_state, 4u);
    EXPECT_EQ(root->conn_state, 4u);
    EXPECT_NE(root->prm_srh_hdl, nullptr);
    EXPECT_NE(root->counters[0], nullptr);
    EXPECT_NE(root->counters[1], nullptr);
    EXPECT_EQ(NUM_LC_NPS, 2u);
    EXPECT_TRUE(card->data_path_statistics_started());
    EXPECT_EQ(root->stats_state, 0u) << "the host's to set";
    EXPECT_EQ(vlc::CardClock::slept_seconds(), 0u);
}

TEST_F(PrmInit, TheDelayQueueIsSetUpWithExactlyTheseArguments)
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    run_events();
    const RecordedCall set_up = services.calls_of("prm_srh_delay_util_init").at(0);
    EXPECT_EQ(set_up.args, (std::vector<uint64_t>{word(root->prm_srh_hdl), 1, 0, 50, 30,
                                                  word(inline_svc_stats_delay_delete_handler), 4}));
}

} // namespace
} // namespace test
