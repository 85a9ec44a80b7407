#include <gtest/gtest.h>

#include "platform_list.h"

namespace {

struct Element {
    list_link link{};
    int number = 0;
};

class ListServices : public testing::Test {
protected:
    ListServices() { EXPECT_NE(nullptr, list_create(&list, 0, 0, 0)); }

    void append(Element &element)
    {
        EXPECT_EQ(uint32_t{LIST_OK}, list_enqueue_default(&list, &element, &element));
    }
    std::vector<const void *> walk() const
    {
        std::vector<const void *> found;
        for (const list_link *link = list.first; link; link = link->next)
            found.push_back(link->data);
        return found;
    }
    std::vector<const void *> walk_backwards() const
    {
        std::vector<const void *> found;
        for (const list_link *link = list.last; link; link = link->prev)
            found.push_back(link->data);
        return found;
    }

    list_record list;
    Element one, two, three;
};

using Places = std::vector<const void *>;

TEST_F(ListServices, ACreatedListIsEmptyAndHasNoOperationsOfItsOwn)
{
    EXPECT_EQ(nullptr, list.first);
    EXPECT_EQ(nullptr, list.last);
    EXPECT_EQ(0u, list.count);
    EXPECT_EQ(nullptr, list.enqueue);
    EXPECT_EQ(nullptr, list.dequeue);
    EXPECT_EQ(nullptr, list.remove);
}

TEST_F(ListServices, ElementsStandInTheOrderInWhichTheyWereEnqueued)
{
    append(one);
    append(two);
    append(three);
    EXPECT_EQ((Places{&one, &two, &three}), walk());
    EXPECT_EQ((Places{&three, &two, &one}), walk_backwards());
    EXPECT_EQ(3u, list.count);
}

TEST_F(ListServices, AnElementCarriesTheDataThatItWasEnqueuedWith)
{
    ASSERT_EQ(uint32_t{LIST_OK}, list_enqueue_default(&list, &one, &two.number));
    EXPECT_EQ(&two.number, list_dequeue_default(&list));
}

TEST_F(ListServices, TheFirstTheMiddleAndTheLastElementCanBeRemoved)
{
    append(one);
    append(two);
    append(three);
    EXPECT_EQ(uint32_t{LIST_OK}, list_remove_default(&list, &two, &two));
    EXPECT_EQ((Places{&one, &three}), walk());
    EXPECT_EQ((Places{&three, &one}), walk_backwards());
    EXPECT_EQ(uint32_t{LIST_OK}, list_remove_default(&list, &one, &one));
    EXPECT_EQ(uint32_t{LIST_OK}, list_remove_default(&list, &three, &three));
    EXPECT_EQ(nullptr, list.first);
    EXPECT_EQ(nullptr, list.last);
    EXPECT_EQ(0u, list.count);
}

TEST_F(ListServices, DequeueTakesTheFirstElementAndAnEmptyListGivesNull)
{
    append(one);
    append(two);
    EXPECT_EQ(&one, list_dequeue_default(&list));
    EXPECT_EQ(&two, list_dequeue_default(&list));
    EXPECT_EQ(nullptr, list_dequeue_default(&list));
}

TEST_F(ListServices, AnElementThatIsInAListIsRefusedByAnother)
{
    list_record other;
    list_create(&other, 0, 0, 0);
    append(one);
    EXPECT_NE(uint32_t{LIST_OK}, list_enqueue_default(&list, &one, &one));
    EXPECT_NE(uint32_t{LIST_OK}, list_enqueue_default(&other, &one, &one));
    EXPECT_EQ((Places{&one}), walk());
    EXPECT_EQ(nullptr, other.first);
}

TEST_F(ListServices, AnElementThatIsNotInTheListIsNotRemoved)
{
    list_record other;
    list_create(&other, 0, 0, 0);
    append(one);
    EXPECT_NE(uint32_t{LIST_OK}, list_remove_default(&other, &one, &one));
    EXPECT_NE(uint32_t{LIST_OK}, list_remove_default(&list, &two, &two));
    EXPECT_EQ((Places{&one}), walk());
}

TEST_F(ListServices, ARemovedElementCanBeEnqueuedAgain)
{
    append(one);
    list_remove_default(&list, &one, &one);
    EXPECT_EQ(nullptr, one.link.owner);
    append(one);
    EXPECT_EQ((Places{&one}), walk());
}

TEST_F(ListServices, ARecordOfZeroesIsAnEmptyList)
{
    list = {};
    EXPECT_EQ(nullptr, list_dequeue_default(&list));
    append(one);
    EXPECT_EQ((Places{&one}), walk());
}

TEST_F(ListServices, DestroyLetsTheElementsGo)
{
    append(one);
    append(two);
    EXPECT_EQ(uint32_t{LIST_OK}, list_destroy(&list));
    EXPECT_EQ(nullptr, list.first);
    EXPECT_EQ(nullptr, one.link.owner);
    EXPECT_EQ(nullptr, two.link.owner);
}

TEST_F(ListServices, NullArgumentsAreRefused)
{
    EXPECT_EQ(nullptr, list_create(nullptr, 0, 0, 0));
    EXPECT_NE(uint32_t{LIST_OK}, list_enqueue_default(nullptr, &one, &one));
    EXPECT_NE(uint32_t{LIST_OK}, list_enqueue_default(&list, nullptr, &one));
    EXPECT_NE(uint32_t{LIST_OK}, list_remove_default(nullptr, &one, &one));
    EXPECT_NE(uint32_t{LIST_OK}, list_remove_default(&list, nullptr, &one));
    EXPECT_EQ(nullptr, list_dequeue_default(nullptr));
    EXPECT_NE(uint32_t{LIST_OK}, list_destroy(nullptr));
}

TEST_F(ListServices, AListWithAComparatorIsRefusedSinceThisCardHasNone)
{
    EXPECT_EQ(nullptr, list_create(&list, 1, 0, 0));
    EXPECT_EQ(nullptr, list_create(&list, 0, 1, 0));
}

} // namespace
