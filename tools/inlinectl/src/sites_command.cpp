#include "sites_command.h"

#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "exit_code.h"
#include "followed_sites.h"
#include "interrupt.h"
#include "listed_sites.h"
#include "numbers.h"
#include "standard_streams.h"
#include "vlc/host_console.h"
#include "vlc/site_messages.h"
#include "vlc/site_query.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  Every site with its flags and how often it was traced:\n"
    "    inlinectl sites --state card\n"
    "  Let the sites of some lines print, while the host runs, and see what they say:\n"
    "    inlinectl sites set 'file shadowdb* line 100-200 +p' --state card\n"
    "    inlinectl sites follow --state card\n"
    "  Print only what fails with code 22, then back to the built-in values:\n"
    "    inlinectl sites set 'level error arg rc=22 +s' --state card\n"
    "    inlinectl sites set 'file * =_' --state card\n"
    "\n"
    "Words of a query, all of which must hold; * and ? stand for any letters and for one:\n"
    "  file PATTERN   the name with or without its extension, from its begin or behind a '_',\n"
    "                 or the whole path\n"
    "  func PATTERN   line N, N-M, N- or -M   format TEXT   number N   level event|error\n"
    "  arg NAME=VALUE with +s: print only with this value of an argument\n"
    "Changes, at the end: + sets, - clears, = sets these alone; ';' begins another query.\n"
    "  p print   s print slowly, with conditions   l compare the line   i invert the comparison\n"
    "  q no print   x no print, and no trace unless it matches   =_ the built-in value\n"
    "\n"
    "Exit codes: 0 done, 1 nothing is selected, 2 usage, what cannot be read, or no host runs.";

void write(const SitesOptions &options, const std::vector<ListedSite> &sites)
{
    if (options.json)
        write_json(std::cout, sites);
    else
        write_text(std::cout, sites);
}

int list_sites(const SitesOptions &options)
{
    ListedSites listed = sites_in(*options.state_directory);
    const vlc::SiteQuery query = vlc::parse_site_selection(options.query);
    std::erase_if(listed.sites,
                  [&query](const ListedSite &one) { return !query.selects(one.site); });
    write(options, listed.sites);
    for (const std::string &note : listed.notes)
        std::fprintf(stderr, "inlinectl: %s\n", note.c_str());
    return listed.notes.empty() ? exit_fine : exit_failed;
}

int set_sites(const SitesOptions &options)
{
    vlc::ConsoleClient host(*options.state_directory);
    const vlc::ConsoleAnswer answer = host.ask(vlc::sites_verb, options.query);
    if (answer.status == exit_usage)
        throw UsageError(answer.text);
    if (answer.status != 0) {
        std::fprintf(stderr, "inlinectl: %s\n", answer.text.c_str());
        return exit_failed;
    }
    const auto changes =
        with_sites(vlc::changes_of_text(answer.text), sites_in(*options.state_directory).sites);
    if (options.json)
        write_json(std::cout, changes);
    else
        write_text(std::cout, changes);
    return exit_fine;
}

int follow_sites(const SitesOptions &options)
{
    watch_interrupts();
    FollowedSites followed(*options.state_directory, vlc::parse_site_selection(options.query),
                           options.json);
    vlc::ConsoleClient host(*options.state_directory);
    const bool was_interrupted = host.follow(
        vlc::sites_topic, [&followed](std::string_view line) { followed.take(line); },
        interrupt_descriptor());
    if (!was_interrupted)
        std::fprintf(stderr, "inlinectl: the host has ended\n");
    return exit_fine;
}

void check_selection(const SitesOptions &options)
{
    vlc::parse_site_selection(options.query);
}

void check_changes(const SitesOptions &options)
{
    vlc::parse_site_changes(options.query);
}

void add_common(CLI::App &app, SitesOptions &options)
{
    app.add_option("--state", options.state_directory, "The host's state")->type_name("DIR");
    app.add_flag("--json", options.json, "Write one JSON object a line");
    app.footer(examples);
}

CLI::Option *add_action(CLI::App &sites, SitesOptions &options, const char *name,
                        const char *summary, void (*check_query)(const SitesOptions &),
                        int (*act)(const SitesOptions &))
{
    CLI::App *app = sites.add_subcommand(name, summary);
    app->allow_extras();
    add_common(*app, options);
    app->callback([&options, check_query, act] {
        options.check_query = check_query;
        options.act = act;
    });
    return app->add_option("query", options.query, "Which sites, and for 'set' the change")
        ->type_name("QUERY");
}

void declare(CLI::App &sites, SitesOptions &options)
{
    add_action(sites, options, "list", "List the sites: the default", check_selection, list_sites);
    add_action(sites, options, "set", "Switch sites of a running host", check_changes, set_sites)
        ->required();
    add_action(sites, options, "follow", "Print what a running host's sites print", check_selection,
               follow_sites);
    sites.require_subcommand(0, 1);
    add_common(sites, options);
}

} // namespace

void declare_site_list(CLI::App &app, SitesOptions &options)
{
    add_common(app, options);
    app.add_option("query", options.query, "Which sites")->type_name("QUERY");
}

void check(const SitesOptions &options)
{
    if (!options.state_directory)
        throw UsageError("nothing to look into: give --state");
    try {
        (options.check_query ? options.check_query : check_selection)(options);
    } catch (const vlc::SiteQueryError &error) {
        throw UsageError("'" + options.query + "', " + error.what());
    }
}

int perform(const SitesOptions &options)
{
    try {
        const int outcome = (options.act ? options.act : list_sites)(options);
        return exit_code_of_report(outcome);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

Command sites_command()
{
    const auto options = std::make_shared<SitesOptions>();
    return {.name = "sites",
            .summary = "List, switch and follow the library's debug points",
            .words_hint = "say list, set or follow",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { inlinectl::check(*options); },
            .perform = [options] { return inlinectl::perform(*options); }};
}

} // namespace inlinectl
