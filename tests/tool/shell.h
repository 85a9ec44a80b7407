// A shell in which a person's commands are typed one after another.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

namespace test {

class Shell {
public:
    // Begins in this directory, with the tool on its path.
    explicit Shell(const std::string &directory);
    ~Shell(); // with all that runs in it
    Shell(const Shell &) = delete;
    Shell &operator=(const Shell &) = delete;

    // What the command printed, on both streams. A command that ends in '&' returns when the host
    // or card that it starts can be asked.
    std::vector<std::string> type(const std::string &command);

private:
    void send(const std::string &text) const;
    std::string printed_until(const std::string &marker);

    pid_t process_ = -1;
    int input_ = -1;
    int output_ = -1;
};

} // namespace test
