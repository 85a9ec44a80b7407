#include <algorithm>
#include <iterator>
#include <map>
#include <optional>
#include <random>

#include "kill_sweep.h"
#include "np_test_card.h"

namespace vlc::test {

namespace {

using Rows = std::map<std::string, std::string>;

constexpr uint32_t capacity = 8; // small, so that it is full, and its index rebuilt, often
constexpr uint32_t operations = KillSweep::slow ? 50 : 300;
constexpr uint64_t counters_begin = 4096 + 2 * (64 + 2 * 64 + (capacity + 1) * 128);
constexpr uint64_t row_counts = ((capacity + 1) * sizeof(PacketCount) + 63) / 64 * 64;
constexpr uint64_t flows_begin =
    counters_begin + CounterBank::count * sizeof(PacketCount) + 2 * row_counts;
constexpr uint64_t file_bytes = flows_begin + (64 + 2 * 64 + (flow_rows + 1) * 128) + // the table
                                2 * row_counts +                      // its counts and cells
                                (flow_counters * 16 + 63) / 64 * 64 + // dynamic counters
                                64;                                   // and their marks
static_assert(flow_rows == capacity);

struct Change {
    enum Kind { add, modify, remove, clear } kind;
    std::string key;
    std::string result;
};

void carry_out(const Change &change, Rows &rows)
{
    const bool known = rows.count(change.key) != 0;
    if (change.kind == Change::clear) {
        rows.clear();
    } else if (change.kind == Change::remove) {
        rows.erase(change.key);
    } else if (change.kind == Change::modify ? known : !known && rows.size() < capacity) {
        rows[change.key] = change.result;
    }
}

// The table is full most of the time, and each key comes up once or twice, so that the index fills
// with marks of removed rows.
std::vector<Change> changes()
{
    std::mt19937 random(7);
    std::vector<Change> all;
    Rows rows;
    for (uint32_t i = 0; i < operations; ++i) {
        Change change{Change::add, "key of a row, " + std::to_string(random() % 200),
                      std::string(1 + random() % 64, static_cast<char>('a' + i % 26))};
        if (i % 83 == 82) {
            change.kind = Change::clear;
        } else if (rows.size() == capacity || (!rows.empty() && random() % 4 == 0)) {
            change.kind = random() % 4 == 0 ? Change::modify : Change::remove;
            change.key = std::next(rows.begin(), static_cast<long>(random() % rows.size()))->first;
        }
        all.push_back(change);
        carry_out(change, rows);
    }
    return all;
}

void carry_out(const Change &change, NpTable &table)
{
    switch (change.kind) {
    case Change::add:
        table.add(bytes(change.key), bytes(change.result));
        break;
    case Change::modify:
        table.modify(bytes(change.key), bytes(change.result));
        break;
    case Change::remove:
        table.remove(bytes(change.key));
        break;
    case Change::clear:
        table.clear();
    }
}

} // namespace

TEST(KilledNps, AtEveryInstructionATableHasTheOldRowOrTheNewOne)
{
    const CardConfig config = card_of(1, capacity, capacity);
    const std::vector<Change> all = changes();
    std::vector<Rows> contents(1);
    for (const Change &change : all) {
        contents.push_back(contents.back());
        carry_out(change, contents.back());
    }
    TestDirectory original;
    TestDirectory copy;
    { // so that the part that is not watched is there
        const StateDirectory directory(copy.path(), Access::read_write);
        const NpStore nps(directory, config);
    }
    KillSweep sweep(original.path(), copy.path(), {{"np0", counters_begin}});
    std::optional<StateDirectory> directory;
    std::optional<NpStore> nps;
    sweep.prepare = [&] {
        directory.emplace(original.path(), Access::read_write);
        nps.emplace(*directory, config);
        KillSweep::Operations series;
        for (const Change &change : all) {
            series.emplace_back([&] { carry_out(change, (*nps)[0].table(TableKind::ext_conf)); });
        }
        return series;
    };
    sweep.verify = [&](const StateDirectory &found, uint32_t done) {
        NpStore killed(found, config);
        NpTable &table = killed[0].table(TableKind::ext_conf);
        const Rows rows = rows_of(table);
        EXPECT_TRUE(rows == contents[done] || rows == contents[std::min(done + 1, operations)])
            << "neither the old nor the new";
        EXPECT_EQ(table.size(), rows.size());
        table.clear();
        for (uint32_t i = 0; i < capacity; ++i) {
            EXPECT_EQ(table.add(bytes(std::to_string(i)), {}), TableOutcome::done);
        }
    };
    sweep.run(KillSweep::slow ? 4000 : 30000, KillSweep::slow ? 80 : 1000);
}

TEST(KilledNps, AtEveryInstructionACounterHasCountedAPacketWithItsBytesOrNot)
{
    const CardConfig config = card_of(1, capacity, capacity);
    constexpr uint32_t packets = KillSweep::slow ? 100 : 500;
    TestDirectory original;
    TestDirectory copy;
    { // so that the part that is not watched is there
        const StateDirectory directory(copy.path(), Access::read_write);
        const NpStore nps(directory, config);
    }
    KillSweep sweep(original.path(), copy.path(), {{"np0", counters_begin + 64}});
    std::optional<StateDirectory> directory;
    std::optional<NpStore> nps;
    sweep.prepare = [&] {
        directory.emplace(original.path(), Access::read_write);
        nps.emplace(*directory, config);
        return KillSweep::Operations(packets, [&] { (*nps)[0].counters().add(2, 1000); });
    };
    sweep.verify = [&](const StateDirectory &found, uint32_t done) {
        const NpStore killed(found, config);
        const PacketCount counted = killed[0].counters().read(2);
        EXPECT_TRUE(counted.packets == done || counted.packets == done + 1);
        EXPECT_EQ(counted.bytes, counted.packets * 1000);
    };
    sweep.run(packets * 10 / KillSweep::look_every, packets + 1);
}

// A flow's row with the cell and the count that belong to it, and its counters.
TEST(KilledNps, AtEveryInstructionAFlowHasItsOldRowOrTheNewOneAndItsCountersAreTakenOrFree)
{
    const CardConfig config = card_of(1, capacity, capacity);
    constexpr uint32_t rounds = KillSweep::slow ? 6 : 30;
    TestDirectory original;
    TestDirectory copy;
    { // so that the part that is not watched is there
        const StateDirectory directory(copy.path(), Access::read_write);
        const NpStore nps(directory, config);
    }
    KillSweep sweep(original.path(), copy.path(), {{"np0", ~uint64_t{0}, flows_begin}});
    std::optional<StateDirectory> directory;
    std::optional<NpStore> nps;
    uint32_t run = 0;
    sweep.prepare = [&] {
        directory.emplace(original.path(), Access::read_write);
        nps.emplace(*directory, config);
        KillSweep::Operations series;
        const auto flows = [&]() -> NpTable & { return (*nps)[0].table(TableKind::flow); };
        const auto counters = [&]() -> DynamicCounters & { return (*nps)[0].dynamic_counters(); };
        for (uint32_t i = 0; i < rounds; ++i) {
            series.emplace_back([&run, counters] { run = counters().take(2); });
            series.emplace_back([flows] { flows().add(bytes("key"), bytes("one")); });
            series.emplace_back([flows] {
                flows().flow_cell(*flows().find(bytes("key"))).write({.owed = 5, .last_packet = 7});
            });
            series.emplace_back([flows] { flows().modify(bytes("key"), bytes("two")); });
            series.emplace_back([flows] { flows().remove(bytes("key")); });
            series.emplace_back([&run, counters] { counters().give_back(run); });
        }
        return series;
    };
    // What stands when so many operations of a round are done.
    constexpr uint32_t steps = 6;
    struct Stand {
        std::string result;
        uint64_t owed;
        uint32_t counters;
        bool operator==(const Stand &) const = default;
    };
    const Stand stands[steps] = {{"", 0, 0},    {"", 0, 2},    {"one", 0, 2},
                                 {"one", 5, 2}, {"two", 5, 2}, {"", 0, 2}};
    sweep.verify = [&](const StateDirectory &found, uint32_t done) {
        const NpStore killed(found, config);
        const NpTable &table = killed[0].table(TableKind::flow);
        Stand now{"", 0, killed[0].dynamic_counters().in_use()};
        if (const TableRow *row = table.find(bytes("key"))) {
            const FlowCell::State cell = table.flow_cell(*row).read();
            EXPECT_EQ(cell.last_packet, cell.owed == 0 ? 0 : 7) << "half a cell";
            now.result = text(row->result_span());
            now.owed = cell.owed;
        }
        EXPECT_TRUE(now == stands[done % steps] || now == stands[(done + 1) % steps])
            << now.result << " " << now.owed << " " << now.counters << " behind " << done % steps;
    };
    sweep.run(KillSweep::slow ? 500 : 3000, rounds * steps);
}

TEST(KilledNps, AtEveryInstructionOfMakingTheirFilesTheyCanBeMadeAgain)
{
    constexpr uint16_t count = KillSweep::slow ? 1 : 2;
    const CardConfig config = card_of(count, capacity, capacity);
    TestDirectory original;
    TestDirectory copy;
    KillSweep sweep(original.path(), copy.path(),
                    {{"np0", 4096}, {"np1", 4096}, {"np0.new", 4096}, {"np1.new", 4096}});
    std::optional<StateDirectory> directory;
    std::optional<NpStore> nps;
    sweep.prepare = [&] {
        directory.emplace(original.path(), Access::read_write);
        return KillSweep::Operations{[&] { nps.emplace(*directory, config); }};
    };
    sweep.verify = [&](const StateDirectory &found, uint32_t) {
        for (const auto &entry : std::filesystem::directory_iterator(found.path())) {
            if (entry.file_size() == 4096) { // only its start was copied
                std::filesystem::resize_file(entry.path(), file_bytes);
            }
        }
        EXPECT_EQ(NpStore(found, config).size(), count);
    };
    sweep.run(1000, 4);
}

} // namespace vlc::test
