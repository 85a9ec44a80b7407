// PRM's late answers: how a drain reads them, which it reports, and the summary that ends it.

#include <cstring>
#include <deque>

#include "card_fixture.h"
#include "vlc/prm_store.h"

namespace test {
namespace {

using Names = std::vector<std::string>;
using Log = std::vector<std::string>;

constexpr uint32_t queue_empty = 0x257C5400;
constexpr const char *nothing_read =
    "Async Error on Service CONF: rc=Success (0x0) on Service Add route NP0";

prm_async_response answer(uint32_t np, uint32_t status, uint32_t refnum)
{
    prm_async_response response = {};
    response.np = np;
    response.status = status;
    response.refnum = refnum;
    return response;
}

// The answers that PRM has ready are the test's.
class PrmAnswers : public RunningCardTest {
public:
    PrmAnswers()
    {
        services.script("prm_srh_async_resp_data",
                        [this](const vlc::ServiceCall &call) { return read(call); });
    }
    PrmAnswers &ready(const prm_async_response &response, uint32_t rc = 0)
    {
        queue_.push_back({rc, response, true});
        return *this;
    }
    // A read that fails without an answer.
    PrmAnswers &unreadable(uint32_t rc)
    {
        queue_.push_back({rc, {}, false});
        return *this;
    }
    void drain()
    {
        forget_log();
        services.forget();
        inline_svc_prm_async_resp_handler();
    }
    size_t left() const { return queue_.size(); }
    Log report_lines() const
    {
        Log lines;
        for (const std::string &line : log())
            if (line.rfind("PRM connection error", 0) == 0)
                lines.push_back(line);
        return lines;
    }

private:
    struct Read {
        uint32_t rc;
        prm_async_response response;
        bool fills;
    };
    std::optional<uint64_t> read(const vlc::ServiceCall &call)
    {
        if (queue_.empty())
            return queue_empty;
        const Read next = queue_.front();
        queue_.pop_front();
        if (next.fills)
            memcpy(reinterpret_cast<void *>(call.args[1]), &next.response, sizeof next.response);
        return next.rc;
    }

    std::deque<Read> queue_;
};

// ---- the drain ---------------------------------------------------------------------------------

TEST_F(PrmAnswers, AnEmptyQueueStillEndsWithASummary)
{
    drain();
    EXPECT_EQ(log(), (Log{nothing_read}));
    EXPECT_EQ(services.names(), (Names{"prm_srh_async_resp_data", "cerr_strerror"}));
}

TEST_F(PrmAnswers, AnswersAreReadOnTheHandleOfTheContextsRoot)
{
    shadow_db other = {};
    other.prm_srh_hdl = &other;
    context.shadow_db = &other;
    drain();
    EXPECT_EQ(services.calls_of("prm_srh_async_resp_data").at(0).args[0],
              reinterpret_cast<uintptr_t>(&other));
    context.shadow_db = root;
}

TEST_F(PrmAnswers, SuccessesAreReadToTheEndAndNotSpokenOf)
{
    ready(answer(0, 0, 0x001)).ready(answer(1, 0, 0x101)).ready(answer(2, 0, 0x201));
    drain();
    EXPECT_EQ(left(), 0u);
    EXPECT_EQ(services.count("prm_srh_async_resp_data"), 4u);
    EXPECT_EQ(log(), (Log{nothing_read})) << "a run without failure speaks of NP 0";
}

TEST_F(PrmAnswers, AFailedAnswerHasItsLineWithEveryField)
{
    prm_async_response failed = answer(3, 5, 0x201);
    failed.flags = 0xBEEF;
    failed.key_size = 6;
    failed.result_size = 10;
    ready(failed);
    drain();
    EXPECT_EQ(log().at(0), "PRM async call failed(v4): np 3 flags 0xbeef refnum 0x201 key_size 6 "
                           "res_size 10 Err:Input/output error");
}

TEST_F(PrmAnswers, OneFailureIsReportedAndTheSummarySpeaksOfNothing)
{
    ready(answer(3, 5, 0x201));
    drain();
    EXPECT_EQ(log(), (Log{"PRM async call failed(v4): np 3 flags 0x0 refnum 0x201 key_size 0 "
                          "res_size 0 Err:Input/output error",
                          "PRM connection error Error encountered while programming the hw. FIB "
                          "will be reset and routes will be reprogrammed.Error = 0x00000005, np_id "
                          "= 3, ref_num = 0x00000201 vrf id = 0",
                          nothing_read}));
}

TEST_F(PrmAnswers, OfThreeFailuresTheFirstIsReportedAndTheThirdSummedUp)
{
    ready(answer(1, 5, 0x000)).ready(answer(2, 22, 0x101)).ready(answer(3, 12, 0x201));
    drain();
    EXPECT_EQ(log(), (Log{"PRM async call failed(v4): np 1 flags 0x0 refnum 0x0 key_size 0 "
                          "res_size 0 Err:Input/output error",
                          "PRM async call failed(v4): np 2 flags 0x0 refnum 0x101 key_size 0 "
                          "res_size 0 Err:Invalid argument",
                          "PRM async call failed(v4): np 3 flags 0x0 refnum 0x201 key_size 0 "
                          "res_size 0 Err:Cannot allocate memory",
                          "PRM connection error Error encountered while programming the hw. FIB "
                          "will be reset and routes will be reprogrammed.Error = 0x00000005, np_id "
                          "= 1, ref_num = 0x00000000 vrf id = 0",
                          "Async Error on Ext Datadb CONF: rc=Cannot allocate memory (0xc) on Ext "
                          "Con Delete route NP3"}));
}

TEST_F(PrmAnswers, SuccessesBeforeTheFirstFailureLeaveNoTrace)
{
    prm_async_response before = answer(7, 0, 0x101);
    before.vrf_id = 99;
    ready(before).ready(answer(3, 5, 0x201));
    drain();
    EXPECT_EQ(report_lines(),
              (Log{"PRM connection error Error encountered while programming the hw. FIB will be "
                   "reset and routes will be reprogrammed.Error = 0x00000005, np_id = 3, ref_num = "
                   "0x00000201 vrf id = 0"}));
    EXPECT_EQ(log().back(), nothing_read);
}

TEST_F(PrmAnswers, ASuccessAfterTheFirstFailureIsWhatTheSummarySpeaksOf)
{
    ready(answer(1, 5, 0x000)).ready(answer(2, 0, 0x101));
    drain();
    EXPECT_EQ(report_lines().size(), 1u);
    EXPECT_EQ(log().back(),
              "Async Error on Ext Datadb CONF: rc=Success (0x0) on Ext Con Modify route NP2");
}

TEST_F(PrmAnswers, TheFirstFailureIsKeptUnchangedWhileLaterAnswersAreRead)
{
    prm_async_response first = answer(1, 5, 0x000);
    first.key_size = 2;
    first.key[0] = 0xAB;
    first.key[1] = 0xCD;
    prm_async_response later = answer(2, 22, 0x101);
    later.key_size = 3;
    memset(later.key, 0xEE, sizeof later.key);
    ready(first).ready(later);
    drain();
    EXPECT_EQ(log_count("key key <len 2>: abcd"), 1u);
}

// ---- reads that fail ---------------------------------------------------------------------------

TEST_F(PrmAnswers, AFailedReadEndsTheDrainWithItsLine)
{
    unreadable(5).ready(answer(1, 5, 0));
    drain();
    EXPECT_EQ(log(),
              (Log{"prm_srh_async_resp_data() error: rc=0x5(Input/output error)", nothing_read}));
    EXPECT_EQ(left(), 1u);
}

TEST_F(PrmAnswers, AFailedReadShowsItsCodeInHexadecimal)
{
    unreadable(0x257C5401);
    drain();
    EXPECT_EQ(log().at(0), "prm_srh_async_resp_data() error: rc=0x257c5401(PRM: no such "
                           "service-request handle)");
}

TEST_F(PrmAnswers, FailuresReadBeforeAFailedReadAreStillReported)
{
    ready(answer(1, 5, 0x100)).ready(answer(2, 22, 0x101)).unreadable(12);
    drain();
    EXPECT_EQ(log().size(), 5u);
    EXPECT_EQ(log().at(2), "prm_srh_async_resp_data() error: rc=0xc(Cannot allocate memory)");
    EXPECT_EQ(report_lines().size(), 1u);
    EXPECT_EQ(log().back(), "Async Error on Ext Datadb CONF: rc=Invalid argument (0x16) on Ext Con "
                            "Modify route NP2");
}

// ---- the delay queue ---------------------------------------------------------------------------

TEST_F(PrmAnswers, ADelayQueueAnswerGoesToItsQueueAndEndsTheDrain)
{
    ready(answer(1, 0, 0x123456AB)).ready(answer(2, 5, 0));
    drain();
    EXPECT_EQ(left(), 1u);
    EXPECT_EQ(services.calls_of("prm_srh_delay_queue_process").at(0).args,
              (std::vector<uint64_t>{0x123456AB}));
    EXPECT_EQ(log(), (Log{nothing_read}));
}

TEST_F(PrmAnswers, ADelayQueueAnswerIsNotLookedAtForFailure)
{
    ready(answer(1, 5, 0xAB));
    drain();
    EXPECT_EQ(services.count("prm_srh_delay_queue_process"), 1u);
    EXPECT_EQ(log(), (Log{nothing_read}));
}

TEST_F(PrmAnswers, ADelayQueueAnswerComesBeforeTheCodeOfItsRead)
{
    ready(answer(1, 0, 0xAB), 5);
    drain();
    EXPECT_EQ(services.count("prm_srh_delay_queue_process"), 1u);
    EXPECT_EQ(log(), (Log{nothing_read}));
}

TEST_F(PrmAnswers, AnEmptyQueueComesBeforeWhatTheRecordHolds)
{
    ready(answer(1, 0, 0xAB), queue_empty);
    drain();
    EXPECT_EQ(services.count("prm_srh_delay_queue_process"), 0u);
}

TEST_F(PrmAnswers, ADelayQueueThatRefusesItsAnswerIsNotSpokenOf)
{
    services.force("prm_srh_delay_queue_process", 22);
    ready(answer(1, 0, 0xAB));
    drain();
    EXPECT_EQ(log(), (Log{nothing_read}));
}

TEST_F(PrmAnswers, ADelayQueueAnswerAfterAFailureIsWhatTheSummarySpeaksOf)
{
    ready(answer(1, 5, 0)).ready(answer(2, 0, 0x2AB));
    drain();
    EXPECT_EQ(report_lines().size(), 1u);
    EXPECT_EQ(log().back(),
              "Async Error: rc=Success (0x0) on Unknown Delete refnum 0x000002ab NP2");
}

// ---- the summary -------------------------------------------------------------------------------

class PrmAnswerSummary : public PrmAnswers {
protected:
    std::string summary_of(const prm_async_response &response)
    {
        ready(answer(0, 5, 0)).ready(response);
        drain();
        return log().back();
    }
};

TEST_F(PrmAnswerSummary, EachOperationIsNamedBySevenCharactersAtMost)
{
    const std::pair<uint32_t, const char *> rows[] = {
        {0, "Add"}, {1, "Modify"},  {2, "Delete"},  {3, "Del_all"},    {4, "Info"},
        {5, "Get"}, {6, "Unknown"}, {7, "Unknown"}, {0xAB, "Unknown"}, {0xFF, "Unknown"}};
    for (const auto &[operation, name] : rows) {
        EXPECT_EQ(summary_of(answer(4, 22, operation << 8)),
                  std::string("Async Error on Service CONF: rc=Invalid argument (0x16) on "
                              "Service ") +
                      name + " route NP4");
        EXPECT_EQ(summary_of(answer(4, 22, operation << 8 | 1)),
                  std::string("Async Error on Ext Datadb CONF: rc=Invalid argument (0x16) on "
                              "Ext Con ") +
                      name + " route NP4");
    }
}

TEST_F(PrmAnswerSummary, EveryOtherTableIsUnknownAndShowsItsReferenceNumber)
{
    for (uint32_t table = 2; table <= 0xFF; ++table) {
        if (table == 0xAB)
            continue; // the delay queue's
        char expected[120];
        snprintf(expected, sizeof expected,
                 "Async Error: rc=Invalid argument (0x16) on Unknown Modify refnum 0x%08x NP4",
                 0x100 | table);
        EXPECT_EQ(summary_of(answer(4, 22, 0x100 | table)), expected);
    }
}

TEST_F(PrmAnswerSummary, OnlyTheTwoLowBytesOfTheReferenceNumberNameSomething)
{
    EXPECT_EQ(summary_of(answer(4, 22, 0xFFFF0201)),
              "Async Error on Ext Datadb CONF: rc=Invalid argument (0x16) on Ext Con Delete route "
              "NP4");
    EXPECT_EQ(summary_of(answer(4, 22, 0x12340302)),
              "Async Error: rc=Invalid argument (0x16) on Unknown Del_all refnum 0x12340302 NP4");
}

TEST_F(PrmAnswerSummary, AnNpAboveTheSignedRangeIsShownNegative)
{
    EXPECT_EQ(summary_of(answer(0xFFFFFFFF, 22, 0)),
              "Async Error on Service CONF: rc=Invalid argument (0x16) on Service Add route NP-1");
}

// ---- without a context -------------------------------------------------------------------------

TEST_F(PrmAnswers, WithoutAContextNothingIsRead)
{
    pgbl_ptr = nullptr;
    ready(answer(1, 5, 0));
    drain();
    EXPECT_EQ(log(), (Log{"global context  missing \n"}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(PrmAnswers, AContextWithoutARootReadsNothingAndDoesNotFault)
{
    context.shadow_db = nullptr;
    ready(answer(1, 5, 0));
    drain();
    EXPECT_TRUE(services.calls().empty());
    EXPECT_EQ(left(), 1u);
    context.shadow_db = root;
}

// ---- answers of the card's own PRM -------------------------------------------------------------

class PrmAnswersOfTheCard : public RunningCardTest {
protected:
    void create(uint32_t entry_id, const std::string &key)
    {
        Batch batch(1);
        batch.create(entry_id, 0, key, "0123456789");
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
        forget_log();
        services.forget();
    }
};

TEST_F(PrmAnswersOfTheCard, TheAnswersOfARequestAreDrainedOnTheEventManager)
{
    create(1, "key");
    run_events();
    EXPECT_EQ(log(), (Log{nothing_read}));
    EXPECT_EQ(services.count("prm_srh_async_resp_data"), 3u) << "one for each NP, and the end";
}

TEST_F(PrmAnswersOfTheCard, AKeyThatIsProgrammedTwiceIsReportedWithKeyAndResult)
{
    create(1, "key");
    run_events();
    create(2, "key");
    run_events();
    EXPECT_EQ(log(),
              (Log{"PRM async call failed(v4): np 0 flags 0x0 refnum 0x0 key_size 3 res_size 10 "
                   "Err:PRM: key exists already",
                   "PRM async call failed(v4): np 1 flags 0x0 refnum 0x0 key_size 3 res_size 10 "
                   "Err:PRM: key exists already",
                   "PRM connection error Error encountered while programming the hw. FIB will be "
                   "reset and routes will be reprogrammed.Error = 0x257c5404, np_id = 0, ref_num = "
                   "0x00000000 vrf id = 0",
                   "key key <len 3>: 6b6579", "result result <len 10>: 30c00002343536373839",
                   "Async Error on Service CONF: rc=PRM: key exists already (0x257c5404) on "
                   "Service Add route NP1"}));
}

TEST_F(PrmAnswersOfTheCard, ADelayedAnswerReachesTheLibrarysDelayHandlerThirtySecondsLater)
{
    vlc::StoredAnswer delayed = {};
    delayed.refnum = 0x1AB;
    const auto handle = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(root->prm_srh_hdl));
    ASSERT_EQ(card->prm().queue_answer(handle, delayed), 0u);
    run_events();
    EXPECT_EQ(services.calls_of("prm_srh_delay_queue_process").at(0).args,
              (std::vector<uint64_t>{0x1AB}));
    const auto before = vlc::CardClock::now();
    card->events().run_until([] { return false; });
    EXPECT_EQ(vlc::CardClock::now() - before, std::chrono::seconds(30));
}

TEST_F(PrmAnswersOfTheCard, WhatAFullDrainLeftBehindTheDelayQueueIsReadInTheNext)
{
    create(1, "key");
    vlc::StoredAnswer delayed = {};
    delayed.refnum = 0xAB;
    const auto handle = static_cast<uint32_t>(reinterpret_cast<uintptr_t>(root->prm_srh_hdl));
    ASSERT_EQ(card->prm().queue_answer(handle, delayed), 0u);
    vlc::StoredAnswer failed = {};
    failed.np = 1;
    failed.status = 5;
    ASSERT_EQ(card->prm().queue_answer(handle, failed), 0u);
    run_events();
    EXPECT_EQ(card->prm().unread(handle), 0u);
    EXPECT_EQ(log_count(nothing_read), 2u);
    EXPECT_EQ(log_count("PRM async call failed(v4): np 1 flags 0x0 refnum 0x0 key_size 0 res_size "
                        "0 Err:Input/output error"),
              1u);
}

} // namespace
} // namespace test
