// Packet counters: the bitmap of those in use on each NP, and the pass that reads them.

#include "inline_service_stat.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <climits>
#include <cstddef>

#include "inline_service_context.h"
#include "inline_service_counter_scan.h"
#include "inline_service_log.h"
#include "platform_error_text.h"
#include "platform_prm_stats.h"

using namespace inline_service;

namespace {

constexpr uint32_t counters_per_word = 32;

// The most significant bit of a word is its lowest counter.
constexpr uint32_t bit_of(uint32_t position)
{
    return UINT32_C(0x80000000) >> position;
}

uint32_t *make_bitmap(uint32_t np, uint64_t counter_word_per_np)
{
    // Kept: a byte count taken from a count of counters. It is generous, and covers the one word
    // more than the region that allocation and freeing reach.
    const uint64_t bytes = counter_word_per_np + 8;
    if (np >= SHADOW_DB_MAX_NPS || bytes > INT32_MAX)
        return nullptr;
    return static_cast<uint32_t *>(inline_svc_shared_mem_alloc(static_cast<int32_t>(bytes)));
}

} // namespace

uint32_t inline_svc_stats_init(void)
{
    if (pgbl_ptr == nullptr || pgbl_ptr->shadow_db == nullptr) {
        refuse_null(pgbl_ptr == nullptr ? "pgbl_ptr" : "pgbl_ptr->shadow_db");
        return ENOMEM;
    }
    shadow_db &root = *pgbl_ptr->shadow_db;
    NUM_LC_NPS = pgbl_ptr->num_nps;
    prm_stats_cl_pre_init();
    if (root.stats_state == 1) // the bitmaps of an earlier run belong to the surviving entries
        return 0;

    uint32_t size = prm_stats_cl_get_stateless_double_size();
    inline_svc_trace("Total counters available for inline service on this LC%d", size);
    size = prm_stats_cl_get_stateless_double_size();
    const uint64_t whole = (uint64_t{size} & ~uint64_t{counters_per_word - 1}) + counters_per_word;
    const auto counter_word_per_np = static_cast<uint32_t>(whole);
    inline_svc_trace("counter_word_per_np %d", counter_word_per_np);

    uint32_t rc = 0;
    for (uint32_t np = 0; np < NUM_LC_NPS; ++np) {
        uint32_t *bitmap = make_bitmap(np, whole);
        if (np < SHADOW_DB_MAX_NPS)
            root.counters[np] = bitmap;
        if (bitmap == nullptr) {
            // Kept: the text is that of the code so far, so the first failure prints that of 0.
            inline_svc_trace_error("counter alloc failed: chip:%d,%s", np, cerr_strerror(rc));
            rc = EINVAL;
        }
    }
    return rc;
}

uint32_t inline_svc_alloc_counter(uint32_t *counter, uint32_t np_id, uint32_t clear)
{
    if (pgbl_ptr == nullptr) {
        inline_svc_trace_error("Global pgbl_ptr is not initialized");
        inline_svc_trace_error("Shared memory context NULL");
        return ENOMEM;
    }
    if (np_id >= pgbl_ptr->num_nps || np_id >= SHADOW_DB_MAX_NPS) {
        inline_svc_trace_error("NP id out of bounds");
        return EINVAL;
    }
    if (pgbl_ptr->shadow_db == nullptr || pgbl_ptr->shadow_db->counters[np_id] == nullptr) {
        inline_svc_trace_error("Shared memory context NULL");
        return ENOMEM;
    }
    if (counter == nullptr)
        return refuse_null("counter");
    uint32_t *bitmap = pgbl_ptr->shadow_db->counters[np_id];
    const uint32_t size = prm_stats_cl_get_stateless_double_size();
    inline_svc_trace("max_long_counter %x", size);
    const uint32_t start = prm_stats_cl_get_stateless_double_start();
    inline_svc_trace("counter_start %x", start);

    // Kept: one word more than the region, as far as freeing reaches too.
    uint32_t *const end = bitmap + size / counters_per_word + 1;
    uint32_t *const free_word = first_word_with_room(bitmap, end);
    if (free_word == end) {
        inline_svc_trace_error("No free long counters available");
        return ENOMEM;
    }
    const auto word = static_cast<uint32_t>(free_word - bitmap);
    inline_svc_trace("Found free counter at word %x", word);
    const auto position = static_cast<uint32_t>(std::countl_one(*free_word));
    *free_word |= bit_of(position);
    *counter = start + counters_per_word * word + position;
    inline_svc_trace("Found free counter at word %x", word);
    if (clear == 0)
        return 0;
    uint32_t mode = PRM_STATS_MODE;
    const uint32_t rc = prm_stats_cl_read(pgbl_ptr->prm_conn, *counter, np_id, &mode, nullptr,
                                          nullptr, PRM_STATS_READ_AND_CLEAR);
    if (rc != 0) // Kept: the counter is the caller's all the same
        inline_svc_trace_error("prm stats write failed (%s)", cerr_strerror(rc));
    return 0;
}

uint32_t inline_svc_free_counter(uint32_t counter, uint32_t np_id)
{
    if (np_id >= NUM_LC_NPS || np_id >= SHADOW_DB_MAX_NPS) {
        inline_svc_trace_error("NP id out of bounds");
        return EINVAL;
    }
    if (pshadow_db == nullptr || pshadow_db->counters[np_id] == nullptr) {
        inline_svc_trace_error("Shared memory context NULL");
        return EINVAL;
    }
    const uint32_t size = prm_stats_cl_get_stateless_double_size();
    const uint32_t start = prm_stats_cl_get_stateless_double_start();
    // Kept: the region's end counts as inside.
    if (counter < start || uint64_t{counter} > uint64_t{start} + size) {
        const uint32_t max = start + size;
        static constexpr char text[] = " stats ptr %d out of bounds, start:%d, max:%d";
        inline_svc_trace_error(text, counter, start, max);
        return EINVAL;
    }
    const uint32_t place = counter - start;
    pshadow_db->counters[np_id][place / counters_per_word] &= ~bit_of(place % counters_per_word);
    return 0;
}

namespace {

enum StatPhase : uint32_t { stat_entry = 0, stat_begin = 1, stat_end = 2 };

inline_svc_app_stats_fn stats_handler_of(uint32_t app_type)
{
    return pgbl_ptr != nullptr ? pgbl_ptr->app_stats_handler[app_type] : nullptr;
}

main_entry *stored_entry(uint32_t uidb_index)
{
    if (pshadow_db == nullptr || pshadow_db->main_table == nullptr)
        return nullptr;
    return pshadow_db->main_table[uidb_index & 0xFFFF];
}

// Behind its users: numbers of sites follow their order.
void say_unread(uint32_t np, uint32_t rc);

[[gnu::always_inline]] inline stats_sum counted_by(void *client, uint32_t np, uint32_t counter)
{
    uint32_t mode = PRM_STATS_MODE;
    uint64_t words[2] = {};
    uint64_t unused = 0;
    const uint32_t rc =
        prm_stats_cl_read(client, counter, np, &mode, words, &unused, PRM_STATS_READ);
    if (rc != 0) [[unlikely]] {
        say_unread(np, rc);
        return {};
    }
    return {static_cast<uint32_t>(words[0]), static_cast<uint32_t>(words[1])};
}

// Of a node that cannot be read, the counters that it does not have are said all the same.
[[gnu::cold]] void say_missing_counters(const shmem_node &node)
{
    const uint32_t nps = std::min<uint32_t>(NUM_LC_NPS, SHADOW_DB_MAX_NPS);
    for (uint32_t np = 0; np < nps; ++np)
        inline_svc_get_stat_per_np(np, node.stat_index_rx[np], nullptr);
}

// A pass is little more than a card's eight reads of each node. So they are written out into the
// walk, and the sum stays in registers: in memory each addition would wait for the one before.
[[gnu::always_inline]] inline stats_sum counted_by_all(const shmem_node &node)
{
    if (pgbl_ptr == nullptr) [[unlikely]] {
        say_missing_counters(node);
        return {};
    }
    stats_sum sum = {};
    const uint32_t nps = NUM_LC_NPS;
    void *client = pgbl_ptr->prm_conn; // a read changes neither
#pragma GCC unroll 8
    for (uint32_t np = 0; np < SHADOW_DB_MAX_NPS; ++np) {
        if (np >= nps)
            break;
        const uint32_t counter = node.stat_index_rx[np];
        if (counter == 0) [[unlikely]] {
            inline_svc_get_stat_per_np(np, counter, nullptr); // says so
            continue;
        }
        const stats_sum counted = counted_by(client, np, counter);
        // Kept: sums wrap at 32 bits.
        sum.first += counted.first;
        sum.second += counted.second;
    }
    return sum;
}

// Nodes of a list may lie anywhere in the window. While one is read the next one is on its way: its
// link, and what the pass reads of it. Nothing is read here, so a node that is let go meanwhile, or
// a link that leads nowhere, does no harm.
inline void fetch_ahead(const list_link *next)
{
    const auto node = reinterpret_cast<uintptr_t>(next);
    constexpr size_t last_counter =
        offsetof(shmem_node, stat_index_rx) + sizeof(uint32_t) * (SHADOW_DB_MAX_NPS - 1);
    for (const size_t offset : {size_t{0}, offsetof(shmem_node, app_node.entry_id), last_counter})
        __builtin_prefetch(reinterpret_cast<const void *>(node + offset));
}

constexpr uint32_t keys_at_once = 8;
static_assert(SHADOW_DB_MAIN_SLOTS % keys_at_once == 0);
constexpr uint32_t nodes_at_once = 64; // of a list: all that is fetched at once fits into a cache
constexpr uintptr_t near_by = 1024;    // nodes so near each other the machine fetches by itself

// Follows the lists of the next keys side by side, for the pass to find their nodes in the cache:
// one list alone gives a node each time that the memory answers, and the memory is far away. Only
// keys that are reported are looked at, a list no further than the pass walks it, and no callback
// comes in between, so that each node is what its list says it is.
void fetch_lists_of(uint32_t first_key)
{
    const list_link *chains[keys_at_once * SHADOW_DB_TABLES];
    size_t count = 0;
    for (uint32_t key = first_key; key < first_key + keys_at_once; ++key) {
        const main_entry *main = pshadow_db->main_table[key];
        if (main == nullptr)
            continue;
        const uint32_t app_type = inline_shadow_db_key_to_apptype(key);
        if (app_type == 0 || stats_handler_of(app_type) == nullptr)
            continue;
        for (const list_record &table : main->table_array) {
            fetch_ahead(table.first);
            if (table.first != nullptr)
                chains[count++] = table.first;
        }
    }
    for (uint32_t step = 0; step < nodes_at_once && count != 0; ++step) {
        size_t left = 0;
        for (size_t i = 0; i < count; ++i) {
            const list_link *next = chains[i]->next;
            const uintptr_t step_length =
                reinterpret_cast<uintptr_t>(next) - reinterpret_cast<uintptr_t>(chains[i]);
            if (next == nullptr || chains[i]->data == nullptr || step_length < near_by)
                continue;
            fetch_ahead(next);
            chains[left++] = next;
        }
        count = left;
    }
}

} // namespace

uint32_t inline_svc_stats_collection(void)
{
    if (pshadow_db == nullptr)
        inline_svc_assert(FALSE);
    for (uint32_t uidb_index = 0;
         pshadow_db->main_table != nullptr && uidb_index < SHADOW_DB_MAIN_SLOTS; ++uidb_index) {
        if (uidb_index % keys_at_once == 0)
            fetch_lists_of(uidb_index);
        if (pshadow_db->main_table[uidb_index] != nullptr)
            inline_svc_main_index_collect_stat(uidb_index);
    }
    return 0;
}

void inline_svc_main_index_collect_stat(uint32_t uidb_index)
{
    const uint32_t app_type = inline_shadow_db_key_to_apptype(uidb_index & 0xFFFF);
    if (app_type == 0) {
        inline_svc_trace_error("Invalid app_type %d", app_type);
        return;
    }
    const inline_svc_app_stats_fn report = stats_handler_of(app_type);
    if (report == nullptr) {
        inline_svc_trace_error("stat callback is not initialized");
        return;
    }
    main_entry *main = stored_entry(uidb_index);
    if (main == nullptr)
        return;
    report(uidb_index, 0, stat_begin, 0, 0);
    for (const list_record &table : main->table_array) {
        const list_link *next = nullptr; // read before the callback, which may let the node go
        for (const list_link *link = table.first; link != nullptr; link = next) {
            next = link->next;
            fetch_ahead(next);
            auto *node = static_cast<shmem_node *>(link->data);
            if (node == nullptr)
                return; // Kept: no end call
            if (node->app_node.entry_id == SHADOW_DB_NO_ENTRY_ID)
                continue;
            const stats_sum sum = counted_by_all(*node);
            report(uidb_index, node->app_node.entry_id, stat_entry, sum.first, sum.second);
            if (stored_entry(uidb_index) != main) // the callback let the whole key go
                return;
        }
    }
    ++main->stat_round;
    report(uidb_index, 0, stat_end, main->stat_round, 0);
}

void inline_svc_node_get_stat(shmem_node *node, stats_sum *sum)
{
    if (node == nullptr)
        return;
    if (sum == nullptr) {
        say_missing_counters(*node);
        return;
    }
    const stats_sum counted = counted_by_all(*node);
    sum->first += counted.first;
    sum->second += counted.second;
}

void inline_svc_get_stat_per_np(uint32_t np, uint32_t counter, stats_sum *sum)
{
    if (np >= NUM_LC_NPS) {
        inline_svc_trace_error(" Bad chan_id : %d ", np);
        return;
    }
    if (counter == 0) {
        inline_svc_trace_error(" Bad stat ptr : %x ", counter);
        return;
    }
    if (pgbl_ptr == nullptr || sum == nullptr)
        return;
    const stats_sum counted = counted_by(pgbl_ptr->prm_conn, np, counter);
    sum->first += counted.first;
    sum->second += counted.second;
}

namespace {

void say_unread(uint32_t np, uint32_t rc)
{
    const char *error = prm_stats_err_string(rc);
    INLINE_SVC_SITE(ED_ERROR_BUFFER, "inline_svc_get_stat_per_np",
                    " Cannot read stat  stats of chip %d for , RC= %s\n", np, error);
}

} // namespace

uint32_t inline_svc_stats_delay_delete_handler(void)
{
    return 0;
}
