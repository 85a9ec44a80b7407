// The library as it ships, on a platform of stand-ins.
#include "hot_path.h"
#include "inline_service_flowdb.h"
#include "stand_in_platform.h"

#include <cstdint>
#include <vector>

namespace {

// ---- the flow table ----------------------------------------------------------------------------

constexpr uint32_t flows = 10'000;

uint64_t key_of(uint64_t number)
{
    number = (number ^ number >> 33) * 0xFF51AFD7ED558CCD;
    return number ^ number >> 29;
}

int32_t bucket_of_flow(const void *record)
{
    const uint64_t key = static_cast<const flow_record *>(record)->flow_key;
    return static_cast<int32_t>((key >> 32) * flows >> 32);
}

int32_t has_key(const void *record, const void *key_record)
{
    const auto *flow = static_cast<const flow_record *>(record);
    return flow->flow_key == static_cast<const flow_record *>(key_record)->flow_key ? 1 : 0;
}

// Ten thousand flows in as many buckets.
class Flows {
public:
    Flows() : table_(flowdb_init(flows, bucket_of_flow, has_key))
    {
        for (uint64_t number = 0; number < flows; ++number) {
            flow_record *record = flowdb_alloc();
            record->flow_key = key_of(number);
            in_hash_insert(table_, record);
            records_.push_back(record);
        }
    }
    in_hash_table *table() const { return table_; }
    const std::vector<flow_record *> &records() const { return records_; }

private:
    bench::StandInHost host_{1};
    in_hash_table *table_;
    std::vector<flow_record *> records_;
};

void hash_hit()
{
    const Flows made;
    uint64_t missed = 0;
    const auto look_up_all = [&] {
        for (const flow_record *record : made.records())
            missed += in_hash_lookup(made.table(), record) != record;
    };
    look_up_all();
    bench::count_instructions(flows, look_up_all);
    if (missed != 0)
        bench::why_unavailable = "lookups missed";
}

constexpr bench::HotPath paths[] = {{"hash lookup, hit", hash_hit}};

} // namespace

const std::span<const bench::HotPath> bench::hot_paths = paths;
