#include "command_line.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "nearest_name.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  inlinectl run --pcap capture.pcap\n"
    "  inlinectl run --help\n"
    "\n"
    "Exit codes: 0 fine, 1 something failed, 2 usage or unreadable input.";

constexpr const char *run_examples =
    "Examples:\n"
    "  Count a capture on a card of two NPs:\n"
    "    inlinectl run --pcap capture.pcap\n"
    "  Two captures, eight NPs:\n"
    "    inlinectl run --nps 8 --pcap one.pcap two.pcapng\n"
    "  Keep the card in a directory; once more, and its counters go on:\n"
    "    inlinectl run --state card --pcap capture.pcap\n"
    "  Program the scenario's entries only, report as JSON:\n"
    "    inlinectl run --scenario entries.toml --pcap capture.pcap --json\n"
    "\n"
    "A scenario file lists entries, each as\n"
    "  [[entry]]\n"
    "  protocol = \"tcp\"       # or a number\n"
    "  address = \"192.0.2.1\"\n"
    "  port = 80              # 0, or left out: packets without a port";

CLI::App *declare_run(CLI::App &app, RunOptions &options)
{
    CLI::App *run = app.add_subcommand("run", "Program entries, replay captures, show counts");
    run->add_option("--pcap", options.captures, "Captures to replay, pcap or pcapng")
        ->type_name("FILE")
        ->allow_extra_args();
    run->add_option("--scenario", options.scenario_file,
                    "Entries to program instead of the captures' own")
        ->type_name("FILE");
    run->add_option("--card", options.card_file, "Card file (TOML)")->type_name("FILE");
    run->add_option("--nps", options.num_nps, "Number of network processors, 1 to 8")
        ->type_name("N")
        ->check(CLI::Range(1, 8).description(""));
    run->add_option("--state", options.state_directory,
                    "Keep the card here, or go on with the one here")
        ->type_name("DIR");
    run->add_flag("--json", options.json, "Write the report as one JSON object");
    run->add_flag("--quiet", options.quiet, "No progress, no report, only what failed");
    run->footer(run_examples);
    run->allow_extras();
    return run;
}

std::vector<std::string> option_names(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::Option *option : app.get_options())
        names.push_back(option->get_name());
    return names;
}

std::string name_of_option(const std::string &argument)
{
    return argument.substr(0, argument.find('='));
}

[[noreturn]] void refuse(const std::string &what, const std::string &given,
                         const std::vector<std::string> &known)
{
    throw UsageError(what + " '" + given + "'" + did_you_mean(given, known));
}

// What stands behind it would be an option's name no more, and nothing else is taken.
void refuse_end_of_options(int argc, const char *const *argv)
{
    if (std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--"; }))
        throw UsageError("'--' ends the options, and nothing stands behind them");
}

void refuse_extras_of_run(const CLI::App &run)
{
    const std::vector<std::string> extras = run.remaining();
    if (extras.empty())
        return;
    const std::string &first = extras.front();
    if (first.starts_with("-"))
        refuse("unknown option", name_of_option(first), option_names(run));
    throw UsageError("unexpected argument '" + first + "'; captures are given with --pcap");
}

// What stands in front of the command, or without one.
void refuse_extras_of_tool(const CLI::App &app, const CLI::App &run)
{
    const std::vector<std::string> extras = app.remaining();
    if (extras.empty())
        return;
    const std::string &first = extras.front();
    if (!first.starts_with("-"))
        refuse("unknown command", first, {run.get_name()});
    const std::string option = name_of_option(first);
    const std::vector<std::string> of_run = option_names(run);
    if (std::ranges::find(of_run, option) != of_run.end())
        throw UsageError("option '" + option + "' belongs to run and stands behind it: " +
                         "'inlinectl run " + option + "'");
    refuse("unknown option", option, option_names(app));
}

std::string first_line(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

} // namespace

CommandLine parse_command_line(int argc, const char *const *argv)
{
    CommandLine line;
    CLI::App app("inlinectl: a line card's inline services on a virtual card", "inlinectl");
    app.set_version_flag("--version", "inlinectl " INLINECTL_VERSION);
    app.footer(examples);
    app.allow_extras();
    const CLI::App *run = declare_run(app, line.run);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &wanted) { // help or version
        line.exit_code = app.exit(wanted, std::cout, std::cerr);
        return line;
    } catch (const CLI::ParseError &error) {
        throw UsageError(first_line(error.what()));
    }
    refuse_end_of_options(argc, argv);
    refuse_extras_of_tool(app, *run);
    refuse_extras_of_run(*run);
    if (!run->parsed())
        throw UsageError("no command given; 'inlinectl --help' lists them");
    if (line.run.captures.empty() && !line.run.scenario_file && !line.run.state_directory)
        throw UsageError("nothing to run: give --pcap, --scenario or --state");
    line.command = Command::run;
    return line;
}

} // namespace inlinectl
