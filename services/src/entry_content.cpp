#include "entry_content.h"

#include <algorithm>
#include <cstring>

namespace services {
namespace {

constexpr size_t counter_place_in_result = 1;
constexpr size_t counter_bytes_in_result = 3;

} // namespace

bool has_counters(const app_node &entry)
{
    return entry.table_type == SHADOW_DB_EXT_CONF || entry.hw_index != SHADOW_DB_NO_HW_INDEX;
}

uint32_t exchanged(uint32_t number)
{
    return (number & 0xFF00FF00) | (number & 0xFF) << 16 | (number >> 16 & 0xFF);
}

std::optional<uint32_t> CounterRegion::place_of(uint32_t number) const
{
    if (number < first || number - first >= places())
        return std::nullopt;
    return number - first;
}

std::optional<uint32_t> CounterRegion::place_of_stored(uint32_t number) const
{
    const std::optional<uint32_t> plain = place_of(number);
    return plain || unswapped ? plain : place_of(exchanged(number));
}

RowResult row_result(const shmem_node &node, uint32_t np, bool unswapped)
{
    RowResult result;
    result.length = node.app_node.result_len;
    std::copy_n(node.app_node.result, result.length, result.bytes.begin());
    if (has_counters(node.app_node)) {
        uint8_t number[sizeof(uint32_t)];
        std::memcpy(number, &node.stat_index_rx[np], sizeof number);
        std::memcpy(result.bytes.data() + counter_place_in_result, number + (unswapped ? 1 : 0),
                    counter_bytes_in_result);
    }
    return result;
}

} // namespace services
