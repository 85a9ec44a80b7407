// Attributes of interfaces and slots, and the lookups that ask the platform.

#include "inline_service_attributes.h"

#include <cerrno>
#include <cstdlib>

#include "inline_service_context.h"
#include "inline_service_log.h"
#include "inline_service_shadowdb.h"
#include "platform_card.h"
#include "platform_interfaces.h"

using namespace inline_service;

namespace {

// Null for an interface that is out of range, and while there is no table.
uidb_attribute *attribute_of(uint16_t uidb_index)
{
    if (uidb_index >= UIDB_ATTRIBUTES || pshadow_db == nullptr ||
        pshadow_db->uidb_attr_table == nullptr)
        return nullptr;
    return &pshadow_db->uidb_attr_table[uidb_index];
}

constexpr uint16_t other_free_key = 22;

bool is_free(uint16_t infra_key)
{
    return infra_key == 0 || infra_key == other_free_key;
}

constexpr int no_row = -1;

// Row 0 comes first, as the preferred one.
template <typename Wanted>
int first_infra_row(const shadow_db &root, Wanted wanted)
{
    for (int row = 0; row < SHADOW_DB_INFRA_SLOTS; ++row) {
        if (wanted(root.infra_slot_key[row]))
            return row;
    }
    return no_row;
}

int infra_row_of(const shadow_db &root, uint16_t slot)
{
    return first_infra_row(root, [slot](uint16_t key) { return key == slot; });
}

} // namespace

// ---- setters -----------------------------------------------------------------------------------

void inline_api_set_uidb_to_app(uint32_t app_type, uint16_t uidb_index, uint16_t app_ID)
{
    uidb_attribute *attribute = attribute_of(uidb_index);
    if (attribute == nullptr || app_type >= INLINE_SVC_APP_TYPES) {
        inline_svc_trace_error("Invalid uidb_index %d or app_type %d", uidb_index, app_type);
        return;
    }
    attribute->app_type = app_ID == 0 ? 0 : app_type; // binding id 0 unbinds
    attribute->app_ID = app_ID;
}

void inline_api_set_uidb_to_vqi(uint16_t uidb_index, uint16_t vqi)
{
    uidb_attribute *attribute = attribute_of(uidb_index);
    if (attribute == nullptr)
        inline_svc_trace_error("Invalid uidb_index %d", uidb_index);
    else
        attribute->vqi = vqi;
}

void inline_api_set_dirty_bit(uint16_t uidb_index)
{
    uidb_attribute *attribute = attribute_of(uidb_index);
    if (attribute == nullptr)
        inline_svc_trace_error("%s: Invalid uidb_index %d", __func__, uidb_index);
    else
        attribute->dirty = 1;
}

void inline_api_reset_dirty_bit(uint16_t uidb_index)
{
    uidb_attribute *attribute = attribute_of(uidb_index);
    if (attribute == nullptr)
        inline_svc_trace_error("%s: Invalid uidb_index %d", __func__, uidb_index);
    else
        attribute->dirty = 0;
}

void inline_api_set_slot_iftype(uint16_t uidb_index, uint16_t slot, uint32_t iftype)
{
    uidb_attribute *attribute = attribute_of(uidb_index);
    if (attribute == nullptr) {
        inline_svc_trace_error("%s: Invalid uidb_index %d", __func__, uidb_index);
        return;
    }
    attribute->slot = slot;
    attribute->iftype = iftype;
}

void inline_api_set_infra_slot_infra_ip(uint32_t /*ignored*/, uint16_t slot, uint16_t new_slot,
                                        uint32_t infra_ip, uint32_t infra_value)
{
    if (pshadow_db == nullptr)
        return;
    uint16_t key = new_slot;
    int row = infra_row_of(*pshadow_db, slot);
    if (row == no_row) {
        key = slot;
        row = first_infra_row(*pshadow_db, is_free);
    }
    if (row == no_row)
        return; // Kept: a seventh slot is dropped without a word
    pshadow_db->infra_slot_key[row] = key;
    pshadow_db->infra_ip[row] = infra_ip;
    pshadow_db->infra_value[row] = infra_value;
}

// ---- getters -----------------------------------------------------------------------------------

uint32_t inline_api_get_dirty_bit(uint16_t uidb_index)
{
    const uidb_attribute *attribute = attribute_of(uidb_index);
    return attribute != nullptr ? attribute->dirty : 0;
}

uint32_t inline_api_uidb_to_appid(uint32_t /*ignored*/, uint16_t uidb_index)
{
    const uidb_attribute *attribute = attribute_of(uidb_index);
    return attribute != nullptr ? attribute->app_ID : 0;
}

uint32_t inline_api_uidb_to_apptype(uint16_t uidb_index)
{
    const uidb_attribute *attribute = attribute_of(uidb_index);
    return attribute != nullptr ? attribute->app_type : 0;
}

uint32_t inline_api_get_iftype(uint16_t uidb_index)
{
    const uidb_attribute *attribute = attribute_of(uidb_index);
    return attribute != nullptr ? attribute->iftype : 0;
}

uint32_t inline_api_uidb_to_vqi(uint16_t uidb_index)
{
    const uidb_attribute *attribute = attribute_of(uidb_index);
    return attribute != nullptr ? attribute->vqi : UIDB_UNKNOWN_VQI;
}

uint32_t inline_api_get_slot(uint16_t uidb_index)
{
    const uidb_attribute *attribute = attribute_of(uidb_index);
    return attribute != nullptr ? attribute->slot : uint32_t{UIDB_UNKNOWN_SLOT};
}

// ---- lookups -----------------------------------------------------------------------------------

uint32_t inline_api_get_infra_ip(uint16_t slot, uint32_t *ip, uint32_t *value)
{
    if (ip == nullptr || value == nullptr)
        return refuse_null(ip == nullptr ? "ip" : "value");
    if (pshadow_db == nullptr)
        return ENOENT;
    uint32_t nodeid = 0;
    if (plm_slot_to_nodeid(slot, &nodeid) != 0) {
        inline_svc_trace_error("No nodeid found for slot = %u", slot);
        return ENOENT;
    }
    if (platform_node_get_card_type(nodeid) != CARD_TYPE_INFRA_SLOTS) {
        *ip = 0;
        *value = 1;
        return 0;
    }
    const int row = infra_row_of(*pshadow_db, slot);
    if (row == no_row)
        return ENOENT;
    *ip = pshadow_db->infra_ip[row];
    *value = pshadow_db->infra_value[row];
    return 0;
}

uint32_t inline_api_get_infra_ip_from_uidb(uint16_t uidb_index, uint32_t *ip, uint32_t *value)
{
    const uint32_t slot = inline_api_get_slot(uidb_index);
    if (slot == UIDB_UNKNOWN_SLOT)
        return ENOENT;
    return inline_api_get_infra_ip(static_cast<uint16_t>(slot), ip, value);
}

uint32_t inline_api_get_pic(uint32_t interface_handle, void *pic_out)
{
    static void *database = nullptr;
    if (pic_out == nullptr)
        return refuse_null("pic_out");
    if (database == nullptr) {
        const uint32_t bind_record[2] = {IMC_BIND_CLIENT, 0};
        const uint32_t rc = imc_db_bind(bind_record, IMC_BIND_LENGTH, &database);
        if (rc != 0) {
            database = nullptr;
            return rc;
        }
    }
    uint64_t attributes[2] = {};
    const uint32_t rc = imc_s_attr_query(database, interface_handle, 0, 0, IMC_ATTRIBUTE_PIC,
                                         IMC_ATTRIBUTE_COUNT, attributes);
    if (rc != 0)
        return rc;
    uint64_t scratch = 0;
    imc_gdp_pic_get(attributes, 0, &scratch, pic_out);
    free(reinterpret_cast<void *>(attributes[1])); // the query's buffer is ours
    return 0;
}

uint32_t inline_api_get_hw_table_id(uint32_t vrf_id, uint32_t *table_id_out)
{
    if (table_id_out == nullptr)
        return refuse_null("table_id_out");
    vrf_record record = {};
    const uint32_t rc = ital_shm_lookup_vrf(vrf_id, 1, 1, &record);
    if (rc != 0)
        return rc;
    return rsi_c_tbl_id_decode2(record.table_id, nullptr, nullptr, table_id_out);
}
