// Flows by number: their keys, and what a table of them asks of its owner.
#pragma once

#include <cstdint>

#include "inline_service_flowdb.h"

namespace bench {

inline uint32_t flow_buckets = 0; // of the table

inline uint64_t flow_key_of(uint64_t number)
{
    number = (number ^ number >> 33) * 0xFF51AFD7ED558CCD;
    return number ^ number >> 29;
}

inline int32_t bucket_of_flow(const void *record)
{
    const uint64_t key = static_cast<const flow_record *>(record)->flow_key;
    return static_cast<int32_t>((key >> 32) * flow_buckets >> 32);
}

inline int32_t has_flow_key(const void *record, const void *key_record)
{
    const auto *flow = static_cast<const flow_record *>(record);
    return flow->flow_key == static_cast<const flow_record *>(key_record)->flow_key ? 1 : 0;
}

} // namespace bench
