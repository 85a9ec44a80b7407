// Virtual services: messages in, one programmed entry for each service out.

#include "inline_service_vservice.h"

#include <algorithm>
#include <cstring>

#include "inline_service_cmdlist.h"
#include "inline_service_context.h"
#include "inline_service_log.h"
#include "inline_service_shadowdb.h"
#include "platform_card.h"
#include "platform_encoders.h"

using namespace inline_service;

namespace {

constexpr int32_t table_bytes = VSERVICES * sizeof(vservice_config);
static_assert(table_bytes == 0x45000);

constexpr uint32_t the_list = 0;
constexpr uint32_t the_entry = 0; // the only one of a service
constexpr uint8_t udp = 17;
constexpr uint32_t local_host = 0x7F000001;
// The encoded result stands behind four zero bytes.
constexpr size_t result_offset = 4;
constexpr uint8_t result_length = 32;

void *encoder = nullptr;
vservice_config *table = nullptr;

bool is_known_user(uint32_t user)
{
    return user == 1 || user == 2 || user == 4;
}

sdn_encap_input encoder_input(const vservice_config &config)
{
    const bool known = is_known_user(config.user);
    const bool other_card = platform_get_my_card_type() != CARD_TYPE_INFRA_SLOTS;
    sdn_encap_input input = {};
    input.flag_0 = 1;
    input.flag_1 = 1;
    input.protocol = udp;
    input.src_ip = config.src_ip;
    input.dst_ip = config.encap == VSERVICE_ENCAP_UDP_LOCAL ? local_host : config.dst_ip;
    input.sport = config.sport;
    input.dport = config.dport;
    input.user_2_flags = other_card && config.user == 2 ? 1 : 0;
    input.is_user_4 = config.user == 4 ? 1 : 0;
    input.known_user_30 = known ? 1 : 0;
    input.known_user_36 = known ? 1 : 0;
    input.known_user_37 = known ? 3 : 0;
    return input;
}

// Encoders write as much as they like into a scratch; what fits is taken from there.
bool encode(const vservice_config &config, command_input *entry)
{
    static constexpr char too_long[] = "vservice key too long: index %d length %d";
    const sdn_encap_input input = encoder_input(config);
    const uint32_t key_type = config.user == 2 ? ENCODER_KEY_USER_2 : ENCODER_KEY_ORDINARY;
    uint8_t key[ENCODER_SCRATCH_BYTES] = {};
    const uint32_t key_len = appl_construct_config_db_key(config.vs_index, 0, key, key_type);
    if (key_len > sizeof entry->key) {
        inline_svc_trace_error(too_long, config.vs_index, key_len);
        return false;
    }
    uint8_t result[ENCODER_SCRATCH_BYTES] = {};
    appl_construct_sdn_encap_service_config_db_result(encoder, &input, result);

    *entry = {};
    entry->table_type = SHADOW_DB_SERVICE_CONFIG;
    entry->key_len = static_cast<uint8_t>(key_len);
    memcpy(entry->key, key, key_len);
    entry->result_len = result_length;
    memcpy(entry->result + result_offset, result, sizeof entry->result - result_offset);
    return true;
}

void program(uint32_t vs_index, const command_input &entry)
{
    plm_inline_init_cmd_list(the_list, VSERVICE_APP_TYPE, vs_index, 0, 0, 0);
    shmem_node *programmed = plm_inline_get_hw_entry(the_list, the_entry);
    const uint32_t action = programmed != nullptr ? SHADOW_DB_MODIFY : SHADOW_DB_CREATE;
    plm_inline_insert_cmd_to_list(the_list, the_entry, 0, &entry, action, 0, programmed);
    plm_inline_program_list_to_hardware(the_list);
}

void add(const vservice_config &config)
{
    static constexpr char udp_text[] = "vmsg:udp; sport %04x sip 0x%08x dport %04x dip 0x%08x";
    const uint32_t index = config.vs_index;
    inline_svc_trace("vmsg add :vindex %d encap %d user %d\n", index, config.encap, config.user);
    if (index >= VSERVICES) {
        inline_svc_trace_error("invalid index %d", index);
        return;
    }
    table[index] = config; // Kept: an unsupported one replaces the stored one too
    if (config.encap != VSERVICE_ENCAP_UDP && config.encap != VSERVICE_ENCAP_UDP_LOCAL) {
        inline_svc_trace_error("vmsg:unsupported encap\n");
        return;
    }
    inline_svc_trace(udp_text, config.sport, config.src_ip, config.dport, config.dst_ip);
    command_input entry;
    if (encode(config, &entry))
        program(index, entry);
}

void remove(uint32_t index)
{
    inline_svc_trace("vservice delete index %d", index);
    if (index >= VSERVICES) {
        inline_svc_trace_error("invalid index %d", index);
        return;
    }
    table[index] = {};
    plm_inline_delete_list_from_hardware(VSERVICE_APP_TYPE, index);
}

// Items need not be aligned where the sender put them.
template <typename Item>
void for_each_item(const void *msg, int32_t count, void (*handle)(Item))
{
    const auto *place = static_cast<const uint8_t *>(msg) + sizeof(vservice_message);
    using Value = std::remove_cvref_t<Item>;
    for (int32_t i = 0; i < count; ++i, place += sizeof(Value)) {
        Value item;
        memcpy(&item, place, sizeof item);
        handle(item);
    }
}

} // namespace

void *plm_vservice_init(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4)
{
    encoder = ac_encode_init(arg1, arg2, arg3, arg4);
    table = static_cast<vservice_config *>(vservice_get_db_handle());
    return table;
}

void *vservice_table_init(void)
{
    return inline_svc_shared_mem_alloc(table_bytes);
}

void *vservice_get_db_handle(void)
{
    return pshadow_db != nullptr ? pshadow_db->vservice_db : nullptr;
}

void *plm_vservice_get_common_data(uint32_t index)
{
    return table != nullptr && index < VSERVICES ? &table[index] : nullptr;
}

void plm_vservice_msg_handler(const void *msg)
{
    if (msg == nullptr) {
        refuse_null("msg");
        return;
    }
    vservice_message head;
    memcpy(&head, msg, sizeof head);
    inline_svc_trace("vmsg: type %d count %d\n", head.type, head.count);
    if (table == nullptr) {
        inline_svc_trace_error("vmsg: no vservice table");
        return;
    }
    switch (head.type) {
    case VSERVICE_ADD:
        for_each_item<const vservice_config &>(msg, head.count, add);
        break;
    case VSERVICE_DELETE:
        for_each_item<uint32_t>(msg, head.count, remove);
        break;
    case VSERVICE_DELETE_ALL:
        inline_svc_trace("vmsg delall"); // Kept: nothing else happens
        break;
    default:
        break;
    }
}
