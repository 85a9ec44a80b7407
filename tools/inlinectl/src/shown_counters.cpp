#include "shown_counters.h"

#include <algorithm>
#include <bit>

#include "hardware_failures.h"
#include "json_line.h"
#include "numbers.h"
#include "shown_shadow.h"
#include "text_table.h"

namespace inlinectl {
namespace {

// Who holds each counter of one NP.
class Holders {
public:
    Holders(const Snapshot &state, uint32_t np, NpCounters &found)
        : region_(state.region()), found_(found), holders_(region_.places(), UsedCounter::nobody),
          dropped_(region_.places())
    {
        for (size_t entry = 0; entry < state.entries.size(); ++entry) {
            const EntryCounters held = counters_of(state.entries[entry], np, region_);
            if (held.received)
                hold(*held.received, entry, false);
            if (held.dropped)
                hold(*held.dropped, entry, true);
        }
    }

    size_t holder(uint32_t place) const { return holders_[place]; }
    bool is_dropped(uint32_t place) const { return dropped_[place]; }

private:
    void hold(uint32_t place, size_t entry, bool is_dropped)
    {
        if (holders_[place] != UsedCounter::nobody) {
            ++found_.shared;
            return;
        }
        holders_[place] = entry;
        dropped_[place] = is_dropped;
    }

    const services::CounterRegion region_;
    NpCounters &found_;
    std::vector<size_t> holders_;
    std::vector<bool> dropped_;
};

bool is_set(const std::vector<uint32_t> &bitmap, uint32_t place)
{
    return !bitmap.empty() && (bitmap[place / 32] & UINT32_C(0x80000000) >> place % 32) != 0;
}

std::string holder_text(const Snapshot &state, const UsedCounter &counter)
{
    if (counter.holder == UsedCounter::nobody)
        return "nobody: leaked";
    const services::StoredEntry &entry = state.entries[counter.holder];
    const std::string name = name_of(entry);
    return "entry " + std::to_string(entry.content.app_node.entry_id) + " of key " +
           std::to_string(entry.main_key) + (name.empty() ? "" : ", " + name);
}

void write_summary(std::ostream &out, const Snapshot &state, const std::vector<NpCounters> &all)
{
    using Align = TextTable::Align;
    const services::CounterRegion region = state.region();
    const std::string place = counter_text(region.first) + " to " +
                              counter_text(region.first + region.count - 1) + ", " +
                              grouped(region.count);
    TextTable table(
        {Align::right, Align::left, Align::right, Align::right, Align::right, Align::right});
    table.add({"NP", "region", "in use", "free", "lowest free", "leaked"});
    for (const NpCounters &np : all)
        table.add({std::to_string(np.np), place, grouped(np.in_use), grouped(np.free),
                   np.lowest_free ? counter_text(*np.lowest_free) : "none", grouped(np.leaked)});
    table.write(out);
}

void write_used(std::ostream &out, const Snapshot &state, const NpCounters &np)
{
    using Align = TextTable::Align;
    if (np.used.empty())
        return;
    const bool is_read = state.nps[np.np].unread.empty();
    TextTable table({Align::left, Align::right, Align::right, Align::left, Align::left});
    table.add({"NP " + std::to_string(np.np), "packets", "bytes", "counts", "held by"});
    for (const UsedCounter &counter : np.used) {
        const bool is_held = counter.holder != UsedCounter::nobody;
        table.add({counter_text(counter.number), is_read ? grouped(counter.count.packets) : "?",
                   is_read ? grouped(counter.count.bytes) : "?",
                   !is_held             ? "-"
                   : counter.is_dropped ? "dropped"
                                        : "received",
                   holder_text(state, counter)});
    }
    out << "\n";
    table.write(out);
    if (np.used.size() < np.in_use)
        out << grouped(np.used.size()) << " of " << grouped(np.in_use) << "\n";
}

// What is wrong beside leaks, which are shown one by one.
std::vector<std::string> notes_of(const Snapshot &state, const std::vector<NpCounters> &all)
{
    std::vector<std::string> notes = state.notes;
    for (const NpCounters &np : all) {
        const std::string where = "NP " + std::to_string(np.np) + ": ";
        if (np.free_and_held > 0)
            notes.push_back(where + counted(np.free_and_held, "counter is", "counters are") +
                            " held by entries and free; see 'inlinectl audit'");
        if (np.shared > 0)
            notes.push_back(where + counted(np.shared, "counter is", "counters are") +
                            " held more than once; see 'inlinectl audit'");
    }
    return notes;
}

void put_used(JsonLines &lines, const Snapshot &state, uint32_t np, const UsedCounter &counter)
{
    lines.begin("counter").number("np", np).number("counter", counter.number);
    if (state.nps[np].unread.empty())
        lines.number("packets", counter.count.packets).number("bytes", counter.count.bytes);
    else
        lines.nothing("packets").nothing("bytes");
    lines.flag("leaked", counter.holder == UsedCounter::nobody);
    if (counter.holder != UsedCounter::nobody) {
        const services::StoredEntry &entry = state.entries[counter.holder];
        lines.text("counts", counter.is_dropped ? "dropped" : "received");
        lines.number("key", entry.main_key).number("entry_id", entry.content.app_node.entry_id);
        lines.text("table", table_name(entry.content.app_node.table_type));
        lines.text("name", name_of(entry));
    }
    lines.end();
}

} // namespace

NpCounters counters_in_use(const Snapshot &state, uint32_t np)
{
    NpCounters found{.np = np, .lowest_free = {}, .used = {}};
    const Holders holders(state, np, found);
    const services::CounterRegion region = state.region();
    const std::vector<uint32_t> none;
    const std::vector<uint32_t> &bitmap = np < state.bitmaps.size() ? state.bitmaps[np] : none;
    const std::vector<vlc::PacketCount> &counts = state.nps[np].counters;
    // The allocator reaches a word past the region; the hardware has no counters there.
    for (uint32_t place = 0; place < region.places(); ++place) {
        const size_t holder = holders.holder(place);
        const bool is_held = holder != UsedCounter::nobody;
        if (!is_set(bitmap, place)) {
            found.free += place < region.count ? 1U : 0U;
            found.free_and_held += is_held ? 1U : 0U;
            if (!found.lowest_free && !bitmap.empty())
                found.lowest_free = region.first + place;
            continue;
        }
        ++found.in_use;
        found.leaked += is_held ? 0U : 1U;
        found.used.push_back({.number = region.first + place,
                              .count = place < counts.size() ? counts[place] : vlc::PacketCount{},
                              .holder = holder,
                              .is_dropped = is_held && holders.is_dropped(place)});
    }
    return found;
}

std::vector<NpCounters> counters_in_use(const Snapshot &state)
{
    std::vector<NpCounters> all;
    for (uint32_t np = 0; np < state.nps.size(); ++np)
        all.push_back(counters_in_use(state, np));
    return all;
}

std::vector<NpCounters> select(std::vector<NpCounters> counters, const CounterSelection &selection)
{
    for (NpCounters &np : counters) {
        if (selection.sort != "number") {
            const bool by_bytes = selection.sort == "bytes";
            std::ranges::stable_sort(np.used, [by_bytes](const auto &a, const auto &b) {
                return by_bytes ? a.count.bytes > b.count.bytes : a.count.packets > b.count.packets;
            });
        }
        if (np.used.size() > selection.first)
            np.used.resize(selection.first);
    }
    return counters;
}

void write_counters_text(std::ostream &out, const Snapshot &state,
                         const CounterSelection &selection)
{
    const std::vector<NpCounters> all = select(counters_in_use(state), selection);
    write_summary(out, state, all);
    for (const NpCounters &np : all)
        write_used(out, state, np);
    write_notes_text(out, notes_of(state, all));
}

void write_counters_json(std::ostream &out, const Snapshot &state,
                         const CounterSelection &selection)
{
    const std::vector<NpCounters> all = select(counters_in_use(state), selection);
    const services::CounterRegion region = state.region();
    JsonLines lines(out);
    for (const NpCounters &np : all) {
        lines.begin("np").number("np", np.np).number("first", region.first);
        lines.number("size", region.count).number("in_use", np.in_use).number("free", np.free);
        if (np.lowest_free)
            lines.number("lowest_free", *np.lowest_free);
        else
            lines.nothing("lowest_free");
        lines.number("leaked", np.leaked).number("free_and_held", np.free_and_held);
        lines.number("shared", np.shared).end();
    }
    for (const NpCounters &np : all) {
        for (const UsedCounter &counter : np.used)
            put_used(lines, state, np.np, counter);
    }
    for (const std::string &note : notes_of(state, all)) {
        lines.begin("note").text("text", note);
        lines.end();
    }
}

} // namespace inlinectl
