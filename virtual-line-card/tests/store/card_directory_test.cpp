// Looking into the hardware of a state directory, whose process may live or be gone.
#include "np_test_card.h"
#include "vlc/card_access.h"
#include "vlc/prm_store.h"

namespace vlc::test {

namespace {

class CardDirectories : public testing::Test {
protected:
    CardDirectories()
    {
        nps[1].table(TableKind::ext_conf).add(bytes("key"), bytes("result"));
        nps[1].counters().add(7, 100);
    }
    void complete(Holdings holdings) { directory.complete(config, holdings); }

    std::map<std::string, std::string> rows(CardAccess &card, uint32_t np, TableKind table)
    {
        std::map<std::string, std::string> found;
        card.for_each_row(np, table, [&found](const TableRow &row) {
            found.emplace(text(row.key_span()), text(row.result_span()));
        });
        return found;
    }

    TestDirectory top;
    StateDirectory directory{top.path(), Access::read_write};
    CardConfig config = card_of(2, 8, 8);
    NpStore nps{directory, config};
    PrmStore prm{directory};
};

using Rows = std::map<std::string, std::string>;

} // namespace

TEST_F(CardDirectories, ShowTheRowsOfAnNpsTable)
{
    complete(Holdings::card_and_host);
    const auto card = look_into_directory(top.path());
    EXPECT_EQ(rows(*card, 1, TableKind::ext_conf), (Rows{{"key", "result"}}));
    EXPECT_EQ(rows(*card, 1, TableKind::service_config), Rows{});
    EXPECT_EQ(rows(*card, 0, TableKind::ext_conf), Rows{});
}

TEST_F(CardDirectories, ShowWhatTheirProcessHasChangedSinceTheFirstLook)
{
    complete(Holdings::card);
    const auto card = look_into_directory(top.path());
    rows(*card, 1, TableKind::ext_conf);
    nps[1].table(TableKind::ext_conf).clear();
    nps[1].table(TableKind::ext_conf).add(bytes("other"), bytes("r"));
    EXPECT_EQ(rows(*card, 1, TableKind::ext_conf), (Rows{{"other", "r"}}));
}

TEST_F(CardDirectories, ShowAnNpsCounter)
{
    complete(Holdings::card);
    const auto card = look_into_directory(top.path());
    EXPECT_EQ(card->counter(1, 7).packets, 1u);
    EXPECT_EQ(card->counter(1, 7).bytes, 100u);
    EXPECT_EQ(card->counter(0, 7).packets, 0u);
}

TEST_F(CardDirectories, ShowAllCountersOfAnNpAndItsTotals)
{
    complete(Holdings::card);
    const auto card = look_into_directory(top.path());
    const std::vector<PacketCount> counters = card->counters(1);
    ASSERT_EQ(counters.size(), CounterBank::count);
    EXPECT_EQ(counters[7], (PacketCount{1, 100}));
    EXPECT_EQ(counters[8], (PacketCount{0, 0}));
    nps[1].totals().taken.add(100);
    nps[1].totals().missed.add(60);
    EXPECT_EQ(card->totals(1).bytes, 100u);
    EXPECT_EQ(card->totals(1).missed_bytes, 60u);
    EXPECT_EQ(card->totals(0).packets, 0u);
}

TEST_F(CardDirectories, ShowTheUnreadAnswersOfEveryHandleTheOldestFirst)
{
    complete(Holdings::card);
    const auto card = look_into_directory(top.path());
    const uint32_t handles[] = {prm.make_handle(), prm.make_handle()};
    StoredAnswer answer{};
    for (uint32_t refnum = 0; refnum < 200; ++refnum) { // more than a queue begins with
        answer.refnum = refnum;
        ASSERT_TRUE(prm.push_answer(handles[refnum % 2], answer));
    }
    ASSERT_TRUE(prm.pop_answer(handles[0], &answer));
    std::vector<std::pair<uint32_t, uint32_t>> seen;
    card->for_each_unread_answer([&seen](uint32_t handle, const StoredAnswer &one) {
        seen.emplace_back(handle, one.refnum);
    });
    ASSERT_EQ(seen.size(), 199u);
    EXPECT_EQ(seen.front(), std::pair(handles[0], 2u));
    EXPECT_EQ(seen[98], std::pair(handles[0], 198u));
    EXPECT_EQ(seen[99], std::pair(handles[1], 1u));
    EXPECT_EQ(seen.back(), std::pair(handles[1], 199u));
}

TEST_F(CardDirectories, AreRefusedWhenTheyHoldAHostAlone)
{
    complete(Holdings::host);
    EXPECT_EQ(refusal([this] { look_into_directory(top.path()); }),
              top.path().string() +
                  ": holds a host without its card, and a card without a host is looked for");
}

TEST_F(CardDirectories, AreRefusedWhenTheirCardWasNeverUp)
{
    EXPECT_EQ(refusal([this] { look_into_directory(top.path()); }),
              top.path().string() + ": is not complete: its card was never up");
}

TEST_F(CardDirectories, AreNotChangedByALook)
{
    complete(Holdings::card);
    const auto before = all_files(top.path());
    const auto card = look_into_directory(top.path());
    rows(*card, 0, TableKind::ext_conf);
    card->for_each_unread_answer([](uint32_t, const StoredAnswer &) {});
    EXPECT_EQ(refusal([&card] { card->counter(2, 0); }),
              top.path().string() + ": its card has no NP 2");
    EXPECT_TRUE(all_files(top.path()) == before);
}

} // namespace vlc::test
