#include "run_command.h"

#include <cstdio>
#include <iostream>
#include <iterator>
#include <optional>

#include "capture_scan.h"
#include "exit_code.h"
#include "interrupt.h"
#include "numbers.h"
#include "progress.h"
#include "replay.h"
#include "run_report.h"
#include "scenario.h"
#include "service_host.h"
#include "temporary_directory.h"
#include "terminal.h"
#include "traffic_meter.h"
#include "vlc/state_error.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {
namespace {

// Everything that a run reads, read before anything is made.
struct RunInput {
    vlc::CardConfig card;
    std::vector<services::Destination> wanted;
};

RunInput read_input(const RunOptions &options, Progress &progress)
{
    RunInput input;
    if (options.card_file)
        input.card = vlc::load_card_file(*options.card_file);
    if (options.num_nps)
        input.card.num_nps = *options.num_nps;
    if (options.scenario_file)
        input.wanted = load_scenario(*options.scenario_file);
    CaptureScan scan = scan_captures(options.captures, progress);
    if (!options.scenario_file)
        input.wanted = std::move(scan.destinations);
    return input;
}

services::HostHandles handles_of(vlc::VirtualLineCard &card)
{
    return {
        .event_manager = card.events().handle(),
        .window_id = card.window_id(),
        .num_nps = card.config().num_nps,
        .root = static_cast<shadow_db *>(card.window().root()),
        .publish_root = [&card](shadow_db *root) { card.window().set_root(root); },
        .run_until =
            [&card](const std::function<bool()> &done) { return card.events().run_until(done); }};
}

class Run {
public:
    Run(const RunOptions &options, const RunInput &input, Progress &progress,
        const std::filesystem::path &state_directory)
        : options_(options), input_(input), progress_(progress), card_(input.card, state_directory),
          host_(handles_of(card_))
    {
        report_.card = input.card;
        report_.captures = options.captures.size();
    }

    RunReport perform()
    {
        host_.start();
        settle();
        meter_.emplace();
        program();
        replay_captures();
        settle();
        conclude();
        return std::move(report_);
    }

private:
    // Lets every answer that is ready reach the library, and takes in what it logged of them.
    void settle()
    {
        card_.events().run_until_idle();
        report_.failures.look();
    }

    void program()
    {
        const auto between_batches = [this](size_t made, size_t to_make) {
            settle();
            progress_.show("programming", static_cast<double>(made) / static_cast<double>(to_make),
                           made, "entries");
            return !interrupted();
        };
        const auto programmed = meter_->program(input_.wanted, between_batches);
        if (!programmed.failure.empty())
            report_.problems.push_back(programmed.failure);
        progress_.clear();
    }

    void replay_captures()
    {
        try {
            report_.traffic = replay(card_, *meter_, options_.captures, progress_);
        } catch (const vlc::StateError &changed_since_the_scan) {
            report_.problems.emplace_back(changed_since_the_scan.what());
        }
    }

    void conclude()
    {
        for (services::MeterEntry &entry : meter_->entries())
            (entry.table == services::MeterTable::destinations ? report_.destinations
                                                               : report_.addresses)
                .push_back(entry);
        rank_entries(report_);
        report_.requests = card_.prm().totals();
        report_.interrupted = interrupted();
        if (const uint64_t failed = report_.failures.count(); failed > 0)
            report_.problems.push_back(
                counted(failed, "request to the hardware", "requests to the hardware") + " failed");
        if (const uint64_t missed = report_.failures.missed_messages(); missed > 0)
            report_.problems.push_back(counted(missed, "message", "messages") +
                                       " of the library could not be read in time");
        if (report_.interrupted)
            report_.problems.emplace_back("interrupted");
    }

    const RunOptions &options_;
    const RunInput &input_;
    Progress &progress_;
    vlc::VirtualLineCard card_;
    services::ServiceHost host_;
    std::optional<services::TrafficMeter> meter_;
    RunReport report_;
};

int show(const RunOptions &options, const RunReport &report)
{
    if (options.json)
        write_json(std::cout, report);
    else if (!options.quiet)
        write_text(std::cout, report, standard_output_style());
    std::cout.flush();
    for (const std::string &problem : report.problems)
        std::fprintf(stderr, "inlinectl: %s\n", problem.c_str());
    if (!std::cout) {
        std::fprintf(stderr, "inlinectl: the report could not be written\n");
        return exit_failed;
    }
    return report.went_well() ? exit_fine : exit_failed;
}

int perform_run(const RunOptions &options)
{
    Progress progress(!options.quiet && !options.json && standard_error_draws());
    const RunInput input = read_input(options, progress);
    if (interrupted())
        throw std::runtime_error("interrupted before anything was made");
    std::optional<TemporaryDirectory> temporary;
    if (!options.state_directory)
        temporary.emplace();
    const std::filesystem::path &directory =
        options.state_directory ? *options.state_directory : temporary->path();
    Run run(options, input, progress, directory);
    return show(options, run.perform());
}

} // namespace

int run_command(const RunOptions &options)
{
    vlc::CardClock::set_mode(vlc::ClockMode::real);
    watch_interrupts();
    try {
        return perform_run(options);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

} // namespace inlinectl
