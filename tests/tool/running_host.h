// `inlinectl run` as a process beside the test's: a host that goes on running.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "tool_process.h"

namespace test {

class RunningHost {
public:
    static constexpr const char *state = "/tmp/host-state";

    // `inlinectl run --state STATE` with these too. Returns when its console answers; throws when
    // it ends instead.
    explicit RunningHost(const std::vector<std::string> &arguments);
    ~RunningHost(); // killed when it lives
    RunningHost(const RunningHost &) = delete;
    RunningHost &operator=(const RunningHost &) = delete;

    pid_t process() const { return process_; }
    // On its standard error.
    void wait_until_it_says(const std::string &text) const;
    // Sends the signal and waits for the end.
    Outcome end(int signal);

private:
    pid_t process_ = -1;
};

} // namespace test
