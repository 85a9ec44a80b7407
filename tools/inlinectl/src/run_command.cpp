#include "run_command.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <iterator>
#include <memory>
#include <optional>

#include "capture_scan.h"
#include "card_choice.h"
#include "card_hardware.h"
#include "card_session.h"
#include "evidence.h"
#include "exit_code.h"
#include "flow_run.h"
#include "host_handles.h"
#include "host_verbs.h"
#include "interrupt.h"
#include "library_exit.h"
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
#include "vlc/capture_writer.h"
#include "vlc/faults.h"
#include "vlc/state_directory.h"
#include "vlc/state_error.h"
#include "vlc/virtual_line_card.h"

namespace inlinectl {
namespace {

// Everything that a run reads, read before anything is made.
struct RunInput {
    vlc::CardConfig card;
    std::vector<services::Destination> wanted;
    std::optional<vlc::FaultPlan> faults;
};

RunInput read_input(const RunOptions &options, Progress &progress)
{
    RunInput input;
    input.card = options.card_socket ? card_at_socket(options.card, *options.card_socket)
                                     : card_of_state(options.card, options.state_directory);
    if (options.scenario_file)
        input.wanted = load_scenario(*options.scenario_file);
    if (options.fault_file)
        input.faults = vlc::load_fault_plan(*options.fault_file);
    if (input.faults && options.card_socket)
        vlc::require_side(*input.faults, vlc::FaultSide::host);
    CaptureScan scan = scan_captures(options.captures, progress);
    if (!options.scenario_file)
        input.wanted = std::move(scan.destinations);
    return input;
}

// Nothing without a plan.
std::unique_ptr<vlc::Faults> attached_faults(const std::optional<vlc::FaultPlan> &plan,
                                             vlc::VirtualLineCard &card)
{
    if (!plan)
        return nullptr;
    auto faults = std::make_unique<vlc::Faults>(*plan);
    faults->attach_host();
    if (!card.is_distant())
        faults->attach_card(card.prm(), card.events());
    return faults;
}

// Nothing when none is wanted.
std::optional<vlc::CaptureWriter> output_of(const RunOptions &options)
{
    if (!options.output_file)
        return std::nullopt;
    return std::optional<vlc::CaptureWriter>(std::in_place, *options.output_file);
}

class Run {
public:
    Run(const RunOptions &options, const RunInput &input, Progress &progress,
        const std::filesystem::path &state_directory)
        : options_(options), input_(input), progress_(progress), output_(output_of(options)),
          owned_card_(card_of(options.card_socket, input.card, state_directory)),
          card_(*owned_card_), session_(card_), faults_(attached_faults(input.faults, card_)),
          hardware_(card_.access()), host_(handles_of(card_, session_)),
          evidence_(options.state_directory)
    {
        card_.on_failed_answer(
            [this](const prm_async_response &answer) { evidence_.notice(answer); });
        report_.card = input.card;
        report_.captures = options.captures.size();
        report_.output = options.output_file;
    }

    RunReport perform()
    {
        host_.start();
        verbs_.emplace(card_);
        settle();
        if (host_.found_root())
            settle_what_was_left();
        meter_.emplace();
        program();
        if (options_.flows.wanted)
            start_flows();
        replay_captures();
        settle();
        if (options_.stay && !interrupted())
            stay();
        if (flows_)
            report_.flows = flows_->finish();
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
        session_.let_everything_arrive();
        report_.failures.look();
        evidence_.write(host_.root(), card_.access());
    }

    // An earlier host may have been killed with an entry in flight.
    void settle_what_was_left() { take_settlement(services::settle(settlement_input())); }

    services::SettlementInput settlement_input()
    {
        return {.root = host_.root(),
                .in_shared_memory = in_window(card_.window()),
                .hardware = &hardware_,
                .run_events = [this] { settle(); }};
    }

    void take_settlement(const services::Settlement &settlement)
    {
        if (settlement.is_damaged)
            throw vlc::StateError(options_.state_directory->string() +
                                  ": the shadow DB there is damaged and was left as it is; see "
                                  "'inlinectl audit'");
        const auto append = [](auto &all, const auto &more) {
            all.insert(all.end(), more.begin(), more.end());
        };
        append(report_.settlement.done, settlement.done);
        append(report_.settlement.left, settlement.left);
        constexpr size_t told = 5; // the audit has them all
        const std::vector<std::string> &left = settlement.left;
        for (size_t i = 0; i < std::min(told, left.size()); ++i)
            report_.problems.push_back("not settled: " + left[i]);
        if (left.size() > told)
            report_.problems.push_back("not settled: " + grouped(left.size() - told) +
                                       " more; see 'inlinectl audit'");
    }

    void start_flows()
    {
        flows_.emplace(options_.flows, card_, session_, [this] { report_.failures.look(); });
        if (host_.found_root())
            take_settlement(flows_->service().settle(settlement_input()));
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
        report_.interrupted = programmed.stopped;
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
        settle();
        if (meter_->has_unread()) // the card was away: entries have no starting point yet
            meter_->collect();
        if (output_)
            card_.access().on_output(
                [this](const vlc::EncapsulatedPacket &packet) { output_->write(packet); });
        Replayed replayed = replay(card_, session_, *meter_, flows_ ? &*flows_ : nullptr,
                                   {.captures = options_.captures,
                                    .times = options_.times.value_or(1),
                                    .packets_per_second = options_.packets_per_second},
                                   progress_);
        report_.interrupted |= replayed.was_cut_short;
        report_.traffic = std::move(replayed.traffic.totals);
        if (const uint64_t lost = replayed.traffic.undelivered; lost > 0)
            report_.problems.push_back(counted(lost, "packet", "packets") +
                                       " did not reach the card, or nobody knows whether");
        if (!replayed.failure.empty())
            report_.problems.push_back(std::move(replayed.failure));
        finish_output();
    }

    void finish_output()
    {
        if (!output_)
            return;
        card_.access().on_output({});
        try {
            output_->finish();
        } catch (const vlc::StateError &unwritten) {
            report_.problems.emplace_back(unwritten.what());
        }
    }

    void stay()
    {
        if (!options_.quiet)
            std::fprintf(stderr, "inlinectl: a host stays in %s until Ctrl-C\n",
                         options_.state_directory->c_str());
        session_.stay();
        settle();
    }

    void conclude()
    {
        for (services::MeterEntry &entry : meter_->entries())
            (entry.table == services::MeterTable::destinations ? report_.destinations
                                                               : report_.addresses)
                .push_back(entry);
        rank_entries(report_);
        report_.requests = card_.ledger().sums();
        report_.evidence = evidence_.bundle();
        report_.faults = faults();
        if (!evidence_.failure().empty())
            report_.problems.push_back("no evidence could be kept: " + evidence_.failure());
        if (const uint64_t failed = report_.failures.count(); failed > 0)
            report_.problems.push_back(
                counted(failed, "request to the hardware", "requests to the hardware") + " failed");
        if (report_.flows) {
            for (std::string &problem : flow_problems(*report_.flows))
                report_.problems.push_back(std::move(problem));
        }
        for (std::string &problem : request_problems(report_))
            report_.problems.push_back(std::move(problem));
        if (!card_.why_given_up().empty())
            report_.problems.push_back(card_.why_given_up());
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
    std::optional<vlc::CaptureWriter> output_;
    std::unique_ptr<vlc::VirtualLineCard> owned_card_;
    vlc::VirtualLineCard &card_;
    CardSession session_;
    std::unique_ptr<vlc::Faults> faults_;
    const CardHardware hardware_;
    services::ServiceHost host_;
    Evidence evidence_;
    std::optional<HostVerbs> verbs_;
    std::optional<services::TrafficMeter> meter_;
    std::optional<FlowRun> flows_;
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
    const auto say_faults = [&run] {
        if (const auto faults = run.faults())
            write_fault_text(std::cerr, *faults, Style());
    };
    const LibraryExitWatch watch([&] {
        progress.clear();
        say_faults();
        say_that_the_library_ended_the_process();
    });
    try {
        return show(options, run.perform());
    } catch (const std::exception &) {
        say_faults();
        throw;
    }
}

int run(const RunOptions &options)
{
    // Flows end in the traffic's time, of which a replay passes much in no time.
    vlc::CardClock::set_mode(options.flows.wanted ? vlc::ClockMode::stepped : vlc::ClockMode::real);
    watch_interrupts();
    try {
        return perform_run(options);
    } catch (const vlc::CardGone &gone) { // a failure of the run, not of what it was given
        throw std::runtime_error(gone.what());
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
