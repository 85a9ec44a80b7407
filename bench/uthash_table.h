// The same flows in a table of uthash, whose macros follow no warning's rules.
#pragma once

#include <vector>

#include "hash_peers.h"

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wold-style-cast"
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wsign-conversion"
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"
#pragma GCC diagnostic ignored "-Wcast-align"
#pragma GCC diagnostic ignored "-Wnull-dereference"
#include <uthash.h>

namespace bench {

class UthashTable {
public:
    explicit UthashTable(FilledTable &filled) : records_(filled.flows.size())
    {
        for (size_t number = 0; number < records_.size(); ++number) {
            Record *record = &records_[number];
            record->flow = filled.flows.at(number).flow;
            HASH_ADD(hh, head_, flow.key, sizeof record->flow.key, record);
        }
    }
    ~UthashTable() { HASH_CLEAR(hh, head_); }
    UthashTable(const UthashTable &) = delete;
    UthashTable &operator=(const UthashTable &) = delete;

    const Flow *find(uint64_t key)
    {
        Record *found = nullptr;
        HASH_FIND(hh, head_, &key, sizeof key, found);
        if (found == nullptr)
            no_such_flow();
        return &found->flow;
    }

private:
    struct Record {
        UT_hash_handle hh;
        Flow flow;
    };
    std::vector<Record> records_;
    Record *head_ = nullptr;
};

} // namespace bench
#pragma GCC diagnostic pop
