#include "util_command.h"

#include <array>
#include <charconv>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "exit_code.h"
#include "nearest_name.h"
#include "standard_streams.h"
#include "utility_answers.h"
#include "vlc/host_console.h"
#include "vlc/state_error.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  The packet counters of a running host, see 'inlinectl run --stay':\n"
    "    inlinectl util counters --state card\n"
    "  What its shadow DB holds under one key:\n"
    "    inlinectl util shadow --about 256 --state card\n"
    "  Its connection to PRM, by the message's number:\n"
    "    inlinectl util 2 --state card\n"
    "\n"
    "The host writes its answer into /tmp/inutil_result.txt, of its own /tmp.\n"
    "Exit codes: 0 answered, 1 not answered, 2 usage, or no host runs there.";

struct NamedKind {
    const char *name;
    services::UtilityKind kind;
};
constexpr std::array<NamedKind, 3> kinds{{{"counters", services::UtilityKind::counters},
                                          {"shadow", services::UtilityKind::shadow},
                                          {"connection", services::UtilityKind::connection}}};

struct UtilOptions {
    std::string kind;
    uint32_t about = services::UtilityMessage::all;
    std::filesystem::path state_directory;
    bool json = false;
};

uint32_t number_of(const std::string &kind)
{
    for (const NamedKind &one : kinds) {
        if (kind == one.name)
            return static_cast<uint32_t>(one.kind);
    }
    uint32_t number = 0;
    const char *end = kind.data() + kind.size();
    const auto [stop, error] = std::from_chars(kind.data(), end, number);
    if (error == std::errc() && stop == end)
        return number;
    std::vector<std::string> names;
    for (const NamedKind &one : kinds)
        names.emplace_back(one.name);
    throw UsageError("unknown kind of message '" + kind + "'" + did_you_mean(kind, names) +
                     "; say counters, shadow, connection or a number");
}

void declare(CLI::App &app, UtilOptions &options)
{
    app.add_option("kind", options.kind, "counters, shadow, connection, or the message's number")
        ->type_name("KIND")
        ->required();
    app.add_option("--state", options.state_directory, "The state of the running host")
        ->type_name("DIR")
        ->required();
    app.add_option("--about", options.about, "Of counters one NP, of shadow one key")
        ->type_name("N");
    app.add_flag("--json", options.json, "Write one JSON object");
    app.footer(examples);
}

int perform(const UtilOptions &options)
{
    vlc::ConsoleAnswer answer;
    const uint32_t kind = number_of(options.kind);
    try {
        vlc::ConsoleClient console(options.state_directory);
        answer = console.ask("util", std::to_string(kind) + " " + std::to_string(options.about));
    } catch (const vlc::StateError &unreachable) {
        throw UsageError(unreachable.what());
    }
    if (answer.status != 0)
        throw std::runtime_error(answer.text);
    if (options.json)
        std::cout << nlohmann::ordered_json{{"kind", kind}, {"result", answer.text}} << "\n";
    else
        std::cout << answer.text;
    if (!standard_output_arrived())
        throw std::runtime_error("the answer could not be written");
    return exit_fine;
}

} // namespace

Command util_command()
{
    const auto options = std::make_shared<UtilOptions>();
    return {.name = "util",
            .summary = "Ask a running host by a utility message",
            .words_hint = "one message at a time",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { number_of(options->kind); },
            .perform = [options] { return perform(*options); }};
}

} // namespace inlinectl
