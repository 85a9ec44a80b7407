#include "vlc/prm_store.h"

#include <cstring>
#include <deque>
#include <memory>
#include <random>

#include "test_directory.h"

namespace vlc::test {

namespace {

StoredAnswer answer_of(uint32_t number)
{
    StoredAnswer answer{};
    answer.refnum = number;
    answer.key_len = 104;
    answer.result_len = 120;
    std::memset(answer.key, static_cast<int>(number), sizeof answer.key);
    std::memset(answer.result, static_cast<int>(number >> 8), sizeof answer.result);
    return answer;
}

class PrmStores : public testing::Test {
protected:
    void reopen()
    {
        prm.reset();
        prm = std::make_unique<PrmStore>(directory);
    }
    void push(uint32_t handle, uint32_t number)
    {
        ASSERT_TRUE(prm->push_answer(handle, answer_of(number)));
    }
    void expect_popped(uint32_t handle, uint32_t number)
    {
        StoredAnswer answer;
        ASSERT_TRUE(prm->pop_answer(handle, &answer));
        const StoredAnswer expected = answer_of(number);
        ASSERT_EQ(answer.refnum, number);
        ASSERT_EQ(std::memcmp(&answer, &expected, sizeof answer), 0);
    }

    TestDirectory top;
    StateDirectory directory{top.path(), Access::read_write};
    std::unique_ptr<PrmStore> prm = std::make_unique<PrmStore>(directory);
};

} // namespace

TEST_F(PrmStores, HandlesAreNumberedFromOneUntilAllAreTaken)
{
    EXPECT_FALSE(prm->is_handle(1));
    for (uint32_t handle = 1; handle <= PrmStore::max_handles; ++handle) {
        EXPECT_EQ(prm->make_handle(), handle);
        EXPECT_TRUE(prm->is_handle(handle));
    }
    EXPECT_EQ(prm->make_handle(), 0U);
    for (const uint32_t wrong : {0U, 17U, 33U, ~0U}) {
        EXPECT_FALSE(prm->is_handle(wrong));
    }
}

TEST_F(PrmStores, AHandleIsFoundByItsNameAfterARestart)
{
    prm->make_handle();
    const uint32_t handle = prm->make_handle();
    EXPECT_TRUE(prm->set_name(handle, "inline_service"));
    EXPECT_EQ(prm->find_handle("inline_service"), handle);
    reopen();
    EXPECT_EQ(prm->find_handle("inline_service"), handle);
    EXPECT_EQ(prm->find_handle("inline_servic"), 0U);
    EXPECT_EQ(prm->find_handle(""), 0U) << "the handle that has no name";
}

TEST_F(PrmStores, ANameThatCannotBeIsRefused)
{
    const uint32_t handle = prm->make_handle();
    prm->set_name(handle, "before");
    EXPECT_FALSE(prm->set_name(handle, ""));
    EXPECT_FALSE(prm->set_name(handle, std::string(PrmStore::name_bytes, 'n')));
    EXPECT_FALSE(prm->set_name(handle, std::string_view("a\0b", 3)));
    EXPECT_FALSE(prm->set_name(handle + 1, "name"));
    EXPECT_FALSE(prm->set_name(0, "name"));
    EXPECT_EQ(prm->find_handle("before"), handle);
    const std::string longest(PrmStore::name_bytes - 1, 'n');
    EXPECT_TRUE(prm->set_name(handle, longest));
    EXPECT_EQ(prm->find_handle(longest), handle);
    EXPECT_EQ(prm->find_handle("before"), 0U);
}

TEST_F(PrmStores, AnotherHandleOfTheNameLosesIt)
{
    const uint32_t first = prm->make_handle();
    const uint32_t second = prm->make_handle();
    prm->set_name(first, "name");
    prm->set_name(second, "name");
    EXPECT_EQ(prm->find_handle("name"), second);
    EXPECT_TRUE(prm->is_handle(first));
    prm->set_name(second, "name");
    EXPECT_EQ(prm->find_handle("name"), second) << "its own name again";
}

TEST_F(PrmStores, AnswersAreReadInTheirOrderAndOnce)
{
    const uint32_t handle = prm->make_handle();
    StoredAnswer untouched = answer_of(99);
    EXPECT_FALSE(prm->pop_answer(handle, &untouched));
    EXPECT_EQ(untouched.refnum, 99U);
    for (uint32_t number = 0; number < 5; ++number) {
        push(handle, number);
    }
    EXPECT_EQ(prm->unread(handle), 5U);
    for (uint32_t number = 0; number < 5; ++number) {
        expect_popped(handle, number);
    }
    EXPECT_EQ(prm->unread(handle), 0U);
    EXPECT_FALSE(prm->pop_answer(handle, &untouched));
}

TEST_F(PrmStores, EachHandleHasAQueueOfItsOwn)
{
    const uint32_t first = prm->make_handle();
    const uint32_t second = prm->make_handle();
    push(first, 1);
    push(second, 2);
    expect_popped(second, 2);
    expect_popped(first, 1);
}

TEST_F(PrmStores, WhatIsNoHandleHasNoQueue)
{
    StoredAnswer answer;
    for (const uint32_t wrong : {0U, 1U, 17U, ~0U}) {
        EXPECT_FALSE(prm->push_answer(wrong, answer_of(1)));
        EXPECT_FALSE(prm->pop_answer(wrong, &answer));
        EXPECT_EQ(prm->unread(wrong), 0U);
    }
}

TEST_F(PrmStores, AQueueGrowsAndKeepsItsOrderAcrossOpenings)
{
    const uint32_t handle = prm->make_handle();
    std::deque<uint32_t> model;
    std::mt19937 random(20261121);
    for (uint32_t i = 0; i < 20000; ++i) {
        const bool filling = i / 4000 % 2 == 0;
        if (model.empty() || random() % 10 < (filling ? 7U : 3U)) {
            push(handle, i);
            model.push_back(i);
        } else {
            expect_popped(handle, model.front());
            model.pop_front();
        }
        ASSERT_EQ(prm->unread(handle), model.size());
        if (i % 1000 == 0) {
            reopen();
        }
    }
    for (const uint32_t number : model) {
        expect_popped(handle, number);
    }
}

TEST_F(PrmStores, AQueueThatIsReadAsFastAsItFillsDoesNotGrow)
{
    const uint32_t handle = prm->make_handle();
    push(handle, 0);
    const auto before = std::filesystem::file_size(directory.file("answers1"));
    for (uint32_t number = 1; number < 10000; ++number) {
        push(handle, number);
        expect_popped(handle, number - 1);
    }
    EXPECT_EQ(std::filesystem::file_size(directory.file("answers1")), before);
}

TEST_F(PrmStores, ForgottenHandlesAreGoneWithNamesAndAnswers)
{
    const uint32_t handle = prm->make_handle();
    prm->set_name(handle, "name");
    push(handle, 1);
    prm->forget_handles();
    for (int opening = 0; opening < 2; ++opening) {
        EXPECT_FALSE(prm->is_handle(handle));
        EXPECT_EQ(prm->find_handle("name"), 0U);
        EXPECT_EQ(prm->unread(handle), 0U);
        reopen();
    }
    EXPECT_EQ(prm->make_handle(), handle);
    EXPECT_EQ(prm->unread(handle), 0U) << "a new handle of that number has no old answers";
    EXPECT_EQ(prm->find_handle("name"), 0U);
    push(handle, 2);
    expect_popped(handle, 2);
}

TEST_F(PrmStores, AReaderSeesHandlesAndUnreadAnswers)
{
    const uint32_t handle = prm->make_handle();
    prm->set_name(handle, "name");
    push(handle, 1);
    const StateDirectory read_only(top.path(), Access::read_only);
    const PrmStore seen(read_only);
    EXPECT_EQ(seen.find_handle("name"), handle);
    EXPECT_EQ(seen.unread(handle), 1U);
}

TEST_F(PrmStores, HandlesThatCannotBeAreRefused)
{
    prm.reset();
    std::string content = content_of(directory.file("prm"));
    content[4096] = 2; // the copy in force
    write_file(directory.file("prm"), content);
    EXPECT_EQ(refusal([&] { reopen(); }),
              directory.file("prm").string() + ": holds handles that cannot be");
}

TEST_F(PrmStores, AQueueWithMoreAnswersThanPlacesIsRefused)
{
    const uint32_t handle = prm->make_handle();
    push(handle, 1);
    prm.reset();
    std::string content = content_of(directory.file("answers1"));
    content[4096] = 65; // the number of the next answer
    write_file(directory.file("answers1"), content);
    EXPECT_EQ(refusal([&] { reopen(); }),
              directory.file("answers1").string() + ": holds more answers than it has room for");
}

} // namespace vlc::test
