// What `inlinectl run` was asked for.
#pragma once

#include <filesystem>
#include <optional>
#include <vector>

#include "card_choice.h"
#include "flow_options.h"

namespace CLI {
class App;
}

namespace inlinectl {

struct RunOptions {
    CardChoice card;
    std::optional<std::filesystem::path> card_socket; // of a card in a process of its own
    std::optional<std::filesystem::path> scenario_file;
    std::optional<std::filesystem::path> state_directory;
    std::optional<std::filesystem::path> fault_file;
    std::optional<std::filesystem::path> output_file; // what the card sends out
    std::vector<std::filesystem::path> captures;
    std::optional<uint64_t> times; // the captures are replayed; 0: until it is interrupted
    std::optional<uint32_t> packets_per_second; // as fast as it goes when not given
    bool stay = false;                          // behind all that, until it is interrupted
    FlowChoice flows;
    bool json = false;
    bool quiet = false;
};

// Declares the options, which must outlive the parsing.
void declare_run_options(CLI::App &run, RunOptions &options);

// Throws UsageError for what cannot be asked for together.
void check_run_options(const RunOptions &options);

} // namespace inlinectl
