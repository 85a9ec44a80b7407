#include "evidence_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iomanip>
#include <string>
#include <string_view>
#include <vector>

#include "answer_table.h"
#include "entry_names.h"
#include "flow_layout.h"
#include "hardware_failures.h"
#include "inline_service_shadowdb.h"
#include "numbers.h"
#include "platform_error_text.h"
#include "utc_time.h"
#include "vlc/data_plane.h"
#include "vlc/event_debug.h"

namespace inlinectl {
namespace {

using Span = std::span<const uint8_t>;

constexpr const char *library_component = "inlc";
constexpr size_t trace_events = 200;
constexpr int label_columns = 12;

std::string hexadecimal(uint32_t number)
{
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08x", number);
    return text.data();
}

void row(std::ostream &out, std::string_view label, const std::string &value)
{
    out << std::left << std::setw(label_columns) << label << value << '\n';
}

uint32_t table_of(const prm_async_response &answer)
{
    return number_of_table(answer.refnum, answer.flags);
}

Span key_of(const prm_async_response &answer)
{
    return {answer.key, std::min<size_t>(answer.key_size, sizeof answer.key)};
}

void key_rows(std::ostream &out, uint32_t table, Span key)
{
    if (const std::string name = key_name(table, key); !name.empty())
        row(out, "entry", name);
    row(out, "key", spaced_hex(key));
}

// Whether a node of the shadow DB is the one that the answer speaks of.
bool is_of(const shmem_node &node, const prm_async_response &answer)
{
    const app_node &stored = node.app_node;
    return stored.table_type == table_of(answer) && stored.key_len <= sizeof stored.key &&
           std::ranges::equal(Span(stored.key, stored.key_len), key_of(answer));
}

void write_node(std::ostream &out, uint32_t main_key, const shmem_node &node, uint32_t num_nps)
{
    const app_node &stored = node.app_node;
    row(out, "main key",
        std::to_string(main_key) + " (application type " +
            std::to_string(inline_shadow_db_key_to_apptype(main_key)) + ", id " +
            std::to_string(inline_shadow_db_key_to_appid(main_key)) + ")");
    row(out, "entry id", std::to_string(stored.entry_id));
    row(out, "table", table_name(stored.table_type));
    row(out, "action", std::to_string(stored.action));
    row(out, "hw index", hexadecimal(stored.hw_index));
    key_rows(out, stored.table_type, {stored.key, stored.key_len});
    row(out, "result",
        spaced_hex({stored.result, std::min<size_t>(stored.result_len, sizeof stored.result)}));
    for (uint32_t np = 0; np < num_nps && np < SHADOW_DB_MAX_NPS; ++np)
        row(out, "NP " + std::to_string(np),
            "received " + hexadecimal(node.stat_index_rx[np]) + ", dropped " +
                hexadecimal(node.stat_index_drop[np]));
}

std::string count_text(const vlc::PacketCount &count)
{
    return counted(count.packets, "packet", "packets") + ", " +
           counted(count.bytes, "byte", "bytes");
}

void write_flow_counters(std::ostream &out, uint32_t np, Span result, vlc::CardAccess &card)
{
    const uint32_t address =
        flow_layout::is_flow_result(result) ? flow_layout::counter_address(result) : 0;
    bool is_known = false;
    card.for_each_counter_run(np, [&](const vlc::CounterRun &run) {
        if (vlc::DynamicCounters::address_of(run.first) != address)
            return;
        is_known = true;
        for (uint32_t i = 0; i < run.length; ++i)
            row(out, "",
                "counter " + hexadecimal(run.first + i) + ": " + count_text(run.counts[i]));
    });
    if (!is_known)
        row(out, "", address == 0 ? "names no counter" : "names a counter that is not in use");
}

void write_np_row(std::ostream &out, uint32_t np, vlc::TableKind table, const vlc::TableRow &stored,
                  vlc::CardAccess &card)
{
    const std::string of_np = "NP " + std::to_string(np);
    row(out, of_np, spaced_hex(stored.result_span()));
    if (table == vlc::TableKind::flow)
        return write_flow_counters(out, np, stored.result_span(), card);
    const bool unswapped = vlc::takes_counters_unswapped(card.config().card_type);
    const uint32_t counter = vlc::counter_in_result(stored.result_span(), unswapped);
    const int64_t place = vlc::CounterBank::place(counter);
    if (place < 0) {
        row(out, "", "names no counter");
        return;
    }
    const vlc::PacketCount count = card.counter(np, static_cast<uint32_t>(place));
    row(out, "", "counter " + hexadecimal(counter) + ": " + count_text(count));
}

} // namespace

void write_answer(std::ostream &out, const prm_async_response &answer, int64_t read_at)
{
    out << "A request that the hardware did not carry out.\n\n";
    row(out, "read", utc_text(read_at));
    row(out, "NP", std::to_string(answer.np));
    row(out, "table", table_name(table_of(answer)));
    row(out, "operation", operation_name(answer.refnum >> PRM_REFNUM_OP_SHIFT & 0xFF));
    row(out, "status", hexadecimal(answer.status) + " " + cerr_strerror(answer.status));
    row(out, "reference", hexadecimal(answer.refnum));
    row(out, "flags", hexadecimal(answer.flags));
    key_rows(out, table_of(answer), key_of(answer));
    row(out, "result",
        spaced_hex({answer.result, std::min<size_t>(answer.result_size, sizeof answer.result)}));
}

void write_shadow_entry(std::ostream &out, const prm_async_response &answer, const shadow_db *root,
                        uint32_t num_nps)
{
    out << "The entry in the shadow DB, when the answer had been read.\n\n";
    size_t found = 0;
    const uint32_t table = table_of(answer);
    for (uint32_t key = 0; table < SHADOW_DB_TABLES && root != nullptr &&
                           root->main_table != nullptr && key < SHADOW_DB_MAIN_SLOTS;
         ++key) {
        const main_entry *entry = root->main_table[key];
        const list_link *link = entry != nullptr ? entry->table_array[table].first : nullptr;
        for (; link != nullptr; link = link->next) {
            const auto *node = static_cast<const shmem_node *>(link->data);
            if (node == nullptr || !is_of(*node, answer))
                continue;
            write_node(out, key, *node, num_nps);
            ++found;
        }
    }
    if (found == 0)
        out << "none with this key\n";
}

void write_np_rows(std::ostream &out, const prm_async_response &answer, vlc::CardAccess &card)
{
    out << "The result of the row with this key, NP by NP.\n\n";
    if (table_of(answer) >= vlc::table_kinds) {
        out << "no such table\n";
        return;
    }
    const auto table = static_cast<vlc::TableKind>(table_of(answer));
    for (uint32_t np = 0; np < card.config().num_nps; ++np) {
        std::optional<vlc::TableRow> stored;
        card.for_each_row(np, table, [&](const vlc::TableRow &one) {
            if (std::ranges::equal(one.key_span(), key_of(answer)))
                stored = one;
        });
        if (stored)
            write_np_row(out, np, table, *stored, card);
        else
            row(out, "NP " + std::to_string(np), "no row");
    }
}

void write_trace(std::ostream &out)
{
    struct Traced {
        const char *buffer;
        vlc::TraceEvent event;
    };
    out << "What the library said last, in both trace buffers.\n\n";
    const vlc::EventDebug &registry = vlc::EventDebug::instance();
    const ed_component *library = registry.component(library_component);
    if (library == nullptr)
        return;
    std::vector<Traced> traced;
    for (const uint32_t buffer : {ED_EVENT_BUFFER, ED_ERROR_BUFFER})
        for (vlc::TraceEvent &event : registry.events(library, buffer))
            traced.push_back({buffer == ED_ERROR_BUFFER ? "error" : "event", std::move(event)});
    std::ranges::stable_sort(traced, {}, [](const Traced &one) { return one.event.nanoseconds; });
    const size_t first = traced.size() - std::min(traced.size(), trace_events);
    for (size_t i = first; i < traced.size(); ++i)
        out << utc_text(traced[i].event.nanoseconds) << ' ' << traced[i].buffer << ' '
            << vlc::trace_line(*library, traced[i].event) << '\n';
}

} // namespace inlinectl
