// What a run's flow service was asked for.
#pragma once

#include <filesystem>
#include <optional>

#include "flow_service.h"

namespace CLI {
class App;
}

namespace inlinectl {

struct FlowChoice {
    bool wanted = false;
    services::FlowOptions options;
    std::optional<std::filesystem::path> export_file;
};

// Declares the options, which must outlive the parsing.
void declare_flow_options(CLI::App &run, FlowChoice &choice);

} // namespace inlinectl
