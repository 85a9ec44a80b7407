// The library's hash table beside the bare walk of its chains, which is the least that a chained
// table can cost, and beside other tables that hold the same flows.
//
// Every number of flows has its own tables; a table has as many buckets as flows. The two sides of
// a pair are at different places of the round in which flows are met, so that neither finds what
// the other one has just fetched. Slices are short, so that few are interrupted. The rows named
// "curve" are times alone, for the picture.
#include <algorithm>
#include <array>
#include <ctime>
#include <functional>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>

#include "hash_peers.h"
#include "paired.h"

namespace {

using bench::Flow;
using bench::LookupPeer;
using bench::Ratio;
using bench::Slice;

constexpr size_t slice_operations = 200;
constexpr size_t pairs = 301;
constexpr size_t million = 1'000'000;

// All tables of one number of flows, made as they are asked for.
class Tables {
public:
    explicit Tables(size_t flows) : filled_(flows) {}

    LookupPeer &peer(std::string_view name)
    {
        std::unique_ptr<LookupPeer> &peer = peers_[name];
        if (peer == nullptr)
            peer = bench::peer_kind(name).make(filled_);
        return *peer;
    }
    const std::vector<uint64_t> &met() const { return filled_.flows.met(); }
    size_t size() const { return filled_.flows.size(); }

private:
    bench::FilledTable filled_;
    std::map<std::string_view, std::unique_ptr<LookupPeer>> peers_;
};

std::unique_ptr<Tables> tables;

Tables &tables_of(size_t flows)
{
    if (tables == nullptr || tables->size() != flows) {
        tables.reset(); // one at a time
        tables = std::make_unique<Tables>(flows);
    }
    return *tables;
}

enum class Form { dependent, independent };

// Lookups that go on where the slice before ended.
Slice lookups(std::string_view peer, Form form, size_t flows, size_t begin)
{
    const auto place = std::make_shared<size_t>(begin);
    return [=](size_t operations) {
        Tables &all = tables_of(flows);
        LookupPeer &table = all.peer(peer);
        for (size_t left = operations; left > 0;) {
            const size_t part = std::min(left, flows - *place);
            const std::span keys = std::span(all.met()).subspan(*place, part);
            benchmark::DoNotOptimize(form == Form::dependent ? table.follow(keys.front(), part)
                                                             : table.look_up(keys));
            *place = (*place + part) % flows;
            left -= part;
        }
    };
}

struct Goal {
    double gate = 0;
    double aim = 0;
};

struct LookupRow {
    std::string_view reference;
    Ratio ratio = Ratio::peer_over_ours;
    Goal at_million = {};
    Goal at_ten_thousand = {};
};

constexpr LookupRow lookup_rows[] = {
    {"bare chain walk", Ratio::ours_over_limit, {1.06, 1.0}, {1.25, 1.12}},
    {"std::unordered_map", Ratio::peer_over_ours, {1.25, 1.45}, {1.3, 1.4}},
    {"DPDK's hash", Ratio::peer_over_ours, {1.15, 1.3}, {1.35, 1.6}},
    {"boost::intrusive"},
    {"uthash"},
    {"absl::flat_hash_map"},
    {"absl::node_hash_map"},
};

void add_lookups(Form form, size_t flows, const char *size)
{
    const bool is_dependent = form == Form::dependent;
    for (const LookupRow &row : lookup_rows) {
        const std::string what = std::string("hash lookup, ") +
                                 (is_dependent ? "dependent, " : "independent, ") + size + " (" +
                                 std::string(row.reference) + ")";
        if (bench::peer_kind(row.reference).make == nullptr) {
            bench::add_absent(what, std::string(row.reference) + " is not installed");
            continue;
        }
        const Goal goal = !is_dependent      ? Goal{}
                          : flows == million ? row.at_million
                                             : row.at_ten_thousand;
        bench::add_pair({.what = what,
                         .reference = std::string(row.reference),
                         .ours = lookups("ours", form, flows, 0),
                         .other = lookups(row.reference, form, flows, flows / 2),
                         .operations = flows == million ? slice_operations : 5 * slice_operations,
                         .ratio = row.ratio,
                         .gate = goal.gate,
                         .aim = goal.aim,
                         .pairs = pairs});
    }
}

// ---- changes and walks, beside a map that makes a node of each flow -----------------------------

class ChangedTables {
public:
    ChangedTables()
        : flows_(0, million), fresh_(million, (pairs + 1) * slice_operations),
          copied_(million, (pairs + 1) * slice_operations), table_(flows_)
    {
        map_.max_load_factor(1);
        map_.reserve(million);
        for (size_t number = 0; number < million; ++number)
            map_.emplace(flows_.at(number).flow.key, flows_.at(number).flow);
    }

    // Whoever inserts a flow has just made it: it is near.
    void fetch_next_flows() const
    {
        for (size_t i = 0; i < slice_operations; ++i) {
            benchmark::DoNotOptimize(Flow(fresh_.at(inserted_ + i).flow));
            benchmark::DoNotOptimize(Flow(copied_.at(inserted_into_map_ + i).flow));
        }
    }
    void insert(size_t operations)
    {
        for (size_t i = 0; i < operations; ++i)
            table_.insert(fresh_.at(inserted_++));
    }
    void insert_into_map(size_t operations)
    {
        for (size_t i = 0; i < operations; ++i) {
            const Flow &flow = copied_.at(inserted_into_map_++).flow;
            map_.emplace(flow.key, flow);
        }
    }
    void erase(size_t operations)
    {
        for (size_t i = 0; i < operations; ++i)
            table_.erase(flows_.met()[erased_++]);
    }
    void erase_of_map(size_t operations)
    {
        for (size_t i = 0; i < operations; ++i)
            map_.erase(flows_.met()[erased_of_map_++]);
    }
    void read_all() { in_hash_read_all(table_.get(), count_batch, IN_HASH_BATCH_MAX); }
    void read_all_of_map()
    {
        std::array<void *, IN_HASH_BATCH_MAX> batch;
        uint32_t pending = 0;
        for (auto &[key, flow] : map_) {
            batch[pending++] = &flow;
            if (pending == batch.size()) {
                count_batch(batch.data(), pending, 0);
                pending = 0;
            }
        }
        count_batch(batch.data(), pending, 1);
    }

private:
    [[gnu::noinline]] static uint32_t count_batch(void **flows, uint32_t count, uint32_t)
    {
        benchmark::DoNotOptimize(flows);
        benchmark::ClobberMemory();
        return count;
    }

    bench::Flows flows_;
    bench::Flows fresh_;  // that the library's table takes
    bench::Flows copied_; // that the map takes
    bench::LibraryTable table_;
    std::unordered_map<uint64_t, Flow> map_;
    size_t inserted_ = 0;
    size_t inserted_into_map_ = 0;
    size_t erased_ = 0;
    size_t erased_of_map_ = 0;
};

ChangedTables &changed_tables()
{
    static std::unique_ptr<ChangedTables> made;
    if (made == nullptr) {
        tables.reset();
        made = std::make_unique<ChangedTables>();
    }
    return *made;
}

void add_changes()
{
    const auto add = [](const char *what, void (ChangedTables::*ours)(size_t),
                        void (ChangedTables::*other)(size_t), Goal goal,
                        const std::function<void()> &between) {
        bench::add_pair({.what = what,
                         .reference = "std::unordered_map",
                         .ours = [=](size_t count) { (changed_tables().*ours)(count); },
                         .other = [=](size_t count) { (changed_tables().*other)(count); },
                         .operations = slice_operations,
                         .ratio = Ratio::peer_over_ours,
                         .gate = goal.gate,
                         .aim = goal.aim,
                         .pairs = pairs,
                         .between = between});
    };
    bench::add_pair({.what = "hash read-all in 256s, 1M",
                     .reference = "std::unordered_map",
                     .ours = [](size_t) { changed_tables().read_all(); },
                     .other = [](size_t) { changed_tables().read_all_of_map(); },
                     .operations = million,
                     .ratio = Ratio::peer_over_ours,
                     .gate = 3.3,
                     .aim = 4,
                     .pairs = 31});
    // The map's new nodes lie where deleted ones have lain, as in any table that has lived a while.
    add("hash delete by key, 1M", &ChangedTables::erase, &ChangedTables::erase_of_map, {3.5, 4.8},
        {});
    add("hash insert at head, 1M", &ChangedTables::insert, &ChangedTables::insert_into_map,
        {10, 18}, [] { changed_tables().fetch_next_flows(); });
}

// ---- cost against size --------------------------------------------------------------------------

// A slice goes round small tables often enough that they are where they are kept.
constexpr size_t curve_operations = 20'000;
constexpr size_t curve_turns = 21;

using Nanoseconds = std::map<std::string_view, double>;

// Slices are long enough to be interrupted, so that the clock on the wall would count others' work.
double processor_nanoseconds()
{
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// One lookup of each table, which are measured in turns.
Nanoseconds measured_in_turns(size_t flows)
{
    std::map<std::string_view, std::vector<double>> times;
    Tables &all = tables_of(flows);
    uint64_t key = all.met().front();
    for (size_t turn = 0; turn < curve_turns; ++turn) {
        for (const bench::PeerKind &kind : bench::peer_kinds()) {
            if (kind.make == nullptr)
                continue;
            LookupPeer &table = all.peer(kind.name);
            key = table.follow(key, curve_operations); // fetches what the tables before displaced
            const double begin = processor_nanoseconds();
            key = table.follow(key, curve_operations);
            times[kind.name].push_back((processor_nanoseconds() - begin) / curve_operations);
        }
    }
    Nanoseconds medians;
    for (auto &[name, slices] : times) {
        std::ranges::nth_element(slices, slices.begin() + curve_turns / 2);
        medians[name] = slices[curve_turns / 2];
    }
    return medians;
}

double nanoseconds_of(std::string_view table, size_t flows)
{
    static std::map<size_t, Nanoseconds> measured;
    if (!measured.contains(flows))
        measured[flows] = measured_in_turns(flows);
    return measured[flows].at(table);
}

void add_curves()
{
    constexpr size_t most = 1'024'000;
    for (size_t flows = 1000; flows <= most; flows *= 2) {
        for (const bench::PeerKind &kind : bench::peer_kinds()) {
            if (kind.make == nullptr)
                continue;
            const std::string name =
                "curve/" + std::string(kind.name) + "/flows:" + std::to_string(flows);
            const auto report = [=](benchmark::State &state) {
                for ([[maybe_unused]] auto turn : state)
                    state.SetIterationTime(nanoseconds_of(kind.name, flows) / 1e9);
            };
            benchmark::RegisterBenchmark(name.c_str(), report)->Iterations(1)->UseManualTime();
        }
    }
}

} // namespace

int main(int argc, char **argv)
{
    for (const Form form : {Form::dependent, Form::independent})
        add_lookups(form, 10'000, "10 thousand");
    for (const Form form : {Form::dependent, Form::independent})
        add_lookups(form, million, "1M");
    add_changes();
    add_curves();
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    tables.reset();
    return 0;
}
