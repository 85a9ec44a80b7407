#include "state_diff.h"

#include <algorithm>
#include <compare>
#include <cstring>
#include <numeric>
#include <span>
#include <tuple>

#include "entry_names.h"
#include "hardware_failures.h"
#include "hardware_view.h"
#include "shown_counters.h"
#include "shown_shadow.h"
#include "vservice_names.h"

namespace inlinectl {
namespace {

using services::StoredEntry;

struct NamedValue {
    std::string name;
    std::string value;
};
using NamedValues = std::vector<NamedValue>;

DiffLabel number_label(const char *name, uint64_t number)
{
    return {name, std::to_string(number), true};
}

NamedValue number_value(std::string name, uint64_t number)
{
    return {std::move(name), std::to_string(number)};
}

void add_counts(NamedValues &values, const vlc::PacketCount &count, const std::string &where = "")
{
    values.push_back(number_value("packets" + where, count.packets));
    values.push_back(number_value("bytes" + where, count.bytes));
}

std::string on_np(uint32_t np)
{
    return " on NP " + std::to_string(np);
}

std::strong_ordering order_of(vlc::Bytes a, vlc::Bytes b)
{
    return std::lexicographical_compare_three_way(a.begin(), a.end(), b.begin(), b.end());
}

std::vector<size_t> numbers_to(size_t count)
{
    std::vector<size_t> numbers(count);
    std::iota(numbers.begin(), numbers.end(), size_t{0});
    return numbers;
}

// Each section names things of a state by numbers: which there are, what order they have, what a
// thing is called, and what there is to compare of it. `is_same` is a short cut.

struct CardSection {
    static constexpr const char *name = "card";
    static constexpr bool tells_missing = true;
    static std::vector<size_t> items(const Snapshot &) { return {0}; }
    static std::strong_ordering order(const Snapshot &, size_t, const Snapshot &, size_t)
    {
        return std::strong_ordering::equal;
    }
    static bool is_same(const Snapshot &a, size_t, const Snapshot &b, size_t, bool)
    {
        return a.card == b.card;
    }
    static DiffLabels labels(const Snapshot &, size_t) { return {}; }
    static NamedValues values(const Snapshot &state, size_t, bool)
    {
        const vlc::CardConfig &card = state.card;
        return {{"name", card.name},
                {"type", counter_text(card.card_type)},
                number_value("slot", card.slot),
                number_value("NPs", card.num_nps),
                number_value("service config rows", card.service_config_capacity),
                number_value("ext conf rows", card.ext_conf_capacity),
                number_value("flow rows", card.flow_capacity),
                number_value("dynamic counters", card.dynamic_counters),
                number_value("window bytes", card.window_bytes),
                number_value("slots", card.slots.size()),
                number_value("interfaces", card.interfaces.size()),
                number_value("vrfs", card.vrfs.size())};
    }
};

struct KeysSection {
    static constexpr const char *name = "keys";
    static constexpr bool tells_missing = true;
    static std::vector<size_t> items(const Snapshot &state)
    {
        std::vector<size_t> keys;
        for (const auto &[key, content] : state.keys)
            keys.push_back(key);
        return keys;
    }
    static std::strong_ordering order(const Snapshot &, size_t a, const Snapshot &, size_t b)
    {
        return a <=> b;
    }
    static bool is_same(const Snapshot &, size_t, const Snapshot &, size_t, bool) { return false; }
    static DiffLabels labels(const Snapshot &, size_t key) { return {number_label("key", key)}; }
    static NamedValues values(const Snapshot &state, size_t key, bool counts)
    {
        const main_entry &content = state.keys.at(static_cast<uint32_t>(key));
        NamedValues values{{"version", counter_text(content.entry_version)},
                           number_value("tag", content.entry_tag),
                           number_value("app_ID", content.app_ID)};
        if (counts)
            values.push_back(number_value("statistics passes", content.stat_round));
        return values;
    }
};

std::strong_ordering order_of(const StoredEntry &a, const StoredEntry &b)
{
    const app_node &first = a.content.app_node;
    const app_node &second = b.content.app_node;
    const auto places = std::tuple(a.main_key, first.table_type, a.has_row) <=>
                        std::tuple(b.main_key, second.table_type, b.has_row);
    return places != nullptr ? places : order_of(stored_key(a), stored_key(b));
}

// An entry is the same one where key, table and lookup key are; so the hardware finds it too.
struct EntriesSection {
    static constexpr const char *name = "entries";
    static constexpr bool tells_missing = true;
    static std::vector<size_t> items(const Snapshot &state)
    {
        return numbers_to(state.entries.size());
    }
    static std::strong_ordering order(const Snapshot &a, size_t first, const Snapshot &b,
                                      size_t second)
    {
        return order_of(a.entries[first], b.entries[second]);
    }
    static bool is_same(const Snapshot &a, size_t first, const Snapshot &b, size_t second,
                        bool counts)
    {
        const app_node &one = a.entries[first].content.app_node;
        const app_node &other = b.entries[second].content.app_node;
        return !counts && one.entry_id == other.entry_id && one.action == other.action &&
               one.hw_index == other.hw_index &&
               std::ranges::equal(stored_result(a.entries[first]),
                                  stored_result(b.entries[second]));
    }
    static DiffLabels labels(const Snapshot &state, size_t number)
    {
        const StoredEntry &entry = state.entries[number];
        return {number_label("key", entry.main_key),
                {"table", table_name(entry.content.app_node.table_type)},
                {"lookup_key", plain_hex(stored_key(entry))},
                {"name", name_of(entry)}};
    }
    static NamedValues values(const Snapshot &state, size_t number, bool counts)
    {
        const StoredEntry &entry = state.entries[number];
        const app_node &content = entry.content.app_node;
        NamedValues values{number_value("entry_id", content.entry_id),
                           {"action", action_name(content.action)},
                           {"hw_index", counter_text(content.hw_index)},
                           {"result", plain_hex(stored_result(entry))}};
        for (uint32_t np = 0; counts && np < state.nps.size(); ++np)
            add_counts(values, state.row(number, np).hits, on_np(np));
        return values;
    }
};

// The counters that entries of both states hold.
struct CountersSection : EntriesSection {
    static constexpr const char *name = "counters";
    static constexpr bool tells_missing = false; // the entries are told
    static bool is_same(const Snapshot &a, size_t first, const Snapshot &b, size_t second, bool)
    {
        const shmem_node &one = a.entries[first].content;
        const shmem_node &other = b.entries[second].content;
        return std::memcmp(one.stat_index_rx, other.stat_index_rx, sizeof one.stat_index_rx) == 0 &&
               std::memcmp(one.stat_index_drop, other.stat_index_drop,
                           sizeof one.stat_index_drop) == 0;
    }
    static NamedValues values(const Snapshot &state, size_t number, bool)
    {
        const services::CounterRegion region = state.region();
        const auto text = [&region](std::optional<uint32_t> place) {
            return place ? counter_text(region.first + *place) : std::string("none");
        };
        NamedValues values;
        for (uint32_t np = 0; np < state.nps.size(); ++np) {
            const EntryCounters held = counters_of(state.entries[number], np, region);
            values.push_back({"received" + on_np(np), text(held.received)});
            values.push_back({"dropped" + on_np(np), text(held.dropped)});
        }
        return values;
    }
};

struct CountersInUseSection {
    static constexpr const char *name = "counters-in-use";
    static constexpr bool tells_missing = true;
    static std::vector<size_t> items(const Snapshot &state) { return numbers_to(state.nps.size()); }
    static std::strong_ordering order(const Snapshot &, size_t a, const Snapshot &, size_t b)
    {
        return a <=> b;
    }
    static bool is_same(const Snapshot &, size_t, const Snapshot &, size_t, bool) { return false; }
    static DiffLabels labels(const Snapshot &, size_t np) { return {number_label("np", np)}; }
    static NamedValues values(const Snapshot &state, size_t np, bool)
    {
        const NpCounters found = counters_in_use(state, static_cast<uint32_t>(np));
        return {number_value("in use", found.in_use), number_value("leaked", found.leaked),
                number_value("free and held", found.free_and_held),
                number_value("shared", found.shared)};
    }
};

struct RowsSection {
    static constexpr const char *name = "rows";
    static constexpr bool tells_missing = true;
    static std::vector<size_t> items(const Snapshot &state)
    {
        return numbers_to(state.np_rows.size());
    }
    static std::strong_ordering order(const Snapshot &a, size_t first, const Snapshot &b,
                                      size_t second)
    {
        const SnapshotRow &one = a.np_rows[first];
        const SnapshotRow &other = b.np_rows[second];
        const auto places = std::tuple(one.np, one.table) <=> std::tuple(other.np, other.table);
        return places != nullptr ? places : order_of(one.row.key_span(), other.row.key_span());
    }
    static bool is_same(const Snapshot &a, size_t first, const Snapshot &b, size_t second,
                        bool counts)
    {
        return !counts && std::ranges::equal(a.np_rows[first].row.result_span(),
                                             b.np_rows[second].row.result_span());
    }
    static DiffLabels labels(const Snapshot &state, size_t number)
    {
        const SnapshotRow &one = state.np_rows[number];
        return {number_label("np", one.np),
                {"table", table_name(one.table)},
                {"lookup_key", plain_hex(one.row.key_span())},
                {"name", key_name(one.table, one.row.key_span())}};
    }
    static NamedValues values(const Snapshot &state, size_t number, bool counts)
    {
        const SnapshotRow &one = state.np_rows[number];
        NamedValues values{{"result", plain_hex(one.row.result_span())}};
        if (counts)
            add_counts(values, one.hits);
        return values;
    }
};

// Records of a table with a place each, of which those that are not all zero are things.
template <typename Record>
std::vector<size_t> set_ones(const std::vector<Record> &records)
{
    static const Record unset{};
    std::vector<size_t> numbers;
    for (size_t number = 0; number < records.size(); ++number) {
        if (std::memcmp(&records[number], &unset, sizeof unset) != 0)
            numbers.push_back(number);
    }
    return numbers;
}

struct AttributesSection : KeysSection {
    static constexpr const char *name = "attributes";
    static std::vector<size_t> items(const Snapshot &state) { return set_ones(state.attributes); }
    static DiffLabels labels(const Snapshot &, size_t uidb) { return {number_label("uidb", uidb)}; }
    static NamedValues values(const Snapshot &state, size_t uidb, bool)
    {
        const uidb_attribute &one = state.attributes[uidb];
        return {number_value("app_type", one.app_type), number_value("app_ID", one.app_ID),
                number_value("vqi", one.vqi),           number_value("slot", one.slot),
                number_value("iftype", one.iftype),     number_value("dirty", one.dirty)};
    }
};

struct VservicesSection : KeysSection {
    static constexpr const char *name = "vservices";
    static std::vector<size_t> items(const Snapshot &state) { return set_ones(state.vservices); }
    static DiffLabels labels(const Snapshot &, size_t index)
    {
        return {number_label("index", index)};
    }
    static NamedValues values(const Snapshot &state, size_t index, bool)
    {
        const vservice_config &one = state.vservices[index];
        return {{"encapsulation", encapsulation_name(one.encap)},
                number_value("user", one.user),
                {"source", endpoint_text(one.src_ip, one.sport)},
                {"destination", endpoint_text(destination_of(one), one.dport)}};
    }
};

struct FlowsSection {
    static constexpr const char *name = "flows";
    static constexpr bool tells_missing = true;
    static vlc::Bytes key_of(const flow_record &flow)
    {
        return {flow.key, std::min<size_t>(flow.key_len, FLOW_KEY_BYTES)};
    }
    static std::vector<size_t> items(const Snapshot &state)
    {
        return numbers_to(state.flows.size());
    }
    static std::strong_ordering order(const Snapshot &a, size_t first, const Snapshot &b,
                                      size_t second)
    {
        return order_of(key_of(a.flows[first]), key_of(b.flows[second]));
    }
    static bool is_same(const Snapshot &, size_t, const Snapshot &, size_t, bool) { return false; }
    static DiffLabels labels(const Snapshot &state, size_t number)
    {
        const vlc::Bytes key = key_of(state.flows[number]);
        return {{"lookup_key", plain_hex(key)}, {"name", key_name(services::flow_table, key)}};
    }
    static NamedValues values(const Snapshot &state, size_t number, bool counts)
    {
        const flow_record &flow = state.flows[number];
        const size_t result_bytes = std::min<size_t>(flow.result_len, FLOW_RESULT_BYTES);
        NamedValues values{number_value("flow_key", flow.flow_key),
                           number_value("state", flow.state),
                           {"flags", counter_text(flow.flags)},
                           number_value("only NP", flow.np),
                           {"result", plain_hex({flow.result, result_bytes})}};
        for (uint32_t np = 0; np < state.nps.size(); ++np) {
            values.push_back({"counter" + on_np(np), counter_text(flow.counter[np])});
            values.push_back({"drop counter" + on_np(np), counter_text(flow.drop_counter[np])});
        }
        if (counts)
            values.push_back({"user data", plain_hex({flow.user_data, sizeof flow.user_data})});
        return values;
    }
};

// What NPs have made of their packets grows with each of them.
struct TotalsSection : CountersInUseSection {
    static constexpr const char *name = "totals";
    static constexpr bool tells_missing = false; // the counters in use are told
    static NamedValues values(const Snapshot &state, size_t np, bool counts)
    {
        if (!counts)
            return {};
        const vlc::NpTotals &totals = state.nps[np].totals;
        NamedValues values;
        add_counts(values, {totals.packets, totals.bytes});
        for (uint32_t table = 0; table < vlc::table_kinds; ++table)
            values.push_back(number_value(table_name(table) + " hits", totals.hits[table]));
        values.push_back(number_value("uncounted hits", totals.uncounted_hits));
        values.push_back(number_value("missed packets", totals.missed_packets));
        values.push_back(number_value("encapsulated packets", totals.encapsulated_packets));
        values.push_back(number_value("too long packets", totals.too_long_packets));
        values.push_back(number_value("policed packets", totals.policed_packets));
        return values;
    }
};

// ---- comparing

template <typename Section>
std::vector<size_t> sorted_items(const Snapshot &state)
{
    std::vector<size_t> items = Section::items(state);
    std::ranges::stable_sort(items, [&state](size_t a, size_t b) {
        return Section::order(state, a, state, b) < nullptr;
    });
    return items;
}

void compare_values(const DiffLabels &labels, const NamedValues &first, const NamedValues &second,
                    DiffSink &sink)
{
    const auto value_in = [](const NamedValues &values, size_t place) {
        return place < values.size() ? values[place].value : std::string("-");
    };
    const NamedValues &longer = first.size() < second.size() ? second : first;
    for (size_t place = 0; place < longer.size(); ++place) {
        const DiffField field{longer[place].name, value_in(first, place), value_in(second, place)};
        if (field.first != field.second)
            sink.changed(labels, field);
    }
}

template <typename Section>
void compare_section(const Snapshot &first, const Snapshot &second, bool counts, DiffSink &sink)
{
    const std::vector<size_t> left = sorted_items<Section>(first);
    const std::vector<size_t> right = sorted_items<Section>(second);
    sink.begin(Section::name);
    for (size_t a = 0, b = 0; a < left.size() || b < right.size();) {
        const std::strong_ordering order = a == left.size() ? std::strong_ordering::greater
                                           : b == right.size()
                                               ? std::strong_ordering::less
                                               : Section::order(first, left[a], second, right[b]);
        if (order == nullptr && !Section::is_same(first, left[a], second, right[b], counts))
            compare_values(Section::labels(first, left[a]), Section::values(first, left[a], counts),
                           Section::values(second, right[b], counts), sink);
        if (order < nullptr && Section::tells_missing)
            sink.only_in_first(Section::labels(first, left[a]));
        if (order > nullptr && Section::tells_missing)
            sink.only_in_second(Section::labels(second, right[b]));
        a += order <= nullptr ? 1U : 0U;
        b += order >= nullptr ? 1U : 0U;
    }
    sink.end();
}

struct SectionRow {
    const char *name;
    void (*compare)(const Snapshot &first, const Snapshot &second, bool counts, DiffSink &sink);
};

template <typename Section>
constexpr SectionRow row_of()
{
    return {Section::name, compare_section<Section>};
}

constexpr SectionRow sections[] = {
    row_of<CardSection>(),       row_of<KeysSection>(),          row_of<EntriesSection>(),
    row_of<CountersSection>(),   row_of<CountersInUseSection>(), row_of<RowsSection>(),
    row_of<AttributesSection>(), row_of<VservicesSection>(),     row_of<FlowsSection>(),
    row_of<TotalsSection>(),
};

} // namespace

std::vector<std::string> diff_sections()
{
    std::vector<std::string> names;
    for (const SectionRow &section : sections)
        names.emplace_back(section.name);
    return names;
}

void compare(const Snapshot &first, const Snapshot &second, const DiffSelection &selection,
             DiffSink &sink)
{
    for (const SectionRow &section : sections) {
        if (selection.only.empty() || selection.only.contains(section.name))
            section.compare(first, second, selection.counts, sink);
    }
}

} // namespace inlinectl
