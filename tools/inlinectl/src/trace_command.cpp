#include "trace_command.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "ctf_export.h"
#include "decoded_trace.h"
#include "exit_code.h"
#include "nearest_name.h"
#include "numbers.h"
#include "standard_streams.h"
#include "trace_report.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  The last 20 failures that the library told:\n"
    "    inlinectl trace --state card --buffer error --last 20\n"
    "  What was traced in the files whose names begin with prm, for a program:\n"
    "    inlinectl trace --state card --site 'file prm*' --json\n"
    "  All of it as a trace in the Common Trace Format, version 1.8:\n"
    "    inlinectl trace --state card --ctf trace && babeltrace2 trace\n"
    "\n"
    "Each line: time, buffer, level (1 for failures), site, function, text, arguments by name.\n"
    "A host may be running, stopped or killed; nothing is changed, and no lock is taken.\n"
    "Exit codes: 0 shown, 1 something is damaged and left out, 2 usage or what cannot be read.";

vlc::SiteQuery selection_of(const TraceOptions &options)
{
    try {
        return vlc::parse_site_selection(options.site.value_or(""));
    } catch (const vlc::SiteQueryError &error) {
        throw UsageError("--site '" + *options.site + "', " + error.what());
    }
}

void select(std::vector<DecodedEvent> &events, const TraceOptions &options)
{
    const vlc::SiteQuery query = selection_of(options);
    std::erase_if(events, [&](const DecodedEvent &event) {
        return (options.buffer && event.buffer != *options.buffer) ||
               (options.site && !(event.site && query.selects(*event.site)));
    });
    if (options.last && events.size() > *options.last)
        events.erase(events.begin(), events.end() - static_cast<std::ptrdiff_t>(*options.last));
}

void write(const TraceOptions &options, const DecodedTrace &trace)
{
    if (options.ctf_directory) {
        write_ctf(*options.ctf_directory, trace.events);
        std::cout << counted(trace.events.size(), "event", "events") << " written to "
                  << options.ctf_directory->string() << "\n";
    } else if (options.json) {
        write_json(std::cout, trace.events);
    } else if (trace.events.empty()) {
        std::cout << (trace.has_files ? "No event is selected.\n" : "Nothing was traced here.\n");
    } else {
        write_text(std::cout, trace.events, standard_output_style());
    }
}

} // namespace

void declare_trace(CLI::App &app, TraceOptions &options)
{
    app.add_option("--state", options.state_directory, "The host's state")->type_name("DIR");
    app.add_option("--buffer", options.buffer, "One of the two buffers alone")
        ->type_name("event|error");
    app.add_option("--last", options.last, "Only so many, the newest")->type_name("N");
    app.add_option("--site", options.site,
                   "Events of certain sites: file, func, line, format, number, level")
        ->type_name("QUERY");
    app.add_flag("--json", options.json, "Write one JSON object a line");
    app.add_option("--ctf", options.ctf_directory,
                   "Write a trace in the Common Trace Format into a new or empty directory")
        ->type_name("DIR");
    app.footer(examples);
}

void check(const TraceOptions &options)
{
    if (!options.state_directory)
        throw UsageError("nothing to look into: give --state");
    const std::vector<std::string> buffers(std::begin(trace_buffers), std::end(trace_buffers));
    if (options.buffer && std::ranges::find(buffers, *options.buffer) == buffers.end())
        throw UsageError("no buffer is named '" + *options.buffer + "', there are event and error" +
                         did_you_mean(*options.buffer, buffers));
    if (options.json && options.ctf_directory)
        throw UsageError("--json and --ctf are two forms: give one");
    selection_of(options);
}

int perform(const TraceOptions &options)
{
    try {
        DecodedTrace trace = decode_trace(*options.state_directory);
        select(trace.events, options);
        write(options, trace);
        for (const std::string &note : trace.notes)
            std::fprintf(stderr, "inlinectl: %s\n", note.c_str());
        return exit_code_of_report(trace.is_damaged ? exit_failed : exit_fine);
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

Command trace_command()
{
    const auto options = std::make_shared<TraceOptions>();
    return {.name = "trace",
            .summary = "Show what the library's sites traced",
            .words_hint = "its options say what is shown",
            .declare = [options](CLI::App &app) { declare_trace(app, *options); },
            .check = [options] { inlinectl::check(*options); },
            .perform = [options] { return inlinectl::perform(*options); }};
}

} // namespace inlinectl
