// A command of the tool: what it takes on the command line, and what it does.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace inlinectl {

struct Command {
    const char *name;
    const char *summary;                     // one line of the tool's help
    const char *words_hint;                  // what to do instead of giving it bare words
    std::function<void(CLI::App &)> declare; // its options and examples
    std::function<void()> check = [] {};     // what its options say together; UsageError
    std::function<int()> perform;            // the exit code; UsageError for unreadable input
};

} // namespace inlinectl
