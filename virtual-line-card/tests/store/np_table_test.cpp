#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>

#include "np_test_card.h"

namespace vlc::test {

namespace {

class NpTables : public testing::Test {
protected:
    NpTable &table() { return (*nps)[0].table(TableKind::service_config); }
    void reopen()
    {
        nps.reset();
        nps = std::make_unique<NpStore>(directory, config);
    }

    TestDirectory top;
    StateDirectory directory{top.path(), Access::read_write};
    CardConfig config = card_of(1, 100, 10);
    std::unique_ptr<NpStore> nps = std::make_unique<NpStore>(directory, config);
};

} // namespace

TEST_F(NpTables, AnAddedKeyIsFoundWithItsResult)
{
    EXPECT_EQ(table().add(bytes("key"), bytes("result")), TableOutcome::done);
    const TableRow *row = table().find(bytes("key"));
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(text(row->key_span()), "key");
    EXPECT_EQ(text(row->result_span()), "result");
    EXPECT_EQ(table().size(), 1U);
    EXPECT_EQ(table().capacity(), 100U);
}

TEST_F(NpTables, KeysOfEveryLengthAreKeptApart)
{
    for (size_t length = 0; length <= TableRow::key_bytes; ++length) {
        const std::string zeros(length, '\0');
        EXPECT_EQ(table().find(bytes(zeros)), nullptr) << length;
        EXPECT_EQ(table().add(bytes(zeros), bytes(std::to_string(length))), TableOutcome::done);
    }
    for (size_t length = 0; length <= TableRow::key_bytes; ++length) {
        const std::string zeros(length, '\0');
        EXPECT_EQ(text(table().find(bytes(zeros))->result_span()), std::to_string(length));
    }
}

TEST_F(NpTables, AWordFindsWhatItsBytesFind)
{
    const auto word_of = [](const std::string &key) {
        uint64_t word = 0;
        std::memcpy(&word, key.data(), key.size());
        return word;
    };
    const std::string longest = "abcdefgh";
    const auto expect_the_same = [&]<size_t length>() {
        for (const std::string &key : {longest.substr(0, length), std::string(length, '\0'),
                                       std::string(length, 'z'), longest.substr(8 - length)})
            EXPECT_EQ(table().find_word<length>(word_of(key)), table().find(bytes(key))) << key;
    };
    const auto expect_all_the_same = [&] {
        expect_the_same.operator()<4>();
        expect_the_same.operator()<5>();
        expect_the_same.operator()<6>();
        expect_the_same.operator()<7>();
        expect_the_same.operator()<8>();
    };
    expect_all_the_same();
    for (size_t length = 4; length <= longest.size(); ++length) {
        table().add(bytes(longest.substr(0, length)), bytes("begin"));
        expect_all_the_same();
        table().add(bytes(std::string(length, '\0')), bytes("zeros"));
        expect_all_the_same();
    }
    EXPECT_NE(table().find_word<5>(word_of("abcde")), nullptr);
    EXPECT_NE(table().find_word<8>(word_of("abcdefgh")), nullptr);
}

TEST_F(NpTables, KeysThatDifferInOneByteAreKeptApart)
{
    for (const size_t length : {size_t{3}, size_t{7}, size_t{13}, size_t{52}}) {
        table().clear();
        const std::string base(length, 'k');
        table().add(bytes(base), bytes("base"));
        for (size_t at = 0; at < length; ++at) {
            std::string other = base;
            other[at] = 'x';
            EXPECT_EQ(table().find(bytes(other)), nullptr);
            EXPECT_EQ(table().add(bytes(other), bytes(other)), TableOutcome::done);
        }
        for (size_t at = 0; at < length; ++at) {
            std::string other = base;
            other[at] = 'x';
            EXPECT_EQ(text(table().find(bytes(other))->result_span()), other);
        }
    }
}

TEST_F(NpTables, ADuplicateIsRefusedAndTheOldRowStays)
{
    table().add(bytes("key"), bytes("old"));
    EXPECT_EQ(table().add(bytes("key"), bytes("new")), TableOutcome::duplicate);
    EXPECT_EQ(text(table().find(bytes("key"))->result_span()), "old");
    EXPECT_EQ(table().size(), 1U);
}

TEST_F(NpTables, AMissingKeyCanNeitherBeModifiedNorRemoved)
{
    table().add(bytes("other"), bytes("result"));
    EXPECT_EQ(table().modify(bytes("key"), bytes("new")), TableOutcome::missing);
    EXPECT_EQ(table().remove(bytes("key")), TableOutcome::missing);
    EXPECT_EQ(table().size(), 1U);
}

TEST_F(NpTables, WhatIsTooWideIsRefused)
{
    const std::string key(TableRow::key_bytes + 1, 'k');
    const std::string result(TableRow::result_bytes + 1, 'r');
    EXPECT_EQ(table().add(bytes(key), bytes("r")), TableOutcome::too_wide);
    EXPECT_EQ(table().add(bytes("k"), bytes(result)), TableOutcome::too_wide);
    EXPECT_EQ(table().add(bytes(key.substr(1)), bytes(result.substr(1))), TableOutcome::done);
    EXPECT_EQ(table().modify(bytes(key.substr(1)), bytes(result)), TableOutcome::too_wide);
    EXPECT_EQ(text(table().find(bytes(key.substr(1)))->result_span()), result.substr(1));
    EXPECT_EQ(table().find(bytes(key)), nullptr);
}

TEST_F(NpTables, AFullTableTakesNoMoreButIsModifiedAsBefore)
{
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(table().add(bytes(std::to_string(i)), bytes("r")), TableOutcome::done);
    }
    EXPECT_EQ(table().add(bytes("one more"), bytes("r")), TableOutcome::full);
    EXPECT_EQ(table().add(bytes("7"), bytes("r")), TableOutcome::duplicate);
    for (int i = 0; i < 100; ++i) {
        ASSERT_EQ(table().modify(bytes(std::to_string(i)), bytes("new")), TableOutcome::done);
    }
    EXPECT_EQ(text(table().find(bytes("99"))->result_span()), "new");
    EXPECT_EQ(table().remove(bytes("7")), TableOutcome::done);
    EXPECT_EQ(table().add(bytes("one more"), bytes("r")), TableOutcome::done);
}

TEST_F(NpTables, AClearedTableIsEmptyAndTakesItsFullCapacityAgain)
{
    for (int round = 0; round < 3; ++round) {
        for (int i = 0; i < 100; ++i) {
            ASSERT_EQ(table().add(bytes(std::to_string(i)), bytes("r")), TableOutcome::done);
        }
        table().clear();
        EXPECT_EQ(table().size(), 0U);
        EXPECT_EQ(table().find(bytes("7")), nullptr);
        reopen();
        EXPECT_EQ(table().size(), 0U);
    }
}

TEST_F(NpTables, TheTwoTablesOfAnNpAreApart)
{
    NpTable &other = (*nps)[0].table(TableKind::ext_conf);
    table().add(bytes("key"), bytes("r"));
    EXPECT_EQ(other.find(bytes("key")), nullptr);
    EXPECT_EQ(other.capacity(), 10U);
    other.add(bytes("key"), bytes("other"));
    table().clear();
    EXPECT_EQ(text(other.find(bytes("key"))->result_span()), "other");
}

TEST_F(NpTables, ALongRandomLifeAgreesWithAModelAcrossOpenings)
{
    std::map<std::string, std::string> model;
    std::mt19937 random(20261121);
    for (uint32_t i = 0; i < 200000; ++i) {
        const std::string key = std::to_string(random() % 140);
        const std::string result = std::to_string(i);
        const bool known = model.count(key) != 0;
        switch (random() % 3) {
        case 0: {
            const TableOutcome expected = known                 ? TableOutcome::duplicate
                                          : model.size() == 100 ? TableOutcome::full
                                                                : TableOutcome::done;
            ASSERT_EQ(table().add(bytes(key), bytes(result)), expected);
            if (expected == TableOutcome::done) {
                model[key] = result;
            }
            break;
        }
        case 1:
            ASSERT_EQ(table().modify(bytes(key), bytes(result)),
                      known ? TableOutcome::done : TableOutcome::missing);
            if (known) {
                model[key] = result;
            }
            break;
        default:
            ASSERT_EQ(table().remove(bytes(key)),
                      known ? TableOutcome::done : TableOutcome::missing);
            model.erase(key);
        }
        if (i % 5000 == 0) {
            reopen();
        }
        if (i % 100 == 0) {
            ASSERT_EQ(rows_of(table()), model) << "operation " << i;
            ASSERT_EQ(table().size(), model.size());
        }
    }
}

TEST_F(NpTables, AFullTableInWhichKeysComeAndGoForEverStaysFast)
{
    for (int i = 0; i < 100; ++i) {
        table().add(bytes(std::to_string(i)), {});
    }
    // Were marks of removed rows to pile up, a search for what is absent would never end.
    for (int i = 0; i < 100000; ++i) {
        ASSERT_EQ(table().remove(bytes(std::to_string(i))), TableOutcome::done);
        ASSERT_EQ(table().add(bytes(std::to_string(i + 100)), {}), TableOutcome::done);
        ASSERT_EQ(table().find(bytes(std::to_string(i))), nullptr);
    }
    reopen();
    EXPECT_EQ(rows_of(table()).size(), 100U);
    EXPECT_NE(table().find(bytes("100099")), nullptr);
}

TEST_F(NpTables, AReaderBesideTheWriterSeesTheRows)
{
    table().add(bytes("key"), bytes("result"));
    const StateDirectory read_only(top.path(), Access::read_only);
    const NpStore seen(read_only, config);
    EXPECT_EQ(rows_of(seen[0].table(TableKind::service_config)), rows_of(table()));
}

// ---- hits --------------------------------------------------------------------------------------

TEST_F(NpTables, ARowsHitsBeginAtNothingAndAreCounted)
{
    table().add(bytes("key"), bytes("result"));
    EXPECT_EQ(table().hits(*table().find(bytes("key"))), (PacketCount{0, 0}));
    table().count_hit(*table().find(bytes("key")), 100);
    table().count_hit(*table().find(bytes("key")), 28);
    EXPECT_EQ(table().hits(*table().find(bytes("key"))), (PacketCount{2, 128}));
}

TEST_F(NpTables, HitsFollowTheRowThroughModifiesAndRestarts)
{
    table().add(bytes("key"), bytes("result"));
    table().add(bytes("other"), bytes("result"));
    table().count_hit(*table().find(bytes("key")), 100);
    for (int i = 0; i < 300; ++i)
        table().modify(bytes("key"), bytes(std::to_string(i)));
    reopen();
    EXPECT_EQ(table().hits(*table().find(bytes("key"))), (PacketCount{1, 100}));
    EXPECT_EQ(table().hits(*table().find(bytes("other"))), (PacketCount{0, 0}));
}

TEST_F(NpTables, HitsGoWithTheRow)
{
    for (int i = 0; i < 100; ++i) {
        table().add(bytes(std::to_string(i)), {});
        table().count_hit(*table().find(bytes(std::to_string(i))), 9);
    }
    table().remove(bytes("5"));
    table().add(bytes("5"), {});
    EXPECT_EQ(table().hits(*table().find(bytes("5"))), (PacketCount{0, 0}));
    table().clear();
    for (int i = 0; i < 100; ++i) {
        table().add(bytes(std::to_string(i)), {});
        EXPECT_EQ(table().hits(*table().find(bytes(std::to_string(i)))), (PacketCount{0, 0}));
    }
}

TEST_F(NpTables, HitsOfTheTwoTablesAreKeptApart)
{
    NpTable &ext = (*nps)[0].table(TableKind::ext_conf);
    table().add(bytes("key"), {});
    ext.add(bytes("key"), {});
    table().count_hit(*table().find(bytes("key")), 1);
    ext.count_hit(*ext.find(bytes("key")), 2);
    ext.count_hit(*ext.find(bytes("key")), 2);
    EXPECT_EQ(table().hits(*table().find(bytes("key"))), (PacketCount{1, 1}));
    EXPECT_EQ(ext.hits(*ext.find(bytes("key"))), (PacketCount{2, 4}));
    EXPECT_EQ((*nps)[0].counters().read(0), (PacketCount{0, 0}));
}

} // namespace vlc::test
