// A card with so many flows in a process of its own, so that cards of different sizes can be asked
// in turns: a window has one address, so a process has one card.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

#include <sys/types.h>

namespace bench {

enum class FlowWork : uint32_t { add, remove };

class FlowWorker {
public:
    static constexpr uint32_t nps = 8;

    // Room for so many flows, each on one of eight NPs, with as many buckets as flows. The
    // process's /tmp, with its log and its card, is a directory below `parent`.
    FlowWorker(const std::filesystem::path &parent, uint32_t flows);
    ~FlowWorker();
    FlowWorker(const FlowWorker &) = delete;
    FlowWorker &operator=(const FlowWorker &) = delete;

    // Through the flow service's entry points: flows come in one order and go in another one.
    // Throws when one of them is refused.
    void work(FlowWork work, uint32_t flows);
    // Time that the processor has spent on that, in nanoseconds.
    double spent() const { return spent_; }
    uint32_t held() const { return held_; } // flows that are there
    uint32_t most() const { return most_; }

    // What a card of that size takes of the file system, in bytes.
    static uint64_t bytes_for(uint32_t flows);

private:
    void read_report();

    std::filesystem::path directory_;
    uint32_t most_;
    uint32_t held_ = 0;
    double spent_ = 0;
    pid_t process_ = -1;
    int connection_ = -1;
};

} // namespace bench
