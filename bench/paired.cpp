#include "paired.h"

#include <algorithm>
#include <ctime>
#include <memory>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>

namespace bench {
namespace {

double now(const Pair &pair)
{
    if (pair.clock)
        return pair.clock();
    timespec time{};
    clock_gettime(pair.long_slices ? CLOCK_THREAD_CPUTIME_ID : CLOCK_MONOTONIC, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double nanoseconds_of(const Pair &pair, const Slice &slice)
{
    const double begin = now(pair);
    slice(pair.operations);
    return (now(pair) - begin) / static_cast<double>(pair.operations);
}

struct Times {
    std::vector<double> ours;
    std::vector<double> other;
    std::vector<double> ratios;
};

// Sorted: what stands at this share of them.
double at_share(std::vector<double> &values, double share)
{
    const auto place = static_cast<ptrdiff_t>(share * static_cast<double>(values.size() - 1));
    std::nth_element(values.begin(), values.begin() + place, values.end());
    return values[static_cast<size_t>(place)];
}

Times measure(const Pair &pair)
{
    Times times;
    pair.ours(pair.operations); // what is only done once is done here
    pair.other(pair.operations);
    for (size_t i = 0; i < pair.pairs; ++i) {
        if (pair.between)
            pair.between();
        const bool ours_first = i % 2 == 0;
        const double first = nanoseconds_of(pair, ours_first ? pair.ours : pair.other);
        const double second = nanoseconds_of(pair, ours_first ? pair.other : pair.ours);
        const double ours = ours_first ? first : second;
        const double other = ours_first ? second : first;
        times.ours.push_back(ours);
        times.other.push_back(other);
        times.ratios.push_back(pair.ratio == Ratio::ours_over_limit ? ours / other : other / ours);
    }
    return times;
}

void report(benchmark::State &state, const Pair &pair, Times times)
{
    state.SetLabel(pair.reference);
    state.SetIterationTime(at_share(times.ours, 0.5) / 1e9);
    state.counters["ours_ns"] = at_share(times.ours, 0.5);
    state.counters["reference_ns"] = at_share(times.other, 0.5);
    state.counters["ratio"] = at_share(times.ratios, 0.5);
    state.counters["ratio_p10"] = at_share(times.ratios, 0.1);
    state.counters["ratio_p90"] = at_share(times.ratios, 0.9);
    state.counters["at_least"] = pair.ratio == Ratio::peer_over_ours ? 1 : 0;
    state.counters["gate"] = pair.gate;
    state.counters["aim"] = pair.aim;
}

} // namespace

void add_pair(Pair pair)
{
    const auto kept = std::make_shared<const Pair>(std::move(pair));
    benchmark::RegisterBenchmark(kept->what.c_str(),
                                 [kept](benchmark::State &state) {
                                     for ([[maybe_unused]] auto turn : state)
                                         report(state, *kept, measure(*kept));
                                 })
        ->Iterations(1)
        ->UseManualTime();
}

void add_count(Count count)
{
    const auto kept = std::make_shared<const Count>(std::move(count));
    benchmark::RegisterBenchmark(kept->what.c_str(),
                                 [kept](benchmark::State &state) {
                                     for ([[maybe_unused]] auto turn : state) {
                                         state.SetIterationTime(0);
                                         state.counters["count"] = kept->count();
                                         state.counters["gate"] = kept->gate;
                                         state.counters["aim"] = kept->aim;
                                     }
                                 })
        ->Iterations(1)
        ->UseManualTime();
}

void add_absent(const std::string &what, const std::string &why)
{
    benchmark::RegisterBenchmark(
        what.c_str(), [why](benchmark::State &state) { state.SkipWithError(why.c_str()); });
}

} // namespace bench
