#include "vservice_command.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "card_choice.h"
#include "exit_code.h"
#include "host_handles.h"
#include "interrupt.h"
#include "library_exit.h"
#include "nearest_name.h"
#include "standard_streams.h"
#include "terminal.h"
#include "vlc/card_access.h"
#include "vlc/state_error.h"
#include "vservice_feeding.h"
#include "vservice_file.h"
#include "vservice_names.h"
#include "vservice_report.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  Program every service of a file on the card that a directory keeps:\n"
    "    inlinectl vservice load services.toml --state card\n"
    "  One more, whose packets go to this host:\n"
    "    inlinectl vservice add --index 7 --encapsulation udp-local --source 192.0.2.1 \\\n"
    "        --source-port 4000 --destination-port 4789 --state card\n"
    "  Two less:\n"
    "    inlinectl vservice delete 7 8 --state card\n"
    "  Send traffic through, and write what leaves:\n"
    "    inlinectl run --state card --pcap capture.pcap --output out.pcap\n"
    "\n"
    "A file lists services, each as\n"
    "  [[vservice]]\n"
    "  index = 7\n"
    "  encapsulation = \"udp\"        # udp, udp-local or a number; udp when left out\n"
    "  user = 1                     # 1 when left out\n"
    "  source = \"192.0.2.1\"\n"
    "  destination = \"203.0.113.9\"  # udp-local does without\n"
    "  source_port = 4000\n"
    "  destination_port = 4789\n"
    "\n"
    "A card file says which packets meet a service, see cards/vservices.toml.\n"
    "delete-all is a message that the library takes in and that changes nothing.\n"
    "Exit codes: 0 all of it was done, 1 something was skipped or failed, 2 usage.";

struct VserviceOptions {
    CardChoice card;
    std::optional<std::filesystem::path> card_socket;
    std::optional<std::filesystem::path> state_directory;
    bool json = false;

    enum class Action { none, add, remove, remove_all, load } action = Action::none;
    vservice_config record{};
    std::string encapsulation = "udp";
    std::string source;
    std::string destination;
    std::vector<uint32_t> indices;
    std::filesystem::path file;
};

// ---- the command line --------------------------------------------------------------------------

CLI::App *add_action(CLI::App &vservice, VserviceOptions &options, const char *name,
                     const char *summary, VserviceOptions::Action action)
{
    CLI::App *app = vservice.add_subcommand(name, summary);
    app->allow_extras();
    app->footer(examples);
    app->add_option("--state", options.state_directory, "The host's state")->type_name("DIR");
    app->add_option("--connect", options.card_socket, "Be the host of the card that listens here")
        ->type_name("SOCKET");
    app->add_option("--card", options.card.card_file, "Card file (TOML)")->type_name("FILE");
    app->add_option("--nps", options.card.num_nps, "Number of network processors, 1 to 8")
        ->type_name("N")
        ->check(CLI::Range(1, 8).description(""));
    app->add_flag("--json", options.json, "Write the report as one JSON object");
    app->callback([&options, action] { options.action = action; });
    return app;
}

void declare(CLI::App &vservice, VserviceOptions &options)
{
    using Action = VserviceOptions::Action;
    CLI::App *add = add_action(vservice, options, "add", "Add or change one service", Action::add);
    const auto number = [add](const char *name, auto &value, const char *summary) {
        using Number = std::remove_reference_t<decltype(value)>;
        return add->add_option(name, value, summary)
            ->check(CLI::Range(int64_t{0}, int64_t{std::numeric_limits<Number>::max()})
                        .description(""));
    };
    number("--index", options.record.vs_index, "The service, 0 to 255")->required();
    add->add_option("--encapsulation", options.encapsulation, "udp, udp-local or a number");
    options.record.user = 1;
    number("--user", options.record.user, "Kind of its user; 1, 2 and 4 are known");
    add->add_option("--source", options.source, "Outer source address")->required();
    add->add_option("--destination", options.destination, "Outer destination address");
    number("--source-port", options.record.sport, "Outer source port")->required();
    number("--destination-port", options.record.dport, "Outer destination port")->required();
    add_action(vservice, options, "delete", "Delete services", Action::remove)
        ->add_option("index", options.indices, "The services")
        ->required()
        ->check(
            CLI::Range(int64_t{0}, int64_t{std::numeric_limits<uint32_t>::max()}).description(""));
    add_action(vservice, options, "delete-all", "Send the message that deletes nothing",
               Action::remove_all);
    add_action(vservice, options, "load", "Add or change every service of a file", Action::load)
        ->add_option("file", options.file, "The file (TOML)")
        ->required();
    vservice.require_subcommand(0, 1);
    vservice.footer(examples);
}

uint32_t required_address(const char *option, const std::string &text)
{
    const std::optional<uint32_t> address = address_number(text);
    if (!address)
        throw UsageError(std::string(option) + " is an IPv4 address such as 192.0.2.1");
    return *address;
}

void take_encapsulation(VserviceOptions &options)
{
    const std::string &text = options.encapsulation;
    if (const auto number = encapsulation_number(text)) {
        options.record.encap = *number;
    } else if (!CLI::detail::lexical_cast(text, options.record.encap)) {
        throw UsageError("unknown encapsulation '" + text + "'" +
                         did_you_mean(text, known_encapsulations()));
    }
}

void check(VserviceOptions &options)
{
    using Action = VserviceOptions::Action;
    if (options.action == Action::none)
        throw UsageError("nothing to do: say add, delete, delete-all or load");
    if (!options.state_directory)
        throw UsageError("no card: give --state");
    if (options.action != Action::add)
        return;
    take_encapsulation(options);
    options.record.src_ip = required_address("--source", options.source);
    if (!options.destination.empty())
        options.record.dst_ip = required_address("--destination", options.destination);
    else if (options.record.encap != VSERVICE_ENCAP_UDP_LOCAL)
        throw UsageError("--destination is needed; only udp-local does without");
}

// ---- carrying it out ---------------------------------------------------------------------------

VserviceReport feed(const VserviceOptions &options, const std::vector<vservice_config> &records,
                    VserviceFeeding &feeding)
{
    if (options.action == VserviceOptions::Action::remove_all)
        feeding.remove_all();
    for (size_t i = 0; i < records.size() && !interrupted(); ++i)
        feeding.add(records[i]);
    for (size_t i = 0; i < options.indices.size() && !interrupted(); ++i)
        feeding.remove(options.indices[i]);
    VserviceReport report = feeding.finish();
    report.interrupted = interrupted();
    report.not_fed = records.size() + options.indices.size() - report.fed.size();
    return report;
}

int perform(const VserviceOptions &options)
{
    using Action = VserviceOptions::Action;
    vlc::CardClock::set_mode(vlc::ClockMode::real);
    watch_interrupts();
    try {
        std::vector<vservice_config> records;
        if (options.action == Action::load)
            records = load_vservices(options.file);
        else if (options.action == Action::add)
            records.push_back(options.record);
        if (interrupted())
            throw std::runtime_error("interrupted before anything was made");
        const vlc::CardConfig card = options.card_socket
                                         ? card_at_socket(options.card, *options.card_socket)
                                         : card_of_state(options.card, options.state_directory);
        const LibraryExitWatch watch(say_that_the_library_ended_the_process);
        VserviceFeeding feeding(card_of(options.card_socket, card, *options.state_directory),
                                *options.state_directory);
        const VserviceReport report = feed(options, records, feeding);
        if (options.json)
            write_json(std::cout, report);
        else
            write_text(std::cout, report, standard_output_style());
        return exit_code_of_report(report.went_well() ? exit_fine : exit_failed);
    } catch (const vlc::CardGone &gone) {
        throw std::runtime_error(gone.what());
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

} // namespace

Command vservice_command()
{
    const auto options = std::make_shared<VserviceOptions>();
    return {.name = "vservice",
            .summary = "Feed a host's library with virtual services",
            .words_hint = "say add, delete, delete-all or load",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { check(*options); },
            .perform = [options] { return perform(*options); }};
}

} // namespace inlinectl
