// The library without its lines, on a platform of stand-ins.
#include "insert_paths.h"

namespace {

constexpr bench::HotPath paths[] = {
    {"insert, 8 NPs, lines left out", [] { bench::count_inserts(false); }},
    {"insert with counters, 8 NPs, lines left out", [] { bench::count_inserts(true); }},
};

} // namespace

const std::span<const bench::HotPath> bench::hot_paths = paths;
