// `inlinectl trace`, and `inlinectl show trace`: what was traced in a state directory.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "command.h"

namespace inlinectl {

struct TraceOptions {
    std::optional<std::filesystem::path> state_directory;
    std::optional<std::string> buffer;
    std::optional<std::string> site;
    std::optional<uint64_t> last;
    std::optional<std::filesystem::path> ctf_directory;
    bool json = false;
};

Command trace_command();

void declare_trace(CLI::App &app, TraceOptions &options);
void check(const TraceOptions &options); // UsageError
int perform(const TraceOptions &options);

} // namespace inlinectl
