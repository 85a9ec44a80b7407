#include "metrics_command.h"

#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "metrics_text.h"
#include "standard_streams.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  For monitoring to pick up:\n"
    "    inlinectl metrics --state card > card.metrics\n"
    "  No counts of single entries:\n"
    "    inlinectl metrics --state card --entries 0\n"
    "\n"
    "Nothing is changed, and no lock is taken; no host needs to be up.\n"
    "Exit codes: 0 written, 2 usage or what cannot be read.";

struct MetricsOptions {
    StatePlaces places;
    size_t entries = 100;
};

int write(const MetricsOptions &options)
{
    Snapshot state =
        take_snapshot(options.places, {.rows = true, .counters = false, .totals = true});
    if (!state.shadow_unread.empty() && !state.has_nps())
        throw UsageError(state.shadow_unread);
    std::optional<vlc::HostState> host;
    try {
        host = vlc::host_state_in(*options.places.state_directory);
    } catch (const vlc::StateError &unreadable) {
        state.notes.emplace_back(unreadable.what());
    }
    write_metrics(std::cout, state, host, options.entries);
    for (const std::string &note : state.notes)
        std::fprintf(stderr, "inlinectl: note: %s\n", note.c_str());
    if (standard_output_arrived())
        return exit_fine;
    std::fprintf(stderr, "inlinectl: the metrics could not be written\n");
    return exit_failed;
}

int metrics(const MetricsOptions &options)
{
    try {
        return write(options);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

void declare(CLI::App &app, MetricsOptions &options)
{
    declare_state_places(app, options.places);
    app.add_option("--entries", options.entries,
                   "Tell the counts of so many entries, the busiest; 100 by default")
        ->type_name("N");
    app.footer(examples);
}

} // namespace

Command metrics_command()
{
    const auto options = std::make_shared<MetricsOptions>();
    return {.name = "metrics",
            .summary = "Write a state's metrics as OpenMetrics text",
            .words_hint = "the state is given with --state",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { check_state_places(options->places); },
            .perform = [options] { return metrics(*options); }};
}

} // namespace inlinectl
