// What a settlement does, one case each, on states that were made by hand.

#include <cstring>

#include "audited_card.h"
#include "settlement.h"

namespace test {
namespace {

using Texts = std::vector<std::string>;

class SettlementTest : public AuditedCardTest {
protected:
    explicit SettlementTest(uint32_t card_type = swapping_card, uint16_t num_nps = 2)
        : AuditedCardTest(card_type, num_nps)
    {
        store_three();
        services.forget();
    }

    // What was done; expects that the audit finds nothing then, and that it was done once for all.
    Texts settled()
    {
        const Texts done = settle();
        EXPECT_EQ(left_, Texts{});
        EXPECT_EQ(found(), Texts{});
        EXPECT_EQ(settle(), Texts{});
        return done;
    }

    Texts settle()
    {
        const services::AuditInput audited = input();
        const services::Settlement settlement =
            services::settle({.root = root,
                              .in_shared_memory = audited.in_shared_memory,
                              .hardware = audited.hardware,
                              .run_events = [this] { run_events(); }});
        left_ = settlement.left;
        EXPECT_EQ(settlement.settled(), left_.empty());
        return settlement.done;
    }

    size_t requests() const
    {
        size_t sum = 0;
        for (const std::string table : {"prm_srh_service_config_", "prm_srh_ext_service_db_"}) {
            for (const char *operation : {"add", "mod", "del"})
                sum += services.count(table + operation);
        }
        return sum;
    }
    std::string row(uint32_t np, uint32_t kind, const std::string &key)
    {
        const vlc::TableRow *found = table(np, kind).find(bytes_of(key));
        return found == nullptr
                   ? "none"
                   : std::string(reinterpret_cast<const char *>(found->result), found->result_len);
    }

    Texts left_;
};

class Settlement : public SettlementTest {};

TEST_F(Settlement, HasNothingToDoAfterAPeacefulEnd)
{
    EXPECT_EQ(settled(), Texts{});
    EXPECT_EQ(requests(), 0u);
}

TEST_F(Settlement, DeletesARowOnJustTheNpsThatHaveIt)
{
    table(1, SHADOW_DB_EXT_CONF).add(bytes_of("old"), bytes_of("row"));
    EXPECT_EQ(settled(), Texts{"deleted a stale row: NP 1, ext conf 6f6c64"});
    EXPECT_EQ(requests(), 1u);
}

TEST_F(Settlement, ProgramsARowAgainThatAnNpLost)
{
    const std::string before = row(0, SHADOW_DB_SERVICE_CONFIG, "seven");
    table(0, SHADOW_DB_SERVICE_CONFIG).clear();
    EXPECT_EQ(settled(),
              (Texts{"programmed a missing row again: NP 0, entry 7 of key 1 (service config "
                     "736576656e)",
                     "programmed a missing row again: NP 0, entry 9 of key 2 (service config "
                     "6e696e65)"}));
    EXPECT_EQ(requests(), 2u);
    EXPECT_EQ(row(0, SHADOW_DB_SERVICE_CONFIG, "seven"), before);
}

TEST_F(Settlement, SaysOfManyThingsOfAKindTheFirst)
{
    for (uint32_t id = 20; id < 30; ++id)
        store(3, id, SHADOW_DB_EXT_CONF, "entry" + std::to_string(id));
    table(1, SHADOW_DB_EXT_CONF).clear();
    const Texts done = settled();
    ASSERT_EQ(done.size(), 3u);
    EXPECT_EQ(done[2], "programmed a missing row again: NP 1, entry 21 of key 3 (ext conf "
                       "656e7472793231), and 8 more");
}

TEST_F(Settlement, BringsARowToItsEntrysContentAfterARefusedModify)
{
    services.script(
        "prm_srh_service_config_mod", [](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
            const auto *record = reinterpret_cast<const prm_config_record *>(call.args[1]);
            return record->np == 0 ? std::optional<uint64_t>(77) : std::nullopt;
        });
    Batch batch(1);
    batch.modify(seven, "modified");
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    services.stop_forcing();
    const uint32_t stored = seven->stat_index_rx[0];
    EXPECT_EQ(settled(), Texts{"brought a row to its entry's content: NP 0, entry 7 of key 1 "
                               "(service config 736576656e)"});
    EXPECT_EQ(seven->stat_index_rx[0], stored); // the modify counted already
    EXPECT_EQ(row(0, SHADOW_DB_SERVICE_CONFIG, "seven"), row(1, SHADOW_DB_SERVICE_CONFIG, "seven"));
}

TEST_F(Settlement, FinishesADeleteOnTheNpsThatHaveNotHeardOfIt)
{
    seven->app_node.action = SHADOW_DB_DELETE;
    table(0, SHADOW_DB_SERVICE_CONFIG).remove(bytes_of("seven"));
    EXPECT_EQ(settled(),
              (Texts{"finished a delete: entry 7 of key 1 (service config 736576656e)",
                     "gave a counter back: NP 0, 0xc00000", "gave a counter back: NP 0, 0xc00001",
                     "gave a counter back: NP 1, 0xc00000, and 1 more"}));
    EXPECT_EQ(requests(), 1u);
    EXPECT_EQ(stored_node(1, 7), nullptr);
    EXPECT_EQ(root->main_table[1]->num_elements[SHADOW_DB_SERVICE_CONFIG], 0u);
}

TEST_F(Settlement, FreesTheEntryThatADeleteLeftEmpty)
{
    nine->app_node.action = SHADOW_DB_DELETE;
    const uint64_t blocks = card->window().usage().blocks_in_use;
    const Texts done = settled();
    ASSERT_EQ(done.size(), 2u);
    EXPECT_EQ(done[1], "freed an empty entry: key 2");
    EXPECT_EQ(root->main_table[2], nullptr);
    EXPECT_EQ(card->window().usage().blocks_in_use, blocks - 2);
}

TEST_F(Settlement, GivesNoCounterBackThatAnotherEntryHoldsByNow)
{
    seven->app_node.action = SHADOW_DB_DELETE; // its delete was refused, its counters went
    for (uint32_t np = 0; np < 2; ++np) {
        inline_svc_free_counter(0xC00000, np);
        inline_svc_free_counter(0xC00001, np);
    }
    const shmem_node *ten = store(1, 10, SHADOW_DB_EXT_CONF, "ten");
    ASSERT_EQ(ten->stat_index_drop[0], 0xC00001u);
    EXPECT_EQ(settled(), Texts{"finished a delete: entry 7 of key 1 (service config 736576656e)"});
}

TEST_F(Settlement, FinishesADeleteBesideANewEntryOfTheSameKey)
{
    eight->app_node.action = SHADOW_DB_DELETE;
    store(1, 20, SHADOW_DB_EXT_CONF, "eight"); // the NPs keep the row of the earlier one
    const Texts done = settled();
    EXPECT_EQ(done[0], "finished a delete: entry 8 of key 1 (ext conf 6569676874)");
    EXPECT_EQ(done[1], "brought a row to its entry's content: NP 0, entry 20 of key 1 (ext conf "
                       "6569676874)");
}

TEST_F(Settlement, MendsWhatFollowsFromAList)
{
    list_record &list = root->main_table[1]->table_array[SHADOW_DB_EXT_CONF];
    list.last = nullptr;
    list.count = 0;
    eight->link.owner = nullptr;
    root->main_table[1]->num_elements[SHADOW_DB_EXT_CONF] = 0;
    EXPECT_EQ(settled(), Texts{"mended the ext conf list: key 1"});
    EXPECT_EQ(list.last, &eight->link);
    EXPECT_EQ(requests(), 0u);
}

TEST_F(Settlement, CompletesANodeThatWasJustPutIn)
{
    eight->app_node.shmem_node = nullptr;
    root->main_table[1]->num_elements[SHADOW_DB_EXT_CONF] = 0;
    EXPECT_EQ(settled(), (Texts{"mended the ext conf list: key 1",
                                "completed an entry that was being written: entry 8 of key 1 (ext "
                                "conf 6569676874)"}));
    EXPECT_EQ(eight->app_node.shmem_node, eight);
    EXPECT_EQ(memcmp(eight->app_node.result, "01234567", 8), 0);
}

TEST_F(Settlement, TakesAHalfWrittenContentBack)
{
    nine->app_node.shmem_node = nullptr;
    memcpy(nine->app_node.result, "newer", 5);
    settled();
    EXPECT_EQ(memcmp(nine->app_node.result, "01234567", 8), 0);
    EXPECT_EQ(requests(), 0u);
}

TEST_F(Settlement, TouchesNoHardwareWhileAListIsBroken)
{
    nine->link.next = reinterpret_cast<list_link *>(8);
    table(0, SHADOW_DB_EXT_CONF).add(bytes_of("old"), bytes_of("row"));
    root->counters[0][0] |= 1;
    EXPECT_EQ(settle(), Texts{});
    EXPECT_EQ(requests(), 0u);
    EXPECT_EQ(left_.size(), 3u);
    EXPECT_EQ(root->counters[0][0] & 1, 1u);
}

TEST_F(Settlement, GivesLeakedCountersBack)
{
    root->counters[1][0] |= 1;
    EXPECT_EQ(settled(), Texts{"gave a counter back: NP 1, 0xc0001f"});
}

TEST_F(Settlement, ReportsACounterThatNoCallCanTake)
{
    inline_svc_free_counter(0xC00000, 0);
    EXPECT_EQ(settle(), Texts{});
    EXPECT_EQ(left_, Texts{"NP 0: entry 7 of key 1 (service config 736576656e) holds "
                           "received-packets counter 0xc00000, which is free"});
}

TEST_F(Settlement, LeavesTwoEntriesOfOneKeyAndSaysSo)
{
    store(3, 30, SHADOW_DB_EXT_CONF, "eight"); // its late answer says that the key is there
    services.forget();
    EXPECT_EQ(settle(), Texts{});
    EXPECT_EQ(requests(), 0u);
    ASSERT_EQ(left_.size(), 2u);
    EXPECT_NE(left_[0].find("entry 30 of key 3"), std::string::npos);
}

TEST_F(Settlement, SaysWhenPrmRefusesItsRequests)
{
    table(0, SHADOW_DB_EXT_CONF).add(bytes_of("old"), bytes_of("row"));
    services.force("prm_srh_ext_service_db_del", 22);
    EXPECT_EQ(settle(), Texts{});
    EXPECT_EQ(left_, (Texts{"NP 0: a request for ext conf 6f6c64 failed: Invalid argument",
                            "NP 0: no entry has the row ext conf 6f6c64"}));
}

TEST_F(Settlement, ReadsTheLateAnswersOfItsRequests)
{
    table(0, SHADOW_DB_SERVICE_CONFIG).clear();
    settled();
    EXPECT_TRUE(look().in_flight.empty());
}

TEST_F(Settlement, OfANewRootHasNothingToDo)
{
    shadow_db *before = root;
    root = nullptr;
    for (uint32_t np = 0; np < 2; ++np) {
        table(np, SHADOW_DB_SERVICE_CONFIG).clear();
        table(np, SHADOW_DB_EXT_CONF).clear();
    }
    EXPECT_EQ(settle(), Texts{});
    EXPECT_EQ(left_, Texts{});
    root = before;
}

// ---- a modify that was cut off, on NPs that turn the stored number round

class HalfModified : public SettlementTest {
protected:
    HalfModified() : SettlementTest(swapping_card, 4) {}

    // The new content is stored. `done` NPs have it, and the next one's number is turned round.
    void modify_on(uint32_t done, bool next_turned)
    {
        memcpy(seven->app_node.result, "modified", 8);
        seven->app_node.action = SHADOW_DB_MODIFY;
        for (uint32_t np = 0; np < done + (next_turned ? 1 : 0); ++np)
            seven->stat_index_rx[np] = 0xC00000;
        for (uint32_t np = 0; np < done; ++np)
            table(np, SHADOW_DB_SERVICE_CONFIG)
                .modify(bytes_of("seven"), bytes_of(std::string("m\0\0\xC0"
                                                                "fied",
                                                                8)));
    }
    void expect_modified_once()
    {
        settled();
        EXPECT_EQ(found(), Texts{});
        for (uint32_t np = 0; np < 4; ++np) {
            EXPECT_EQ(seven->stat_index_rx[np], 0xC00000u) << np;
            EXPECT_EQ(row(np, SHADOW_DB_SERVICE_CONFIG, "seven"), std::string("m\0\0\xC0"
                                                                              "fied",
                                                                              8));
        }
    }
};

TEST_F(HalfModified, IsFinishedWhenNoNumberWasTurned)
{
    ASSERT_EQ(seven->stat_index_rx[0], 0x0000C0u);
    modify_on(0, false);
    expect_modified_once();
    EXPECT_EQ(requests(), 4u);
}

TEST_F(HalfModified, IsFinishedWhenTheFirstNumberWasTurned)
{
    modify_on(0, true);
    expect_modified_once();
}

TEST_F(HalfModified, IsFinishedBetweenTwoNps)
{
    modify_on(2, false);
    expect_modified_once();
    EXPECT_EQ(requests(), 2u);
}

TEST_F(HalfModified, IsFinishedBeforeTheLastRequest)
{
    modify_on(3, true);
    expect_modified_once();
    EXPECT_EQ(requests(), 1u);
}

TEST_F(HalfModified, CountsOnceAlsoWhenOnlyTheNumberDiffers)
{
    for (uint32_t np = 0; np < 2; ++np) { // a modify to the content that was there
        seven->stat_index_rx[np] = 0xC00000;
        table(np, SHADOW_DB_SERVICE_CONFIG)
            .modify(bytes_of("seven"), bytes_of(std::string("0\0\0\xC0"
                                                            "4567",
                                                            8)));
    }
    EXPECT_EQ(found(), Texts{}); // every row is what its NP's number says
    settled();
    for (uint32_t np = 0; np < 4; ++np)
        EXPECT_EQ(seven->stat_index_rx[np], 0xC00000u) << np;
}

// A number that reads the same in both orders tells nothing of how often it was turned.
TEST_F(HalfModified, IsToldByTheNextNpWhereANumberReadsTheSameBothWays)
{
    for (uint32_t np = 0; np < 4; ++np)
        root->counters[np][0xC0 / 32] |= 0x80000000u; // 0xC000C0
    seven->stat_index_rx[0] = 0xC000C0;
    table(0, SHADOW_DB_SERVICE_CONFIG)
        .modify(bytes_of("seven"), bytes_of(std::string("0\xC0\0\xC0"
                                                        "4567",
                                                        8)));
    memcpy(seven->app_node.result, "modified", 8);
    settled();
    EXPECT_EQ(seven->stat_index_rx[0], 0xC000C0u);
    for (uint32_t np = 1; np < 4; ++np)
        EXPECT_EQ(seven->stat_index_rx[np], 0xC00000u) << np;
}

class HalfModifiedOnAnUnswappedCard : public SettlementTest {
protected:
    HalfModifiedOnAnUnswappedCard() : SettlementTest(unswapped_card, 2) {}
};

TEST_F(HalfModifiedOnAnUnswappedCard, KeepsItsNumbers)
{
    memcpy(seven->app_node.result, "modified", 8);
    const Texts done = settled();
    EXPECT_EQ(done.size(), 2u);
    EXPECT_EQ(seven->stat_index_rx[0], 0xC00000u);
    EXPECT_EQ(seven->stat_index_rx[1], 0xC00000u);
}

} // namespace
} // namespace test
