#include "vlc/prm_ledger.h"

#include "test_card.h"

namespace {

using card_test::heard;

// The book of a client, whose card is in its process or not.
class PrmLedgers : public card_test::InEachDeployment<card_test::ClientTest> {
protected:
    const vlc::PrmLedger::Sums &sums() { return card().ledger().sums(); }
    vlc::StoredAnswer answer_to(const std::string &key)
    {
        vlc::StoredAnswer answer{};
        answer.key_len = static_cast<uint16_t>(key.size());
        std::copy(key.begin(), key.end(), answer.key);
        return answer;
    }
};

TEST_P(PrmLedgers, AreCleanWhenEveryRequestHasItsAnswer)
{
    add("a");
    add("a"); // fails later, which is an answer too
    EXPECT_EQ(2u, sums().unanswered);
    events().run_until_idle();
    EXPECT_TRUE(sums().is_clean());
    EXPECT_EQ(2u, sums().requests[0][PRM_OP_ADD]);
}

TEST_P(PrmLedgers, DoNotTakeInWhatPrmRefused)
{
    EXPECT_NE(0u, add(""));
    prm().go_down();
    EXPECT_NE(0u, add("a"));
    EXPECT_EQ(0u, sums().unanswered);
    EXPECT_EQ(0u, sums().requests[0][PRM_OP_ADD]);
}

TEST_P(PrmLedgers, CountAnAnswerThatNothingWasAskedFor)
{
    add("a");
    prm().queue_answer(number(), answer_to("a"));
    prm().queue_answer(number(), answer_to("b"));
    events().run_until_idle();
    EXPECT_EQ(3u, heard().answers.size());
    EXPECT_EQ(2u, sums().unasked);
    EXPECT_EQ(0u, sums().unanswered);
}

TEST_P(PrmLedgers, CountTheAnswersToAnEarlierProcess)
{
    add("a");
    restart_process();
    void *found = nullptr;
    ASSERT_EQ(0u, prm_srh_get_handle(card_test::client_name.c_str(), &found));
    ASSERT_EQ(0u, prm_srh_reregister(found, events().handle(), card_test::on_answers));
    events().run_until_idle();
    EXPECT_EQ(1u, sums().unasked);
}

TEST_P(PrmLedgers, LeaveOutTheAnswersOfPrmsOwnDelayQueue)
{
    vlc::StoredAnswer answer{};
    answer.refnum = PRM_REFNUM_DELAY_QUEUE;
    prm().queue_answer(number(), answer);
    events().run_until_idle();
    EXPECT_EQ(1u, heard().answers.size());
    EXPECT_TRUE(sums().is_clean());
}

TEST_P(PrmLedgers, SayWhatWasInFlightWhenTheConnectionBroke)
{
    add("a");
    add("b");
    prm().restart(true);
    events().run_until_idle();
    EXPECT_EQ(1u, sums().breaks);
    EXPECT_EQ(2u, sums().in_flight_at_breaks);
    prm().restart(true);
    events().run_until_idle();
    EXPECT_EQ(2u, sums().breaks);
}

IN_BOTH_DEPLOYMENTS(PrmLedgers);

} // namespace
