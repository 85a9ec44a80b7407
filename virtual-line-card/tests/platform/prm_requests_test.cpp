#include <csignal>

#include <sys/resource.h>

#include "test_card.h"

using card_test::bytes_of;
using card_test::heard;
using card_test::make_record;
using vlc::TableKind;

namespace {

using Service = uint32_t (*)(void *, prm_config_record *);

struct Row {
    Service service;
    TableKind table;
    uint32_t operation;
};

constexpr Row services[] = {
    {prm_srh_service_config_add, TableKind::service_config, PRM_OP_ADD},
    {prm_srh_service_config_mod, TableKind::service_config, PRM_OP_MODIFY},
    {prm_srh_service_config_del, TableKind::service_config, PRM_OP_DELETE},
    {prm_srh_ext_service_db_add, TableKind::ext_conf, PRM_OP_ADD},
    {prm_srh_ext_service_db_mod, TableKind::ext_conf, PRM_OP_MODIFY},
    {prm_srh_ext_service_db_del, TableKind::ext_conf, PRM_OP_DELETE},
    {prm_srh_flow_db_add, TableKind::flow, PRM_OP_ADD},
    {prm_srh_flow_db_mod, TableKind::flow, PRM_OP_MODIFY},
    {prm_srh_flow_db_del, TableKind::flow, PRM_OP_DELETE},
};

class PrmRequests : public card_test::InEachDeployment<card_test::ClientTest> {
protected:
    uint32_t send(uint32_t np, TableKind table, uint32_t operation, const std::string &key,
                  const std::string &result = "result")
    {
        auto record = make_record(np, table, operation, key, result);
        for (const Row &row : services) {
            if (row.table == table && row.operation == operation)
                return row.service(handle(), &record);
        }
        return UINT32_MAX;
    }
    // "-" when the row is not there.
    std::string stored(uint32_t np, TableKind table, const std::string &key)
    {
        const vlc::TableRow *row = nps()[np].table(table).find(bytes_of(key));
        return row ? std::string(row->result, row->result + row->result_len) : "-";
    }
    std::vector<uint32_t> statuses()
    {
        events().run_until_idle();
        std::vector<uint32_t> all;
        for (const auto &answer : heard().answers)
            all.push_back(answer.status);
        return all;
    }
    // Sends one good request of each service with one field spoiled; all must be refused alike.
    template <typename Spoil>
    void expect_bad_record(Spoil spoil)
    {
        for (const Row &row : services) {
            auto record = make_record(0, row.table, row.operation, "key");
            spoil(record);
            EXPECT_EQ(uint32_t{vlc::prm_bad_record}, row.service(handle(), &record));
        }
        EXPECT_EQ(0u, prm().unread(number()));
    }
};

TEST_P(PrmRequests, ARequestChangesItsTableOnItsNpAtOnce)
{
    EXPECT_EQ(0u, send(1, TableKind::service_config, PRM_OP_ADD, "key", "one"));
    EXPECT_EQ("one", stored(1, TableKind::service_config, "key"));
    EXPECT_EQ("-", stored(0, TableKind::service_config, "key"));
    EXPECT_EQ("-", stored(1, TableKind::ext_conf, "key"));
    EXPECT_EQ(0u, send(1, TableKind::service_config, PRM_OP_MODIFY, "key", "two"));
    EXPECT_EQ("two", stored(1, TableKind::service_config, "key"));
    EXPECT_EQ(0u, send(1, TableKind::service_config, PRM_OP_DELETE, "key"));
    EXPECT_EQ("-", stored(1, TableKind::service_config, "key"));
}

TEST_P(PrmRequests, TheExtConfTableTakesTheSameThree)
{
    EXPECT_EQ(0u, send(0, TableKind::ext_conf, PRM_OP_ADD, "key", "one"));
    EXPECT_EQ("one", stored(0, TableKind::ext_conf, "key"));
    EXPECT_EQ(0u, send(0, TableKind::ext_conf, PRM_OP_MODIFY, "key", "two"));
    EXPECT_EQ("two", stored(0, TableKind::ext_conf, "key"));
    EXPECT_EQ(0u, send(0, TableKind::ext_conf, PRM_OP_DELETE, "key"));
    EXPECT_EQ("-", stored(0, TableKind::ext_conf, "key"));
    EXPECT_EQ((std::vector<uint32_t>{0, 0, 0}), statuses());
}

TEST_P(PrmRequests, TheOutcomeIsSaidInTheLateAnswerAndNotByTheRequest)
{
    const auto table = TableKind::service_config;
    EXPECT_EQ(0u, send(0, table, PRM_OP_ADD, "key"));
    EXPECT_EQ(0u, send(0, table, PRM_OP_ADD, "key", "other"));
    EXPECT_EQ(0u, send(0, table, PRM_OP_MODIFY, "missing"));
    EXPECT_EQ(0u, send(0, table, PRM_OP_DELETE, "missing"));
    EXPECT_EQ(0u, send(0, table, PRM_OP_ADD, std::string(53, 'k')));
    EXPECT_EQ(0u, send(0, table, PRM_OP_ADD, "wide", std::string(65, 'r')));
    EXPECT_TRUE(heard().answers.empty()) << "never from inside the call";
    EXPECT_EQ((std::vector<uint32_t>{0, vlc::prm_duplicate_key, vlc::prm_key_not_found,
                                     vlc::prm_key_not_found, vlc::prm_row_too_wide,
                                     vlc::prm_row_too_wide}),
              statuses());
    EXPECT_EQ("result", stored(0, table, "key"));
}

TEST_P(PrmRequests, AFullTableIsSaidInTheLateAnswer)
{
    for (int i = 0; i < 9; i++)
        EXPECT_EQ(0u, send(0, TableKind::ext_conf, PRM_OP_ADD, "key " + std::to_string(i)));
    EXPECT_EQ((std::vector<uint32_t>{0, 0, 0, 0, 0, 0, 0, 0, vlc::prm_table_full}), statuses());
}

TEST_P(PrmRequests, TheAnswerRepeatsWhatWasAsked)
{
    EXPECT_EQ(0u, send(1, TableKind::ext_conf, PRM_OP_DELETE, std::string("k\0y", 3), "a result"));
    events().run_until_idle();
    ASSERT_EQ(1u, heard().answers.size());
    const prm_async_response &answer = heard().answers[0];
    EXPECT_EQ(1u, answer.np);
    EXPECT_EQ(0u, answer.flags);
    EXPECT_EQ(0x201u, answer.refnum);
    EXPECT_EQ(uint32_t{vlc::prm_key_not_found}, answer.status);
    EXPECT_EQ(std::string("k\0y", 3), card_test::key_of(answer));
    EXPECT_EQ("a result", card_test::result_of(answer));
}

TEST_P(PrmRequests, TheUpperHalfOfTheReferenceNumberIsTheClients)
{
    auto record = make_record(0, TableKind::service_config, PRM_OP_ADD, "key");
    record.refnum |= 0xABCD0000;
    EXPECT_EQ(0u, prm_srh_service_config_add(handle(), &record));
    events().run_until_idle();
    ASSERT_EQ(1u, heard().answers.size());
    EXPECT_EQ(0xABCD0000u, heard().answers[0].refnum);
}

TEST_P(PrmRequests, TheLongestKeyAndResultAreTakenInAndALongResultIsCutInTheAnswer)
{
    const std::string key(PRM_KEY_BYTES, 'k');
    EXPECT_EQ(0u, send(0, TableKind::service_config, PRM_OP_ADD, key,
                       std::string(PRM_RESULT_BYTES, 'r')));
    events().run_until_idle();
    ASSERT_EQ(1u, heard().answers.size());
    EXPECT_EQ(key, card_test::key_of(heard().answers[0]));
    EXPECT_EQ(std::string(120, 'r'), card_test::result_of(heard().answers[0]));
}

TEST_P(PrmRequests, AHandleThatIsNotALiveOneIsRefused)
{
    void *const bad[] = {nullptr, &heard(), reinterpret_cast<void *>(uintptr_t{number()} + 1)};
    for (const Row &row : services) {
        auto record = make_record(0, row.table, row.operation, "key");
        for (void *handle : bad)
            EXPECT_EQ(uint32_t{vlc::prm_bad_handle}, row.service(handle, &record));
        EXPECT_EQ(uint32_t{vlc::prm_bad_handle}, row.service(nullptr, nullptr));
    }
}

TEST_P(PrmRequests, AMissingRecordIsRefused)
{
    for (const Row &row : services)
        EXPECT_EQ(uint32_t{vlc::prm_bad_record}, row.service(handle(), nullptr));
}

TEST_P(PrmRequests, ARecordOfAnotherKindIsRefused)
{
    expect_bad_record([](prm_config_record &record) { record.kind = 3; });
}

TEST_P(PrmRequests, AnNpThatTheCardDoesNotHaveIsRefused)
{
    expect_bad_record([](prm_config_record &record) { record.np = 2; });
}

TEST_P(PrmRequests, AnEmptyKeyAndOneOf101BytesAreRefused)
{
    expect_bad_record([](prm_config_record &record) { record.key_len = 0; });
    expect_bad_record([](prm_config_record &record) { record.key_len = PRM_KEY_BYTES + 1; });
}

TEST_P(PrmRequests, AResultOf513BytesIsRefused)
{
    expect_bad_record([](prm_config_record &record) { record.result_len = PRM_RESULT_BYTES + 1; });
}

TEST_P(PrmRequests, AReferenceNumberOfAnotherTableOrOperationIsRefused)
{
    expect_bad_record([](prm_config_record &record) { record.refnum ^= 1; });
    expect_bad_record([](prm_config_record &record) { record.refnum += 0x100; });
}

TEST_P(PrmRequests, ABrokenConnectionTakesNothingIn)
{
    prm().go_down();
    for (const Row &row : services) {
        auto record = make_record(0, row.table, row.operation, "key");
        EXPECT_EQ(uint32_t{vlc::prm_not_connected}, row.service(handle(), &record));
    }
    prm().come_up();
    EXPECT_EQ(0u, prm().unread(number()));
    EXPECT_EQ("-", stored(0, TableKind::service_config, "key"));
}

TEST_P(PrmRequests, RestartAndResetLoseTheTablesThatAreNotKept)
{
    const auto all_are = [this](const char *what) {
        EXPECT_EQ(what, stored(0, TableKind::service_config, "key"));
        EXPECT_EQ(what, stored(1, TableKind::ext_conf, "key"));
        EXPECT_EQ(what, stored(0, TableKind::flow, "key"));
    };
    const auto add_all = [this] {
        send(0, TableKind::service_config, PRM_OP_ADD, "key");
        send(1, TableKind::ext_conf, PRM_OP_ADD, "key");
        send(0, TableKind::flow, PRM_OP_ADD, "key");
    };
    add_all();
    prm().restart(true);
    all_are("result");
    prm().restart(false);
    all_are("-");
    add_all();
    prm().np_warm_boot();
    all_are("result");
    prm().np_reset();
    all_are("-");
}

TEST_P(PrmRequests, AFlowIsInATableOfItsOwnThoughItsRequestsHaveTheExtConfTablesNumber)
{
    send(0, TableKind::ext_conf, PRM_OP_ADD, "key", "entry");
    EXPECT_EQ(0u, send(0, TableKind::flow, PRM_OP_ADD, "key", "flow"));
    EXPECT_EQ("flow", stored(0, TableKind::flow, "key"));
    EXPECT_EQ("entry", stored(0, TableKind::ext_conf, "key"));
    EXPECT_EQ("-", stored(1, TableKind::flow, "key"));
    EXPECT_EQ(0u, send(0, TableKind::flow, PRM_OP_MODIFY, "key", "other"));
    EXPECT_EQ("other", stored(0, TableKind::flow, "key"));
    EXPECT_EQ(0u, send(0, TableKind::flow, PRM_OP_DELETE, "key"));
    EXPECT_EQ("-", stored(0, TableKind::flow, "key"));
    EXPECT_EQ("entry", stored(0, TableKind::ext_conf, "key"));
}

TEST_P(PrmRequests, TheAnswerToAFlowSaysSoInItsFlags)
{
    send(0, TableKind::ext_conf, PRM_OP_ADD, "key");
    send(0, TableKind::flow, PRM_OP_ADD, "key");
    send(0, TableKind::flow, PRM_OP_ADD, "key");
    ASSERT_EQ((std::vector<uint32_t>{0, 0, vlc::prm_duplicate_key}), statuses());
    std::vector<TableKind> tables;
    for (const prm_async_response &answer : heard().answers) {
        EXPECT_EQ(1u, answer.refnum);
        tables.push_back(*vlc::table_of_answer(answer.refnum, answer.flags));
    }
    EXPECT_EQ((std::vector{TableKind::ext_conf, TableKind::flow, TableKind::flow}), tables);
    EXPECT_EQ(0u, heard().answers[0].flags);
}

TEST_P(PrmRequests, AFlowTableThatIsFullSaysSoAndTakesModifies)
{
    for (int i = 0; i < 9; i++)
        EXPECT_EQ(0u, send(0, TableKind::flow, PRM_OP_ADD, std::to_string(i)));
    EXPECT_EQ(0u, send(0, TableKind::flow, PRM_OP_MODIFY, "0", "other"));
    EXPECT_EQ(0u, send(0, TableKind::flow, PRM_OP_DELETE, "8"));
    const std::vector<uint32_t> all = statuses();
    ASSERT_EQ(11u, all.size());
    EXPECT_EQ(uint32_t{vlc::prm_table_full}, all[8]);
    EXPECT_EQ(0u, all[9]);
    EXPECT_EQ(uint32_t{vlc::prm_key_not_found}, all[10]);
}

TEST_P(PrmRequests, TheLedgerTellsAFlowFromAnEntryWithItsKey)
{
    send(0, TableKind::ext_conf, PRM_OP_ADD, "key");
    send(0, TableKind::flow, PRM_OP_ADD, "key");
    EXPECT_EQ(2u, card().ledger().sums().unanswered);
    EXPECT_EQ(1u, card().ledger().sums().requests[1][PRM_OP_ADD]);
    EXPECT_EQ(1u, card().ledger().sums().requests[2][PRM_OP_ADD]);
    vlc::StoredAnswer of_entry{};
    of_entry.refnum = 1;
    of_entry.key_len = 3;
    std::copy_n("key", 3, of_entry.key);
    prm().queue_answer(number(), of_entry); // a second one for the entry
    events().run_until_idle();
    EXPECT_EQ(0u, card().ledger().sums().unanswered);
    EXPECT_EQ(1u, card().ledger().sums().unasked);
}

TEST(TablesOfAnswers, AreThoseOfTheReferenceNumberAndTheFlags)
{
    using vlc::table_of_answer;
    EXPECT_EQ(table_of_answer(0x200, 0), TableKind::service_config);
    EXPECT_EQ(table_of_answer(0x200, PRM_ANSWER_OF_FLOW_TABLE), TableKind::service_config);
    EXPECT_EQ(table_of_answer(0x101, 0), TableKind::ext_conf);
    EXPECT_EQ(table_of_answer(0x101, 0xF), TableKind::ext_conf);
    EXPECT_EQ(table_of_answer(0x101, PRM_ANSWER_OF_FLOW_TABLE | 1), TableKind::flow);
    EXPECT_EQ(table_of_answer(2, PRM_ANSWER_OF_FLOW_TABLE), std::nullopt);
    EXPECT_EQ(table_of_answer(PRM_REFNUM_DELAY_QUEUE, 0), std::nullopt);
}

// Files cannot grow any more, as on a full disk.
void forbid_growing_files()
{
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit none{0, 0};
    ASSERT_EQ(0, setrlimit(RLIMIT_FSIZE, &none));
}

TEST_P(PrmRequests, ARequestWhoseAnswerFindsNoRoomIsRefusedAndChangesNothing)
{
    const auto table = TableKind::service_config;
    ASSERT_EQ(0u, send(0, table, PRM_OP_ADD, "kept", "as it was"));
    forbid_growing_files();
    uint32_t code = 0;
    for (int i = 0; code == 0 && i < 100000; i++)
        code = send(0, table, PRM_OP_MODIFY, "missing");
    ASSERT_EQ(uint32_t{vlc::prm_no_room}, code);
    const auto taken_in = prm().totals().requests[0][PRM_OP_MODIFY];
    EXPECT_EQ(uint32_t{vlc::prm_no_room}, send(0, table, PRM_OP_ADD, "new"));
    EXPECT_EQ(uint32_t{vlc::prm_no_room}, send(0, table, PRM_OP_MODIFY, "kept", "changed"));
    EXPECT_EQ("as it was", stored(0, table, "kept"));
    EXPECT_EQ(uint32_t{vlc::prm_no_room}, send(0, table, PRM_OP_DELETE, "kept"));
    EXPECT_EQ("as it was", stored(0, table, "kept"));
    EXPECT_EQ("-", stored(0, table, "new"));
    EXPECT_EQ(uint32_t{vlc::prm_no_room}, prm().queue_answer(number(), {}));
    EXPECT_EQ(taken_in, prm().totals().requests[0][PRM_OP_MODIFY]);
}

TEST_P(PrmRequests, TotalsTellWhatWasTakenInAndWhatFailedOfIt)
{
    send(0, TableKind::service_config, PRM_OP_ADD, "key");
    send(0, TableKind::service_config, PRM_OP_ADD, "key");
    send(0, TableKind::ext_conf, PRM_OP_DELETE, "key");
    send(9, TableKind::ext_conf, PRM_OP_DELETE, "key"); // refused: not counted
    const auto &totals = prm().totals();
    EXPECT_EQ(2u, totals.requests[0][PRM_OP_ADD]);
    EXPECT_EQ(1u, totals.failed[0][PRM_OP_ADD]);
    EXPECT_EQ(1u, totals.requests[1][PRM_OP_DELETE]);
    EXPECT_EQ(1u, totals.failed[1][PRM_OP_DELETE]);
    EXPECT_EQ(0u, totals.requests[0][PRM_OP_MODIFY]);
}

IN_BOTH_DEPLOYMENTS(PrmRequests);

} // namespace
