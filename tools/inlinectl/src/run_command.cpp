#include "run_command.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>

#include "capture_scan.h"
#include "card_hardware.h"
#include "evidence.h"
#include "exit_code.h"
#include "interrupt.h"
#include "numbers.h"
#include "progress.h"
#include "replay.h"
#include "run_options.h"
#include "run_report.h"
#include "scenario.h"
#include "service_host.h"
#include "settlement.h"
#include "standard_streams.h"
#include "temporary_directory.h"
#include "terminal.h"
#include "traffic_meter.h"
#include "vlc/faults.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {
namespace {

std::string card_text(const vlc::CardConfig &card)
{
    std::array<char, 16> type{};
    std::snprintf(type.data(), type.size(), "0x%X", card.card_type);
    return counted(card.num_nps, "NP", "NPs") + ", type " + type.data();
}

// Everything that a run reads, read before anything is made.
struct RunInput {
    vlc::CardConfig card;
    std::vector<services::Destination> wanted;
    std::optional<vlc::FaultPlan> faults;
};

// A state goes on as the card that it was made for.
vlc::CardConfig card_of(const RunOptions &options)
{
    std::optional<vlc::CardConfig> stored;
    if (options.state_directory)
        stored = vlc::stored_card(*options.state_directory);
    if (stored && !options.card_file && !options.num_nps)
        return *stored;
    vlc::CardConfig card = options.card_file ? vlc::load_card_file(*options.card_file)
                                             : stored.value_or(vlc::CardConfig{});
    if (options.num_nps)
        card.num_nps = *options.num_nps;
    if (stored && (card.num_nps != stored->num_nps || card.card_type != stored->card_type))
        throw UsageError(options.state_directory->string() + ": was made for a card of " +
                         card_text(*stored) + ", not of " + card_text(card) +
                         "; without --card and --nps it goes on as it is");
    return card;
}

RunInput read_input(const RunOptions &options, Progress &progress)
{
    RunInput input;
    input.card = card_of(options);
    if (options.scenario_file)
        input.wanted = load_scenario(*options.scenario_file);
    if (options.fault_file)
        input.faults = vlc::load_fault_plan(*options.fault_file);
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

// Nothing without a plan.
std::unique_ptr<vlc::Faults> attached_faults(const std::optional<vlc::FaultPlan> &plan,
                                             vlc::VirtualLineCard &card)
{
    if (!plan)
        return nullptr;
    auto faults = std::make_unique<vlc::Faults>(*plan);
    faults->attach_host();
    faults->attach_card(card.prm(), card.events());
    return faults;
}

class Run {
public:
    Run(const RunOptions &options, const RunInput &input, Progress &progress,
        const std::filesystem::path &state_directory)
        : options_(options), input_(input), progress_(progress), card_(input.card, state_directory),
          faults_(attached_faults(input.faults, card_)), host_(handles_of(card_)),
          evidence_(options.state_directory)
    {
        card_.on_failed_answer(
            [this](const prm_async_response &answer) { evidence_.notice(answer); });
        report_.card = input.card;
        report_.captures = options.captures.size();
    }

    RunReport perform()
    {
        host_.start();
        settle();
        if (host_.found_root())
            settle_what_was_left();
        meter_.emplace();
        program();
        replay_captures();
        settle();
        conclude();
        return std::move(report_);
    }

    // What the plan has done so far, for a run that ends before its report too.
    std::optional<FaultReport> faults() const
    {
        return faults_ ? std::optional(fault_report(*faults_)) : std::nullopt;
    }

private:
    // Lets every answer that is ready reach the library, and takes in what it logged of them.
    void settle()
    {
        card_.events().run_until_idle();
        report_.failures.look();
        evidence_.write(host_.root(), card_.access());
    }

    // An earlier host may have been killed with an entry in flight.
    void settle_what_was_left()
    {
        const CardHardware hardware(card_.access());
        report_.settlement = services::settle({.root = host_.root(),
                                               .in_shared_memory = in_window(card_.window()),
                                               .hardware = &hardware,
                                               .run_events = [this] { settle(); }});
        constexpr size_t told = 5; // the audit has them all
        const std::vector<std::string> &left = report_.settlement.left;
        for (size_t i = 0; i < std::min(told, left.size()); ++i)
            report_.problems.push_back("not settled: " + left[i]);
        if (left.size() > told)
            report_.problems.push_back("not settled: " + grouped(left.size() - told) +
                                       " more; see 'inlinectl audit'");
    }

    void program()
    {
        const auto between_batches = [this](size_t made, size_t to_make) {
            settle();
            fullest_ = std::max(fullest_, card_.window().usage().bytes_in_use);
            progress_.show("programming", static_cast<double>(made) / static_cast<double>(to_make),
                           made, "entries");
            return !interrupted();
        };
        fullest_ = card_.window().usage().bytes_in_use;
        const auto programmed = meter_->program(input_.wanted, between_batches);
        if (!programmed.failure.empty())
            report_.problems.push_back(programmed.failure + "; before it " + window_text());
        progress_.clear();
    }

    // A refused batch gives the key's blocks back, so what the window held is from before it.
    std::string window_text()
    {
        return "the window held " + grouped(fullest_) + " of " +
               grouped(card_.window().usage().bytes_total) +
               " bytes; see window.mebibytes in the card file";
    }

    void replay_captures()
    {
        Replayed replayed = replay(card_, *meter_, options_.captures, progress_);
        report_.traffic = std::move(replayed.traffic);
        if (!replayed.failure.empty())
            report_.problems.push_back(std::move(replayed.failure));
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
        report_.evidence = evidence_.bundle();
        report_.faults = faults();
        if (!evidence_.failure().empty())
            report_.problems.push_back("no evidence could be kept: " + evidence_.failure());
        if (const uint64_t failed = report_.failures.count(); failed > 0)
            report_.problems.push_back(
                counted(failed, "request to the hardware", "requests to the hardware") + " failed");
        if (const uint64_t missed = report_.failures.missed_messages(); missed > 0)
            report_.problems.push_back(counted(missed, "message", "messages") +
                                       " of the library could not be read in time");
        for (std::string &problem : counting_problems(report_))
            report_.problems.push_back(std::move(problem));
        if (report_.interrupted)
            report_.problems.emplace_back("interrupted");
    }

    const RunOptions &options_;
    const RunInput &input_;
    Progress &progress_;
    vlc::VirtualLineCard card_;
    std::unique_ptr<vlc::Faults> faults_;
    services::ServiceHost host_;
    Evidence evidence_;
    std::optional<services::TrafficMeter> meter_;
    uint64_t fullest_ = 0; // bytes in use of the window
    RunReport report_;
};

int show(const RunOptions &options, const RunReport &report)
{
    if (options.json)
        write_json(std::cout, report);
    else if (!options.quiet)
        write_text(std::cout, report, standard_output_style());
    const bool arrived = standard_output_arrived();
    for (const std::string &problem : report.problems)
        std::fprintf(stderr, "inlinectl: %s\n", problem.c_str());
    if (!arrived) {
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
    try {
        return show(options, run.perform());
    } catch (const std::exception &) {
        if (const auto faults = run.faults())
            write_fault_text(std::cerr, *faults, Style());
        throw;
    }
}

int run(const RunOptions &options)
{
    vlc::CardClock::set_mode(vlc::ClockMode::real);
    watch_interrupts();
    try {
        return perform_run(options);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

} // namespace

Command run_command()
{
    const auto options = std::make_shared<RunOptions>();
    return {.name = "run",
            .summary = "Program entries, replay captures, show counts",
            .words_hint = "captures are given with --pcap",
            .declare = [options](CLI::App &app) { declare_run_options(app, *options); },
            .check = [options] { check_run_options(*options); },
            .perform = [options] { return run(*options); }};
}

} // namespace inlinectl
