#include "held_answers.h"

#include <memory>

#include <gtest/gtest.h>

namespace {

using namespace std::chrono_literals;

class HeldAnswers : public testing::Test {
protected:
    HeldAnswers() { vlc::CardClock::set_mode(vlc::ClockMode::stepped); }
    ~HeldAnswers() override { vlc::CardClock::set_mode(vlc::ClockMode::real); }

    static vlc::StoredAnswer answer(uint32_t refnum)
    {
        vlc::StoredAnswer made{};
        made.refnum = refnum;
        return made;
    }
    bool queue(uint32_t, const vlc::StoredAnswer &given)
    {
        if (places == 0)
            return false;
        places--;
        queued.push_back(given.refnum);
        return true;
    }

    vlc::EventManager events;
    uint32_t places = 100;
    std::vector<uint32_t> queued;
    std::unique_ptr<vlc::HeldAnswers> held = std::make_unique<vlc::HeldAnswers>(
        [this](uint32_t handle, const vlc::StoredAnswer &given) { return queue(handle, given); });
};

TEST_F(HeldAnswers, AnAnswerWithoutRoomIsTriedAgainUntilThereIsSome)
{
    places = 0;
    held->hold(events, 1, answer(7), 1);
    events.run_until_idle();
    EXPECT_TRUE(queued.empty());
    events.after(1s, [this] { places = 1; });
    EXPECT_TRUE(events.run_until([this] { return !queued.empty(); }));
    EXPECT_EQ((std::vector<uint32_t>{7}), queued);
    EXPECT_FALSE(events.run_until([] { return false; })) << "nothing is left to wait for";
}

TEST_F(HeldAnswers, EachHandleHasAnAnswerOfItsOwnThatWaitsForTheNext)
{
    held->hold_behind_next(events, 1, answer(10));
    held->hold_behind_next(events, 2, answer(20));
    EXPECT_TRUE(held->waits_for_next(1));
    EXPECT_TRUE(held->waits_for_next(2));
    held->release_behind_next(2);
    EXPECT_EQ((std::vector<uint32_t>{20}), queued);
    EXPECT_FALSE(held->waits_for_next(2));
    events.run_until_idle();
    EXPECT_EQ((std::vector<uint32_t>{20, 10}), queued);
}

TEST_F(HeldAnswers, WhatIsLeftOnTheEventManagerIsDroppedWithThem)
{
    held->hold(events, 1, answer(1), 3);
    held->hold_behind_next(events, 1, answer(2));
    held.reset();
    events.run_until_idle();
    EXPECT_TRUE(queued.empty());
}

} // namespace
