// The numbers of the NPs' tables of dynamic counters. They are the same on every card.
#pragma once

#include <array>
#include <cstdint>
#include <optional>

namespace vlc {

inline constexpr uint32_t first_statistics_table = 0x5701;
inline constexpr std::array<uint32_t, 8> statistics_tables = [] {
    std::array<uint32_t, 8> tables{};
    for (uint32_t np = 0; np < tables.size(); np++)
        tables[np] = first_statistics_table + np;
    return tables;
}();

constexpr std::optional<uint32_t> np_of_statistics_table(uint32_t table_id)
{
    const uint32_t np = table_id - first_statistics_table;
    return np < statistics_tables.size() ? std::optional(np) : std::nullopt;
}

} // namespace vlc
