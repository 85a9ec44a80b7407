#include "flow_options.h"

#include <charconv>

#include <CLI/CLI.hpp>

namespace inlinectl {
namespace {

template <typename Number>
bool read(std::string_view text, Number *number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), *number);
    return error == std::errc() && end == text.data() + text.size();
}

// "125000:30000"
std::optional<flow_layout::Policer> policer_of(std::string_view text)
{
    const size_t colon = text.find(':');
    flow_layout::Policer policer;
    if (colon == std::string_view::npos || !read(text.substr(0, colon), &policer.rate) ||
        !read(text.substr(colon + 1), &policer.burst) || policer.burst == 0)
        return std::nullopt;
    return policer;
}

} // namespace

void declare_flow_options(CLI::App &run, FlowChoice &choice)
{
    services::FlowOptions &options = choice.options;
    CLI::Option *flows =
        run.add_flag("--flows", choice.wanted, "Have a flow for each 5-tuple, and count it");
    run.add_option_function<std::string>(
           "--flow-nps", [&options](const std::string &nps) { options.on_all_nps = nps == "all"; },
           "Program a flow into 'all' NPs, or into the 'one' where its packets come")
        ->type_name("all|one")
        ->check(CLI::IsMember({"all", "one"}).description(""))
        ->needs(flows);
    run.add_option_function<std::string>(
           "--flow-police",
           [&options](const std::string &text) { options.policer = policer_of(text); },
           "Drop what a flow sends beyond RATE bytes a second; BURST bytes go through at once")
        ->type_name("RATE:BURST")
        ->check(CLI::Validator(
            [](const std::string &text) {
                return policer_of(text) ? ""
                                        : "'" + text + "' is no RATE:BURST, such as 125000:30000";
            },
            ""))
        ->needs(flows);
    run.add_option_function<double>(
           "--flow-idle",
           [&options](double seconds) {
               options.idle_time = std::chrono::duration_cast<std::chrono::nanoseconds>(
                   std::chrono::duration<double>(seconds));
           },
           "End a flow that has no packet for this long; 15 seconds if not given")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 1e6).description(""))
        ->needs(flows);
    run.add_option("--flow-buckets", options.buckets,
                   "Chains of the flow table where there is none yet; 65536 if not given")
        ->type_name("N")
        ->check(CLI::Range(uint32_t{1}, services::FlowOptions::most_buckets).description(""))
        ->needs(flows);
    run.add_option("--flow-export", choice.export_file,
                   "Write one JSON line for each flow that ended, and for each that goes on")
        ->type_name("FILE")
        ->needs(flows);
}

} // namespace inlinectl
