// How the tool ends, and the errors that lead there.
#pragma once

#include <stdexcept>

namespace inlinectl {

enum ExitCode {
    exit_fine = 0,
    exit_failed = 1, // something failed in the run
    exit_usage = 2   // usage or unreadable input; nothing was changed
};

// One line for a person, without the program's name.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

} // namespace inlinectl
