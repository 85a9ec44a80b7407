#include "model_card.h"

#include "platform_prm.h"
#include "vlc/prm.h"

namespace test {
namespace {

uint32_t turned_round(uint32_t number)
{
    return (number & 0xFF00FF00) | (number & 0xFF) << 16 | (number >> 16 & 0xFF);
}

bool in_region(uint32_t number)
{
    return number >= ModelCard::first_counter &&
           number - ModelCard::first_counter < ModelCard::counter_count;
}

uint32_t change(ModelCard::Table &table, uint32_t operation, const std::string &key,
                const std::string &result)
{
    if (operation == PRM_OP_ADD)
        return table.emplace(key, result).second ? 0 : uint32_t{vlc::prm_duplicate_key};
    const auto row = table.find(key);
    if (row == table.end())
        return vlc::prm_key_not_found;
    if (operation == PRM_OP_MODIFY)
        row->second = result;
    else
        table.erase(row);
    return 0;
}

} // namespace

std::optional<uint32_t> ModelCard::place(uint32_t number)
{
    if (in_region(number))
        return number - first_counter;
    if (in_region(turned_round(number)))
        return turned_round(number) - first_counter;
    return std::nullopt;
}

uint32_t ModelCard::request(uint32_t np, uint32_t table, uint32_t operation, const std::string &key,
                            const std::string &result)
{
    if (key.empty())
        return vlc::prm_bad_record;
    if (!up)
        return vlc::prm_not_connected;
    const uint32_t status = change(tables[np][table], operation, key, result);
    answers.push_back({np, status, operation << PRM_REFNUM_OP_SHIFT | table, key});
    callback_waits = true;
    if (loses_next_reply) {
        loses_next_reply = false;
        up = false;
        return vlc::prm_not_connected;
    }
    return 0;
}

bool ModelCard::read(uint32_t np, uint32_t number, ModelCount *count) const
{
    const std::optional<uint32_t> where = place(number);
    if (!where || !up)
        return false;
    *count = *where < counts[np].size() ? counts[np][*where] : ModelCount{};
    return true;
}

bool ModelCard::read_and_clear(uint32_t np, uint32_t number)
{
    ModelCount ignored;
    if (!read(np, number, &ignored))
        return false;
    if (const uint32_t where = *place(number); where < counts[np].size())
        counts[np][where] = {};
    return true;
}

void ModelCard::count(uint32_t np, uint32_t where, ModelCount what)
{
    if (counts[np].size() <= where)
        counts[np].resize(where + 1);
    counts[np][where].packets += what.packets;
    counts[np][where].bytes += what.bytes;
}

} // namespace test
