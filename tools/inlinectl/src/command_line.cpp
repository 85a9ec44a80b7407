#include "command_line.h"

#include <algorithm>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "audit_command.h"
#include "card_command.h"
#include "diff_command.h"
#include "exit_code.h"
#include "inject_command.h"
#include "metrics_command.h"
#include "nearest_name.h"
#include "run_command.h"
#include "show_command.h"
#include "sites_command.h"
#include "top_command.h"
#include "trace_command.h"
#include "util_command.h"
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
    return {run_command(),   card_command(),  vservice_command(), inject_command(),
            show_command(),  top_command(),   metrics_command(),  diff_command(),
            trace_command(), sites_command(), audit_command(),    util_command()};
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

// What may stand behind the tool's name, or behind a command's: every one that is declared.
std::vector<const CLI::App *> commands_of(const CLI::App &app)
{
    return app.get_subcommands([](const CLI::App *) { return true; });
}

std::vector<std::string> command_names(const CLI::App &app)
{
    std::vector<std::string> names;
    for (const CLI::App *command : commands_of(app))
        names.push_back(command->get_name());
    return names;
}

std::string name_of_option(const std::string &argument)
{
    return argument.substr(0, argument.find('='));
}

// "inlinectl vservice load"
std::string words_of(const CLI::App &app)
{
    const CLI::App *parent = app.get_parent();
    return (parent != nullptr ? words_of(*parent) + " " : "") + app.get_name();
}

// What stands behind it would be an option's name no more, and nothing else is taken.
void refuse_end_of_options(int argc, const char *const *argv)
{
    if (std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--"; }))
        throw UsageError("'--' ends the options, and nothing stands behind them");
}

[[noreturn]] void refuse_extra_option(const CLI::App &app, const std::string &option)
{
    std::vector<const CLI::App *> commands = commands_of(app);
    std::stable_partition(commands.begin(), commands.end(),
                          [](const CLI::App *one) { return one->parsed(); });
    for (const CLI::App *command : commands) {
        const std::vector<std::string> known = option_names(*command);
        if (std::ranges::find(known, option) != known.end())
            throw UsageError("option '" + option + "' belongs to " + command->get_name() +
                             " and stands behind it: '" + words_of(*command) + " " + option + "'");
    }
    throw UsageError("unknown option '" + option + "'" + did_you_mean(option, option_names(app)));
}

// What was given to an app that does not know it.
void refuse_extras(const CLI::App &app, const std::string &words_hint)
{
    const std::vector<std::string> extras = app.remaining();
    if (extras.empty())
        return;
    const std::string &first = extras.front();
    if (first.starts_with("-"))
        refuse_extra_option(app, name_of_option(first));
    const std::vector<std::string> known = command_names(app);
    std::string hint = did_you_mean(first, known);
    if (hint.empty() && !words_hint.empty())
        hint = "; " + words_hint;
    const char *what = known.empty() ? "unexpected argument '" : "unknown command '";
    throw UsageError(what + first + "'" + hint);
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
    const auto given =
        std::ranges::find_if(commands, [](const Declared &one) { return one.app->parsed(); });
    refuse_extras(tool, "");
    if (given == commands.end())
        throw UsageError("no command given; 'inlinectl --help' lists them");
    refuse_extras(*given->app, given->command.words_hint);
    for (const CLI::App *action : given->app->get_subcommands())
        refuse_extras(*action, "");
    given->command.check();
    line.command = given->command;
    return line;
}

} // namespace inlinectl
