// Draws operations on flows by a seed, makes each of the library and of the reference, and compares
// what it can have changed; and everything after every few hundred.
#pragma once

#include <cstdint>
#include <random>
#include <string>

#include "flow_host.h"
#include "flow_model.h"

namespace test {

class FlowDriver {
public:
    struct Made { // operations, and how they went
        uint64_t added = 0, existing = 0, refused = 0, modified = 0, found = 0, not_found = 0;
        uint64_t deleted = 0, walks = 0, slices = 0, reads = 0, restarts = 0;
        uint32_t most_flows = 0;
        uint64_t whole_comparisons = 0;
    };

    FlowDriver(uint32_t seed, const FlowModel::Rules &rules);

    // Makes one operation. Returns the first difference, or nothing.
    std::string step();
    // Deletes all flows. The same.
    std::string clear();
    const Made &made() const { return made_; }
    uint64_t steps() const { return steps_; }

private:
    static constexpr uint16_t nps = 3;
    static constexpr uint32_t buckets = 1021;
    static constexpr uint32_t keys = 5000;
    static constexpr uint64_t steps_of_one_time = 30000;
    static constexpr uint64_t steps_between_whole_comparisons = 2000;

    uint32_t below(uint32_t bound) { return static_cast<uint32_t>(random_() % bound); }
    bool one_in(uint32_t times) { return below(times) == 0; }
    uint64_t draw_key();
    FlowInfo draw_info(uint64_t key);
    FlowFailures draw_failures();
    uint32_t draw_nps_that_fail(uint32_t one_in_times);

    void add(uint64_t key);
    void modify(uint64_t key);
    void lookup(uint64_t key);
    void remove(uint64_t key);
    void remove_with_stats(uint64_t key);
    void walk();
    void read_all();
    void restart();

    void expect_code(uint32_t got, uint32_t expected);
    void note_difference(const std::string &text);
    void compare_step(uint64_t key);
    void compare_record(const flow_record &record, uint64_t key);
    void compare_chain(uint32_t bucket);
    void compare_everything();

    std::mt19937_64 random_;
    FlowHost host_;
    FlowModel model_;
    uint64_t blocks_without_flows_;
    uint64_t steps_ = 0;
    Made made_;
    std::string what_; // the operation under way
    std::string difference_;
};

} // namespace test
