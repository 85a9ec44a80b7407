// Every log site of the hash table and of flows is reached, told by its number; failures are said
// at error level and all else is not.
#include <set>

#include "debug_points.h"
#include "flow_fixture.h"

using namespace test;

namespace {

class FlowSites : public FlowTest {
protected:
    FlowSites()
    {
        dpss_flow_table_init(0, 0, 0, 0);
        services.script("_ltrace", [this](const vlc::ServiceCall &call) {
            const uint64_t mask = (uint64_t{1} << ED_EVENT_NUMBER_BITS) - 1;
            said_.insert(static_cast<uint32_t>(call.args[1] & mask));
            return std::optional<uint64_t>();
        });
    }
    ~FlowSites() override { services.stop_forcing(); }

    // The formats of a source file's sites by level; each must have been said.
    Lines said_in(const std::string &file, uint8_t level) const
    {
        Lines formats;
        for (const ed_debug_point &point : debug_points()) {
            if (file_name(point) != file || point.level != level)
                continue;
            EXPECT_EQ(said_.count(point.number), 1u) << point.function << ": " << point.format;
            formats.emplace_back(point.format);
        }
        std::sort(formats.begin(), formats.end());
        return formats;
    }
    uint32_t add(uint32_t np, uint32_t with_stats)
    {
        int info = 0;
        return dpss_flow_add_modify(++key_, np, with_stats, &info);
    }

private:
    std::set<uint32_t> said_;
    uint64_t key_ = 0;
};

TEST_F(FlowSites, OfTheHashTableAreAllReached)
{
    flow_record record = make(0);
    in_hash_init(
        buckets, table, [](const void *) { return -1; }, match_of_flows);
    in_hash_insert(table, &record);
    EXPECT_EQ(said_in("inline_service_hash.cpp", ED_EVENT_BUFFER), Lines{});
    EXPECT_EQ(said_in("inline_service_hash.cpp", ED_ERROR_BUFFER),
              Lines{"hash of entry %p is outside the table"});
}

TEST_F(FlowSites, OfTheStoreAreAllReached)
{
    flowdb_init(0xFFFFFFFF, bucket_of_flow, match_of_flows);
    platform.key = std::string(33, 'k');
    EXPECT_EQ(add(0, 0), 22u);
    platform.key = "key";
    services.force("prm_srh_flow_db_add", 5, 1, 1);
    EXPECT_EQ(add(0, 0), 5u);
    in_hash_init(
        buckets, table, [](const void *) { return -1; }, match_of_flows);
    EXPECT_EQ(add(0, 0), 22u);
    EXPECT_EQ(said_in("inline_service_flowdb.cpp", ED_EVENT_BUFFER), Lines{});
    EXPECT_EQ(said_in("inline_service_flowdb.cpp", ED_ERROR_BUFFER),
              (Lines{"flow key too long: length %d", "flow table of %u buckets is too large",
                     "flowdb_add failed, rc: 0x%x", "hash of flow %016lx is outside the table",
                     "inline_flow_db_update_prm failed, rc: 0x%x"}));
}

TEST_F(FlowSites, OfTheProgrammingAreAllReached)
{
    EXPECT_EQ(add(0, 1), 0u);
    flow_record record = *flowdb_lookup(table, 1);
    flowdb_modify(table, &record);
    dpss_flow_delete(1);
    EXPECT_EQ(add(8, 1), 22u);
    services.force("prm_stats_cl_alloc", 5, 1, 1);
    EXPECT_EQ(add(0, 1), 12u);
    platform.nps_without_table = {0};
    EXPECT_EQ(add(0, 1), 22u);
    services.force("prm_srh_flow_db_add", 5, 1, 1);
    EXPECT_EQ(add(0, 0), 5u);
    record.key_len = 33;
    prm_config_record entry;
    inline_flow_make_prm_entry(&record, &entry);
    EXPECT_EQ(flowdb_modify(table, &record), 22u);
    EXPECT_EQ(
        said_in("inline_service_flow_prm.cpp", ED_EVENT_BUFFER),
        (Lines{"flow_prm_add: npnum %d\n", "flow_prm_del: npnum %d\n",
               "flow_prm_modify: npnum %d\n", "prm_update: dbp %p act %d startnp %d endnp %d\n",
               "prm_update: delete called\n", "prm_update: modify called\n"}));
    EXPECT_EQ(said_in("inline_service_flow_prm.cpp", ED_ERROR_BUFFER),
              (Lines{"Error in prm_srh_ext_service_db_add(), rc: 0x%x",
                     "Failed to allocate dpss dynamic stats counter of chip %d, RC= %s\n",
                     "dpss stats tble id is NULL", "flow entry too long: key %d result %d",
                     "flow too long: key %d result %d", "flow_prm_add: npnum %d has no counters"}));
}

} // namespace
