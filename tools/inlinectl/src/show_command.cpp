#include "show_command.h"

#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "service_error.h"
#include "shown_state.h"
#include "standard_streams.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  Attributes of interfaces:\n"
    "    inlinectl show attributes --state card\n"
    "  Virtual services with what their rows have counted:\n"
    "    inlinectl show vservices --state card\n"
    "  The ten flows of a network that have most packets:\n"
    "    inlinectl show flows --state card --address 192.0.2.0/24 --sort packets --first 10\n"
    "  The entries under a key of the shadow DB, here of vservice 7:\n"
    "    inlinectl show entry 775 --state card --json\n"
    "\n"
    "Nothing is changed, and no lock is taken; no host needs to be up.\n"
    "Exit codes: 0 shown, 1 no such entry, 2 usage or what cannot be read.";

struct ShowOptions {
    std::optional<std::filesystem::path> state_directory;
    std::optional<std::filesystem::path> card_directory;
    std::optional<std::filesystem::path> card_socket;
    uint32_t key = 0;
    FlowSelection flows;
    bool json = false;
    std::function<int(const ShowOptions &, const ShownState &)> show;
};

template <typename Shown>
void write(const ShowOptions &options, const Shown &shown)
{
    if (options.json)
        write_json(std::cout, shown);
    else
        write_text(std::cout, shown);
}

int show_attributes(const ShowOptions &options, const ShownState &state)
{
    write(options, state.attributes());
    return exit_fine;
}

int show_vservices(const ShowOptions &options, const ShownState &state)
{
    write(options, state.vservices());
    return exit_fine;
}

int show_flows(const ShowOptions &options, const ShownState &state)
{
    write(options, select(state.flows(), options.flows));
    return exit_fine;
}

int show_entry(const ShowOptions &options, const ShownState &state)
{
    const std::optional<ShownKey> key = state.key(options.key);
    if (!key) {
        std::fprintf(stderr, "inlinectl: nothing is stored under key %u\n", options.key);
        return exit_failed;
    }
    write(options, *key);
    return exit_fine;
}

CLI::App *add_view(CLI::App &show, ShowOptions &options, const char *name, const char *summary,
                   int (*perform)(const ShowOptions &, const ShownState &))
{
    CLI::App *app = show.add_subcommand(name, summary);
    app->allow_extras();
    app->footer(examples);
    app->add_option("--state", options.state_directory, "The host's state")->type_name("DIR");
    app->add_option("--card-state", options.card_directory,
                    "The card's state, where it has a directory of its own")
        ->type_name("DIR");
    app->add_option("--connect", options.card_socket, "The card that listens here")
        ->type_name("SOCKET");
    app->add_flag("--json", options.json, "Write one JSON object");
    app->callback([&options, perform] { options.show = perform; });
    return app;
}

void declare(CLI::App &show, ShowOptions &options)
{
    add_view(show, options, "attributes", "Attributes of interfaces", show_attributes);
    add_view(show, options, "vservices", "Virtual services and their hits", show_vservices);
    declare_flow_selection(
        *add_view(show, options, "flows", "Flows, their counts and times", show_flows),
        options.flows);
    add_view(show, options, "entry", "The entries under a key of the shadow DB", show_entry)
        ->add_option("key", options.key, "The key, 0 to 1023")
        ->type_name("KEY")
        ->required()
        ->check(CLI::Range(0, int{vlc::InterfaceConfig::highest_key}).description(""));
    show.require_subcommand(0, 1);
    show.footer(examples);
}

void check(const ShowOptions &options)
{
    if (!options.show)
        throw UsageError("nothing to show: say attributes, vservices, flows or entry");
    if (!options.state_directory)
        throw UsageError("nothing to look into: give --state");
    if (options.card_directory && options.card_socket)
        throw UsageError("--card-state and --connect are two places of one card: give one");
}

std::unique_ptr<vlc::CardAccess> card_of(const ShowOptions &options)
{
    if (options.card_socket)
        return vlc::look_into_card(*options.card_socket);
    return options.card_directory ? vlc::look_into_directory(*options.card_directory) : nullptr;
}

int perform(const ShowOptions &options)
{
    try {
        const ShownState state(*options.state_directory, card_of(options));
        const int outcome = options.show(options, state);
        if (standard_output_arrived())
            return outcome;
        std::fprintf(stderr, "inlinectl: the report could not be written\n");
        return exit_failed;
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    } catch (const services::ServiceError &damaged) {
        throw UsageError(options.state_directory->string() + ": " + damaged.what());
    }
}

} // namespace

Command show_command()
{
    const auto options = std::make_shared<ShowOptions>();
    return {.name = "show",
            .summary = "Show what a host's window and its card hold",
            .words_hint = "say attributes, vservices, flows or entry",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { check(*options); },
            .perform = [options] { return perform(*options); }};
}

} // namespace inlinectl
