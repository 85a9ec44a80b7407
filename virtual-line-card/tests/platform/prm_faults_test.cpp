// What a hook has PRM do to the calls that it takes in.
#include <cstring>

#include "test_card.h"

using namespace std::chrono_literals;
using card_test::heard;
using card_test::key_of;
using vlc::PrmFault;
using vlc::TableKind;
using Names = std::vector<std::string>;

namespace {

class PrmFaults : public card_test::ClientTest {
protected:
    PrmFaults()
    {
        prm().set_faults(
            [this](const vlc::PrmCall &call) {
                asked.emplace_back(call.service);
                const PrmFault fault = next;
                next = {};
                return fault;
            },
            events());
    }
    // The next call meets this fault, those behind it none.
    void meet(PrmFault::Answer answer) { next.answer = answer; }
    void add_with(PrmFault::Answer answer, const std::string &key)
    {
        meet(answer);
        EXPECT_EQ(0u, add(key));
    }
    size_t rows() { return card().nps()[0].table(TableKind::service_config).size(); }
    std::string keys_heard()
    {
        std::string keys;
        for (const auto &answer : heard().answers)
            keys += key_of(answer);
        return keys;
    }

    PrmFault next;
    Names asked;
};

TEST_F(PrmFaults, AreAskedForEachRequestByTheNameOfItsService)
{
    for (const TableKind table : {TableKind::service_config, TableKind::ext_conf}) {
        for (const uint32_t operation : {PRM_OP_ADD, PRM_OP_MODIFY, PRM_OP_DELETE}) {
            EXPECT_EQ(0u, prm().request(number(), table, operation,
                                        card_test::make_record(1, table, operation, "key")));
        }
    }
    EXPECT_EQ((Names{"prm_srh_service_config_add", "prm_srh_service_config_mod",
                     "prm_srh_service_config_del", "prm_srh_ext_service_db_add",
                     "prm_srh_ext_service_db_mod", "prm_srh_ext_service_db_del"}),
              asked);
}

TEST_F(PrmFaults, AreAskedForEachOtherCallThatReachesPrm)
{
    void *found = nullptr;
    prm_async_response answer;
    uint32_t mode = PRM_STATS_MODE;
    prm_srh_get_handle(card_test::client_name.c_str(), &found);
    prm_srh_reregister(handle(), events().handle(), card_test::on_answers);
    prm_srh_async_resp_data(handle(), &answer);
    prm_stats_cl_read(nullptr, vlc::CounterBank::first, 0, &mode, nullptr, nullptr, PRM_STATS_READ);
    EXPECT_EQ(0u, register_client());
    EXPECT_EQ((Names{"prm_srh_get_handle", "prm_srh_reregister", "prm_srh_async_resp_data",
                     "prm_stats_cl_read", "prm_srh_register", "prm_srh_set_name"}),
              asked);
}

TEST_F(PrmFaults, AreNotAskedForWhatPrmDoesNotTakeIn)
{
    auto record = card_test::make_record(9, TableKind::service_config, PRM_OP_ADD, "key");
    EXPECT_EQ(vlc::prm_bad_record, prm_srh_service_config_add(handle(), &record));
    EXPECT_EQ(vlc::prm_bad_handle, prm_srh_service_config_add(nullptr, &record));
    prm().go_down();
    EXPECT_EQ(vlc::prm_not_connected, add("key"));
    EXPECT_TRUE(asked.empty());
}

TEST_F(PrmFaults, SeeTheRecordAndTheNp)
{
    std::string key;
    std::optional<uint32_t> np;
    prm().set_faults(
        [&](const vlc::PrmCall &call) {
            key.assign(call.record->key, call.record->key + call.record->key_len);
            np = call.np;
            return PrmFault{};
        },
        events());
    auto record = card_test::make_record(1, TableKind::ext_conf, PRM_OP_ADD, "this key");
    EXPECT_EQ(0u, prm_srh_ext_service_db_add(handle(), &record));
    EXPECT_EQ("this key", key);
    EXPECT_EQ(1u, np);
}

TEST_F(PrmFaults, AnAnswerInsteadLeavesTheTableAsItIs)
{
    next.status = 77;
    add_with(PrmFault::Answer::instead, "a");
    EXPECT_EQ(0u, rows());
    events().run_until_idle();
    ASSERT_EQ("a", keys_heard());
    EXPECT_EQ(77u, heard().answers[0].status);
    EXPECT_EQ(1u, prm().totals().requests[0][0]);
    EXPECT_EQ(1u, prm().totals().failed[0][0]);
}

TEST_F(PrmFaults, ALostAnswerIsOfARequestThatWasCarriedOut)
{
    add_with(PrmFault::Answer::lost, "a");
    EXPECT_EQ(1u, rows());
    EXPECT_FALSE(events().run_until([] { return !heard().answers.empty(); }));
    EXPECT_EQ(0u, prm().unread(number()));
}

TEST_F(PrmFaults, AnAnswerTwiceIsReadTwice)
{
    add_with(PrmFault::Answer::twice, "a");
    add("b");
    events().run_until_idle();
    EXPECT_EQ("aab", keys_heard());
    EXPECT_EQ(2u, rows());
}

TEST_F(PrmFaults, ALateAnswerLetsThoseBehindItGoAhead)
{
    next.late_turns = 3;
    add_with(PrmFault::Answer::late, "a");
    EXPECT_EQ(1u, rows()) << "carried out at once";
    add("b");
    EXPECT_EQ(1u, prm().unread(number()));
    events().run_until_idle();
    EXPECT_EQ("ba", keys_heard());
}

TEST_F(PrmFaults, ALateAnswerIsQueuedAtItsTurnAndNotBefore)
{
    for (const uint32_t turns : {1u, 2u, 5u}) {
        next.late_turns = turns;
        add_with(PrmFault::Answer::late, "key " + std::to_string(turns));
        for (uint32_t turn = 1; turn < turns; turn++) {
            EXPECT_TRUE(events().step());
            EXPECT_EQ(0u, prm().unread(number())) << turn << " of " << turns;
        }
        EXPECT_TRUE(events().step());
        EXPECT_EQ(1u, prm().unread(number())) << "of " << turns;
        events().run_until_idle();
    }
}

TEST_F(PrmFaults, EachTurnLetsRunWhatWasReadyBefore)
{
    next.late_turns = 1;
    add_with(PrmFault::Answer::late, "a");
    next.late_turns = 2;
    add_with(PrmFault::Answer::late, "b");
    uint64_t unread_before_the_second_turn = 0;
    events().post([&] { unread_before_the_second_turn = prm().unread(number()); });
    events().run_until_idle();
    EXPECT_EQ(1u, unread_before_the_second_turn);
    EXPECT_EQ("ab", keys_heard());
}

TEST_F(PrmFaults, AReorderedAnswerComesBehindTheNext)
{
    add_with(PrmFault::Answer::behind_the_next, "a");
    EXPECT_EQ(0u, prm().unread(number()));
    add("b");
    EXPECT_EQ(2u, prm().unread(number()));
    add("c");
    events().run_until_idle();
    EXPECT_EQ("bac", keys_heard());
}

TEST_F(PrmFaults, AReorderedAnswerThatNoneFollowsComesByItself)
{
    add_with(PrmFault::Answer::behind_the_next, "a");
    events().run_until_idle();
    EXPECT_EQ("a", keys_heard());
}

TEST_F(PrmFaults, AnswersThatAreAllReorderedChangePlacesInPairs)
{
    for (const char *key : {"a", "b", "c", "d", "e"})
        add_with(PrmFault::Answer::behind_the_next, key);
    events().run_until_idle();
    EXPECT_EQ("badce", keys_heard());
}

TEST_F(PrmFaults, ALostAnswerIsNotTheNextOfAReorderedOne)
{
    add_with(PrmFault::Answer::behind_the_next, "a");
    add_with(PrmFault::Answer::lost, "b");
    EXPECT_EQ(0u, prm().unread(number()));
    add("c");
    events().run_until_idle();
    EXPECT_EQ("ca", keys_heard());
}

TEST_F(PrmFaults, ARestartComesBehindTheRequestThatMeetsIt)
{
    next.then = PrmFault::Then::restart;
    EXPECT_EQ(0u, add("a"));
    EXPECT_TRUE(prm().is_up());
    EXPECT_EQ(1u, rows());
    EXPECT_TRUE(heard().notifications.empty()) << "never from inside a call";
    events().run_until_idle();
    EXPECT_EQ((Names{"2.2", "2.1"}), heard().notifications);
    EXPECT_EQ("a", keys_heard());
}

TEST_F(PrmFaults, ARestartMayLoseTheTables)
{
    EXPECT_EQ(0u, add("a"));
    next.then = PrmFault::Then::restart;
    next.keep_tables = false;
    EXPECT_EQ(0u, add("b"));
    EXPECT_EQ(0u, rows());
}

TEST_F(PrmFaults, ARestartMayStayDownForSomeTurns)
{
    next.then = PrmFault::Then::restart;
    next.down_turns = 2;
    EXPECT_EQ(0u, add("a"));
    EXPECT_EQ(vlc::prm_not_connected, add("b"));
    events().run_until_idle();
    EXPECT_TRUE(prm().is_up());
    EXPECT_EQ((Names{"2.2", "2.1"}), heard().notifications);
    EXPECT_EQ(0u, add("c"));
}

TEST_F(PrmFaults, ARestartThatSomebodyElseEndedIsNotEndedTwice)
{
    next.then = PrmFault::Then::restart;
    next.down_turns = 2;
    EXPECT_EQ(0u, add("a"));
    prm().come_up();
    events().run_until_idle();
    EXPECT_EQ((Names{"2.2", "2.1"}), heard().notifications);
}

TEST_F(PrmFaults, AnNpResetLosesTheTablesOfEveryNp)
{
    EXPECT_EQ(0u, add("a"));
    next.then = PrmFault::Then::np_reset;
    auto record = card_test::make_record(1, TableKind::ext_conf, PRM_OP_ADD, "b");
    EXPECT_EQ(0u, prm_srh_ext_service_db_add(handle(), &record));
    EXPECT_EQ(0u, rows());
    EXPECT_EQ(0u, card().nps()[1].table(TableKind::ext_conf).size());
    events().run_until_idle();
    EXPECT_EQ((Names{"1.2"}), heard().notifications);
}

TEST_F(PrmFaults, ARestartBehindAReadKeepsTheAnswerThatWasRead)
{
    EXPECT_EQ(0u, add("a"));
    next.then = PrmFault::Then::restart;
    prm_async_response answer;
    EXPECT_EQ(0u, prm_srh_async_resp_data(handle(), &answer));
    EXPECT_EQ("a", key_of(answer));
    events().run_until_idle();
    EXPECT_EQ((Names{"2.2", "2.1"}), heard().notifications);
}

TEST_F(PrmFaults, AnAnswerHeldOverARestartIsStillGiven)
{
    next.late_turns = 4;
    add_with(PrmFault::Answer::late, "a");
    prm().restart(true);
    events().run_until_idle();
    EXPECT_EQ("a", keys_heard());
}

TEST_F(PrmFaults, AnAnswerHeldWhenTheHookGoesIsStillGiven)
{
    next.late_turns = 4;
    add_with(PrmFault::Answer::late, "a");
    prm().set_faults({}, events());
    EXPECT_EQ(0u, add("b"));
    events().run_until_idle();
    EXPECT_EQ("ba", keys_heard());
    EXPECT_EQ(1u, asked.size());
}

} // namespace
