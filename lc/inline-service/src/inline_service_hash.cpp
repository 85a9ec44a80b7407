// The chained hash table that lives in shared memory.

#include "inline_service_hash.h"

#include <algorithm>
#include <atomic>
#include <cerrno>

#include "inline_service_hash_bucket.h"
#include "inline_service_log.h"

using namespace inline_service;

namespace {

// Shared by all tables of the process.
void *walker_buffer[IN_HASH_BATCH_MAX];
void *read_buffer[IN_HASH_BATCH_MAX];
int32_t walker_pause = 0; // calls of the walker that do nothing

constexpr uint32_t smallest_quota = 256;

uint32_t usable_batch(uint32_t batch)
{
    return batch == 0 || batch > IN_HASH_BATCH_MAX ? uint32_t{IN_HASH_BATCH_MAX} : batch;
}

// One aligned store, ordered behind what it leads to: a kill at any instruction leaves a whole
// chain.
void publish(HashLink *&place, HashLink *entry)
{
    std::atomic_ref(place).store(entry, std::memory_order_release);
}

// A chain's head and its second entry are fetched while buckets before it are visited; the memory
// of a large table is far away, and each step of a chain waits for the one before.
class ChainsAhead {
public:
    explicit ChainsAhead(in_hash_table *table)
        : buckets_(buckets_of(table)), count_(table->num_buckets)
    {
    }
    void fetch_behind(uint32_t bucket) const
    {
        if (const uint64_t far = uint64_t{bucket} + heads_ahead; far < count_)
            __builtin_prefetch(buckets_[far]);
        if (const uint64_t near = uint64_t{bucket} + seconds_ahead; near < count_) {
            if (const HashLink *head = buckets_[near])
                __builtin_prefetch(head->next);
        }
    }

private:
    static constexpr uint32_t heads_ahead = 64;
    static constexpr uint32_t seconds_ahead = 32;
    HashLink **buckets_;
    uint32_t count_;
};

// Entries on their way to a callback, a batch at a time.
template <typename Callback>
class Batches {
public:
    Batches(void **buffer, uint32_t batch, Callback hand_over)
        : buffer_(buffer), batch_(usable_batch(batch)), hand_over_(hand_over)
    {
    }
    // A link is followed only when the callback has returned.
    uint32_t take_chain(HashLink *entry)
    {
        uint32_t taken = 0;
        for (; entry != nullptr; entry = entry->next, ++taken) {
            buffer_[pending_++] = entry;
            if (pending_ == batch_) {
                pending_ = 0;
                hand_over_(buffer_, batch_);
            }
        }
        return taken;
    }
    uint32_t pending() const { return pending_; }

private:
    void **buffer_;
    uint32_t batch_;
    uint32_t pending_ = 0;
    Callback hand_over_;
};

// How many calls of the walker make a period.
uint32_t calls_in_period(const in_hash_table &table)
{
    const uint32_t interval = table.scan_interval;
    return interval == 0 ? 1 : std::max(table.scan_period / interval, uint32_t{1});
}

} // namespace

in_hash_table *in_hash_init(uint32_t num_buckets, in_hash_table *mem, in_hash_fn hash,
                            in_hash_match_fn match)
{
    if (mem == nullptr) {
        refuse_null("mem");
        return nullptr;
    }
    mem->num_buckets = num_buckets;
    mem->hash = hash;
    mem->match = match;
    mem->scan_cursor = 0;
    return mem;
}

uint32_t in_hash_set_scan_callback(in_hash_table *table, in_hash_scan_fn callback, uint32_t period,
                                   uint32_t batch)
{
    if (table == nullptr)
        return refuse_null("table");
    table->scan_callback = callback;
    table->scan_period = period;
    table->scan_batch = usable_batch(batch);
    table->scan_interval = IN_HASH_SCAN_INTERVAL;
    return IN_HASH_BATCH_MAX;
}

void *in_hash_lookup(in_hash_table *table, const void *key_record)
{
    if (table == nullptr || key_record == nullptr)
        return nullptr;
    const in_hash_match_fn match = table->match;
    HashLink **bucket = bucket_of(table, key_record);
    if (bucket == nullptr || match == nullptr) [[unlikely]]
        return nullptr;
    HashLink *entry = *bucket;
    while (entry != nullptr && match(entry, key_record) != 1)
        entry = entry->next;
    return entry;
}

void in_hash_insert(in_hash_table *table, void *entry)
{
    if (table == nullptr || entry == nullptr) {
        refuse_null(table == nullptr ? "table" : "entry");
        return;
    }
    HashLink **bucket = bucket_of(table, entry);
    if (bucket == nullptr) {
        inline_svc_trace_error("hash of entry %p is outside the table", entry);
        return;
    }
    auto *link = static_cast<HashLink *>(entry);
    link->next = *bucket;
    publish(*bucket, link);
    ++table->count;
}

void in_hash_delete(in_hash_table *table, const void *entry_or_key_record)
{
    if (table == nullptr || entry_or_key_record == nullptr) {
        refuse_null(table == nullptr ? "table" : "entry_or_key_record");
        return;
    }
    HashLink **place = bucket_of(table, entry_or_key_record);
    const in_hash_match_fn match = table->match;
    if (place == nullptr || match == nullptr)
        return;
    HashLink *entry = *place;
    while (entry != nullptr && match(entry, entry_or_key_record) != 1) {
        place = &entry->next;
        entry = *place;
    }
    if (entry == nullptr)
        return;
    publish(*place, entry->next);
    --table->count;
}

void in_hash_periodic_walker(in_hash_table *table)
{
    if (table == nullptr) {
        refuse_null("table");
        return;
    }
    const in_hash_scan_fn scan = table->scan_callback;
    const uint32_t buckets = table->num_buckets;
    if (table->scan_period == 0 || table->count == 0 || buckets == 0 || scan == nullptr)
        return;
    if (walker_pause > 0) {
        --walker_pause;
        return;
    }
    const uint32_t calls = calls_in_period(*table);
    const uint32_t quota = std::max(table->count / calls + 1, smallest_quota);
    uint32_t cursor = table->scan_cursor < buckets ? table->scan_cursor : 0;
    const uint32_t first = cursor;
    const ChainsAhead ahead(table);
    Batches batches(walker_buffer, table->scan_batch, scan);
    uint32_t visited = 0;
    do {
        ahead.fetch_behind(cursor);
        visited += batches.take_chain(buckets_of(table)[cursor]);
        cursor = cursor + 1 < buckets ? cursor + 1 : 0;
        table->scan_cursor = cursor;
    } while (visited < quota && cursor != first);
    if (batches.pending() != 0)
        scan(walker_buffer, batches.pending());
    if (visited == table->count)
        walker_pause = static_cast<int32_t>(calls - 1);
}

uint32_t in_hash_read_all(in_hash_table *table, in_hash_read_fn callback, uint32_t batch)
{
    if (table == nullptr || callback == nullptr)
        return refuse_null(table == nullptr ? "table" : "callback");
    const ChainsAhead ahead(table);
    Batches batches(read_buffer, batch,
                    [callback](void **entries, uint32_t count) { callback(entries, count, 0); });
    for (uint32_t bucket = 0; bucket < table->num_buckets; ++bucket) {
        ahead.fetch_behind(bucket);
        batches.take_chain(buckets_of(table)[bucket]);
    }
    return callback(read_buffer, batches.pending(), 1);
}
