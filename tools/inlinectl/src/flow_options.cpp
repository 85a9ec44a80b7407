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
        run.add_flag("--flows", choice.wanted, "Count each 5-tuple by a flow of its own");
    run.add_option_function<std::string>(
           "--flow-nps", [&options](const std::string &nps) { options.on_all_nps = nps == "all"; },
           "On all NPs, or the one where its packets come")
        ->type_name("all|one")
        ->check(CLI::IsMember({"all", "one"}).description(""))
        ->needs(flows);
    run.add_option_function<std::string>(
           "--flow-police",
           [&options](const std::string &text) { options.policer = policer_of(text); },
           "Drop a flow's bytes beyond these")
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
           "End a flow that is idle for so long; default 15")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.001, 1e6).description(""))
        ->needs(flows);
    run.add_option("--flow-buckets", options.buckets, "Chains of a new flow table; default 65536")
        ->type_name("N")
        ->check(CLI::Range(uint32_t{1}, services::FlowOptions::most_buckets).description(""))
        ->needs(flows);
    run.add_option("--flow-export", choice.export_file, "Write a JSON line for each flow")
        ->type_name("FILE")
        ->needs(flows);
}

} // namespace inlinectl
