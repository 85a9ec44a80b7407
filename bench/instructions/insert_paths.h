// Inserts that are counted, in a library with its lines or without.
#pragma once

#include "hot_path.h"
#include "inserted_entry.h"

namespace bench {

inline void count_inserts(bool with_counters)
{
    constexpr int at_once = 10;
    InsertedEntries entries(with_counters);
    const auto insert_some = [&] {
        for (int i = 0; i < at_once; ++i)
            entries.insert();
    };
    for (int i = 0; i < 2; ++i) { // what is only done once
        insert_some();
        entries.forget_others();
    }
    for (int round = 0; round < 20; ++round) {
        count_instructions(at_once, insert_some);
        entries.forget_others();
    }
}

} // namespace bench
