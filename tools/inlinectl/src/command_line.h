// The command line: which command, with what options.
#pragma once

#include <optional>

#include "command.h"

namespace inlinectl {

struct CommandLine {
    std::optional<Command> command; // none: help or version was printed
    int exit_code = 0;              // of that
};

// Throws UsageError.
CommandLine parse_command_line(int argc, const char *const *argv);

} // namespace inlinectl
