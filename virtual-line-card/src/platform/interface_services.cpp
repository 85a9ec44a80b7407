// The interface manager's database and the table of VRFs, as the card file says them.
#include "platform_interfaces.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tap_words.h"
#include "vlc/virtual_line_card.h"

using vlc::forced_as;
using vlc::tapped_call;
using vlc::VirtualLineCard;

namespace {

// What a client that has bound holds.
char database;

// A word of the VRF table: a mark that says what it is, and the table's id.
constexpr uint32_t table_mark = 0x1A000000;
constexpr uint32_t table_bits = vlc::VrfConfig::highest_table;

// Null for one that the card file does not have, and without a card.
template <typename Row>
const Row *row_with(const std::vector<Row> vlc::CardConfig::*rows, uint32_t Row::*field,
                    uint32_t value)
{
    const VirtualLineCard *card = VirtualLineCard::current();
    if (!card)
        return nullptr;
    const std::vector<Row> &all = card->config().*rows;
    const auto found = std::ranges::find(all, value, field);
    return found == all.end() ? nullptr : &*found;
}

} // namespace

uint32_t imc_db_bind(const void *bind_record, uint32_t length, void **handle)
{
    if (auto forced = tapped_call("imc_db_bind", bind_record, length, handle))
        return forced_as<uint32_t>(*forced);
    if (!bind_record || length != IMC_BIND_LENGTH || !handle || !VirtualLineCard::current())
        return EINVAL;
    uint32_t client[2];
    std::memcpy(client, bind_record, sizeof client);
    if (client[0] != IMC_BIND_CLIENT || client[1] != 0)
        return EINVAL;
    *handle = &database;
    return 0;
}

uint32_t imc_s_attr_query(void *handle, uint32_t interface_handle, uint32_t zero1, uint32_t zero2,
                          uint32_t attribute, uint32_t count, uint64_t attr_result[2])
{
    if (auto forced = tapped_call("imc_s_attr_query", handle, interface_handle, zero1, zero2,
                                  attribute, count, attr_result))
        return forced_as<uint32_t>(*forced);
    if (handle != &database || zero1 != 0 || zero2 != 0 || attribute != IMC_ATTRIBUTE_PIC ||
        count != IMC_ATTRIBUTE_COUNT || !attr_result)
        return EINVAL;
    const auto *interface =
        row_with(&vlc::CardConfig::interfaces, &vlc::InterfaceConfig::handle, interface_handle);
    if (!interface)
        return ENOENT;
    void *buffer = std::malloc(sizeof(imc_pic)); // the caller frees it
    if (!buffer)
        return ENOMEM;
    std::memcpy(buffer, &interface->pic, sizeof(imc_pic));
    attr_result[0] = count;
    attr_result[1] = reinterpret_cast<uintptr_t>(buffer);
    return 0;
}

uint32_t imc_gdp_pic_get(uint64_t attr_result[2], uint32_t zero, void *scratch, void *pic_out)
{
    if (auto forced = tapped_call("imc_gdp_pic_get", attr_result, zero, scratch, pic_out))
        return forced_as<uint32_t>(*forced);
    if (!attr_result || attr_result[0] != IMC_ATTRIBUTE_COUNT || attr_result[1] == 0 || zero != 0 ||
        !scratch || !pic_out)
        return EINVAL;
    std::memcpy(pic_out, reinterpret_cast<const void *>(attr_result[1]), sizeof(imc_pic));
    return 0;
}

uint32_t ital_shm_lookup_vrf(uint32_t vrf_id, uint32_t one1, uint32_t one2, vrf_record *record)
{
    if (auto forced = tapped_call("ital_shm_lookup_vrf", vrf_id, one1, one2, record))
        return forced_as<uint32_t>(*forced);
    if (one1 != 1 || one2 != 1 || !record)
        return EINVAL;
    const auto *vrf = row_with(&vlc::CardConfig::vrfs, &vlc::VrfConfig::id, vrf_id);
    if (!vrf)
        return ENOENT;
    *record = {};
    record->table_id = table_mark | vrf->table;
    return 0;
}

uint32_t rsi_c_tbl_id_decode2(uint32_t table_id_word, void *null1, void *null2, uint32_t *out)
{
    if (auto forced = tapped_call("rsi_c_tbl_id_decode2", table_id_word, null1, null2, out))
        return forced_as<uint32_t>(*forced);
    if (null1 || null2 || !out || (table_id_word & ~table_bits) != table_mark)
        return EINVAL;
    *out = table_id_word & table_bits;
    return 0;
}
