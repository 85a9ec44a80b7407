// Two ways to do the same work, measured in turns within one run.
//
// A machine's neighbours move a time by a third and a ratio by little: so ours and the reference
// are given short slices one after the other, in changing order, and what counts is the median of
// the slices' ratios, with its 10th and 90th percentile. Each pair of this kind is a benchmark
// whose counters say both times, the ratio, and the goal that it is held against.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace bench {

// Work of so many operations.
using Slice = std::function<void(size_t operations)>;

// How the ratio is formed, and which side of the goal is good.
enum class Ratio {
    ours_over_limit, // at most the goal
    peer_over_ours   // at least the goal
};

struct Pair {
    std::string what;
    std::string reference;
    Slice ours;
    Slice other;
    size_t operations = 200; // of a slice
    Ratio ratio = Ratio::ours_over_limit;
    double gate = 0;
    double aim = 0;
    size_t pairs = 301;
    bool long_slices = false;           // others get the processor meanwhile: its time is measured
    std::function<double()> clock = {}; // in nanoseconds, for work that other processes do
    std::function<void()> between = {}; // slices, not measured: what is used up is made anew
};

// Registers it with Google Benchmark. What the slices refer to must stay until they have run.
void add_pair(Pair pair);

// A plain count that needs no clock, such as system calls a line: at most the goal.
struct Count {
    std::string what;
    std::function<double()> count;
    double gate = 0;
    double aim = 0;
};
void add_count(Count count);

// A row that cannot be measured here, and why.
void add_absent(const std::string &what, const std::string &why);

} // namespace bench
