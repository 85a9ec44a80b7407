#include <cerrno>
#include <cstring>

#include "test_card.h"

using namespace std::chrono_literals;
using card_test::heard;
using card_test::key_of;

namespace {

using PrmAnswers = card_test::InEachDeployment<card_test::ClientTest>;

std::string keys_heard()
{
    std::string keys;
    for (const auto &answer : heard().answers)
        keys += key_of(answer);
    return keys;
}

vlc::StoredAnswer answer_with(uint32_t refnum)
{
    vlc::StoredAnswer answer{};
    answer.refnum = refnum;
    return answer;
}

TEST_P(PrmAnswers, AreReadInTheOrderOfTheirRequestsInOneCallback)
{
    add("a");
    add("b");
    add("c");
    EXPECT_EQ(0, heard().callbacks) << "never from inside a call";
    events().run_until_idle();
    EXPECT_EQ("abc", keys_heard());
    EXPECT_EQ(1, heard().callbacks);
}

TEST_P(PrmAnswers, TheCallbackIsCalledAgainWhileAnswersRemain)
{
    heard().answers_per_callback = 1;
    add("a");
    add("b");
    add("c");
    events().run_until_idle();
    EXPECT_EQ("abc", keys_heard());
    EXPECT_EQ(3, heard().callbacks);
}

TEST_P(PrmAnswers, ACallbackThatReadsNothingIsCalledAgainLaterAndNotAtOnce)
{
    heard().answers_per_callback = 0;
    add("a");
    add("b");
    events().run_until_idle();
    EXPECT_EQ(1, heard().callbacks) << "one for both answers";
    run_for(1s);
    EXPECT_GT(heard().callbacks, 1);
    EXPECT_LT(heard().callbacks, 100);
    heard().answers_per_callback = 1;
    run_for(1s);
    EXPECT_EQ("ab", keys_heard());
}

TEST_P(PrmAnswers, AnAnswerQueuedWhileTheCallbackWaitsIsReadWithTheOthers)
{
    add("a");
    events().post([this] { add("b"); });
    events().run_until_idle();
    EXPECT_EQ("ab", keys_heard());
}

TEST_P(PrmAnswers, NoCallbackComesWhenTheAnswersWereReadAlready)
{
    add("a");
    prm_async_response answer;
    EXPECT_EQ(0u, prm_srh_async_resp_data(handle(), &answer));
    EXPECT_EQ("a", key_of(answer));
    events().run_until_idle();
    EXPECT_EQ(0, heard().callbacks);
    add("b");
    events().run_until_idle();
    EXPECT_EQ(1, heard().callbacks);
}

TEST_P(PrmAnswers, AnEmptyQueueHasACodeOfItsOwnAndLeavesTheRecordAlone)
{
    prm_async_response answer{};
    answer.np = 77;
    EXPECT_EQ(PRM_RESPONSE_QUEUE_EMPTY, prm_srh_async_resp_data(handle(), &answer));
    EXPECT_EQ(77u, answer.np);
}

TEST_P(PrmAnswers, AQueueThatCannotBeReadIsAnotherCode)
{
    add("a");
    prm_async_response answer{};
    answer.np = 77;
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_async_resp_data(handle(), nullptr));
    EXPECT_EQ(uint32_t{vlc::prm_bad_handle}, prm_srh_async_resp_data(nullptr, &answer));
    prm().go_down();
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, prm_srh_async_resp_data(handle(), &answer));
    EXPECT_EQ(77u, answer.np);
}

TEST_P(PrmAnswers, WhatLiesBeyondKeyAndResultIsZero)
{
    add("a", "r");
    prm_async_response answer;
    std::memset(&answer, 0xFF, sizeof answer);
    ASSERT_EQ(0u, prm_srh_async_resp_data(handle(), &answer));
    EXPECT_EQ(1u, answer.key_size);
    EXPECT_EQ(0, answer.key[1]);
    EXPECT_EQ(0, answer.key[103]);
    EXPECT_EQ(1u, answer.result_size);
    EXPECT_EQ(0, answer.result[1]);
    EXPECT_EQ(0, answer.result[1243]);
    EXPECT_EQ(0u, answer.vrf_id);
}

TEST_P(PrmAnswers, AnswersKeptOverABrokenConnectionAreAnnouncedByReregistering)
{
    add("a");
    prm().go_down();
    events().run_until_idle();
    EXPECT_EQ(0, heard().callbacks) << "a broken connection delivers nothing";
    prm().come_up();
    EXPECT_EQ(0u, prm_srh_reregister(handle(), events().handle(), card_test::on_answers));
    events().run_until_idle();
    EXPECT_EQ("a", keys_heard());
    EXPECT_EQ(1, heard().callbacks);
}

TEST_P(PrmAnswers, ReregisteringTwiceAnnouncesOnce)
{
    add("a");
    prm_srh_reregister(handle(), events().handle(), card_test::on_answers);
    prm_srh_reregister(handle(), events().handle(), card_test::on_answers);
    events().run_until_idle();
    EXPECT_EQ(1, heard().callbacks);
}

TEST_P(PrmAnswers, ACallbackMovesToTheEventManagerOfTheReregistration)
{
    vlc::EventManager own_events;
    add("a");
    prm_srh_reregister(handle(), own_events.handle(), card_test::on_answers);
    events().run_until_idle();
    EXPECT_EQ(0, heard().callbacks);
    own_events.run_until_idle();
    EXPECT_EQ("a", keys_heard());
}

TEST_P(PrmAnswers, AnyAnswerCanBeQueuedByATest)
{
    auto answer = answer_with(0x100);
    answer.np = 1;
    answer.status = vlc::prm_table_full;
    answer.flags = 0xF;
    answer.vrf_id = 9;
    EXPECT_EQ(0u, prm().queue_answer(number(), answer));
    EXPECT_EQ(uint32_t{vlc::prm_bad_handle}, prm().queue_answer(number() + 1, answer));
    events().run_until_idle();
    ASSERT_EQ(1u, heard().answers.size());
    EXPECT_EQ(0x100u, heard().answers[0].refnum);
    EXPECT_EQ(1u, heard().answers[0].np);
    EXPECT_EQ(uint32_t{vlc::prm_table_full}, heard().answers[0].status);
    EXPECT_EQ(0xFu, heard().answers[0].flags);
    EXPECT_EQ(9u, heard().answers[0].vrf_id);
}

class PrmDelayQueue : public card_test::InEachDeployment<card_test::ClientTest> {
protected:
    uint32_t set_up(uint32_t depth = 50)
    {
        return prm_srh_delay_util_init(handle(), PRM_DELAY_QUEUE_ID, PRM_DELAY_QUEUE_FLAGS, depth,
                                       PRM_DELAY_QUEUE_SECONDS, card_test::on_delayed,
                                       PRM_DELAY_QUEUE_KIND);
    }
};

TEST_P(PrmDelayQueue, AnItemIsGivenToTheDelayCallbackAfterItsSeconds)
{
    EXPECT_EQ(0u, set_up());
    EXPECT_EQ(0u, prm_srh_delay_queue_process(0x1200AB));
    EXPECT_EQ(0, heard().delayed) << "never from inside the call";
    run_for(30s - 1ns);
    EXPECT_EQ(0, heard().delayed);
    run_for(1s);
    EXPECT_EQ(1, heard().delayed);
}

TEST_P(PrmDelayQueue, HoldsAsManyItemsAsItIsDeep)
{
    EXPECT_EQ(0u, set_up(2));
    EXPECT_EQ(0u, prm_srh_delay_queue_process(PRM_REFNUM_DELAY_QUEUE));
    EXPECT_EQ(0u, prm_srh_delay_queue_process(PRM_REFNUM_DELAY_QUEUE));
    EXPECT_EQ(uint32_t{vlc::prm_no_room}, prm_srh_delay_queue_process(PRM_REFNUM_DELAY_QUEUE));
    run_for(31s);
    EXPECT_EQ(2, heard().delayed);
    EXPECT_EQ(0u, prm_srh_delay_queue_process(PRM_REFNUM_DELAY_QUEUE));
}

TEST_P(PrmDelayQueue, AReferenceNumberOfAnythingElseIsRefused)
{
    EXPECT_EQ(0u, set_up());
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_delay_queue_process(0));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_delay_queue_process(0xAB00));
    run_for(31s);
    EXPECT_EQ(0, heard().delayed);
}

TEST_P(PrmDelayQueue, IsRefusedBeforeItIsSetUpAndForABadHandleOrCallback)
{
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_delay_queue_process(PRM_REFNUM_DELAY_QUEUE));
    EXPECT_EQ(uint32_t{EINVAL}, prm_srh_delay_util_init(handle(), 1, 0, 50, 30, nullptr, 4));
    EXPECT_EQ(uint32_t{vlc::prm_bad_handle},
              prm_srh_delay_util_init(nullptr, 1, 0, 50, 30, card_test::on_delayed, 4));
}

TEST_P(PrmDelayQueue, ItsAnswersComeThroughTheResponseQueue)
{
    EXPECT_EQ(0u, prm().queue_answer(number(), answer_with(PRM_REFNUM_DELAY_QUEUE)));
    events().run_until_idle();
    ASSERT_EQ(1u, heard().answers.size());
    EXPECT_EQ(uint32_t{PRM_REFNUM_DELAY_QUEUE}, heard().answers[0].refnum);
}

class CardRestart : public card_test::InEachDeployment<card_test::ClientTest> {
protected:
    void *find()
    {
        void *found = nullptr;
        prm_srh_get_handle(card_test::client_name.c_str(), &found);
        return found;
    }
};

TEST_P(CardRestart, HandlesUnreadAnswersAndTablesAreKept)
{
    add("a");
    add("a");
    restart_process();
    EXPECT_EQ(handle(), find());
    EXPECT_EQ(2u, prm().unread(number()));
    EXPECT_NE(nullptr,
              nps()[0].table(vlc::TableKind::service_config).find(card_test::bytes_of("a")));
}

TEST_P(CardRestart, TheUnreadAnswersAreAnnouncedToWhoeverTakesTheHandleOver)
{
    add("a");
    add("b");
    restart_process();
    events().run_until_idle();
    EXPECT_EQ(0, heard().callbacks);
    EXPECT_EQ(0u, prm_srh_reregister(find(), events().handle(), card_test::on_answers));
    EXPECT_EQ(0, heard().callbacks);
    events().run_until_idle();
    EXPECT_EQ("ab", keys_heard());
}

TEST_P(CardRestart, AReadAnswerDoesNotComeBack)
{
    add("a");
    events().run_until_idle();
    restart_process();
    EXPECT_EQ(0u, prm().unread(number()));
}

TEST_P(CardRestart, TheConnectionIsUpAgainForANewOpening)
{
    restart_process();
    heard() = {};
    EXPECT_EQ(0u, open());
    events().run_until_idle();
    EXPECT_EQ(std::vector<std::string>{"2.1"}, heard().notifications);
}

IN_BOTH_DEPLOYMENTS(PrmAnswers);
IN_BOTH_DEPLOYMENTS(PrmDelayQueue);
IN_BOTH_DEPLOYMENTS(CardRestart);

} // namespace
