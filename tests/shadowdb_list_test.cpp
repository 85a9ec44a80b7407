// Node lists: what the shadow DB adds to the platform's list operations.
#include <cerrno>

#include "shadow_fixture.h"

using namespace test;

namespace {

// What a list's own operations were called with.
struct SlotCalls {
    int enqueues = 0;
    int removes = 0;
    list_record *list = nullptr;
    void *element = nullptr;
    void *data = nullptr;
    uint32_t result = LIST_OK;
} slot;

uint32_t own_enqueue(list_record *list, void *element, void *data)
{
    slot.enqueues++;
    slot.list = list;
    slot.element = element;
    slot.data = data;
    return slot.result;
}

uint32_t own_remove(list_record *list, void *element, void *data)
{
    slot.removes++;
    slot.list = list;
    slot.element = element;
    slot.data = data;
    return slot.result;
}

uint64_t word(const void *address)
{
    return reinterpret_cast<uint64_t>(address);
}

class NodeLists : public CardTest {
protected:
    NodeLists()
    {
        slot = {};
        forget_log();
    }
    list_record list{};
    shmem_node node{};
};

TEST_F(NodeLists, CreatingCallsThePlatformWithThreeZerosAndSaysSo)
{
    EXPECT_EQ(inline_svc_list_create(&list), 0u);
    ASSERT_EQ(services.names(), Lines{"list_create"});
    EXPECT_EQ(services.calls()[0].args, (std::vector<uint64_t>{word(&list), 0, 0, 0}));
    EXPECT_EQ(log(), Lines{" list is created"});
}

TEST_F(NodeLists, AnyNonNullResultOfThePlatformIsACreatedList)
{
    services.force("list_create", 1);
    EXPECT_EQ(inline_svc_list_create(&list), 0u);
}

TEST_F(NodeLists, AListThatThePlatformCannotMakeIs12WithItsLine)
{
    services.force("list_create", 0);
    EXPECT_EQ(inline_svc_list_create(&list), 12u);
    EXPECT_EQ(log(), Lines{" list create failed\n"});
}

TEST_F(NodeLists, InsertingEnqueuesTheNodeAsItsOwnDataAndSaysNothing)
{
    EXPECT_EQ(inline_svc_list_insert(&list, &node), 0u);
    ASSERT_EQ(services.names(), Lines{"list_enqueue_default"});
    EXPECT_EQ(services.calls()[0].args,
              (std::vector<uint64_t>{word(&list), word(&node), word(&node)}));
    EXPECT_EQ(list.first, &node.link);
    EXPECT_EQ(node.link.data, &node);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(NodeLists, OnlyTheValueOneIsASuccessfulEnqueue)
{
    for (const uint64_t result : {uint64_t{0}, uint64_t{2}, uint64_t{0xFFFFFFFF}}) {
        forget_log();
        services.force("list_enqueue_default", result);
        EXPECT_EQ(inline_svc_list_insert(&list, &node), 12u) << result;
        EXPECT_EQ(log(), Lines{" enqueue failed \n"}) << result;
    }
}

TEST_F(NodeLists, AListsOwnEnqueueIsUsedInsteadOfTheDefaultOne)
{
    list.enqueue = own_enqueue;
    EXPECT_EQ(inline_svc_list_insert(&list, &node), 0u);
    EXPECT_EQ(slot.enqueues, 1);
    EXPECT_EQ(slot.list, &list);
    EXPECT_EQ(slot.element, &node);
    EXPECT_EQ(slot.data, &node);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(NodeLists, AFailureOfTheListsOwnEnqueueIs12WithItsLine)
{
    list.enqueue = own_enqueue;
    slot.result = 0;
    EXPECT_EQ(inline_svc_list_insert(&list, &node), 12u);
    EXPECT_EQ(log(), Lines{" enqueue failed \n"});
}

TEST_F(NodeLists, DeletingTakesTheNodeOffAndSaysNothing)
{
    ASSERT_EQ(inline_svc_list_insert(&list, &node), 0u);
    services.forget();
    EXPECT_EQ(inline_svc_list_delete(&list, &node), 0u);
    ASSERT_EQ(services.names(), Lines{"list_remove_default"});
    EXPECT_EQ(services.calls()[0].args,
              (std::vector<uint64_t>{word(&list), word(&node), word(&node)}));
    EXPECT_EQ(list.first, nullptr);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(NodeLists, AFailedRemovalGoesUnnoticed)
{
    services.force("list_remove_default", 0);
    EXPECT_EQ(inline_svc_list_delete(&list, &node), 0u);
    list.remove = own_remove;
    slot.result = 99;
    EXPECT_EQ(inline_svc_list_delete(&list, &node), 0u);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(NodeLists, AListsOwnRemoveIsUsedInsteadOfTheDefaultOne)
{
    list.remove = own_remove;
    EXPECT_EQ(inline_svc_list_delete(&list, &node), 0u);
    EXPECT_EQ(slot.removes, 1);
    EXPECT_EQ(slot.list, &list);
    EXPECT_EQ(slot.element, &node);
    EXPECT_EQ(slot.data, &node);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(NodeLists, DestroyingIsZeroWhateverThePlatformSays)
{
    for (const uint64_t result : {0u, 1u, 22u}) {
        services.force("list_destroy", result);
        EXPECT_EQ(inline_svc_list_destroy(&list), 0u);
    }
    EXPECT_EQ(services.names(), (Lines{"list_destroy", "list_destroy", "list_destroy"}));
    EXPECT_EQ(services.calls()[0].args, std::vector<uint64_t>{word(&list)});
    EXPECT_EQ(log(), Lines{});
}

TEST_F(NodeLists, ANodeComparesByItsEntryIdAlone)
{
    node.app_node.entry_id = 0xFFFFFFFE;
    EXPECT_EQ(inline_shadow_db_compare_node_entry_id(&node, 0xFFFFFFFE), 1u);
    EXPECT_EQ(inline_shadow_db_compare_node_entry_id(&node, 0xFFFFFFFF), 0u);
    EXPECT_EQ(inline_shadow_db_compare_node_entry_id(&node, 0), 0u);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(NodeLists, NullArgumentsAreRefusedWithOneLineEachAndReachNoPlatformService)
{
    EXPECT_EQ(inline_svc_list_create(nullptr), 22u);
    EXPECT_EQ(inline_svc_list_insert(nullptr, &node), 22u);
    EXPECT_EQ(inline_svc_list_insert(&list, nullptr), 22u);
    EXPECT_EQ(inline_svc_list_delete(nullptr, &node), 22u);
    EXPECT_EQ(inline_svc_list_delete(&list, nullptr), 22u);
    EXPECT_EQ(inline_svc_list_destroy(nullptr), 22u);
    EXPECT_EQ(inline_shadow_db_compare_node_entry_id(nullptr, 0), 0u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(
        log(),
        (Lines{"list is NULL in inline_svc_list_create", "list is NULL in inline_svc_list_insert",
               "node is NULL in inline_svc_list_insert", "list is NULL in inline_svc_list_delete",
               "node is NULL in inline_svc_list_delete",
               "list is NULL in inline_svc_list_destroy"}));
}

} // namespace
