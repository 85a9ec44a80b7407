// The command line: which command, with what options.
#pragma once

#include "run_options.h"

namespace inlinectl {

enum class Command { none, run };

struct CommandLine {
    Command command = Command::none; // none: help or version was printed
    int exit_code = 0;               // of that
    RunOptions run;
};

// Throws UsageError.
CommandLine parse_command_line(int argc, const char *const *argv);

} // namespace inlinectl
