#include "command_line.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "audit_command.h"
#include "card_command.h"
#include "exit_code.h"
#include "nearest_name.h"
#include "run_command.h"
#include "show_command.h"
#include "vservice_command.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  inlinectl run --pcap capture.pcap\n"
    "  inlinectl audit --state card\n"
    "  inlinectl run --help\n"
    "\n"
    "Exit codes: 0 fine, 1 something failed, 2 usage or unreadable input.";

std::vector<Command> all_commands()
{
    return {run_command(), card_command(), vservice_command(), show_command(), audit_command()};
}

// A command and its place in the parser.
struct Declared {
    Command command;
    CLI::App *app;
};

std::vector<Declared> declare_commands(CLI::App &tool)
{
    std::vector<Declared> declared;
    for (Command &command : all_commands()) {
        CLI::App *app = tool.add_subcommand(command.name, command.summary);
        command.declare(*app);
        app->allow_extras();
        declared.push_back({std::move(command), app});
    }
    return declared;
}

std::vector<std::string> option_names(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::Option *option : app.get_options())
        names.push_back(option->get_name());
    return names;
}

std::vector<std::string> command_names(const std::vector<Declared> &commands)
{
    std::vector<std::string> names;
    for (const Declared &declared : commands)
        names.push_back(declared.app->get_name());
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

void refuse_extras_of(const Declared &given)
{
    const std::vector<std::string> extras = given.app->remaining();
    if (extras.empty())
        return;
    const std::string &first = extras.front();
    if (first.starts_with("-"))
        refuse("unknown option", name_of_option(first), option_names(*given.app));
    throw UsageError("unexpected argument '" + first + "'; " + given.command.words_hint);
}

// What stands in front of the command, or without one.
void refuse_extras_of_tool(const CLI::App &tool, const std::vector<Declared> &commands)
{
    const std::vector<std::string> extras = tool.remaining();
    if (extras.empty())
        return;
    const std::string &first = extras.front();
    if (!first.starts_with("-"))
        refuse("unknown command", first, command_names(commands));
    const std::string option = name_of_option(first);
    for (const Declared &declared : commands) {
        const std::vector<std::string> known = option_names(*declared.app);
        const std::string name = declared.app->get_name();
        if (std::ranges::find(known, option) != known.end())
            throw UsageError("option '" + option + "' belongs to " + name +
                             " and stands behind it: 'inlinectl " + name + " " + option + "'");
    }
    refuse("unknown option", option, option_names(tool));
}

std::string first_line(const std::string &text)
{
    return text.substr(0, text.find('\n'));
}

} // namespace

CommandLine parse_command_line(int argc, const char *const *argv)
{
    CommandLine line;
    CLI::App tool("inlinectl: a line card's inline services on a virtual card", "inlinectl");
    tool.set_version_flag("--version", "inlinectl " INLINECTL_VERSION);
    tool.footer(examples);
    tool.allow_extras();
    tool.require_subcommand(0, 1);
    const std::vector<Declared> commands = declare_commands(tool);
    try {
        tool.parse(argc, argv);
    } catch (const CLI::Success &wanted) { // help or version
        line.exit_code = tool.exit(wanted, std::cout, std::cerr);
        return line;
    } catch (const CLI::ParseError &error) {
        throw UsageError(first_line(error.what()));
    }
    refuse_end_of_options(argc, argv);
    refuse_extras_of_tool(tool, commands);
    const auto given =
        std::ranges::find_if(commands, [](const Declared &one) { return one.app->parsed(); });
    if (given == commands.end())
        throw UsageError("no command given; 'inlinectl --help' lists them");
    refuse_extras_of(*given);
    given->command.check();
    line.command = given->command;
    return line;
}

} // namespace inlinectl
