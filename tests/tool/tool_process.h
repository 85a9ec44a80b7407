// A program run as a person runs it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace test {

struct Outcome {
    int exit_code = -1; // negative: the signal that ended it
    std::string out;
    std::string err;
};

using Environment = std::vector<std::string>; // NAME=VALUE, beside what the test has

struct Invocation {
    std::string program;
    std::vector<std::string> arguments = {};
    Environment environment = {};
    std::string out_file = "/tmp/test.out";
    std::function<void(pid_t)> while_it_runs = {};
    std::vector<int> closed = {}; // descriptors that the program begins without
};

Outcome run_program(const Invocation &invocation);

std::string file_text(const std::string &path);
std::vector<std::string> lines_of(const std::string &text);

} // namespace test
