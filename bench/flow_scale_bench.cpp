// What a flow costs that is added and deleted through the flow service's entry points, on cards
// that have room for ten thousand to ten million: everything but the number of flows is the same,
// so what is dearer on the large one grows with the flows.
//
//   flow_scale_bench DIRECTORY    where the cards lie; on a tmpfs nothing waits for a disk
//
// A large card is filled once and emptied once, and measured at two hundred places on the way, in
// turns with a card of ten thousand flows that is filled and emptied again and again.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>

#include <sys/statvfs.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "flow_worker.h"
#include "paired.h"

namespace {

using bench::FlowWork;
using bench::FlowWorker;

constexpr uint32_t small_size = 10'000;
constexpr uint32_t slice_flows = 2'000;
constexpr uint32_t most_pairs = 199; // and the slice that comes before them

struct Size {
    uint32_t flows;
    const char *name;
    double gate;
    double aim;
};
constexpr Size sizes[] = {{100'000, "100 thousand", 0, 0},
                          {1'000'000, "1 million", 0, 0},
                          {10'000'000, "10 million", 2.5, 1.5}};

class Cards {
public:
    explicit Cards(std::filesystem::path directory) : directory_(std::move(directory)) {}

    FlowWorker &small() { return made(small_, small_size); }
    FlowWorker &large(uint32_t flows) { return made(large_, flows); }

private:
    FlowWorker &made(std::unique_ptr<FlowWorker> &card, uint32_t flows)
    {
        if (card == nullptr || card->most() != flows) {
            card.reset(); // one at a time
            card = std::make_unique<FlowWorker>(directory_, flows);
        }
        return *card;
    }

    std::filesystem::path directory_;
    std::unique_ptr<FlowWorker> small_;
    std::unique_ptr<FlowWorker> large_;
};

size_t pairs_of(uint32_t flows)
{
    return std::min<size_t>(flows / slice_flows - 1, most_pairs);
}

// All or none of the flows are there when the first of them is added or removed.
void make_ready(FlowWorker &card, FlowWork work)
{
    if (work == FlowWork::add)
        card.work(FlowWork::remove, card.held());
    else
        card.work(FlowWork::add, card.most() - card.held());
}

// The flows between two slices, which nobody measures.
void go_on(FlowWorker &card, FlowWork work)
{
    const auto slices = static_cast<uint32_t>(pairs_of(card.most()) + 1);
    card.work(work, card.most() / slices - slice_flows);
}

void add_row(Cards &cards, const Size &size, FlowWork work)
{
    const uint32_t flows = size.flows;
    const auto is_ready = std::make_shared<bool>(false);
    const auto ours = [=, &cards](size_t operations) {
        FlowWorker &card = cards.large(flows);
        if (!*is_ready) {
            make_ready(card, work);
            make_ready(cards.small(), work);
        }
        *is_ready = true;
        card.work(work, static_cast<uint32_t>(operations));
    };
    const auto other = [=, &cards](size_t operations) {
        cards.small().work(work, static_cast<uint32_t>(operations));
    };
    const auto spent = [=, &cards] { return cards.small().spent() + cards.large(flows).spent(); };
    const auto between = [=, &cards] {
        go_on(cards.large(flows), work);
        const bool is_done = cards.small().held() == (work == FlowWork::add ? small_size : 0);
        if (is_done)
            make_ready(cards.small(), work);
    };
    const std::string what = work == FlowWork::add ? "flow added, of " : "flow deleted, of ";
    bench::add_pair({.what = what + size.name,
                     .reference = "of 10 thousand",
                     .ours = ours,
                     .other = other,
                     .operations = slice_flows,
                     .gate = size.gate,
                     .aim = size.aim,
                     .pairs = pairs_of(flows),
                     .clock = spent,
                     .between = between});
}

// Why cards of that size cannot be here; empty when they can.
std::string hindrance(const std::filesystem::path &directory, uint32_t flows)
{
    struct statvfs found;
    if (statvfs(directory.c_str(), &found) != 0)
        return directory.string() + " is not there";
    const auto gibibytes = [](uint64_t bytes) { return (bytes >> 30) + 1; };
    const uint64_t wanted = FlowWorker::bytes_for(flows);
    const auto page = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
    const uint64_t memory = static_cast<uint64_t>(sysconf(_SC_AVPHYS_PAGES)) * page;
    const uint64_t room = std::min<uint64_t>(found.f_bavail * found.f_frsize, memory);
    if (room > wanted + wanted / 4)
        return {};
    return "it takes " + std::to_string(gibibytes(wanted)) + " GiB, and " +
           std::to_string(gibibytes(room)) + " are there";
}

} // namespace

int main(int argc, char **argv)
{
    benchmark::Initialize(&argc, argv);
    if (argc != 2) {
        fprintf(stderr, "usage: flow_scale_bench DIRECTORY\n");
        return 2;
    }
    Cards cards(argv[1]);
    for (const Size &size : sizes) {
        const std::string why = hindrance(argv[1], size.flows);
        for (const FlowWork work : {FlowWork::add, FlowWork::remove}) {
            if (why.empty())
                add_row(cards, size, work);
            else
                bench::add_absent(std::string("flows of ") + size.name, why);
        }
    }
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
