// Where a hash table keeps its chains.
#pragma once

#include "inline_service_hash.h"

namespace inline_service {

// What the table knows of an entry.
struct HashLink {
    HashLink *next;
};

inline HashLink **buckets_of(in_hash_table *table)
{
    return reinterpret_cast<HashLink **>(table + 1);
}

// The head of the chain that an entry or key record belongs to; null when its hash is outside the
// table, and for a table that was given no hash function.
inline HashLink **bucket_of(in_hash_table *table, const void *entry)
{
    const uint32_t buckets = table->num_buckets;
    const in_hash_fn hash = table->hash;
    if (hash == nullptr) [[unlikely]]
        return nullptr;
    const auto bucket = static_cast<uint32_t>(hash(entry)); // a negative one is past any end
    return bucket < buckets ? buckets_of(table) + bucket : nullptr;
}

} // namespace inline_service
