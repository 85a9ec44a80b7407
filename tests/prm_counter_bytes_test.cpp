// The counter's number inside an entry's result: its byte order is the card type's, and on most
// cards every encode turns the stored order round.

#include "prm_table_fixture.h"

namespace test {
namespace {

// The three bytes of the results sent for one NP, one string for each request, in hexadecimal.
std::vector<std::string> sent_bytes(const PrmRequests &requests, uint32_t np)
{
    std::vector<std::string> sent;
    for (const PrmRequest &request : requests.all()) {
        if (request.record.np != np)
            continue;
        char text[7];
        snprintf(text, sizeof text, "%02x%02x%02x", request.record.result[1],
                 request.record.result[2], request.record.result[3]);
        sent.push_back(text);
    }
    return sent;
}

using Sent = std::vector<std::string>;

// ---- by card type ------------------------------------------------------------------------------

struct CardType {
    uint32_t code;
    bool takes_counters_unswapped;
};

void PrintTo(const CardType &type, std::ostream *out)
{
    *out << "card type 0x" << std::hex << type.code;
}

std::vector<CardType> card_types()
{
    std::vector<CardType> types = {{0xD10000, false}, {0xD10016, false},   {0xD20001, false},
                                   {0, false},        {0xFFFFFFFF, false}, {0x10D10001, false}};
    for (uint32_t code = 0xD10001; code <= 0xD10015; ++code)
        types.push_back({code, true});
    return types;
}

class CounterBytesOfCard : public CardTest, public ::testing::WithParamInterface<CardType> {
protected:
    CounterBytesOfCard() : requests(services)
    {
        vlc::CardConfig typed = config;
        typed.card_type = GetParam().code;
        restart_card(typed);
        bring_up();
        requests.answer_all(0);
    }

    // A node with this counter goes through the operations; what was sent for NP 0 comes back.
    Sent sent_for(const PrmTable &table, std::vector<uint32_t> actions)
    {
        requests.forget();
        node = {};
        node.app_node = make_node(7, table.table_type, "key", "0123456789", 0);
        node.stat_index_rx[0] = 0x44332211;
        node.stat_index_rx[1] = 0x88776655;
        for (const uint32_t action : actions) {
            node.app_node.action = action;
            table.update(&node);
        }
        return sent_bytes(requests, 0);
    }

    PrmRequests requests;
    shmem_node node{};
};

INSTANTIATE_TEST_SUITE_P(Cards, CounterBytesOfCard, ::testing::ValuesIn(card_types()),
                         [](const ::testing::TestParamInfo<CardType> &type) {
                             char text[24];
                             snprintf(text, sizeof text, "Type%X", type.param.code);
                             return std::string(text);
                         });

TEST_P(CounterBytesOfCard, AModifyWritesTheCounterAsTheCardWantsIt)
{
    for (const PrmTable &table : prm_tables()) {
        if (GetParam().takes_counters_unswapped) {
            EXPECT_EQ(sent_for(table, {2}), (Sent{"223344"})) << table.name;
            EXPECT_EQ(node.stat_index_rx[0], 0x44332211u);
        } else {
            EXPECT_EQ(sent_for(table, {2}), (Sent{"332211"})) << table.name;
            EXPECT_EQ(node.stat_index_rx[0], 0x44112233u);
        }
        EXPECT_EQ(sent_bytes(requests, 1),
                  (Sent{GetParam().takes_counters_unswapped ? "667788" : "776655"}));
    }
}

TEST_P(CounterBytesOfCard, RepeatedModifiesSendOppositeOrdersOnlyWhereTheyAreExchanged)
{
    for (const PrmTable &table : prm_tables()) {
        if (GetParam().takes_counters_unswapped) {
            EXPECT_EQ(sent_for(table, {2, 2, 2}), (Sent{"223344", "223344", "223344"}));
            EXPECT_EQ(node.stat_index_rx[0], 0x44332211u);
        } else {
            EXPECT_EQ(sent_for(table, {2, 2, 2}), (Sent{"332211", "112233", "332211"}));
            EXPECT_EQ(node.stat_index_rx[0], 0x44112233u);
        }
    }
}

TEST_P(CounterBytesOfCard, AnAddWritesTheCounterThatItTook)
{
    for (const PrmTable &table : prm_tables()) {
        memset(root->counters[0], 0xFF, 0x140 / 8);
        EXPECT_EQ(sent_for(table, {1}),
                  (Sent{GetParam().takes_counters_unswapped ? "01c000" : "c00140"}));
        EXPECT_EQ(node.stat_index_rx[0],
                  GetParam().takes_counters_unswapped ? 0xC00140u : 0x4001C0u);
        EXPECT_EQ(node.stat_index_drop[0], 0xC00141u);
        root->counters[0][10] = 0;
    }
}

TEST_P(CounterBytesOfCard, ADeleteEncodesAsAnyOtherOperation)
{
    for (const PrmTable &table : prm_tables()) {
        EXPECT_EQ(sent_for(table, {3}),
                  (Sent{GetParam().takes_counters_unswapped ? "223344" : "332211"}));
        EXPECT_EQ(node.stat_index_rx[0],
                  GetParam().takes_counters_unswapped ? 0x44332211u : 0x44112233u);
    }
}

// ---- when the card type is known ---------------------------------------------------------------

class CounterBytes : public CardTest {
protected:
    CounterBytes() : requests(services) { requests.answer_all(0); }

    std::string sent_by_modify()
    {
        requests.forget();
        shmem_node node = {};
        node.app_node = make_node(7, 0, "key", "0123456789", 2);
        node.stat_index_rx[0] = 0x44332211;
        EXPECT_EQ(inline_svc_prm_service_table_update(&node), 0u);
        return sent_bytes(requests, 0).at(0);
    }

    PrmRequests requests;
};

TEST_F(CounterBytes, BeforeInitialisationTheyAreExchanged)
{
    vlc::CardConfig listed = config;
    listed.card_type = 0xD10001;
    restart_card(listed);
    attach_context();
    set_context();
    EXPECT_EQ(sent_by_modify(), "332211");
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(sent_by_modify(), "223344");
}

TEST_F(CounterBytes, TheCardTypeIsReadOnlyByTheInitialisation)
{
    bring_up();
    services.force("platform_get_my_card_type", 0xD10001);
    EXPECT_EQ(sent_by_modify(), "332211");
    card->prm().restart(true);
    run_events();
    EXPECT_EQ(sent_by_modify(), "332211");
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    EXPECT_EQ(sent_by_modify(), "223344");
}

TEST_F(CounterBytes, TheCardTypeIsKeptAlsoWhenTheConnectionCannotBeOpened)
{
    bring_up();
    services.force("platform_get_my_card_type", 0xD10015);
    services.force("prm_mgr_open", 5);
    ASSERT_EQ(inline_svc_prm_init(), 5u);
    EXPECT_EQ(sent_by_modify(), "223344");
}

// ---- entries without counters ------------------------------------------------------------------

class EntryWithoutCounters : public RunningCardTest {
protected:
    EntryWithoutCounters() : requests(services)
    {
        node.app_node = make_node(7, 0, "key", "0123456789", 1, 0xFFFFFFFF);
        for (uint32_t np = 0; np < 3; ++np) {
            node.stat_index_rx[np] = 0x44332211;
            node.stat_index_drop[np] = 0x44332211;
        }
    }
    uint32_t update_service_config(uint32_t action)
    {
        requests.forget();
        services.forget();
        forget_log();
        node.app_node.action = action;
        return inline_svc_prm_service_table_update(&node);
    }

    PrmRequests requests;
    shmem_node node{};
};

TEST_F(EntryWithoutCounters, AnAddClearsBothIndexesOfEveryNpAndLeavesTheResult)
{
    EXPECT_EQ(update_service_config(1), 0u);
    EXPECT_EQ(services.names(), (std::vector<std::string>{"prm_srh_service_config_add",
                                                          "prm_srh_service_config_add"}));
    EXPECT_EQ(log(),
              (std::vector<std::string>{"SVC CONF add enter: \n", "SVC CONF add succesful: \n",
                                        "SVC CONF add succesful: \n"}));
    for (uint32_t np = 0; np < 2; ++np) {
        EXPECT_EQ(memcmp(requests.all()[np].record.result, "0123456789", 10), 0);
        EXPECT_EQ(node.stat_index_rx[np], 0u);
        EXPECT_EQ(node.stat_index_drop[np], 0u);
    }
    EXPECT_EQ(node.stat_index_rx[2], 0x44332211u) << "an NP that the card does not have";
}

TEST_F(EntryWithoutCounters, AModifyLeavesTheResultAndTheIndexes)
{
    requests.answer_all(0);
    EXPECT_EQ(update_service_config(2), 0u);
    for (uint32_t np = 0; np < 2; ++np) {
        EXPECT_EQ(memcmp(requests.all()[np].record.result, "0123456789", 10), 0);
        EXPECT_EQ(node.stat_index_rx[np], 0x44332211u);
        EXPECT_EQ(node.stat_index_drop[np], 0x44332211u);
    }
}

TEST_F(EntryWithoutCounters, ADeleteEncodesAllTheSameAndFreesNothing)
{
    requests.answer_all(0);
    root->counters[0][0] = 0xFFFFFFFF;
    node.stat_index_rx[0] = 0x0000C0; // exchanged, counter 0xC00000
    EXPECT_EQ(update_service_config(3), 0u);
    EXPECT_EQ(sent_bytes(requests, 0), (Sent{"0000c0"}));
    EXPECT_EQ(node.stat_index_rx[0], 0xC00000u);
    EXPECT_EQ(root->counters[0][0], 0xFFFFFFFFu);
    EXPECT_EQ(services.names(), (std::vector<std::string>{"prm_srh_service_config_del",
                                                          "prm_srh_service_config_del"}));
}

TEST_F(EntryWithoutCounters, ADeleteOfWhatWasAddedSendsZeroesInPlaceOfTheCounter)
{
    ASSERT_EQ(update_service_config(1), 0u);
    EXPECT_EQ(update_service_config(3), 0u);
    EXPECT_EQ(sent_bytes(requests, 0), (Sent{"000000"}));
    EXPECT_EQ(requests.all()[0].record.result[0], '0');
    EXPECT_EQ(requests.all()[0].record.result[4], '4');
}

TEST_F(EntryWithoutCounters, ADeleteReturnsTheLastNpsCode)
{
    requests.answer_np(0, 5);
    EXPECT_EQ(update_service_config(3), 0u);
    requests.answer_np(1, 5);
    EXPECT_EQ(update_service_config(3), 5u);
}

TEST_F(EntryWithoutCounters, TheExtConfTableDoesNotLookAtTheMark)
{
    node.app_node.table_type = 1;
    node.app_node.action = 1;
    EXPECT_EQ(inline_svc_prm_ext_table_update(&node), 0u);
    for (uint32_t np = 0; np < 2; ++np) {
        EXPECT_EQ(root->counters[np][0], 0xC0000000u);
        EXPECT_EQ(node.stat_index_rx[np], 0x0000C0u);
        EXPECT_EQ(node.stat_index_drop[np], 0xC00001u);
    }
    EXPECT_EQ(sent_bytes(requests, 0), (Sent{"c00000"}));

    node.app_node.action = 2;
    requests.forget();
    EXPECT_EQ(inline_svc_prm_ext_table_update(&node), 0u);
    EXPECT_EQ(sent_bytes(requests, 0), (Sent{"0000c0"}));
    node.stat_index_rx[0] = node.stat_index_rx[1] = 0x0000C0;

    node.app_node.action = 3;
    EXPECT_EQ(inline_svc_prm_ext_table_update(&node), 0u);
    for (uint32_t np = 0; np < 2; ++np)
        EXPECT_EQ(root->counters[np][0], 0u);
}

TEST_F(EntryWithoutCounters, InAnEntryPastTheEighthNpTheArraysEndWhereTheyEnd)
{
    context.num_nps = 10;
    requests.answer_all(0);
    node.reserved_240 = 0x1122334455667788;
    EXPECT_EQ(update_service_config(1), 0u);
    EXPECT_EQ(requests.all().size(), 10u);
    EXPECT_EQ(node.reserved_240, 0x1122334455667788u);
    EXPECT_EQ(update_service_config(3), 0u) << "nothing is freed, so nothing is refused";
}

// ---- through the shadow DB ---------------------------------------------------------------------

class CountersAfterModifies : public RunningCardTest {
protected:
    // An entry is created, modified so many times and deleted again.
    uint32_t live_through(const PrmTable &table, uint32_t modifies)
    {
        Batch created(1);
        created.create(7, table.table_type, "key", "0123456789");
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(created.get()), 0u);
        for (uint32_t i = 0; i < modifies; ++i) {
            Batch modified(1);
            modified.modify(stored_node(1, 7), "abcdefghij");
            EXPECT_EQ(inline_svc_shadow_db_insert_action_array(modified.get()), 0u);
        }
        Batch removed(1);
        removed.remove(stored_node(1, 7));
        return inline_svc_shadow_db_insert_action_array(removed.get());
    }
};

TEST_F(CountersAfterModifies, ADeleteAfterAnEvenNumberOfModifiesGivesAllCountersBack)
{
    for (const PrmTable &table : prm_tables()) {
        for (const uint32_t modifies : {0u, 2u, 4u}) {
            EXPECT_EQ(live_through(table, modifies), 0u);
            for (uint32_t np = 0; np < 2; ++np)
                EXPECT_EQ(root->counters[np][0], 0u) << table.name << ' ' << modifies;
        }
    }
}

// The exchanged number is outside the region, so the received-packets counter is not given back;
// the drop counter's success hides it from the caller.
TEST_F(CountersAfterModifies, ADeleteAfterAnOddNumberOfModifiesLeaksTheReceivedCounter)
{
    for (const PrmTable &table : prm_tables()) {
        for (const uint32_t modifies : {1u, 3u}) {
            root->counters[0][0] = root->counters[1][0] = 0;
            forget_log();
            EXPECT_EQ(live_through(table, modifies), 0u);
            for (uint32_t np = 0; np < 2; ++np)
                EXPECT_EQ(root->counters[np][0], 0x80000000u) << table.name << ' ' << modifies;
            EXPECT_EQ(log_count(" stats ptr 192 out of bounds, start:12582912, max:12648448"), 2u);
            EXPECT_EQ(log_count(table.free_refused_with_22), 2u);
            EXPECT_EQ(stored_node(1, 7), nullptr) << "the entry itself is gone";
        }
    }
}

TEST_F(CountersAfterModifies, OnAListedCardNoNumberOfModifiesLeaks)
{
    services.force("platform_get_my_card_type", 0xD10008);
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    run_events();
    for (const PrmTable &table : prm_tables()) {
        for (const uint32_t modifies : {0u, 1u, 2u, 3u}) {
            EXPECT_EQ(live_through(table, modifies), 0u);
            for (uint32_t np = 0; np < 2; ++np)
                EXPECT_EQ(root->counters[np][0], 0u) << table.name << ' ' << modifies;
        }
    }
}

} // namespace
} // namespace test
