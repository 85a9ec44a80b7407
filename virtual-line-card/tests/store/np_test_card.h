// Small cards, and tables seen as text.
#pragma once

#include <map>
#include <string>

#include "test_directory.h"
#include "vlc/np_store.h"

namespace vlc::test {

constexpr uint32_t flow_rows = 8;
constexpr uint32_t flow_counters = 17; // odd, so that the last one has no neighbour

inline CardConfig card_of(uint16_t nps, uint32_t service_config_rows, uint32_t ext_conf_rows)
{
    CardConfig config;
    config.num_nps = nps;
    config.service_config_capacity = service_config_rows;
    config.ext_conf_capacity = ext_conf_rows;
    config.flow_capacity = flow_rows;
    config.dynamic_counters = flow_counters;
    return config;
}

inline Bytes bytes(const std::string &text)
{
    return {reinterpret_cast<const uint8_t *>(text.data()), text.size()};
}

inline std::string text(Bytes bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// Each row must be found under its key, too.
inline std::map<std::string, std::string> rows_of(const NpTable &table)
{
    std::map<std::string, std::string> rows;
    table.for_each([&](const TableRow &row) {
        EXPECT_EQ(table.find(row.key_span()), &row);
        EXPECT_TRUE(rows.emplace(text(row.key_span()), text(row.result_span())).second);
    });
    return rows;
}

} // namespace vlc::test
