// What a driver of flows has for a platform: the flow tables and dynamic counters of the NPs, what
// goes wrong in them during one step, and the requests that were made of them.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace test {

// Whatever the flow service knows of a flow.
struct FlowInfo {
    std::string key, result, user_data;
    uint32_t policer = 0;
};

// What fails while one operation runs; a bit for each NP.
struct FlowFailures {
    static constexpr uint32_t request_code = 0x257C5405;
    static constexpr uint32_t give_back_code = 61;

    uint32_t refusing = 0;         // every request
    uint32_t without_table = 0;    // of statistics
    uint32_t without_counters = 0; // to allocate
    uint32_t unreadable = 0;
    uint32_t keeping = 0; // counters cannot be given back
    bool window_is_full = false;
};

// Something that the platform was asked, or a callback given.
struct FlowEvent {
    enum Kind : uint8_t {
        allocate,
        release,
        encode_user_data,
        encode_key,
        encode_result,
        ask_policer,
        find_table,
        take_run,
        find_address,
        add_row,
        modify_row,
        delete_row,
        give_back,
        read_counter,
        fill_info,
        scan,
        read_all
    };
    Kind kind;
    uint32_t np = 0;
    uint32_t number = 0; // a counter, the length of a run, a size, or the `last` of a read
    std::string bytes;   // the whole record of a request; the keys that a callback was given
    bool operator==(const FlowEvent &) const = default;
};
using FlowEvents = std::vector<FlowEvent>;

class FlowHardware {
public:
    static constexpr uint32_t most_nps = 16;

    // A request that is not refused. `record` is laid out as PRM's.
    void program(FlowEvent::Kind kind, uint32_t np, const std::string &record)
    {
        const std::string key = record.substr(20, static_cast<uint8_t>(record[12]));
        if (kind == FlowEvent::delete_row)
            rows_.at(np).erase(key);
        else
            rows_.at(np)[key] = record.substr(124, static_cast<uint8_t>(record[120]));
    }
    uint32_t take(uint32_t np, uint32_t length)
    {
        std::vector<uint32_t> &freed = freed_.at(np)[length];
        uint32_t first = 0;
        if (freed.empty()) {
            first = 1 + np * 0x1000000 + fresh_.at(np);
            fresh_.at(np) += length;
        } else {
            first = freed.back();
            freed.pop_back();
        }
        runs_.at(np)[first] = length;
        return first;
    }
    // Counter 0 is nobody's, and may be given back.
    uint32_t give_back(uint32_t np, uint32_t first)
    {
        if (first == 0)
            return 0;
        const auto run = runs_.at(np).find(first);
        if (run == runs_.at(np).end())
            return FlowFailures::give_back_code;
        freed_.at(np)[run->second].push_back(first);
        runs_.at(np).erase(run);
        return 0;
    }
    static uint32_t address_of(uint32_t counter) { return counter * 5 + 0x3F000000; }
    static std::array<uint64_t, 2> count_of(uint32_t np, uint32_t counter)
    {
        return {counter + (uint64_t{np} << 40), counter * UINT64_C(1000)};
    }

    size_t runs(uint32_t np) const { return runs_.at(np).size(); }
    bool operator==(const FlowHardware &) const = default;

private:
    using Rows = std::unordered_map<std::string, std::string>;
    std::array<Rows, most_nps> rows_;
    std::array<std::map<uint32_t, uint32_t>, most_nps> runs_; // length by first counter
    std::array<std::map<uint32_t, std::vector<uint32_t>>, most_nps> freed_; // by length
    std::array<uint32_t, most_nps> fresh_{};
};

} // namespace test
