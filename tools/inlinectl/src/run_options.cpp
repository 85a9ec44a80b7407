#include "run_options.h"

#include <CLI/CLI.hpp>

#include "exit_code.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  Count a capture on a card of two NPs:\n"
    "    inlinectl run --pcap capture.pcap\n"
    "  Two captures, eight NPs:\n"
    "    inlinectl run --nps 8 --pcap one.pcap two.pcapng\n"
    "  Keep the card in a directory; once more, and its counters go on:\n"
    "    inlinectl run --state card --pcap capture.pcap\n"
    "  Program the scenario's entries only, report as JSON:\n"
    "    inlinectl run --scenario entries.toml --pcap capture.pcap --json\n"
    "  Lose and delay some of the hardware's answers:\n"
    "    inlinectl run --pcap capture.pcap --fault faults/answers.toml\n"
    "  Write what virtual services encapsulate, see 'inlinectl vservice --help':\n"
    "    inlinectl run --state card --pcap capture.pcap --output out.pcap\n"
    "  Count each 5-tuple by a flow, and write down its packets and times:\n"
    "    inlinectl run --flows --flow-export flows.jsonl --pcap capture.pcap\n"
    "  Be a host that goes on running, to be looked into from elsewhere:\n"
    "    inlinectl run --state card --pcap capture.pcap --repeat 0 --pace 2000\n"
    "  On a card that runs by itself, see 'inlinectl card --help':\n"
    "    inlinectl run --connect /tmp/card.sock --state host --pcap capture.pcap\n"
    "\n"
    "A scenario file lists entries, each as\n"
    "  [[entry]]\n"
    "  protocol = \"tcp\"       # or a number\n"
    "  address = \"192.0.2.1\"\n"
    "  port = 80              # 0, or left out: packets without a port\n"
    "\n"
    "A fault plan lists rules, each as\n"
    "  [[rule]]\n"
    "  service = \"shmwin_malloc\"   # a platform service\n"
    "  action = \"no-memory\"\n"
    "  nth = 100                   # the 100th call";

} // namespace

void declare_run_options(CLI::App &run, RunOptions &options)
{
    run.add_option("--pcap", options.captures, "Captures to replay, pcap or pcapng")
        ->type_name("FILE")
        ->allow_extra_args();
    run.add_option("--scenario", options.scenario_file,
                   "Entries to program instead of the captures' own")
        ->type_name("FILE");
    run.add_option("--card", options.card.card_file, "Card file (TOML)")->type_name("FILE");
    run.add_option("--nps", options.card.num_nps, "Number of network processors, 1 to 8")
        ->type_name("N")
        ->check(CLI::Range(1, 8).description(""));
    run.add_option("--connect", options.card_socket, "Be the host of the card that listens here")
        ->type_name("SOCKET");
    run.add_option("--state", options.state_directory,
                   "Keep the card here, or go on with the one here")
        ->type_name("DIR");
    run.add_option("--output", options.output_file,
                   "Write what the card encapsulates to this capture")
        ->type_name("FILE");
    run.add_option("--fault", options.fault_file, "What goes wrong meanwhile: a fault plan (TOML)")
        ->type_name("FILE");
    run.add_option("--repeat", options.times, "Replay the captures so often; 0: until Ctrl-C")
        ->type_name("N");
    run.add_option("--pace", options.packets_per_second, "Packets a second at most")
        ->type_name("N")
        ->check(CLI::PositiveNumber.description(""));
    run.add_flag("--stay", options.stay, "Then go on being a host until Ctrl-C");
    declare_flow_options(run, options.flows);
    run.add_flag("--json", options.json, "Write the report as one JSON object");
    run.add_flag("--quiet", options.quiet, "No progress, no report, only what failed");
    run.footer(examples);
}

void check_run_options(const RunOptions &options)
{
    if (options.captures.empty() && !options.scenario_file && !options.state_directory)
        throw UsageError("nothing to run: give --pcap, --scenario or --state");
    if (options.output_file && options.captures.empty())
        throw UsageError("nothing goes out without traffic: give --pcap beside --output");
    if ((options.times || options.packets_per_second) && options.captures.empty())
        throw UsageError("nothing to replay: give --pcap beside --repeat and --pace");
    if (options.stay && !options.state_directory)
        throw UsageError(
            "nobody finds a host in a temporary directory: give --state beside --stay");
    if (options.flows.wanted && (options.times || options.packets_per_second || options.stay))
        throw UsageError("--repeat, --pace and --stay go without --flows, which lives in the "
                         "captures' own time");
    for (const std::filesystem::path &capture : options.captures) {
        std::error_code error;
        if (options.output_file &&
            std::filesystem::equivalent(*options.output_file, capture, error))
            throw UsageError("--output would overwrite the capture " + capture.string());
    }
}

} // namespace inlinectl
