#include "utility_answers.h"

#include <algorithm>
#include <bit>
#include <cinttypes>
#include <cstdio>
#include <stdexcept>

#include "inline_service_context.h"
#include "inline_service_packet.h"
#include "inline_service_stat.h"
#include "service_error.h"

namespace services {

namespace {

// The library calls plain functions, so what they need stands here while there are answers.
std::optional<UtilitySources> sources;

constexpr uint32_t bits_of_word = 32;

struct CounterSums {
    uint64_t in_use = 0; // bits of the bitmap
    uint64_t packets = 0;
    uint64_t bytes = 0;
    uint64_t dropped = 0;
};

uint64_t in_use(const shadow_db &root, uint32_t np)
{
    const uint32_t *bitmap = root.counters[np];
    if (bitmap == nullptr)
        return 0;
    uint64_t bits = 0;
    for (uint32_t word = 0; word < sources->counter_count / bits_of_word; ++word)
        bits += static_cast<uint64_t>(std::popcount(bitmap[word]));
    return bits;
}

bool has_counters(const shmem_node &node)
{
    return node.app_node.table_type == SHADOW_DB_EXT_CONF ||
           node.app_node.hw_index != SHADOW_DB_NO_HW_INDEX;
}

void add_counts(const StoredKey &key, uint32_t np, CounterSums &sums)
{
    for (const StoredNode &node : key.nodes) {
        if (!node.has_row || !has_counters(node.content))
            continue;
        stats_sum received{};
        stats_sum dropped{};
        inline_svc_get_stat_per_np(np, node.content.stat_index_rx[np], &received);
        inline_svc_get_stat_per_np(np, node.content.stat_index_drop[np], &dropped);
        sums.packets += received.first;
        sums.bytes += received.second;
        sums.dropped += dropped.first;
    }
}

uint32_t answer_counters(const void *message, FILE *result, uint32_t)
{
    const auto &asked = *static_cast<const UtilityMessage *>(message);
    const shadow_db *root = pshadow_db;
    const auto keys = StoredTables(root, sources->in_shared_memory).keys();
    std::fprintf(result, "Packet counters, %" PRIu32 " an NP\n", sources->counter_count);
    std::fprintf(result, "NP    in use      free       packets           bytes       dropped\n");
    for (uint32_t np = 0; np < pgbl_ptr->num_nps; ++np) {
        if (asked.about != UtilityMessage::all && asked.about != np)
            continue;
        CounterSums sums{.in_use = in_use(*root, np)};
        for (const auto &[number, key] : keys)
            add_counts(key, np, sums);
        std::fprintf(result,
                     "%2" PRIu32 "  %8" PRIu64 "  %8" PRIu64 "  %12" PRIu64 "  %14" PRIu64
                     "  %12" PRIu64 "\n",
                     np, sums.in_use, sources->counter_count - sums.in_use, sums.packets,
                     sums.bytes, sums.dropped);
    }
    return 0;
}

uint64_t nodes_in(const StoredKey &key, uint32_t table)
{
    return static_cast<uint64_t>(std::ranges::count_if(key.nodes, [table](const StoredNode &node) {
        return node.content.app_node.table_type == table;
    }));
}

uint32_t answer_shadow(const void *message, FILE *result, uint32_t)
{
    const auto &asked = *static_cast<const UtilityMessage *>(message);
    const StoredTables tables(pshadow_db, sources->in_shared_memory);
    std::fprintf(result, "Shadow DB\n");
    std::fprintf(result, " key  type  index      app id   version  service config  ext conf\n");
    uint64_t sums[SHADOW_DB_TABLES] = {};
    size_t shown = 0;
    for (const auto &[number, key] : tables.keys()) {
        if (asked.about != UtilityMessage::all && asked.about != number)
            continue;
        const uint64_t here[] = {nodes_in(key, SHADOW_DB_SERVICE_CONFIG),
                                 nodes_in(key, SHADOW_DB_EXT_CONF)};
        std::fprintf(result,
                     "%4" PRIu32 "  %4" PRIu32 "  %5" PRIu32 "  %10" PRIu32 "  %8" PRIu32
                     "  %14" PRIu64 "  %8" PRIu64 "\n",
                     number, number / 256 + 1, number % 256, key.content.app_ID,
                     key.content.entry_version, here[0], here[1]);
        for (size_t table = 0; table < SHADOW_DB_TABLES; ++table)
            sums[table] += here[table];
        ++shown;
    }
    std::fprintf(result, "%4zu in all%40" PRIu64 "  %8" PRIu64 "\n", shown, sums[0], sums[1]);
    std::fprintf(result, "Flows %zu\n", tables.flows().size());
    return 0;
}

void write_row(FILE *result, const std::string &name, const std::string &value)
{
    std::fprintf(result, "%-22s  %s\n", name.c_str(), value.c_str());
}

uint32_t answer_connection(const void *, FILE *result, uint32_t)
{
    const shadow_db &root = *pshadow_db;
    const auto ready = [](uint16_t state) { return (state & SHADOW_DB_READY) != 0; };
    std::fprintf(result, "Connection to PRM\n");
    write_row(result, "manager", ready(root.prm_state) ? "open" : "not open");
    write_row(result, "connection", ready(root.conn_state) ? "up, registered" : "down");
    write_row(result, "request handle", root.prm_srh_hdl != nullptr ? "given" : "none");
    write_row(result, "NPs", std::to_string(pgbl_ptr->num_nps));
    write_row(result, "counter bitmaps", root.stats_state == 1 ? "kept" : "made anew");
    if (sources->connection) {
        for (const auto &[name, value] : sources->connection())
            write_row(result, name, value);
    }
    return 0;
}

// What cannot be read is the answer then: nothing may be thrown through the library.
template <uint32_t (*Answer)(const void *, FILE *, uint32_t)>
uint32_t answer_or_say_why(const void *message, FILE *result, uint32_t kind)
{
    try {
        return Answer(message, result, kind);
    } catch (const std::exception &unreadable) {
        std::fprintf(result, "cannot be read: %s\n", unreadable.what());
        return EIO;
    }
}

struct Registration {
    UtilityKind kind;
    inutil_handler_fn handler;
};
constexpr Registration registrations[] = {
    {UtilityKind::counters, answer_or_say_why<answer_counters>},
    {UtilityKind::shadow, answer_or_say_why<answer_shadow>},
    {UtilityKind::connection, answer_or_say_why<answer_connection>},
};

} // namespace

UtilityAnswers::UtilityAnswers(UtilitySources from)
{
    if (sources)
        throw std::logic_error("this process answers utility messages already");
    sources = std::move(from);
    for (const Registration &one : registrations)
        inline_register_inutil_callback(static_cast<uint32_t>(one.kind), one.handler);
}

UtilityAnswers::~UtilityAnswers()
{
    for (const Registration &one : registrations)
        inline_register_inutil_callback(static_cast<uint32_t>(one.kind), nullptr);
    sources.reset();
}

} // namespace services
