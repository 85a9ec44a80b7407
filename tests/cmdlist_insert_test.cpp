// Adding commands to the list: the bytes of a slot, what is refused, and what the platform's
// enqueue says.
#include "cmdlist_fixture.h"

using namespace test;

namespace {

constexpr uint64_t refusal = 77;
constexpr uint32_t slots = 32;

class CommandListInsert : public CommandListTest {
protected:
    CommandListInsert() { open(); }

    const app_node_element &element(size_t place) const
    {
        const list_link *link = batch().node_list.first;
        for (size_t i = 0; i < place; ++i)
            link = link->next;
        return *static_cast<const app_node_element *>(link->data);
    }
    uint32_t insert(const command_input &in)
    {
        return plm_inline_insert_cmd_to_list(0, 7, 0, &in, SHADOW_DB_CREATE, 0, nullptr);
    }
    void expect_full()
    {
        forget_history();
        EXPECT_EQ(insert_create(99, "z"), 22u);
        EXPECT_EQ(log(), Lines{"command list is full: 32 commands"});
        EXPECT_EQ(services.names(), Lines{});
    }
};

TEST_F(CommandListInsert, ASlotHasTheCommandAndZeroesElsewhere)
{
    auto *hw_entry = reinterpret_cast<shmem_node *>(0x7EA000001122);
    command_input in;
    memset(&in, 0xEE, sizeof in);
    in.table_type = 1;
    in.key_len = 3;
    memcpy(in.key, "k\0y", 3);
    in.result_len = 4;
    memcpy(in.result, "\0r\0s", 4);
    EXPECT_EQ(plm_inline_insert_cmd_to_list(0, 0x01020304, 0x05060708, &in, 2, 1, hw_entry), 1u);

    app_node expected = {};
    memcpy(expected.key, "k\0y", 3);
    expected.key_len = 3;
    memcpy(expected.result, "\0r\0s", 4);
    expected.result_len = 4;
    expected.hw_index = 0x05060708;
    expected.entry_id = 0x01020304;
    expected.table_type = 1;
    expected.action = 2;
    expected.shmem_node = hw_entry;
    EXPECT_EQ(memcmp(&element(0).app_node, &expected, sizeof expected), 0);
    EXPECT_EQ(element(0).link.data, &element(0));
    EXPECT_EQ(batch().num_node, 1u);
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListInsert, TheHardwareIndexIsTakenForAUseOf1Alone)
{
    const command_input in = command(0, "a", "0123");
    const std::pair<uint32_t, uint32_t> expected[] = {
        {1, 44}, {0, no_hw_index}, {2, no_hw_index}, {0xFFFFFFFF, no_hw_index}};
    for (size_t i = 0; i < 4; ++i) {
        plm_inline_insert_cmd_to_list(0, 7, 44, &in, 1, expected[i].first, nullptr);
        EXPECT_EQ(element(i).app_node.hw_index, expected[i].second) << expected[i].first;
    }
}

TEST_F(CommandListInsert, ActionAndTableGoUnread)
{
    const command_input in = command(0xFFFFFFFF, "a", "0123");
    EXPECT_EQ(plm_inline_insert_cmd_to_list(0, 7, 0, &in, 0xFFFFFFFF, 0, nullptr), 1u);
    EXPECT_EQ(element(0).app_node.action, 0xFFFFFFFFu);
    EXPECT_EQ(element(0).app_node.table_type, 0xFFFFFFFFu);
}

TEST_F(CommandListInsert, TheLongestKeyAndResultFitWhole)
{
    const std::string key_text(32, 'k');
    const std::string result_text(36, 'r');
    EXPECT_EQ(insert(command(0, key_text, result_text)), 1u);
    const app_node &node = element(0).app_node;
    EXPECT_EQ(node.key_len, 32u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(node.key), 33), key_text + '\0');
    EXPECT_EQ(node.result_len, 36u);
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(node.result), 37), result_text + '\0');
}

TEST_F(CommandListInsert, AnEmptyKeyAndResultAreTaken)
{
    EXPECT_EQ(insert(command(0, "", "")), 1u);
    EXPECT_EQ(element(0).app_node.key_len, 0u);
    EXPECT_EQ(element(0).app_node.result_len, 0u);
}

TEST_F(CommandListInsert, LengthsBehindTheFieldsAre22AndTakeNoSlot)
{
    command_input in = command(0, "a", "0123");
    in.key_len = 33;
    EXPECT_EQ(insert(in), 22u);
    in.key_len = 32;
    in.result_len = 37;
    EXPECT_EQ(insert(in), 22u);
    in.key_len = in.result_len = 255;
    EXPECT_EQ(insert(in), 22u);
    EXPECT_EQ(log(),
              (Lines{"command too long: key 33 result 4", "command too long: key 32 result 37",
                     "command too long: key 255 result 255"}));
    EXPECT_EQ(batch().num_node, 0u);
    EXPECT_EQ(batch().node_list.first, nullptr);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(CommandListInsert, ANullInputIs22AndTakesNoSlot)
{
    EXPECT_EQ(plm_inline_insert_cmd_to_list(0, 7, 0, nullptr, 1, 0, nullptr), 22u);
    EXPECT_EQ(log(), Lines{"in is NULL in plm_inline_insert_cmd_to_list"});
    EXPECT_EQ(batch().num_node, 0u);
    EXPECT_EQ(services.names(), Lines{});
}

TEST_F(CommandListInsert, ThirtyTwoCommandsFitInTheirOrderAndTheNextIs22)
{
    for (uint32_t i = 0; i < slots; ++i)
        ASSERT_EQ(insert_create(i, std::to_string(i)), 1u);
    expect_full();
    EXPECT_EQ(batch().num_node, slots);
    for (uint32_t i = 0; i < slots; ++i)
        EXPECT_EQ(element(i).app_node.entry_id, i);
    EXPECT_EQ(element(slots - 1).link.next, nullptr);
}

TEST_F(CommandListInsert, RefusedCommandsLeaveAll32Slots)
{
    command_input in = command(0, "a", "0123");
    in.key_len = 33;
    EXPECT_EQ(insert(in), 22u);
    EXPECT_EQ(plm_inline_insert_cmd_to_list(0, 7, 0, nullptr, 1, 0, nullptr), 22u);
    for (uint32_t i = 0; i < slots; ++i)
        ASSERT_EQ(insert_create(i, std::to_string(i)), 1u);
    expect_full();
}

TEST_F(CommandListInsert, AListThatIsOpenedAgainHasAllItsSlots)
{
    for (uint32_t i = 0; i < slots; ++i)
        ASSERT_EQ(insert_create(i, "earlier"), 1u);
    open();
    for (uint32_t i = 0; i < slots; ++i)
        ASSERT_EQ(insert_create(i, "later"), 1u);
    EXPECT_EQ(batch().num_node, slots);
    expect_full();
}

TEST_F(CommandListInsert, TheSlotIsItsOwnDataInThePlatformsList)
{
    insert_create(1, "a");
    ASSERT_EQ(services.names(), Lines{"list_enqueue_default"});
    const std::vector<uint64_t> &args = services.calls()[0].args;
    EXPECT_EQ(args[0], reinterpret_cast<uint64_t>(&batch().node_list));
    EXPECT_EQ(args[1], reinterpret_cast<uint64_t>(&element(0)));
    EXPECT_EQ(args[2], args[1]);
}

TEST_F(CommandListInsert, AnEnqueuesResultIsReturnedAsItIs)
{
    for (const uint64_t result : {uint64_t{0}, uint64_t{2}, refusal}) {
        services.force("list_enqueue_default", result);
        EXPECT_EQ(insert_create(1, "a"), result);
    }
    EXPECT_EQ(log(), Lines{});
}

TEST_F(CommandListInsert, ACommandThatCouldNotBeEnqueuedCountsAndKeepsItsSlot)
{
    services.force("list_enqueue_default", 0, 1, 1);
    EXPECT_EQ(insert_create(1, "lost"), 0u);
    EXPECT_EQ(batch().num_node, 1u);
    EXPECT_EQ(batch().node_list.first, nullptr);
    for (uint32_t i = 1; i < slots; ++i)
        ASSERT_EQ(insert_create(i, std::to_string(i)), 1u);
    EXPECT_EQ(batch().num_node, slots);
    expect_full();
}

// ---- the list's own enqueue

struct Enqueued {
    list_record *list;
    void *element;
    void *data;
};
Enqueued enqueued_last;

uint32_t own_enqueue(list_record *list, void *element, void *data)
{
    enqueued_last = {list, element, data};
    return 5;
}

TEST_F(CommandListInsert, TheListsOwnEnqueueComesBeforeTheDefaultOne)
{
    batch().node_list.enqueue = own_enqueue;
    EXPECT_EQ(insert_create(1, "a"), 5u);
    EXPECT_EQ(services.names(), Lines{});
    EXPECT_EQ(enqueued_last.list, &batch().node_list);
    EXPECT_EQ(enqueued_last.element, enqueued_last.data);
    EXPECT_EQ(static_cast<app_node_element *>(enqueued_last.element)->app_node.entry_id, 1u);
    EXPECT_EQ(batch().num_node, 1u);
}

} // namespace
