// What the tests of the hash table share: a table and entries in memory of the test's own, hash and
// match functions that keep what they were asked, and callbacks that keep what they were given.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "inline_service_hash.h"
#include "log_file.h"
#include "service_recorder.h"

namespace test {

// An entry: the chain's link, and what is the owner's alone.
struct HashEntry {
    HashEntry *next;
    uint64_t key;
    uint64_t own;
};

using Entries = std::vector<HashEntry *>;

// One call of a callback. The scan callback has no `last`.
struct HandedOver {
    Entries entries;
    uint32_t last = 0;
    bool operator==(const HandedOver &) const = default;
};

// What the functions of the tests' tables are told to do, and what they saw: plain functions have
// no other place for it.
struct HashFunctions {
    uint32_t buckets = 1;
    std::optional<int32_t> bucket; // of every record, instead of that of its key
    int32_t found = 1;             // what a match says of two equal keys
    int32_t not_found = 0;
    std::vector<const void *> hashed;
    std::vector<std::pair<const void *, const void *>> compared;
    std::vector<HandedOver> handed_over;
    std::function<void()> during_callback;
    std::deque<uint32_t> read_results; // of the next calls; 0 behind them
};

inline HashFunctions functions;

inline int32_t hash_of_entry(const void *record)
{
    functions.hashed.push_back(record);
    if (functions.bucket)
        return *functions.bucket;
    return static_cast<int32_t>(static_cast<const HashEntry *>(record)->key % functions.buckets);
}

inline int32_t match_of_entries(const void *entry, const void *key_record)
{
    functions.compared.emplace_back(entry, key_record);
    const bool is_same = static_cast<const HashEntry *>(entry)->key ==
                         static_cast<const HashEntry *>(key_record)->key;
    return is_same ? functions.found : functions.not_found;
}

inline void keep_entries(void **entries, uint32_t count, uint32_t last)
{
    auto **first = reinterpret_cast<HashEntry **>(entries);
    functions.handed_over.push_back({{first, first + count}, last});
    if (functions.during_callback)
        functions.during_callback();
}

inline void keep_scan(void **entries, uint32_t count)
{
    keep_entries(entries, count, 0);
}

inline uint32_t keep_read(void **entries, uint32_t count, uint32_t last)
{
    keep_entries(entries, count, last);
    if (functions.read_results.empty())
        return 0;
    const uint32_t result = functions.read_results.front();
    functions.read_results.pop_front();
    return result;
}

// A table in a zeroed block of exactly its size.
class HashTable {
public:
    explicit HashTable(uint32_t buckets)
        : words_((56 + 8 * size_t{buckets}) / sizeof(uint64_t)),
          table_(in_hash_init(buckets, memory(), hash_of_entry, match_of_entries))
    {
        functions.buckets = buckets;
    }
    in_hash_table *get() { return table_; }
    in_hash_table *operator->() { return table_; }
    in_hash_table *memory() { return reinterpret_cast<in_hash_table *>(words_.data()); }
    HashEntry *head(uint32_t bucket) const
    {
        return reinterpret_cast<HashEntry *>(words_.at(56 / sizeof(uint64_t) + bucket));
    }
    const std::vector<uint64_t> &words() const { return words_; }

private:
    std::vector<uint64_t> words_;
    in_hash_table *table_;
};

class HashTest : public ::testing::Test {
protected:
    HashTest()
    {
        functions = {};
        end_pause_of_walker();
        functions = {};
    }
    ~HashTest() override { functions = {}; }

    // What was logged in this case.
    std::vector<std::string> log() const { return log_messages_since(log_mark_); }

    // An entry that lives as long as the test, in no table yet. Its link points nowhere good.
    HashEntry *make(uint64_t key)
    {
        entries_.push_back({reinterpret_cast<HashEntry *>(0xBAD), key, 0xC0FFEE});
        return &entries_.back();
    }
    HashEntry *insert(HashTable &table, uint64_t key)
    {
        HashEntry *entry = make(key);
        in_hash_insert(table.get(), entry);
        return entry;
    }
    // Entries with keys 0 to count - 1.
    void fill(HashTable &table, uint32_t count)
    {
        for (uint32_t key = 0; key < count; ++key)
            insert(table, key);
    }
    static HashEntry key_record(uint64_t key) { return {nullptr, key, 0}; }
    static void *lookup(HashTable &table, uint64_t key)
    {
        const HashEntry record = key_record(key);
        return in_hash_lookup(table.get(), &record);
    }
    static void remove(HashTable &table, uint64_t key)
    {
        const HashEntry record = key_record(key);
        in_hash_delete(table.get(), &record);
    }
    static Entries chain(const HashTable &table, uint32_t bucket)
    {
        Entries found;
        for (HashEntry *entry = table.head(bucket); entry != nullptr; entry = entry->next)
            found.push_back(entry);
        return found;
    }

    // What the callbacks were given, which is then forgotten.
    static std::vector<HandedOver> handed_over()
    {
        return std::exchange(functions.handed_over, {});
    }
    static std::vector<size_t> sizes(const std::vector<HandedOver> &calls)
    {
        std::vector<size_t> counts;
        for (const HandedOver &call : calls)
            counts.push_back(call.entries.size());
        return counts;
    }
    static std::vector<uint64_t> keys(const std::vector<HandedOver> &calls)
    {
        std::vector<uint64_t> found;
        for (const HandedOver &call : calls) {
            for (const HashEntry *entry : call.entries)
                found.push_back(entry->key);
        }
        return found;
    }

    ServiceRecorder services;

private:
    // The pause is the process's, and what ran before in this one may have left one.
    void end_pause_of_walker()
    {
        HashTable one(1);
        insert(one, 0);
        in_hash_set_scan_callback(one.get(), keep_scan, 20, 1);
        while (functions.handed_over.empty())
            in_hash_periodic_walker(one.get());
    }

    std::deque<HashEntry> entries_; // never moved
    size_t log_mark_ = log_messages().size();
};

} // namespace test
