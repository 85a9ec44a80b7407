#include "card_command.h"

#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "card_choice.h"
#include "exit_code.h"
#include "fault_report.h"
#include "interrupt.h"
#include "numbers.h"
#include "standard_streams.h"
#include "terminal.h"
#include "vlc/card_process.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  A card, and beside it a host that counts a capture on it:\n"
    "    inlinectl card --listen /tmp/card.sock --state card &\n"
    "    inlinectl run --connect /tmp/card.sock --state host --pcap capture.pcap\n"
    "  A card of eight NPs:\n"
    "    inlinectl card --listen /tmp/card.sock --state card --nps 8\n"
    "\n"
    "It runs until SIGINT or SIGTERM. Its tables, counters and unread answers stay in\n"
    "the directory; started again on it, the card goes on with them.";

struct CardOptions {
    std::filesystem::path socket;
    std::filesystem::path state_directory;
    CardChoice card;
    std::optional<std::filesystem::path> fault_file;
};

void declare(CLI::App &card, CardOptions &options)
{
    card.add_option("--listen", options.socket, "Socket at which hosts reach the card")
        ->type_name("SOCKET")
        ->required();
    card.add_option("--state", options.state_directory,
                    "Keep the hardware here, or go on with the one here")
        ->type_name("DIR")
        ->required();
    card.add_option("--card", options.card.card_file, "Card file (TOML)")->type_name("FILE");
    card.add_option("--nps", options.card.num_nps, "Number of network processors, 1 to 8")
        ->type_name("N")
        ->check(CLI::Range(1, 8).description(""));
    card.add_option("--fault", options.fault_file, "Faults that this plan has PRM make (TOML)")
        ->type_name("FILE");
    card.footer(examples);
}

void write_summary(vlc::CardProcess &card)
{
    uint64_t requests = 0;
    uint64_t failed = 0;
    const vlc::Prm::Totals &totals = card.hardware().prm().totals();
    for (size_t table = 0; table < vlc::table_kinds; ++table) {
        for (size_t operation = 0; operation < std::size(totals.requests[table]); ++operation) {
            requests += totals.requests[table][operation];
            failed += totals.failed[table][operation];
        }
    }
    const vlc::DataPlaneTotals &traffic = card.server().traffic();
    std::cout << "Requests  " << grouped(requests) << " taken in, " << grouped(failed)
              << " failed\n"
              << "Packets   " << grouped(traffic.packets) << ", " << grouped(traffic.bytes)
              << " bytes\n";
    for (size_t np = 0; np < traffic.nps.size(); ++np)
        std::cout << "  NP " << np << "    " << grouped(traffic.nps[np].packets) << ", "
                  << grouped(traffic.nps[np].bytes) << " bytes\n";
}

// Nothing without a plan.
std::unique_ptr<vlc::Faults> faults_of(const CardOptions &options)
{
    if (!options.fault_file)
        return nullptr;
    const vlc::FaultPlan plan = vlc::load_fault_plan(*options.fault_file);
    vlc::require_side(plan, vlc::FaultSide::card);
    return std::make_unique<vlc::Faults>(plan);
}

int perform(const CardOptions &options)
{
    watch_interrupts();
    try {
        const std::unique_ptr<vlc::Faults> faults = faults_of(options);
        vlc::CardProcess card(card_of_state(options.card, options.state_directory),
                              options.state_directory, options.socket);
        const vlc::CardConfig &config = card.hardware().config();
        std::cout << "Card      " << config.name << ", " << card_text(config) << ", listens at "
                  << options.socket.string() << std::endl;
        if (faults)
            faults->attach_card(card.hardware().prm(), card.events());
        // Only to wake up: what came is asked for below.
        card.events().watch_readable(interrupt_descriptor(), [] {});
        card.events().run_until([] { return interrupted(); });
        write_summary(card);
        if (faults)
            write_fault_text(std::cout, fault_report(*faults), standard_output_style());
    } catch (const vlc::StateError &unusable) {
        throw UsageError(unusable.what());
    }
    return standard_output_arrived() ? exit_fine : exit_failed;
}

} // namespace

Command card_command()
{
    const auto options = std::make_shared<CardOptions>();
    return {.name = "card",
            .summary = "Run a card that hosts reach by a socket",
            .words_hint = "the socket is given with --listen",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .perform = [options] { return perform(*options); }};
}

} // namespace inlinectl
