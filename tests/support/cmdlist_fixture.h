// What the tests of command lists share: a running card with an attribute table, inputs of
// commands, and the batch inside the library's list, found by what the platform was given.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "inline_service_attributes.h"
#include "inline_service_cmdlist.h"
#include "shadow_fixture.h"

namespace test {

inline command_input command(uint32_t table, const std::string &key, const std::string &result)
{
    command_input in = {};
    in.table_type = table;
    memcpy(in.key, key.data(), key.size());
    in.key_len = static_cast<uint8_t>(key.size());
    memcpy(in.result, result.data(), result.size());
    in.result_len = static_cast<uint8_t>(result.size());
    return in;
}

class CommandListTest : public ShadowDbTest {
protected:
    static constexpr uint32_t type = 2;
    static constexpr uint32_t id = 5;
    static constexpr uint16_t key = 0x105; // of the pair
    static constexpr uint32_t no_hw_index = 0xFFFFFFFF;

    // Opens the list for a pair with words of its own, and forgets that it did.
    void open(uint32_t app_type = type, uint32_t app_id = id)
    {
        plm_inline_init_cmd_list(0, app_type, app_id, 17, 0x111, 0x222);
        const auto created = services.calls_of("list_create");
        ASSERT_FALSE(created.empty());
        batch_ = created.back().args[0] - offsetof(action_array, node_list);
        services.forget();
        forget_log();
    }
    // The batch of the list that was opened last.
    action_array &batch() const { return *reinterpret_cast<action_array *>(batch_); }

    uint32_t insert_create(uint32_t entry_id, const std::string &text, uint32_t table = 0)
    {
        const command_input in = command(table, text, "0123456789");
        return plm_inline_insert_cmd_to_list(0, entry_id, 0, &in, SHADOW_DB_CREATE, 0, nullptr);
    }

private:
    uint64_t batch_ = 0;
};

} // namespace test
