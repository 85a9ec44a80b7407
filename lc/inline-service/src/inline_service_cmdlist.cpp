// Command lists: batches built step by step, and single entries.

#include "inline_service_cmdlist.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "inline_service_app.h"
#include "inline_service_attributes.h"
#include "inline_service_context.h"
#include "inline_service_list.h"
#include "inline_service_log.h"

using namespace inline_service;

const zem_message_record zem_msg_rec_plat_error_log = {
    .zero_0 = 0,
    .format = "%s",
    .zero_16 = 0,
    .facility_short_name = "PLAT",
    .facility_name = "PLATFORM",
    .message_name = "ERROR_LOG",
    .attributes = {0x30000, 0, 0x136b0000},
};

namespace {

struct CommandList {
    main_entry *main; // as found when the list was opened
    action_array batch;
    uint32_t cmd_count;
    app_node_element slots[COMMAND_LIST_SLOTS];
};

bool programming_enabled = true;
bool opened = false; // at least once
CommandList the_list;

bool is_bound(uint32_t key)
{
    return key < COMMAND_LIST_UNBOUND;
}

bool fits(const command_input &in)
{
    return in.key_len <= COMMAND_KEY_BYTES && in.result_len <= COMMAND_RESULT_BYTES;
}

void take_bytes(app_node *node, const command_input &in)
{
    node->table_type = in.table_type;
    node->key_len = in.key_len;
    memcpy(node->key, in.key, in.key_len);
    node->result_len = in.result_len;
    memcpy(node->result, in.result, in.result_len);
}

uint32_t key_of(uint32_t app_type, uint32_t app_id)
{
    return inline_shadow_db_appid_to_key(static_cast<int32_t>(app_type), app_id);
}

// Null when the key is unbound, or bound and nothing is stored.
main_entry *stored_under(uint32_t key)
{
    return is_bound(key) ? inline_svc_shadow_db_query_main(key) : nullptr;
}

} // namespace

void plm_inline_enable_hardware_programming(void)
{
    programming_enabled = true;
}

void plm_inline_disable_hardware_programming(void)
{
    programming_enabled = false;
}

// ---- the list ----------------------------------------------------------------------------------

uint64_t plm_inline_init_cmd_list(uint32_t /*list*/, uint32_t app_type, uint32_t app_id,
                                  uint32_t app_ID, uint32_t app_param, uint16_t entry_tag)
{
    const uint32_t key = key_of(app_type, app_id);
    if (!is_bound(key))
        return COMMAND_LIST_UNBOUND;
    the_list = {};
    opened = true;
    the_list.batch.uidb_index = static_cast<uint16_t>(key);
    the_list.batch.app_ID = app_ID;
    the_list.batch.app_param = app_param;
    the_list.batch.entry_tag = entry_tag;
    the_list.main = inline_svc_shadow_db_query_main(key);
    return as_word(list_create(&the_list.batch.node_list, 0, 0, 0));
}

shmem_node *plm_inline_get_hw_entry(uint32_t /*list*/, uint32_t entry_id)
{
    main_entry *main = the_list.main;
    // A batch since the list was opened may have freed the entry.
    if (main == nullptr || pshadow_db == nullptr || pshadow_db->main_table == nullptr ||
        pshadow_db->main_table[the_list.batch.uidb_index] != main)
        return nullptr;
    return inline_shadow_db_query_entry_id(main, entry_id);
}

uint32_t plm_inline_insert_cmd_to_list(uint32_t /*list*/, uint32_t entry_id, uint32_t hw_index,
                                       const command_input *in, uint32_t action,
                                       uint32_t use_hw_index, shmem_node *hw_entry)
{
    if (in == nullptr)
        return refuse_null("in");
    if (!fits(*in)) {
        inline_svc_trace_error("command too long: key %d result %d", in->key_len, in->result_len);
        return EINVAL;
    }
    if (the_list.cmd_count >= COMMAND_LIST_SLOTS) {
        inline_svc_trace_error("command list is full: %d commands", the_list.cmd_count);
        return EINVAL;
    }
    app_node_element &slot = the_list.slots[the_list.cmd_count++];
    slot = {};
    slot.app_node.entry_id = entry_id;
    slot.app_node.action = action;
    slot.app_node.hw_index = use_hw_index == 1 ? hw_index : SHADOW_DB_NO_HW_INDEX;
    slot.app_node.shmem_node = hw_entry;
    take_bytes(&slot.app_node, *in);
    const uint32_t rc = list_enqueue(the_list.batch.node_list, &slot);
    ++the_list.batch.num_node; // Kept: counts also when the enqueue failed
    return rc;
}

void plm_inline_program_list_to_hardware(uint32_t /*list*/)
{
    if (!programming_enabled)
        return;
    if (!opened) {
        inline_svc_trace_error("command list was never opened");
        return;
    }
    const uint32_t rc = inline_svc_shadow_db_insert_action_array(&the_list.batch);
    if (rc == 0)
        return;
    char text[256];
    snprintf(text, sizeof text, "Hardware programming failed rc 0x%x\n", rc);
    zem_errmsg(&zem_msg_rec_plat_error_log, ZEM_SEVERITY_ERROR, text);
}

void plm_inline_delete_list_from_hardware(uint32_t app_type, uint32_t app_id)
{
    const uint32_t key = key_of(app_type, app_id);
    if (!programming_enabled || !is_bound(key))
        return;
    action_array batch = {};
    batch.uidb_index = static_cast<uint16_t>(key);
    batch.action = INLINE_SVC_BATCH_DELETE_ALL;
    inline_svc_shadow_db_insert_action_array(&batch);
}

// ---- one entry ---------------------------------------------------------------------------------

void plm_inline_program_entry_in_hardware_list(uint32_t app_type, uint32_t app_id,
                                               uint32_t entry_id, const command_input *in)
{
    if (!programming_enabled)
        return;
    const uint32_t key = key_of(app_type, app_id);
    main_entry *main = stored_under(key);
    if (main == nullptr)
        return;
    if (in != nullptr && !fits(*in)) {
        inline_svc_trace_error("entry too long: key %d result %d", in->key_len, in->result_len);
        return;
    }
    action_array batch = {};
    batch.uidb_index = static_cast<uint16_t>(key); // not the entry's word, which may be damaged
    batch.app_ID = main->app_ID;
    batch.app_param = main->entry_version;
    batch.entry_tag = main->entry_tag;
    list_create(&batch.node_list, 0, 0, 0);

    shmem_node *stored = inline_shadow_db_query_entry_id(main, entry_id);
    app_node_element element = {};
    if (in != nullptr) {
        element.app_node.action = stored != nullptr ? SHADOW_DB_MODIFY : SHADOW_DB_CREATE;
        element.app_node.hw_index = entry_id;
        take_bytes(&element.app_node, *in);
    } else if (stored != nullptr) {
        // The table and the hardware's key are the entry's own.
        element.app_node = stored->app_node;
        element.app_node.action = SHADOW_DB_DELETE;
    } else {
        return;
    }
    element.app_node.entry_id = entry_id;
    element.app_node.shmem_node = stored;
    list_append(batch.node_list, &element);
    batch.num_node = 1;
    inline_svc_shadow_db_insert_action_array(&batch);
}

// ---- presence ----------------------------------------------------------------------------------

uint32_t plm_inline_is_list_in_hardware_uidb(uint32_t app_type, uint32_t app_id, uint32_t *word_out,
                                             uint16_t *uidb_out)
{
    const main_entry *main = stored_under(key_of(app_type, app_id));
    if (main == nullptr)
        return 0;
    if (word_out != nullptr)
        *word_out = main->entry_version;
    if (uidb_out != nullptr)
        *uidb_out = main->entry_tag;
    return 1;
}

uint32_t plm_inline_is_list_in_hardware(uint32_t app_type, uint32_t app_id, uint32_t *word_out,
                                        uint16_t *vqi_out)
{
    uint16_t uidb_index = 0;
    const uint32_t present =
        plm_inline_is_list_in_hardware_uidb(app_type, app_id, word_out, &uidb_index);
    if (present != 0 && vqi_out != nullptr)
        *vqi_out = static_cast<uint16_t>(inline_api_uidb_to_vqi(uidb_index));
    return present;
}

// ---- remnants of debugging ---------------------------------------------------------------------

namespace {

constexpr size_t text_bytes = 256;

void format_bytes(char (&text)[text_bytes], const uint8_t *bytes, size_t length)
{
    static constexpr char digits[] = "0123456789abcdef";
    memset(text, 0, sizeof text);
    const size_t shown = std::min(length, (sizeof text - 1) / 2);
    for (size_t i = 0; i < shown; ++i) {
        text[2 * i] = digits[bytes[i] >> 4];
        text[2 * i + 1] = digits[bytes[i] & 0xF];
    }
}

} // namespace

// Kept: the texts go nowhere.
void print_key_and_result(const uint8_t *key, uint32_t /*key_len*/, const uint8_t *result,
                          uint32_t result_len)
{
    constexpr size_t key_bytes_shown = 9; // Kept: whatever the key's length
    char text[text_bytes];
    if (key != nullptr)
        format_bytes(text, key, key_bytes_shown);
    if (result != nullptr)
        format_bytes(text, result, result_len);
}

void plm_inline_print_cmd(const app_node *cmd)
{
    if (cmd == nullptr)
        return;
    const uint32_t result_len = std::min<uint32_t>(cmd->result_len, sizeof cmd->result);
    print_key_and_result(cmd->key, cmd->key_len, cmd->result, result_len);
}
