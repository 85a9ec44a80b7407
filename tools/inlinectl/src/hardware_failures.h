// What the library has logged of requests that the hardware did not carry out.
//
// They are taken from the library's "error" trace buffer, where its messages are with their
// arguments. The buffer keeps the last 1000, so it is looked at often.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <string>

namespace vlc {
struct TraceEvent;
}

namespace inlinectl {

// A request that was taken in and answered later with a status.
struct LateAnswer {
    uint32_t np = 0;
    uint32_t table = 0;     // as in vlc::TableKind
    uint32_t operation = 0; // PRM_OP_*
    std::string reason;
    auto operator<=>(const LateAnswer &) const = default;
};

// A step of programming that failed at once, in the words of the library's message.
struct RefusedStep {
    std::string step; // such as "SVC CONF add"
    std::string reason;
    auto operator<=>(const RefusedStep &) const = default;
};

class HardwareFailures {
public:
    void look(); // takes in what the library has logged since the last look

    const std::map<LateAnswer, uint64_t> &late_answers() const { return late_answers_; }
    const std::map<RefusedStep, uint64_t> &refused_steps() const { return refused_steps_; }
    uint64_t count() const;                              // of both
    uint64_t missed_messages() const { return missed_; } // gone from the buffer before a look

private:
    void take(const vlc::TraceEvent &event);

    std::map<LateAnswer, uint64_t> late_answers_;
    std::map<RefusedStep, uint64_t> refused_steps_;
    uint64_t next_sequence_ = 0;
    uint64_t missed_ = 0;
};

// "service config", "ext conf", "flow"; "add", "modify", "delete"; the number for another.
std::string table_name(uint32_t table);
std::string operation_name(uint32_t operation);

} // namespace inlinectl
