// What the library does when PRM reports the connection or the NPs.

#include "card_fixture.h"

namespace test {
namespace {

using Names = std::vector<std::string>;
using Log = std::vector<std::string>;

class PrmNotification : public RunningCardTest {
protected:
    void notify(uint32_t notif_class, uint32_t event) { notify(root, notif_class, event); }
    static void notify(shadow_db *to, uint32_t notif_class, uint32_t event)
    {
        const prm_notification notification = {notif_class, event};
        inline_svc_prm_notif_handler(to, &notification);
    }
};

// ---- NP notifications --------------------------------------------------------------------------

TEST_F(PrmNotification, NpsRunningClearsTheThreeLowConnectionBits)
{
    root->conn_state = 0xFFFF;
    notify(1, 2);
    EXPECT_EQ(root->conn_state, 0xFFF8u);
    EXPECT_EQ(root->prm_state, 4u);
    EXPECT_EQ(context.np_reset_pending, 1u);
    EXPECT_EQ(log(), (Log{"PRM notify handler enter\n", "PRM NP notification handler enter\n",
                          "PRM NP notification running state\n", " PRM ready and conn down  \n"}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(PrmNotification, NpsRunningLeavesAPendingMarkAsItIs)
{
    context.np_reset_pending = 7;
    notify(1, 2);
    EXPECT_EQ(context.np_reset_pending, 7u);
}

TEST_F(PrmNotification, NpsRunningWithoutAContextStillClearsTheBits)
{
    pgbl_ptr = nullptr;
    notify(1, 2);
    EXPECT_EQ(root->conn_state, 0u);
    EXPECT_EQ(context.np_reset_pending, 0u);
}

TEST_F(PrmNotification, NpsInWarmBootChangeNothing)
{
    root->conn_state = 0xFFFF;
    engine_conn_error = 1;
    notify(1, 3);
    EXPECT_EQ(root->conn_state, 0xFFFFu);
    EXPECT_EQ(root->prm_state, 4u);
    EXPECT_EQ(context.np_reset_pending, 0u);
    EXPECT_EQ(engine_conn_error, 1u);
    EXPECT_EQ(log(), (Log{"PRM notify handler enter\n", "PRM NP notification handler enter\n",
                          "PRM NP notification warm boot state\n"}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(PrmNotification, OtherNpEventsAreIgnoredAfterTheirEnterLine)
{
    for (const uint32_t event : {0u, 1u, 4u, 5u, 0xFFFFFFFFu}) {
        forget_log();
        engine_conn_error = 0;
        notify(1, event);
        EXPECT_EQ(log(), (Log{"PRM notify handler enter\n", "PRM NP notification handler enter\n"}))
            << event;
        EXPECT_EQ(root->conn_state, 4u);
        EXPECT_EQ(context.np_reset_pending, 0u);
        EXPECT_EQ(engine_conn_error, 0u);
        EXPECT_TRUE(services.calls().empty());
    }
}

// ---- connection notifications: every class but 1 -----------------------------------------------

class PrmConnectionNotification : public PrmNotification,
                                  public ::testing::WithParamInterface<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Classes, PrmConnectionNotification,
                         ::testing::Values(0u, 2u, 3u, 0x101u, 0xFFFFFFFFu));

TEST_P(PrmConnectionNotification, ConnectionDownClearsTheReadyBitAlone)
{
    root->conn_state = 0xFFFF;
    void *const handle = root->prm_srh_hdl;
    notify(GetParam(), 2);
    EXPECT_EQ(root->conn_state, 0xFFFBu);
    EXPECT_EQ(root->prm_state, 4u);
    EXPECT_EQ(root->prm_srh_hdl, handle) << "kept for the next connection-up";
    EXPECT_EQ(context.np_reset_pending, 0u);
    EXPECT_EQ(log(), (Log{"PRM notify handler enter\n", "PRM CONN notification handler enter\n",
                          "PRM CONN DOWN enter\n", " PRM ready and conn down  \n",
                          "PRM notification handler exit\n"}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_P(PrmConnectionNotification, ConnectionErrorSetsTheHostsFlag)
{
    engine_conn_error = 0;
    notify(GetParam(), 4);
    EXPECT_EQ(engine_conn_error, 1u);
    EXPECT_EQ(root->conn_state, 4u);
    EXPECT_EQ(log(), (Log{"PRM notify handler enter\n", "PRM CONN notification handler enter\n",
                          "PRM notification handler exit\n"}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_P(PrmConnectionNotification, OtherEventsAreIgnoredAfterTheirEnterLine)
{
    for (const uint32_t event : {0u, 3u, 5u, 0xFFFFFFFFu}) {
        forget_log();
        notify(GetParam(), event);
        EXPECT_EQ(log(),
                  (Log{"PRM notify handler enter\n", "PRM CONN notification handler enter\n"}))
            << event;
        EXPECT_EQ(root->conn_state, 4u);
        EXPECT_TRUE(services.calls().empty());
    }
}

TEST_P(PrmConnectionNotification, ConnectionUpRegistersAndSetsUpTheDelayQueue)
{
    root->conn_state = 0;
    engine_conn_error = 1;
    notify(GetParam(), 1);
    EXPECT_EQ(engine_conn_error, 0u);
    EXPECT_EQ(root->conn_state, 4u);
    EXPECT_EQ(services.names(),
              (Names{"prm_srh_get_handle", "prm_srh_reregister", "prm_srh_set_name",
                     "plm_dpss_stats_init", "prm_stats_cl_pre_init", "prm_srh_delay_util_init"}));
    EXPECT_EQ(log(), (Log{"PRM notify handler enter\n", "PRM CONN notification handler enter\n",
                          "PRM CONN UP registering enter\n", "Reregister with PRM Enter\n",
                          "Reregister with PRM Exit\n", " PRM ready and conn up \n",
                          "PRM notification handler exit\n"}));
}

TEST_P(PrmConnectionNotification, ConnectionUpAfterAnNpResetLeavesTheDelayQueueAndTheExitLineOut)
{
    notify(1, 2);
    forget_log();
    notify(GetParam(), 1);
    EXPECT_EQ(context.np_reset_pending, 0u);
    EXPECT_EQ(root->conn_state, 4u);
    EXPECT_EQ(services.count("prm_srh_reregister"), 1u);
    EXPECT_EQ(services.count("prm_srh_delay_util_init"), 0u);
    EXPECT_EQ(log(), (Log{"PRM notify handler enter\n", "PRM CONN notification handler enter\n",
                          "PRM CONN UP registering enter\n", "Reregister with PRM Enter\n",
                          "Reregister with PRM Exit\n", " PRM ready and conn up \n"}));
}

// ---- connection-up in detail -------------------------------------------------------------------

TEST_F(PrmNotification, TheConnectionUpAfterTheNextSetsTheDelayQueueUpAgain)
{
    notify(1, 2);
    notify(2, 1);
    notify(2, 1);
    EXPECT_EQ(services.count("prm_srh_delay_util_init"), 1u);
}

TEST_F(PrmNotification, AnyPendingMarkIsConsumedByAConnectionUp)
{
    context.np_reset_pending = 7;
    notify(2, 1);
    EXPECT_EQ(context.np_reset_pending, 0u);
    EXPECT_EQ(services.count("prm_srh_delay_util_init"), 0u);
}

TEST_F(PrmNotification, ADelayQueueThatCannotBeSetUpIsNotSpokenOf)
{
    root->conn_state = 0;
    services.force("prm_srh_delay_util_init", 5);
    notify(2, 1);
    EXPECT_EQ(root->conn_state, 4u);
    EXPECT_EQ(log().back(), "PRM notification handler exit\n");
    EXPECT_EQ(log_count(" PRM ready and conn up \n"), 1u);
}

TEST_F(PrmNotification, TheReadyBitIsSetBeforeTheDelayQueueAndNotBeforeTheRegistration)
{
    root->conn_state = 0;
    uint16_t at_registration = 0xFFFF;
    uint16_t at_delay_queue = 0xFFFF;
    services.script("prm_srh_reregister", [&](const vlc::ServiceCall &) {
        at_registration = root->conn_state;
        return std::nullopt;
    });
    services.script("prm_srh_delay_util_init", [&](const vlc::ServiceCall &) {
        at_delay_queue = root->conn_state;
        return std::nullopt;
    });
    notify(2, 1);
    EXPECT_EQ(at_registration, 0u);
    EXPECT_EQ(at_delay_queue, 4u);
}

TEST_F(PrmNotification, TheErrorFlagIsClearedBeforeTheRegistrationIsTried)
{
    engine_conn_error = 1;
    uint8_t at_registration = 9;
    services.script("prm_srh_get_handle", [&](const vlc::ServiceCall &) {
        at_registration = engine_conn_error;
        return std::nullopt;
    });
    notify(2, 1);
    EXPECT_EQ(at_registration, 0u);
}

TEST_F(PrmNotification, TheFlagsOfTheGivenRootChangeAndTheContextsRootIsRegistered)
{
    shadow_db other = {};
    other.conn_state = 7;
    notify(&other, 1, 2);
    EXPECT_EQ(other.conn_state, 0u);
    EXPECT_EQ(root->conn_state, 4u);

    root->conn_state = 0;
    notify(&other, 2, 1);
    EXPECT_EQ(other.conn_state, 4u);
    EXPECT_EQ(root->conn_state, 0u);
    EXPECT_EQ(other.prm_srh_hdl, nullptr);

    notify(&other, 2, 2);
    EXPECT_EQ(other.conn_state, 0u);
}

// ---- ignored notifications ---------------------------------------------------------------------

TEST_F(PrmNotification, WithoutARootOrANotificationNothingHappens)
{
    const prm_notification down = {2, 2};
    inline_svc_prm_notif_handler(nullptr, &down);
    inline_svc_prm_notif_handler(root, nullptr);
    pshadow_db = nullptr;
    inline_svc_prm_notif_handler(root, &down);
    EXPECT_TRUE(log().empty());
    EXPECT_EQ(root->conn_state, 4u);
}

// ---- the end of the process --------------------------------------------------------------------

class PrmNotificationDeathTest : public PrmNotification {};

TEST_F(PrmNotificationDeathTest, SixtyFailedRegistrationsOnConnectionUpEndTheProcessWithStatus1)
{
    services.force("prm_srh_reregister", 5);
    EXPECT_EXIT(notify(2, 1), ::testing::ExitedWithCode(1), "");
    const Log lines = log();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(Log(lines.end() - 3, lines.end()),
              (Log{"Retrying prm_srh_reregister, retry count : 60\n",
                   "V4 Re-register with PRM failed\n", " prm register failed Error, EXIT"}));
}

TEST_F(PrmNotificationDeathTest, StatisticsThatCannotBeSetUpEndTheProcessWithStatus1)
{
    root->stats_state = 0;
    services.force("shmwin_malloc", 12);
    EXPECT_EXIT(notify(2, 1), ::testing::ExitedWithCode(1), "");
    EXPECT_EQ(log().back(), " prm register failed Error, EXIT");
    EXPECT_EQ(log_count("inline stat init failed \n"), 1u);
}

TEST_F(PrmNotificationDeathTest, AConnectionUpWithoutAContextEndsTheProcessWithStatus1)
{
    pgbl_ptr = nullptr;
    EXPECT_EXIT(notify(2, 1), ::testing::ExitedWithCode(1), "");
    EXPECT_EQ(log().back(), " prm register failed Error, EXIT");
}

TEST_F(PrmNotificationDeathTest, FailuresOfTheNameAndTheDataPathStatisticsEndNothing)
{
    services.force("prm_srh_set_name", 5);
    services.force("plm_dpss_stats_init", 5);
    notify(2, 1);
    EXPECT_EQ(log_count(" prm register failed Error, EXIT"), 0u);
    EXPECT_EQ(log_count(" PRM ready and conn up \n"), 1u);
}

// ---- the state line ----------------------------------------------------------------------------

TEST_F(PrmNotification, EachPairOfReadyFlagsHasItsLine)
{
    struct Row {
        uint16_t prm_state;
        uint16_t conn_state;
        const char *line;
    };
    for (const Row &row :
         {Row{4, 4, " PRM ready and conn up \n"}, Row{4, 0, " PRM ready and conn down  \n"},
          Row{0, 4, " PRM NOT ready and conn up  \n"}, Row{0, 0, " PRM NOT ready and conn down \n"},
          Row{0xFFFF, 0xFFFF, " PRM ready and conn up \n"},
          Row{0xFFFB, 0xFFFB, " PRM NOT ready and conn down \n"}}) {
        shadow_db state = {};
        state.prm_state = row.prm_state;
        state.conn_state = row.conn_state;
        forget_log();
        inline_svc_log_prm_state(&state);
        EXPECT_EQ(log(), (Log{row.line}));
    }
}

TEST_F(PrmNotification, TheStateOfNoRootIsNotSpokenOf)
{
    inline_svc_log_prm_state(nullptr);
    EXPECT_TRUE(log().empty());
}

// ---- on the card's own events ------------------------------------------------------------------

TEST_F(PrmNotification, APrmRestartReregistersTheSameHandle)
{
    void *const handle = root->prm_srh_hdl;
    card->prm().go_down();
    run_events();
    EXPECT_EQ(root->conn_state, 0u);
    card->prm().come_up();
    run_events();
    EXPECT_EQ(root->conn_state, 4u);
    EXPECT_EQ(root->prm_srh_hdl, handle);
    EXPECT_EQ(services.count("prm_srh_reregister"), 1u);
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
    EXPECT_EQ(services.count("prm_srh_delay_util_init"), 1u);
}

TEST_F(PrmNotification, AnNpResetIsFollowedByOneConnectionUpWithoutDelayQueue)
{
    card->prm().np_reset();
    run_events();
    EXPECT_EQ(root->conn_state, 0u);
    EXPECT_EQ(context.np_reset_pending, 1u);
    card->prm().come_up();
    run_events();
    EXPECT_EQ(root->conn_state, 4u);
    EXPECT_EQ(context.np_reset_pending, 0u);
    EXPECT_EQ(services.count("prm_srh_delay_util_init"), 0u);
}

TEST_F(PrmNotification, AWarmBootAndAConnectionErrorArriveAsWell)
{
    card->prm().np_warm_boot();
    run_events();
    EXPECT_EQ(log_count("PRM NP notification warm boot state\n"), 1u);
    EXPECT_EQ(engine_conn_error, 0u);
    card->prm().report_error();
    run_events();
    EXPECT_EQ(engine_conn_error, 1u);
}

} // namespace
} // namespace test
