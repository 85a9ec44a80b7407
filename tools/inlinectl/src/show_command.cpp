#include "show_command.h"

#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "service_error.h"
#include "shown_counters.h"
#include "shown_shadow.h"
#include "shown_state.h"
#include "sites_command.h"
#include "standard_streams.h"
#include "trace_command.h"
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
    "  Every entry with its counters and the NPs that have it, a JSON object a line:\n"
    "    inlinectl show shadow --state card --json\n"
    "  The ten counters of each NP that have counted most:\n"
    "    inlinectl show counters --state card --sort packets --first 10\n"
    "\n"
    "Nothing is changed, and no lock is taken; no host needs to be up.\n"
    "Exit codes: 0 shown, 1 no such entry, 2 usage or what cannot be read.";

constexpr const char *views =
    "say attributes, vservices, flows, entry, shadow, counters, sites or trace";

struct ShowOptions {
    StatePlaces places;
    uint32_t key = 0;
    FlowSelection flows;
    ShadowSelection shadow;
    CounterSelection counters;
    bool json = false;
    SitesOptions sites;
    TraceOptions trace;
    std::function<void(const ShowOptions &)> check_apart; // of a view without window and card
    std::function<int(const ShowOptions &)> show;
};

// How a view comes by what it shows.
template <int view(const ShowOptions &, const ShownState &)>
int of_state(const ShowOptions &options)
{
    return view(options, ShownState(options.places));
}

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

// Throws UsageError when there is nothing at all that could be shown.
Snapshot snapshot_of_shadow(const ShowOptions &options, const SnapshotParts &parts)
{
    Snapshot state = take_snapshot(options.places, parts);
    if (!state.shadow_unread.empty())
        throw UsageError(state.shadow_unread);
    return state;
}

int show_shadow(const ShowOptions &options)
{
    const Snapshot state = snapshot_of_shadow(options, {.rows = true});
    (options.json ? write_shadow_json : write_shadow_text)(std::cout, state, options.shadow);
    return exit_fine;
}

int show_counters(const ShowOptions &options)
{
    const Snapshot state = snapshot_of_shadow(options, {.rows = false, .counters = true});
    (options.json ? write_counters_json : write_counters_text)(std::cout, state, options.counters);
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
                   int (*perform)(const ShowOptions &))
{
    CLI::App *app = show.add_subcommand(name, summary);
    app->allow_extras();
    app->footer(examples);
    declare_state_places(*app, options.places);
    app->add_flag("--json", options.json, "Write JSON");
    app->callback([&options, perform] { options.show = perform; });
    return app;
}

CLI::Option *add_key(CLI::App &view, const char *name, const char *summary, const auto &take)
{
    return view.add_option_function<uint32_t>(name, take, summary)
        ->type_name("KEY")
        ->check(CLI::Range(0, int{vlc::InterfaceConfig::highest_key}).description(""));
}

void declare_tables(CLI::App &show, ShowOptions &options)
{
    CLI::App *shadow =
        add_view(show, options, "shadow", "Every entry of the shadow DB", show_shadow);
    add_key(*shadow, "--key", "Only the entries under this key, 0 to 1023",
            [&options](uint32_t key) { options.shadow.key = key; });
    shadow->add_option("--first", options.shadow.first, "No more than so many")->type_name("N");
    shadow->add_flag("--full", options.shadow.full, "All bytes of keys and results in text");
    CLI::App *counters = add_view(show, options, "counters",
                                  "Counters in use, by NP, and who holds them", show_counters);
    counters->add_option("--sort", options.counters.sort, "What comes first")
        ->type_name("ORDER")
        ->check(CLI::IsMember({"number", "packets", "bytes"}));
    counters->add_option("--first", options.counters.first, "No more than so many of each NP")
        ->type_name("N");
}

// A view of a command of its own, which needs no window and no card.
template <typename Options>
void add_apart(CLI::App &show, ShowOptions &options, const char *name, const char *summary,
               Options ShowOptions::*own, void (*declare_own)(CLI::App &, Options &))
{
    CLI::App *app = show.add_subcommand(name, summary);
    declare_own(*app, options.*own);
    app->allow_extras()->callback([&options, own] {
        options.check_apart = [own](const ShowOptions &given) { check(given.*own); };
        options.show = [own](const ShowOptions &given) { return perform(given.*own); };
    });
}

void declare(CLI::App &show, ShowOptions &options)
{
    add_view(show, options, "attributes", "Attributes of interfaces", of_state<show_attributes>);
    add_view(show, options, "vservices", "Virtual services and their hits",
             of_state<show_vservices>);
    declare_flow_selection(
        *add_view(show, options, "flows", "Flows, their counts and times", of_state<show_flows>),
        options.flows);
    add_key(*add_view(show, options, "entry", "The entries under a key of the shadow DB",
                      of_state<show_entry>),
            "key", "The key, 0 to 1023", [&options](uint32_t key) { options.key = key; })
        ->required();
    declare_tables(show, options);
    add_apart(show, options, "sites", "The library's sites", &ShowOptions::sites,
              declare_site_list);
    add_apart(show, options, "trace", "What the library's sites traced", &ShowOptions::trace,
              declare_trace);
    show.require_subcommand(0, 1);
    show.footer(examples);
}

void check(const ShowOptions &options)
{
    if (options.check_apart)
        return options.check_apart(options);
    if (!options.show)
        throw UsageError(std::string("nothing to show: ") + views);
    check_state_places(options.places);
}

int perform(const ShowOptions &options)
{
    try {
        const int outcome = options.show(options);
        return exit_code_of_report(outcome);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    } catch (const services::ServiceError &damaged) {
        throw UsageError(options.places.state_directory->string() + ": " + damaged.what());
    }
}

} // namespace

Command show_command()
{
    const auto options = std::make_shared<ShowOptions>();
    return {.name = "show",
            .summary = "Show what a host's window and its card hold",
            .words_hint = views,
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { check(*options); },
            .perform = [options] { return perform(*options); }};
}

} // namespace inlinectl
