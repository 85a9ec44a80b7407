#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <optional>

#include "kill_sweep.h"
#include "test_directory.h"
#include "vlc/prm_store.h"

namespace vlc::test {

namespace {

// What a client finds: its names with the handles, and the answers of the first two handles.
struct Found {
    uint32_t handles = 0; // bit h: handle h
    std::map<std::string, uint32_t> names;
    std::deque<uint32_t> answers[3];
    bool operator==(const Found &) const = default;
};

StoredAnswer answer_of(uint32_t number)
{
    StoredAnswer answer{};
    answer.refnum = number;
    answer.key_len = sizeof answer.key;
    std::memset(answer.key, static_cast<int>(number), sizeof answer.key);
    std::memset(answer.result, static_cast<int>(number), sizeof answer.result);
    return answer;
}

// Reads everything; the answers are gone after it.
Found find_all(PrmStore &prm)
{
    Found found;
    for (uint32_t handle = 1; handle <= PrmStore::max_handles; ++handle) {
        found.handles |= prm.is_handle(handle) ? 1U << handle : 0;
    }
    for (const char *name : {"one", "two"}) {
        if (const uint32_t handle = prm.find_handle(name)) {
            found.names[name] = handle;
        }
    }
    for (uint32_t handle = 1; handle <= 2; ++handle) {
        StoredAnswer answer;
        while (prm.pop_answer(handle, &answer)) {
            const StoredAnswer whole = answer_of(answer.refnum);
            EXPECT_EQ(std::memcmp(&answer, &whole, sizeof answer), 0);
            found.answers[handle].push_back(answer.refnum);
        }
    }
    return found;
}

struct Step {
    std::function<void(PrmStore &)> act;
    std::function<void(Found &)> expect;
};

Step push(uint32_t handle, uint32_t number)
{
    return {[=](PrmStore &prm) { prm.push_answer(handle, answer_of(number)); },
            [=](Found &found) { found.answers[handle].push_back(number); }};
}

Step pop(uint32_t handle)
{
    return {[=](PrmStore &prm) {
                StoredAnswer answer;
                prm.pop_answer(handle, &answer);
            },
            [=](Found &found) { found.answers[handle].pop_front(); }};
}

Step name(uint32_t handle, const char *text)
{
    return {[=](PrmStore &prm) { prm.set_name(handle, text); },
            [=](Found &found) {
                std::erase_if(found.names, [&](const auto &each) { return each.second == handle; });
                found.names[text] = handle;
            }};
}

Step make(uint32_t handle)
{
    return {[](PrmStore &prm) { prm.make_handle(); },
            [=](Found &found) { found.handles |= 1U << handle; }};
}

Step forget()
{
    return {[](PrmStore &prm) { prm.forget_handles(); }, [](Found &found) { found = Found{}; }};
}

void sweep_steps(const std::vector<Step> &before, const std::vector<Step> &steps,
                 uint64_t least_points, uint64_t least_images)
{
    std::vector<Found> expected(1);
    for (const Step &step : before) {
        step.expect(expected[0]);
    }
    for (const Step &step : steps) {
        expected.push_back(expected.back());
        step.expect(expected.back());
    }
    TestDirectory original;
    TestDirectory copy;
    KillSweep sweep(original.path(), copy.path(),
                    {{"prm"}, {"prm.new"}, {"answers1"}, {"answers1.new"}, {"answers2"}});
    std::optional<StateDirectory> directory;
    std::optional<PrmStore> prm;
    sweep.prepare = [&] {
        directory.emplace(original.path(), Access::read_write);
        prm.emplace(*directory);
        for (const Step &step : before) {
            step.act(*prm);
        }
        KillSweep::Operations all;
        for (const Step &step : steps) {
            all.emplace_back([&] { step.act(*prm); });
        }
        return all;
    };
    sweep.verify = [&](const StateDirectory &found, uint32_t done) {
        PrmStore killed(found);
        const Found all = find_all(killed);
        EXPECT_TRUE(all == expected[done] ||
                    all == expected[std::min<size_t>(done + 1, steps.size())])
            << "neither the old nor the new";
        if (killed.is_handle(1)) { // it goes on
            EXPECT_TRUE(killed.push_answer(1, answer_of(1)));
            EXPECT_EQ(killed.unread(1), 1U);
        }
    };
    sweep.run(least_points, least_images);
}

} // namespace

TEST(KilledPrm, AtEveryInstructionAnAnswerIsUnreadOrReadAndAQueueGrowsWhole)
{
    // 64 unread answers, which begin in the middle of the ring: the next one makes it grow.
    std::vector<Step> before{make(1)};
    for (uint32_t number = 0; number < 82; ++number) {
        before.push_back(push(1, number));
        if (number < 20) {
            before.push_back(pop(1));
        }
    }
    std::vector<Step> steps;
    for (uint32_t number = 0; number < 5; ++number) {
        steps.push_back(push(1, 100 + number));
        steps.push_back(number % 2 == 0 ? push(1, 200 + number) : pop(1));
    }
    sweep_steps(before, steps, KillSweep::slow ? 500 : 1000, KillSweep::slow ? 30 : 60);
}

TEST(KilledPrm, AtEveryInstructionHandlesAndNamesAreTheOldOrTheNew)
{
    sweep_steps({},
                {make(1), name(1, "one"), make(2), name(2, "one"), name(2, "two"), name(1, "two"),
                 push(1, 7), push(2, 8), forget(), make(1), push(1, 9), name(1, "one")},
                KillSweep::slow ? 5000 : 10000, KillSweep::slow ? 30 : 60);
}

} // namespace vlc::test
