#include "shown_shadow.h"

#include <array>
#include <cstdio>
#include <set>

#include "entry_names.h"
#include "hardware_failures.h"
#include "json_line.h"
#include "numbers.h"
#include "text_table.h"

namespace inlinectl {
namespace {

using services::StoredEntry;

// What is longer than eight bytes ends in dots unless all is wanted.
std::string hex_cell(vlc::Bytes bytes, bool full)
{
    constexpr size_t shown_bytes = 8;
    if (full || bytes.size() <= shown_bytes)
        return bytes.empty() ? "-" : plain_hex(bytes);
    return plain_hex(bytes.first(shown_bytes - 1)) + "..";
}

// "0xc00000/0xc00001"; what another NP has apart is said behind.
std::string counters_cell(const Snapshot &state, const StoredEntry &entry)
{
    const services::CounterRegion region = state.region();
    const auto number = [&region](std::optional<uint32_t> place) {
        return place ? counter_text(region.first + *place) : std::string("none");
    };
    const auto pair = [&](const EntryCounters &held) {
        return held == EntryCounters{} ? "-" : number(held.received) + "/" + number(held.dropped);
    };
    const EntryCounters first = counters_of(entry, 0, region);
    std::string text = pair(first);
    for (uint32_t np = 1; np < state.nps.size(); ++np) {
        const EntryCounters held = counters_of(entry, np, region);
        if (held != first)
            text += ", NP " + std::to_string(np) + " " + pair(held);
    }
    return text;
}

char mark_of(const Snapshot &state, size_t entry, uint32_t np)
{
    const NpRow &row = state.row(entry, np);
    if (!state.nps[np].unread.empty())
        return '?';
    return !row.is_there ? '-' : row.is_as_stored ? static_cast<char>('0' + np) : '!';
}

std::string nps_cell(const Snapshot &state, size_t entry)
{
    std::string marks;
    for (uint32_t np = 0; np < state.nps.size(); ++np)
        marks += mark_of(state, entry, np);
    return marks;
}

struct ShadowTotals {
    std::set<uint32_t> keys;
    std::array<uint64_t, SHADOW_DB_TABLES> entries{}; // by table
    uint64_t damaged = 0;
    uint64_t with_counters = 0;
    uint64_t everywhere = 0; // as stored on every NP
    bool any_elsewhere = false;

    uint64_t all() const { return entries[0] + entries[1] + damaged; }
};

bool is_wanted(const StoredEntry &entry, const ShadowSelection &selection)
{
    return !selection.key || *selection.key == entry.main_key;
}

void take_in(ShadowTotals &totals, const Snapshot &state, size_t number)
{
    const StoredEntry &entry = state.entries[number];
    totals.keys.insert(entry.main_key);
    ++(entry.has_row ? totals.entries[entry.content.app_node.table_type] : totals.damaged);
    totals.with_counters += counters_of(entry, 0, state.region()) != EntryCounters{} ? 1U : 0U;
    bool everywhere = true;
    for (uint32_t np = 0; np < state.nps.size(); ++np)
        everywhere = everywhere && state.row(number, np).is_as_stored;
    totals.everywhere += everywhere ? 1U : 0U;
    totals.any_elsewhere = totals.any_elsewhere || !everywhere;
}

// Visits the entries that are to be shown and counts all that match.
template <typename Visit>
ShadowTotals select(const Snapshot &state, const ShadowSelection &selection, const Visit &visit)
{
    ShadowTotals totals;
    size_t shown = 0;
    for (size_t number = 0; number < state.entries.size(); ++number) {
        if (!is_wanted(state.entries[number], selection))
            continue;
        take_in(totals, state, number);
        if (shown++ < selection.first)
            visit(number);
    }
    return totals;
}

std::vector<std::string> row_of(const Snapshot &state, size_t number, bool full)
{
    const StoredEntry &entry = state.entries[number];
    const app_node &content = entry.content.app_node;
    const auto main = state.keys.find(entry.main_key);
    return {std::to_string(entry.main_key),
            std::to_string(inline_shadow_db_key_to_apptype(entry.main_key)),
            std::to_string(inline_shadow_db_key_to_appid(entry.main_key)),
            main == state.keys.end() ? "?" : std::to_string(main->second.app_ID),
            table_name(content.table_type),
            std::to_string(content.entry_id),
            action_name(content.action),
            hex_cell(stored_key(entry), full),
            hex_cell(stored_result(entry), full),
            counters_cell(state, entry),
            nps_cell(state, number),
            name_of(entry)};
}

void write_totals(std::ostream &out, const ShadowTotals &totals, size_t first)
{
    if (totals.all() > first)
        out << "The first " << grouped(first) << " of ";
    out << counted(totals.all(), "entry", "entries") << " under "
        << counted(totals.keys.size(), "key", "keys") << ": "
        << grouped(totals.entries[SHADOW_DB_SERVICE_CONFIG]) << " service config, "
        << grouped(totals.entries[SHADOW_DB_EXT_CONF]) << " ext conf";
    if (totals.damaged > 0)
        out << ", " << grouped(totals.damaged) << " damaged";
    out << "; " << grouped(totals.with_counters) << " with counters; " << grouped(totals.everywhere)
        << " on every NP as stored\n";
    if (totals.any_elsewhere)
        out << "NPs: the number of each that has the row as stored; - no row, ! another row, "
               "? not readable\n";
}

void put_counters(JsonLines &lines, const Snapshot &state, const StoredEntry &entry)
{
    const services::CounterRegion region = state.region();
    const auto put = [&](const char *name, std::optional<uint32_t> place) {
        if (place)
            lines.number(name, region.first + *place);
        else
            lines.nothing(name);
    };
    lines.open_list("counters");
    for (uint32_t np = 0; np < state.nps.size(); ++np) {
        const EntryCounters held = counters_of(entry, np, region);
        if (held == EntryCounters{})
            continue;
        lines.open_object().number("np", np);
        put("received", held.received);
        put("dropped", held.dropped);
        lines.close_object();
    }
    lines.close_list();
}

void put_rows(JsonLines &lines, const Snapshot &state, size_t number)
{
    lines.open_list("nps");
    for (uint32_t np = 0; np < state.nps.size(); ++np) {
        if (!state.nps[np].unread.empty())
            continue;
        const NpRow &row = state.row(number, np);
        lines.open_object().number("np", np).flag("row", row.is_there);
        lines.flag("as_stored", row.is_as_stored);
        lines.number("packets", row.hits.packets).number("bytes", row.hits.bytes);
        lines.close_object();
    }
    lines.close_list();
}

void put_entry(JsonLines &lines, const Snapshot &state, size_t number)
{
    const StoredEntry &entry = state.entries[number];
    const app_node &content = entry.content.app_node;
    const auto main = state.keys.find(entry.main_key);
    lines.begin("entry").number("key", entry.main_key);
    lines.number("application_type", inline_shadow_db_key_to_apptype(entry.main_key));
    lines.number("index", inline_shadow_db_key_to_appid(entry.main_key));
    if (main != state.keys.end())
        lines.number("app_ID", main->second.app_ID);
    else
        lines.nothing("app_ID");
    lines.text("table", table_name(content.table_type)).number("entry_id", content.entry_id);
    lines.text("action", action_name(content.action)).number("hw_index", content.hw_index);
    if (entry.has_row)
        lines.text("lookup_key", plain_hex(stored_key(entry))).text("name", name_of(entry));
    else
        lines.nothing("lookup_key").nothing("name");
    if (entry.has_row)
        lines.text("result", plain_hex(stored_result(entry)));
    else
        lines.nothing("result");
    put_counters(lines, state, entry);
    put_rows(lines, state, number);
    lines.end();
}

} // namespace

std::string counter_text(uint32_t number)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%x", number);
    return text.data();
}

void write_notes_text(std::ostream &out, const std::vector<std::string> &notes)
{
    if (!notes.empty())
        out << "\n";
    for (const std::string &note : notes)
        out << "note: " << note << "\n";
}

void write_shadow_text(std::ostream &out, const Snapshot &state, const ShadowSelection &selection)
{
    using Align = TextTable::Align;
    TextTable table({Align::right, Align::right, Align::right, Align::right, Align::left,
                     Align::right, Align::left, Align::left, Align::left, Align::left, Align::left,
                     Align::left});
    table.add({"key", "type", "index", "app", "table", "entry", "action", "lookup key", "result",
               "received/dropped", "NPs", "name"});
    const ShadowTotals totals = select(
        state, selection, [&](size_t number) { table.add(row_of(state, number, selection.full)); });
    if (totals.all() == 0) {
        out << "No entry is stored" << (selection.key ? " under that key" : "") << ".\n";
    } else {
        table.write(out);
        out << "\n";
        write_totals(out, totals, selection.first);
    }
    write_notes_text(out, state.notes);
}

void write_shadow_json(std::ostream &out, const Snapshot &state, const ShadowSelection &selection)
{
    JsonLines lines(out);
    const ShadowTotals totals =
        select(state, selection, [&](size_t number) { put_entry(lines, state, number); });
    lines.begin("totals").number("keys", totals.keys.size()).number("entries", totals.all());
    lines.number("service_config", totals.entries[SHADOW_DB_SERVICE_CONFIG]);
    lines.number("ext_conf", totals.entries[SHADOW_DB_EXT_CONF]).number("damaged", totals.damaged);
    lines.number("with_counters", totals.with_counters);
    lines.number("as_stored_on_every_np", totals.everywhere).end();
    for (const std::string &note : state.notes) {
        lines.begin("note").text("text", note);
        lines.end();
    }
}

} // namespace inlinectl
