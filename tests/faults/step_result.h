// What a step of the scenario came to, as a host sees it: the same from the library and from the
// reference.
#pragma once

#include <cstdint>
#include <ostream>
#include <vector>

#include "reference_model.h"

namespace test {

struct StepResult {
    // Beside the library's codes: what a service does by itself.
    static constexpr uint32_t batch_not_built = 0xFFFFFF01; // memory or a list was refused
    static constexpr uint32_t nothing_to_do = 0xFFFFFF02;   // no entry of the batch is stored
    static constexpr uint32_t host_not_started = 0xFFFFFF03;

    uint32_t code = 0;
    std::vector<StatReport> reports = {};
    std::vector<uint32_t> batch = {}; // the app handler's: num_node, then entry id and action each
    std::vector<uint32_t> words = {}; // what was read, and the codes of lookups
    bool ends_the_scenario() const { return code == host_not_started; }
    bool operator==(const StepResult &) const = default;
};

// A difference of two results shows in the code, the words or the first report that is another.
inline std::ostream &operator<<(std::ostream &out, const StepResult &result)
{
    out << "code 0x" << std::hex << result.code;
    for (const uint32_t word : result.words)
        out << " 0x" << word;
    return out << std::dec << ", " << result.reports.size() << " reports";
}

} // namespace test
