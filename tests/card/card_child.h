// `inlinectl card` as a process beside the test's, that may be killed and started again.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace test {

class CardChild {
public:
    static constexpr const char *socket = "/tmp/card.sock";
    static constexpr const char *state = "/tmp/card-state";

    explicit CardChild(std::vector<std::string> more_arguments = {});
    ~CardChild(); // killed when it lives
    CardChild(const CardChild &) = delete;
    CardChild &operator=(const CardChild &) = delete;

    // Returns when it listens; throws when it ends instead.
    void start(const std::vector<std::string> &more_arguments = {});
    void kill();
    // Waits until it ends, and returns the signal that ended it.
    int wait();

private:
    pid_t process_ = -1;
};

} // namespace test
