// One node, handed to a table's update: the row of the test's parameter says which table.
#pragma once

#include <cstring>

#include "card_fixture.h"
#include "prm_table.h"

namespace test {

class PrmTableTest : public RunningCardTest, public ::testing::WithParamInterface<PrmTable> {
protected:
    explicit PrmTableTest(uint16_t num_nps = 2) : RunningCardTest(num_nps), requests(services) {}

    const PrmTable &table() const { return GetParam(); }
    shmem_node make(uint32_t action, const std::string &key = "key",
                    const std::string &result = "0123456789") const
    {
        shmem_node node = {};
        node.app_node = make_node(7, table().table_type, key, result, action);
        return node;
    }
    uint32_t update(shmem_node &node) { return table().update(&node); }
    uint32_t update(shmem_node &node, uint32_t action)
    {
        node.app_node.action = action;
        return update(node);
    }
    // What was recorded and logged before is no longer looked at.
    void start_watching()
    {
        requests.forget();
        services.forget();
        forget_log();
    }
    // The next counter of every NP will be the one at this place of the region.
    void use_counters_below(uint32_t place)
    {
        for (uint32_t np = 0; np < config.num_nps; ++np) {
            memset(root->counters[np], 0xFF, place / 32 * 4);
            for (uint32_t bit = 0; bit < place % 32; ++bit)
                root->counters[np][place / 32] |= 0x80000000u >> bit;
        }
    }
    bool is_used(uint32_t np, uint32_t place) const
    {
        return (root->counters[np][place / 32] & (0x80000000u >> place % 32)) != 0;
    }

    PrmRequests requests;
};

inline std::string table_name(const ::testing::TestParamInfo<PrmTable> &row)
{
    return row.param.name;
}

} // namespace test
