// The system calls of a piece of work, counted by a tracer.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>

namespace test {

using SystemCalls = std::map<long, size_t>; // by their numbers

// While one lives, what the traced work calls is counted; without one it is the work's own affair.
class CallsCount {
public:
    CallsCount();
    ~CallsCount();
    CallsCount(const CallsCount &) = delete;
    CallsCount &operator=(const CallsCount &) = delete;
};

// Runs the work in a child process and counts what it calls. Nothing where tracing is not
// permitted; throws when the child did not end well.
std::optional<SystemCalls> traced_calls(const std::function<void()> &work);

} // namespace test
