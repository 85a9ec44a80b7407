// The audit, on cards whose shadow DB and hardware were put apart on purpose.

#include "audited_card.h"

namespace test {
namespace {

using services::FindingKind;
using Texts = std::vector<std::string>;

// Bit of a counter in the first word of its bitmap.
constexpr uint32_t counter_bit(uint32_t place)
{
    return UINT32_C(0x80000000) >> place;
}

class Audit : public AuditedCardTest {
protected:
    Audit() { store_three(); } // counters 0 and 1 are entry 7's, 2 and 3 entry 8's
};

TEST_F(Audit, OfACardThatIsAsItShouldBeFindsNothing)
{
    EXPECT_EQ(found(), Texts{});
    const services::AuditReport report = look();
    EXPECT_TRUE(report.clean());
    EXPECT_EQ(report.entries, 2u);
    EXPECT_EQ(report.nodes[SHADOW_DB_SERVICE_CONFIG], 2u);
    EXPECT_EQ(report.nodes[SHADOW_DB_EXT_CONF], 1u);
    ASSERT_EQ(report.nps.size(), 2u);
    for (const services::AuditReport::Np &np : report.nps) {
        EXPECT_EQ(np.rows[SHADOW_DB_SERVICE_CONFIG], 2u);
        EXPECT_EQ(np.rows[SHADOW_DB_EXT_CONF], 1u);
        EXPECT_EQ(np.counters_in_use, 4u);
    }
}

TEST_F(Audit, FindsNothingAfterOddAndEvenNumbersOfModifies)
{
    for (const char *result : {"modified", "reworked", "replaced"}) {
        Batch batch(1);
        batch.modify(seven, result).modify(eight, result);
        ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
        EXPECT_EQ(found(), Texts{}) << result;
    }
}

TEST_F(Audit, FindsAnEntryThatIsMissingOnOneNp)
{
    ASSERT_EQ(table(1, SHADOW_DB_EXT_CONF).remove(bytes_of("eight")), vlc::TableOutcome::done);
    EXPECT_EQ(found(), Texts{"entry_missing NP 1 entry 8"});
    const services::Finding finding = look().findings.at(0);
    EXPECT_EQ(finding.main_key, 1u);
    EXPECT_EQ(finding.table, uint32_t{SHADOW_DB_EXT_CONF});
    EXPECT_EQ(finding.key, std::vector<uint8_t>({'e', 'i', 'g', 'h', 't'}));
    EXPECT_EQ(finding.node, eight);
    EXPECT_EQ(finding.text, "NP 1: entry 8 of key 1 (ext conf 6569676874) has no row");
}

TEST_F(Audit, FindsARowThatNoEntryHas)
{
    table(0, SHADOW_DB_SERVICE_CONFIG).add(bytes_of("old"), bytes_of("row"));
    EXPECT_EQ(found(), Texts{"entry_stale NP 0"});
    EXPECT_EQ(look().findings.at(0).text, "NP 0: no entry has the row service config 6f6c64");
}

TEST_F(Audit, LooksForARowInItsOwnTableOnly)
{
    table(0, SHADOW_DB_EXT_CONF).add(bytes_of("seven"), bytes_of("0123"));
    EXPECT_EQ(found(), Texts{"entry_stale NP 0"});
}

TEST_F(Audit, FindsARowThatDiffersFromItsEntry)
{
    table(1, SHADOW_DB_SERVICE_CONFIG).modify(bytes_of("nine"), bytes_of("other"));
    EXPECT_EQ(found(), Texts{"entry_differs NP 1 entry 9"});
    EXPECT_EQ(look().findings.at(0).text, "NP 1: entry 9 of key 2 (service config 6e696e65) should "
                                          "be 3031323334353637 and is 6f74686572");
}

TEST_F(Audit, FindsARowThatCountsOnAnotherCounter)
{
    std::swap(seven->stat_index_rx[0], eight->stat_index_rx[0]);
    EXPECT_EQ(found(), (Texts{"entry_differs NP 0 entry 7", "entry_differs NP 0 entry 8"}));
}

TEST_F(Audit, TakesTheCounterBytesOfAnEntryWithoutCountersAsItsOwn)
{
    table(0, SHADOW_DB_SERVICE_CONFIG).modify(bytes_of("nine"), bytes_of("0xyz4567"));
    EXPECT_EQ(found(), Texts{"entry_differs NP 0 entry 9"});
}

TEST_F(Audit, FindsALeakedCounter)
{
    root->counters[1][0] |= counter_bit(9);
    EXPECT_EQ(found(), Texts{"counter_leaked NP 1"});
    EXPECT_EQ(look().findings.at(0).counter, 0xC00009u);
    EXPECT_EQ(look().nps[1].counters_in_use, 5u);
}

TEST_F(Audit, FindsACounterLeakedBehindTheRegionsEnd)
{
    root->counters[0][vlc::CounterBank::count / 32] |= counter_bit(0); // the allocator gets there
    EXPECT_EQ(found(), Texts{"counter_leaked NP 0"});
    EXPECT_EQ(look().findings.at(0).counter, 0xC10000u);
}

TEST_F(Audit, FindsAnEntrysCounterFree)
{
    root->counters[0][0] &= ~counter_bit(3);
    EXPECT_EQ(found(), Texts{"counter_free NP 0 entry 8"});
    EXPECT_EQ(look().findings.at(0).text,
              "NP 0: entry 8 of key 1 (ext conf 6569676874) holds dropped-packets counter "
              "0xc00003, which is free");
}

TEST_F(Audit, FindsACounterSharedByTwoEntries)
{
    eight->stat_index_drop[1] = seven->stat_index_drop[1];
    EXPECT_EQ(found(), (Texts{"counter_leaked NP 1", "counter_shared NP 1 entry 8"}));
    EXPECT_EQ(look().findings.at(1).counter, 0xC00001u);
}

TEST_F(Audit, FindsAnEntryWithoutTheCounterItMustHave)
{
    eight->stat_index_drop[0] = 0;
    EXPECT_EQ(found(), (Texts{"counter_leaked NP 0", "counter_invalid NP 0 entry 8"}));
}

TEST_F(Audit, FindsANumberThatIsNoCounters)
{
    eight->stat_index_drop[0] = 0x123456;
    EXPECT_EQ(found(), (Texts{"counter_leaked NP 0", "counter_invalid NP 0 entry 8"}));
}

TEST_F(Audit, FindsANumberHeldByAnEntryThatTakesNoCounters)
{
    nine->stat_index_drop[0] = 0xC00009;
    EXPECT_EQ(found(), (Texts{"counter_free NP 0 entry 9", "counter_invalid NP 0 entry 9"}));
}

TEST_F(Audit, FindsACountThatDoesNotMatchItsList)
{
    ++root->main_table[1]->num_elements[SHADOW_DB_EXT_CONF];
    EXPECT_EQ(found(), Texts{"count_wrong"});
    EXPECT_EQ(look().findings.at(0).text,
              "key 1, ext conf list: the entry says 2 nodes and the list holds 1");
}

TEST_F(Audit, CountsUnreadAnswersApart)
{
    Batch batch(3);
    batch.create(10, SHADOW_DB_SERVICE_CONFIG, "ten", "01234567");
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u); // and no events run
    const services::AuditReport report = look();
    EXPECT_TRUE(report.clean());
    ASSERT_EQ(report.in_flight.size(), 2u);
    EXPECT_EQ(report.in_flight[1].np, 1u);
    EXPECT_EQ(report.in_flight[1].refnum, 0u);
    EXPECT_EQ(report.in_flight[1].key, std::vector<uint8_t>({'t', 'e', 'n'}));
}

TEST_F(Audit, LooksAtTheShadowDbAloneWithoutHardware)
{
    table(1, SHADOW_DB_EXT_CONF).clear();
    services::AuditInput alone = input();
    alone.hardware = nullptr;
    EXPECT_TRUE(services::audit(alone).clean());
}

TEST_F(Audit, TakesEveryRowAsStaleWithoutARoot)
{
    services::AuditInput rootless = input();
    rootless.root = nullptr;
    EXPECT_EQ(services::audit(rootless).count()[size_t(FindingKind::entry_stale)], 6u);
}

TEST_F(Audit, SortsItsFindingsByKindAndThenByNp)
{
    table(1, SHADOW_DB_EXT_CONF).clear();
    table(0, SHADOW_DB_EXT_CONF).clear();
    root->counters[0][0] |= counter_bit(20);
    ++root->main_table[1]->num_elements[0];
    EXPECT_EQ(found(), (Texts{"entry_missing NP 0 entry 8", "entry_missing NP 1 entry 8",
                              "counter_leaked NP 0", "count_wrong"}));
}

// ---- broken lists

class BrokenList : public AuditedCardTest {
protected:
    BrokenList()
    {
        for (uint32_t id = 1; id <= 3; ++id)
            nodes[id - 1] = store(1, id, SHADOW_DB_EXT_CONF, "entry" + std::to_string(id));
    }
    list_record &list() { return root->main_table[1]->table_array[SHADOW_DB_EXT_CONF]; }

    // The one finding of kind list_broken, as text.
    std::string broken()
    {
        std::string text;
        for (const services::Finding &finding : look().findings) {
            if (finding.kind == FindingKind::list_broken)
                text += finding.text + "\n";
        }
        return text;
    }
    static std::string at(const void *address)
    {
        char text[32];
        snprintf(text, sizeof text, "0x%lx", reinterpret_cast<unsigned long>(address));
        return text;
    }

    shmem_node *nodes[3] = {};
    static constexpr char list_name[] = "key 1, ext conf list: ";
};

TEST_F(BrokenList, IsOneThatPointsOutsideSharedMemory)
{
    int elsewhere = 0;
    nodes[1]->link.next = reinterpret_cast<list_link *>(&elsewhere);
    EXPECT_EQ(broken(),
              list_name + ("it points to " + at(&elsewhere)) + ", outside shared memory\n");
}

TEST_F(BrokenList, IsOneWhoseNodeReachesPastSharedMemory)
{
    auto *last = reinterpret_cast<list_link *>(vlc::Window::address + config.window_bytes - 16);
    nodes[2]->link.next = last;
    EXPECT_EQ(broken(), list_name + ("it points to " + at(last)) + ", outside shared memory\n");
}

TEST_F(BrokenList, IsOneThatPointsBetweenWords)
{
    auto *odd = reinterpret_cast<list_link *>(reinterpret_cast<uintptr_t>(nodes[2]) + 1);
    nodes[1]->link.next = odd;
    EXPECT_EQ(broken(), list_name + ("it points to " + at(odd)) + ", outside shared memory\n");
}

TEST_F(BrokenList, IsOneThatRunsInACircle)
{
    nodes[2]->link.next = &nodes[0]->link;
    EXPECT_EQ(broken(),
              list_name + ("it comes to the node at " + at(nodes[0])) + " a second time\n");
}

TEST_F(BrokenList, IsOneThatRunsIntoAnother)
{
    shmem_node *other = store(2, 9, SHADOW_DB_EXT_CONF, "other");
    other->link.next = &nodes[1]->link;
    EXPECT_EQ(broken(),
              "key 2, ext conf list: it comes to the node at " + at(nodes[1]) + " a second time\n");
}

TEST_F(BrokenList, IsOneWithALinkThatCarriesNoNode)
{
    nodes[1]->link.data = nullptr;
    EXPECT_EQ(broken(), list_name + ("the link at " + at(nodes[1])) + " carries no node\n");
}

TEST_F(BrokenList, IsOneWithALinkThatCarriesAnotherNode)
{
    nodes[1]->link.data = nodes[2];
    EXPECT_EQ(broken(),
              list_name + ("the link at " + at(nodes[1])) + " carries another node than itself\n");
}

TEST_F(BrokenList, IsOneThatCannotBeWalkedBackwards)
{
    nodes[2]->link.prev = &nodes[0]->link;
    EXPECT_EQ(broken(),
              list_name + ("the node at " + at(nodes[2])) + " does not name the one before it\n");
}

TEST_F(BrokenList, IsOneWhoseNodeNamesAnotherList)
{
    nodes[0]->link.owner = nullptr;
    EXPECT_EQ(broken(),
              list_name + ("the node at " + at(nodes[0])) + " names another list as its own\n");
}

TEST_F(BrokenList, IsOneThatNamesAnotherNodeAsTheLast)
{
    list().last = &nodes[1]->link;
    EXPECT_EQ(broken(),
              std::string(list_name) + "its last node is not the one that it names as the last\n");
}

TEST_F(BrokenList, IsOneThatCountsWrong)
{
    list().count = 7;
    EXPECT_EQ(broken(), std::string(list_name) + "it says 7 nodes and holds 3\n");
}

TEST_F(BrokenList, IsOneWithANodeThatDoesNotNameItself)
{
    nodes[1]->app_node.shmem_node = nodes[0];
    EXPECT_EQ(broken(), std::string(list_name) + "the node of entry 2 does not name itself\n");
    EXPECT_EQ(look().findings.at(0).node, nodes[1]);
}

TEST_F(BrokenList, IsOneWithANodeOfAnotherTable)
{
    nodes[1]->app_node.table_type = 5;
    EXPECT_EQ(broken(), std::string(list_name) + "the node of entry 2 names table 5\n");
}

TEST_F(BrokenList, IsOneWithANodeThatIsTooLong)
{
    nodes[1]->app_node.result_len = 65;
    EXPECT_EQ(broken(), std::string(list_name) +
                            "the node of entry 2 has a key or a result that is "
                            "longer than one can be\n");
}

TEST_F(BrokenList, IsAlsoAnEntryUnderAnotherKey)
{
    root->main_table[1]->uidb_index = 2;
    EXPECT_EQ(broken(), "key 1: the entry stored there says key 2\n");
}

TEST_F(BrokenList, IsAlsoAnEntryOutsideSharedMemory)
{
    main_entry elsewhere = {};
    root->main_table[5] = &elsewhere;
    EXPECT_EQ(broken(), "key 5: the entry lies outside shared memory\n");
}

TEST_F(BrokenList, IsAlsoATableOutsideSharedMemory)
{
    root->main_table = reinterpret_cast<main_entry **>(0x1000);
    EXPECT_EQ(broken(), "the main table lies outside shared memory\n");
}

TEST_F(BrokenList, IsAlsoARootOutsideSharedMemory)
{
    const shadow_db elsewhere = *root;
    services::AuditInput stray = input();
    stray.root = &elsewhere;
    EXPECT_EQ(services::audit(stray).findings.back().text, "the root lies outside shared memory");
}

TEST_F(BrokenList, IsAlsoABitmapOutsideSharedMemory)
{
    root->counters[1] =
        reinterpret_cast<uint32_t *>(vlc::Window::address + config.window_bytes - 8);
    EXPECT_EQ(broken(), "the counter bitmap of NP 1 lies outside shared memory\n");
}

// ---- the other kind of card

class AuditOfAnUnswappedCard : public AuditedCardTest {
protected:
    AuditOfAnUnswappedCard() : AuditedCardTest(unswapped_card, 4) { store_three(); }
};

TEST_F(AuditOfAnUnswappedCard, KnowsHowItsRowsCarryTheCounter)
{
    Batch batch(1);
    batch.modify(seven, "modified");
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    EXPECT_EQ(found(), Texts{});
}

TEST_F(AuditOfAnUnswappedCard, TakesNoExchangedNumber)
{
    seven->stat_index_rx[2] = 0x0000C0;
    EXPECT_EQ(found(), (Texts{"entry_differs NP 2 entry 7", "counter_leaked NP 2",
                              "counter_invalid NP 2 entry 7"}));
}

} // namespace
} // namespace test
