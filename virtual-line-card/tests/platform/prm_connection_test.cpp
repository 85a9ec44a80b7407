#include <cerrno>

#include "test_card.h"

using namespace std::chrono_literals;
using card_test::heard;
using card_test::on_answers;
using card_test::on_notification;
using Notifications = std::vector<std::string>;

namespace {

// The client of ClientTest has heard its first connection-up before the test begins.
using PrmConnection = card_test::InEachDeployment<card_test::ClientTest>;

struct shadow_db *context_heard;

void note_context(struct shadow_db *context, const prm_notification *)
{
    context_heard = context;
}

TEST_P(PrmConnection, OpeningWhilePrmIsUpAnnouncesTheConnectionLater)
{
    void *connection = nullptr;
    EXPECT_EQ(0u, prm_mgr_open(events().handle(), 0, "another", on_notification,
                               PRM_MGR_OPEN_EVENTS, nullptr, &connection));
    EXPECT_NE(nullptr, connection);
    EXPECT_EQ(Notifications{}, heard().notifications) << "never from inside the call";
    events().run_until_idle();
    EXPECT_EQ(Notifications{"2.1"}, heard().notifications);
}

TEST_P(PrmConnection, OpeningWhilePrmIsDownAnnouncesNothingUntilItComesUp)
{
    prm().go_down();
    events().run_until_idle();
    heard() = {};
    EXPECT_EQ(0u, open());
    events().run_until_idle();
    EXPECT_EQ(Notifications{}, heard().notifications);
    prm().come_up();
    events().run_until_idle();
    EXPECT_EQ(Notifications{"2.1"}, heard().notifications);
}

TEST_P(PrmConnection, NotificationsCarryTheContextOfTheOpening)
{
    int context = 0;
    void *connection = nullptr;
    ASSERT_EQ(0u, prm_mgr_open(events().handle(), 0, "another", note_context, PRM_MGR_OPEN_EVENTS,
                               &context, &connection));
    events().run_until_idle();
    EXPECT_EQ(static_cast<void *>(&context), static_cast<void *>(context_heard));
}

TEST_P(PrmConnection, EveryEventOfPrmIsANotificationAndTheyArriveInOrder)
{
    prm().report_error();
    prm().go_down();
    prm().come_up();
    prm().np_warm_boot();
    prm().np_reset();
    prm().restart(true);
    EXPECT_EQ(Notifications{}, heard().notifications);
    events().run_until_idle();
    EXPECT_EQ((Notifications{"2.4", "2.2", "2.1", "1.3", "1.2", "2.2", "2.1"}),
              heard().notifications);
}

TEST_P(PrmConnection, ANotificationOfNpsComingToRunningMayBeFollowedByConnectionUp)
{
    prm().np_reset();
    EXPECT_TRUE(prm().is_up());
    prm().come_up();
    events().run_until_idle();
    EXPECT_EQ((Notifications{"1.2", "2.1"}), heard().notifications);
}

TEST_P(PrmConnection, OpeningAgainReplacesTheConnectionOfThatClient)
{
    EXPECT_EQ(0u, open());
    events().run_until_idle();
    heard() = {};
    prm().report_error();
    events().run_until_idle();
    EXPECT_EQ(Notifications{"2.4"}, heard().notifications);
}

TEST_P(PrmConnection, TwoClientsBothHear)
{
    EXPECT_EQ(0u, open("another"));
    events().run_until_idle();
    heard() = {};
    prm().report_error();
    events().run_until_idle();
    EXPECT_EQ((Notifications{"2.4", "2.4"}), heard().notifications);
}

TEST_P(PrmConnection, ABadArgumentOfOpeningIsRefusedWithTheOutputUntouched)
{
    int unchanged = 0;
    void *connection = &unchanged;
    void *evm = events().handle();
    EXPECT_EQ(uint32_t{EINVAL},
              prm_mgr_open(nullptr, 0, "c", on_notification, 7, nullptr, &connection));
    EXPECT_EQ(uint32_t{EINVAL},
              prm_mgr_open(&unchanged, 0, "c", on_notification, 7, nullptr, &connection));
    EXPECT_EQ(uint32_t{EINVAL},
              prm_mgr_open(evm, 0, nullptr, on_notification, 7, nullptr, &connection));
    EXPECT_EQ(uint32_t{EINVAL}, prm_mgr_open(evm, 0, "c", nullptr, 7, nullptr, &connection));
    EXPECT_EQ(&unchanged, connection);
    EXPECT_EQ(uint32_t{EINVAL}, prm_mgr_open(evm, 0, "c", on_notification, 7, nullptr, nullptr));
}

TEST_P(PrmConnection, NothingIsDeliveredOnceTheCardIsGone)
{
    vlc::EventManager own_events;
    void *connection = nullptr;
    ASSERT_EQ(0u, prm_mgr_open(own_events.handle(), 0, "another", on_notification, 7, nullptr,
                               &connection));
    restart_process();
    own_events.run_until_idle();
    EXPECT_EQ(Notifications{}, heard().notifications);
}

TEST_P(PrmConnection, AnEventManagerThatIsGoneHearsNothingMore)
{
    void *connection = nullptr;
    {
        vlc::EventManager own_events;
        ASSERT_EQ(0u, prm_mgr_open(own_events.handle(), 0, "another", on_notification, 7, nullptr,
                                   &connection));
    }
    prm().report_error();
    events().run_until_idle();
    EXPECT_EQ(Notifications{"2.4"}, heard().notifications);
}

using PrmHandles = card_test::InEachDeployment<card_test::ClientTest>;

TEST_P(PrmHandles, AHandleIsFoundByTheNameItWasGiven)
{
    void *found = nullptr;
    EXPECT_EQ(0u, prm_srh_get_handle(card_test::client_name.c_str(), &found));
    EXPECT_NE(nullptr, found);
    EXPECT_EQ(handle(), found);
}

TEST_P(PrmHandles, AnUnknownNameIsACodeWithTheOutputUntouched)
{
    void *found = handle();
    EXPECT_EQ(uint32_t{vlc::prm_name_unknown}, prm_srh_get_handle("nobody", &found));
    EXPECT_EQ(handle(), found);
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_get_handle(nullptr, &found));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_get_handle("nobody", nullptr));
}

TEST_P(PrmHandles, AHandleMayBeGivenAnotherName)
{
    void *found = nullptr;
    EXPECT_EQ(0u, prm_srh_set_name(handle(), "new name"));
    EXPECT_EQ(0u, prm_srh_get_handle("new name", &found));
    EXPECT_EQ(handle(), found);
    EXPECT_EQ(uint32_t{vlc::prm_name_unknown},
              prm_srh_get_handle(card_test::client_name.c_str(), &found));
}

TEST_P(PrmHandles, ANameThatIsMissingEmptyOrTooLongIsRefused)
{
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_set_name(handle(), nullptr));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_set_name(handle(), ""));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_set_name(handle(), std::string(200, 'n').c_str()));
    EXPECT_EQ(uint32_t{vlc::prm_bad_handle}, prm_srh_set_name(nullptr, "name"));
}

TEST_P(PrmHandles, RegistrationEndsWhenEveryHandleIsTaken)
{
    void *more = nullptr;
    for (uint32_t i = 1; i < vlc::PrmStore::max_handles; i++)
        ASSERT_EQ(0u, prm_srh_register(&more, 2, events().handle(), on_answers));
    void *last = more;
    EXPECT_EQ(uint32_t{vlc::prm_no_handle},
              prm_srh_register(&more, 2, events().handle(), on_answers));
    EXPECT_EQ(last, more);
}

TEST_P(PrmHandles, ABadArgumentOfARegistrationIsRefused)
{
    void *made = handle();
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_register(nullptr, 2, events().handle(), on_answers));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_register(&made, 2, nullptr, on_answers));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_register(&made, 2, events().handle(), nullptr));
    EXPECT_EQ(handle(), made);
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_reregister(handle(), nullptr, on_answers));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_reregister(handle(), events().handle(), nullptr));
}

TEST_P(PrmHandles, OnlyALiveHandleIsTakenOver)
{
    void *const huge = reinterpret_cast<void *>((uintptr_t{1} << 32) | number());
    EXPECT_EQ(0u, prm_srh_reregister(handle(), events().handle(), on_answers));
    EXPECT_EQ(uint32_t{vlc::prm_bad_handle},
              prm_srh_reregister(nullptr, events().handle(), on_answers));
    EXPECT_EQ(uint32_t{vlc::prm_bad_handle},
              prm_srh_reregister(&heard(), events().handle(), on_answers));
    EXPECT_EQ(uint32_t{vlc::prm_bad_handle},
              prm_srh_reregister(huge, events().handle(), on_answers));
}

TEST_P(PrmHandles, ABrokenConnectionReachesNoHandle)
{
    void *found = nullptr;
    prm().go_down();
    EXPECT_EQ(uint32_t{vlc::prm_not_connected},
              prm_srh_get_handle(card_test::client_name.c_str(), &found));
    EXPECT_EQ(uint32_t{vlc::prm_not_connected},
              prm_srh_register(&found, 2, events().handle(), on_answers));
    EXPECT_EQ(uint32_t{vlc::prm_not_connected},
              prm_srh_reregister(handle(), events().handle(), on_answers));
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, prm_srh_set_name(handle(), "name"));
    EXPECT_EQ(nullptr, found);
}

TEST_P(PrmHandles, AHandleIsKnownByItsNameAfterPrmRestarted)
{
    void *found = nullptr;
    prm().restart(false);
    EXPECT_EQ(0u, prm_srh_get_handle(card_test::client_name.c_str(), &found));
    EXPECT_EQ(handle(), found);
    EXPECT_EQ(0u, prm_srh_reregister(found, events().handle(), on_answers));
}

IN_BOTH_DEPLOYMENTS(PrmConnection);
IN_BOTH_DEPLOYMENTS(PrmHandles);

} // namespace
