// The card's side of the reference model: what its NPs hold and what PRM has still to say. It knows
// what the platform promises, and nothing of the virtual line card's code.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform_services.h"

namespace test {

// Asked at each call of a service, in order: what the call gives instead of being carried out.
// Requests for a table are asked with their NP.
using CallRule = std::function<std::optional<uint64_t>(Service service, uint32_t np)>;

struct ModelAnswer {
    uint32_t np = 0, status = 0, refnum = 0;
    std::string key;
    bool operator==(const ModelAnswer &) const = default;
};

struct ModelCount {
    uint64_t packets = 0, bytes = 0;
    bool operator==(const ModelCount &) const = default;
};

class ModelCard {
public:
    static constexpr uint32_t most_nps = 8;
    static constexpr uint32_t first_counter = 0xC00000;
    static constexpr uint32_t counter_count = 65536;
    // Of its slots two are known, of its interfaces and VRFs one.
    static constexpr uint16_t slot_with_endpoint = 5;
    static constexpr uint16_t other_slot = 6; // of a card whose type has no endpoints
    static constexpr uint32_t interface = 0x2001;
    static constexpr uint32_t pic_of_interface = 0x0A0B0C0D;
    static constexpr uint32_t vrf = 3;
    static constexpr uint32_t table_of_vrf = 0x21;
    using Table = std::map<std::string, std::string>; // result by key

    explicit ModelCard(uint32_t num_nps) : nps(num_nps) {}

    // The place of a counter's number in either byte order of its low three bytes.
    static std::optional<uint32_t> place(uint32_t number);

    // A request: 0 once it is taken in; what became of it is said in an answer.
    uint32_t request(uint32_t np, uint32_t table, uint32_t operation, const std::string &key,
                     const std::string &result);
    // False when the counter cannot be read.
    bool read(uint32_t np, uint32_t number, ModelCount *count) const;
    bool read_and_clear(uint32_t np, uint32_t number);
    void count(uint32_t np, uint32_t place, ModelCount what);

    uint32_t nps;
    bool up = true;
    bool loses_next_reply = false; // it goes down behind the next request, before it says so
    std::array<std::array<Table, 2>, most_nps> tables;
    std::array<std::vector<ModelCount>, most_nps> counts; // by place, as far as any was counted
    std::deque<ModelAnswer> answers;
    bool callback_waits = false; // the asynchronous-response callback is to be called
};

} // namespace test
