// Plans on a card that is split off: the host's rules act in the host, the card's in the card.
#include <memory>

#include "test_card.h"
#include "vlc/faults.h"

using card_test::heard;
using card_test::key_of;
using vlc::FaultAction;
using vlc::FaultRule;

namespace {

constexpr const char *add_service = "prm_srh_service_config_add";

class SplitFaults : public card_test::ClientTest {
protected:
    SplitFaults() : ClientTest(card_test::Deployment::split) {}
    ~SplitFaults() override
    {
        thread().perform([this](vlc::Hardware &) { on_card.reset(); });
    }
    void play_on_card(const std::vector<FaultRule> &rules)
    {
        thread().perform([&](vlc::Hardware &hardware) {
            on_card = std::make_unique<vlc::Faults>(vlc::FaultPlan{0, rules});
            on_card->attach_card(hardware.prm(), thread().events());
        });
    }
    vlc::Faults::Count counted_on_card(size_t rule = 0)
    {
        vlc::Faults::Count count;
        thread().perform([&](vlc::Hardware &) { count = on_card->counts()[rule]; });
        return count;
    }
    // Once this many have been read.
    std::string keys_heard(size_t answers)
    {
        events().run_until([answers] { return heard().answers.size() >= answers; });
        std::string keys;
        for (const auto &answer : heard().answers)
            keys += key_of(answer);
        return keys;
    }

    std::unique_ptr<vlc::Faults> on_card;
};

TEST_F(SplitFaults, TheCardAnswersAsItsPlanSays)
{
    play_on_card({{.service = add_service, .action = FaultAction::answer, .status = 99, .nth = 2}});
    add("a");
    add("b");
    EXPECT_EQ(keys_heard(2), "ab");
    EXPECT_EQ(heard().answers[0].status, 0u);
    EXPECT_EQ(heard().answers[1].status, 99u);
    EXPECT_EQ(counted_on_card().matched, 2u);
    EXPECT_EQ(counted_on_card().fired, 1u);
}

TEST_F(SplitFaults, AnAnswerThatTheCardHoldsBackComesByItself)
{
    play_on_card({{.service = add_service, .action = FaultAction::late, .events = 30, .nth = 1},
                  {.service = add_service, .action = FaultAction::reorder, .nth = 2}});
    add("a");
    EXPECT_EQ(keys_heard(1), "a");
    add("b");
    EXPECT_EQ(keys_heard(2), "ab");
}

TEST_F(SplitFaults, TheHostHearsOfARestartOfTheCardsPrm)
{
    play_on_card({{.service = add_service, .action = FaultAction::restart}});
    EXPECT_EQ(add("a"), 0u);
    EXPECT_TRUE(events().run_until([] { return heard().notifications.size() >= 2; }));
    EXPECT_EQ(heard().notifications, (std::vector<std::string>{"2.2", "2.1"}));
}

TEST_F(SplitFaults, WhatTheHostsPlanAnswersNeverReachesTheCard)
{
    play_on_card({{.service = add_service, .action = FaultAction::twice}});
    vlc::Faults on_host({.rules = {{.service = add_service, .code = 5, .nth = 1}}});
    on_host.attach_host();
    EXPECT_EQ(add("a"), 5u);
    EXPECT_EQ(add("b"), 0u);
    EXPECT_EQ(keys_heard(2), "bb");
    EXPECT_EQ(on_host.counts()[0].matched, 2u);
    EXPECT_EQ(counted_on_card().matched, 1u);
}

} // namespace
