#include "hash_peers.h"

#include <algorithm>
#include <bit>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <unordered_map>

#include <absl/container/flat_hash_map.h>
#include <absl/container/node_hash_map.h>
#include <boost/intrusive/unordered_set.hpp>

#include "uthash_table.h"

namespace bench {

namespace {

uint32_t bucket_count = 0;

uint64_t key_of(uint64_t number)
{
    number = (number ^ number >> 33) * 0xFF51AFD7ED558CCD;
    return number ^ number >> 29;
}

uint32_t bucket_of(uint64_t key)
{
    return static_cast<uint32_t>((key >> 32) * bucket_count >> 32);
}

int32_t bucket_of_record(const void *record)
{
    return static_cast<int32_t>(bucket_of(static_cast<const LinkedFlow *>(record)->flow.key));
}

int32_t has_key(const void *record, const void *key_record)
{
    return static_cast<const LinkedFlow *>(record)->flow.key ==
                   static_cast<const LinkedFlow *>(key_record)->flow.key
               ? 1
               : 0;
}

} // namespace

void no_such_flow()
{
    throw std::logic_error("a flow is not in its table");
}

Flows::Flows(uint64_t first_number, size_t count) : places_(count), met_(count)
{
    std::vector<size_t> order(count);
    for (size_t number = 0; number < count; ++number)
        order[number] = number;
    std::shuffle(order.begin(), order.end(), std::mt19937_64(1));
    for (size_t place = 0; place < count; ++place) {
        Flow &flow = at(order[place]).flow;
        flow.key = key_of(first_number + order[place]);
        flow.next_key = key_of(first_number + order[(place + 1) % count]);
        met_[place] = flow.key;
    }
}

LibraryTable::LibraryTable(Flows &flows)
{
    bucket_count = static_cast<uint32_t>(flows.size());
    const size_t bytes = sizeof(in_hash_table) + flows.size() * sizeof(LinkedFlow *);
    auto *block = static_cast<in_hash_table *>(calloc(1, bytes));
    if (block == nullptr)
        throw std::bad_alloc();
    table_.reset(in_hash_init(bucket_count, block, bucket_of_record, has_key));
    for (size_t number = 0; number < flows.size(); ++number)
        insert(flows.at(number));
}

namespace {

class Ours {
public:
    explicit Ours(FilledTable &filled) : table_(filled.table) {}
    const Flow *find(uint64_t key) { return table_.find(key); }

private:
    LibraryTable &table_;
};

// The same chains and records, hash and comparison, with nothing called.
class BareChains {
public:
    explicit BareChains(FilledTable &filled) : buckets_(filled.table.buckets()) {}
    const Flow *find(uint64_t key) const
    {
        const LinkedFlow *record = buckets_[bucket_of(key)];
        while (record != nullptr && record->flow.key != key)
            record = record->next;
        if (record == nullptr)
            no_such_flow();
        return &record->flow;
    }

private:
    LinkedFlow *const *buckets_;
};

// A table that keeps its own copies of the flows.
template <typename Map>
class MapOfFlows {
public:
    explicit MapOfFlows(FilledTable &filled)
    {
        map_.max_load_factor(1);
        map_.reserve(filled.flows.size());
        for (size_t number = 0; number < filled.flows.size(); ++number) {
            const Flow &flow = filled.flows.at(number).flow;
            map_.emplace(flow.key, flow);
        }
    }
    const Flow *find(uint64_t key) { return &map_.find(key)->second; }

private:
    Map map_;
};

// A table of keys and of pointers to flows that lie elsewhere.
class FlatMap {
public:
    explicit FlatMap(FilledTable &filled)
    {
        map_.reserve(filled.flows.size());
        for (size_t number = 0; number < filled.flows.size(); ++number) {
            const Flow &flow = filled.flows.at(number).flow;
            map_.emplace(flow.key, &flow);
        }
    }
    const Flow *find(uint64_t key) { return map_.find(key)->second; }

private:
    absl::flat_hash_map<uint64_t, const Flow *> map_;
};

class IntrusiveSet {
public:
    explicit IntrusiveSet(FilledTable &filled)
        : records_(filled.flows.size()), buckets_(std::bit_ceil(filled.flows.size())),
          set_(Set::bucket_traits(buckets_.data(), buckets_.size()))
    {
        for (size_t number = 0; number < records_.size(); ++number) {
            records_[number].flow = filled.flows.at(number).flow;
            set_.insert(records_[number]);
        }
    }
    ~IntrusiveSet() { set_.clear(); }
    IntrusiveSet(const IntrusiveSet &) = delete;
    IntrusiveSet &operator=(const IntrusiveSet &) = delete;
    const Flow *find(uint64_t key) { return &set_.find(key, KeyHash(), KeyEqual())->flow; }

private:
    using Hook = boost::intrusive::unordered_set_base_hook<
        boost::intrusive::link_mode<boost::intrusive::normal_link>>;
    struct alignas(64) Record : Hook {
        Flow flow;
    };
    // The set takes the lowest bits for a bucket, and in these keys they are well mixed.
    struct KeyHash {
        size_t operator()(uint64_t key) const { return key; }
        size_t operator()(const Record &record) const { return record.flow.key; }
    };
    struct KeyEqual {
        bool operator()(const Record &left, const Record &right) const
        {
            return left.flow.key == right.flow.key;
        }
        bool operator()(uint64_t key, const Record &record) const { return key == record.flow.key; }
    };
    using Set = boost::intrusive::unordered_set<
        Record, boost::intrusive::hash<KeyHash>, boost::intrusive::equal<KeyEqual>,
        boost::intrusive::power_2_buckets<true>, boost::intrusive::constant_time_size<false>>;

    std::vector<Record> records_;
    std::vector<Set::bucket_type> buckets_;
    Set set_;
};

template <typename Table>
std::unique_ptr<LookupPeer> made(FilledTable &filled)
{
    return std::make_unique<LookupPeerOf<Table>>(filled);
}

constexpr PeerKind kinds[] = {
    {"ours", made<Ours>},
    {"bare chain walk", made<BareChains>},
    {"std::unordered_map", made<MapOfFlows<std::unordered_map<uint64_t, Flow>>>},
#ifdef BENCH_HAS_DPDK
    {"DPDK's hash", make_dpdk_peer},
#else
    {"DPDK's hash", nullptr},
#endif
    {"boost::intrusive", made<IntrusiveSet>},
    {"uthash", made<UthashTable>},
    {"absl::flat_hash_map", made<FlatMap>},
    {"absl::node_hash_map", made<MapOfFlows<absl::node_hash_map<uint64_t, Flow>>>},
};

} // namespace

std::span<const PeerKind> peer_kinds()
{
    return kinds;
}

const PeerKind &peer_kind(std::string_view name)
{
    const PeerKind *found =
        std::ranges::find_if(kinds, [name](const PeerKind &kind) { return kind.name == name; });
    if (found == std::end(kinds))
        throw std::invalid_argument(std::string(name));
    return *found;
}

} // namespace bench
