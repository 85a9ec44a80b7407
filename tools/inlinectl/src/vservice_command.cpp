#include "vservice_command.h"

#include <iostream>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "card_choice.h"
#include "card_hardware.h"
#include "exit_code.h"
#include "host_handles.h"
#include "interrupt.h"
#include "library_complaints.h"
#include "nearest_name.h"
#include "settlement.h"
#include "standard_streams.h"
#include "terminal.h"
#include "vlc/card_access.h"
#include "vlc/state_error.h"
#include "vservice_feeder.h"
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
    app->allow_extras(false);
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
    add->add_option("--index", options.record.vs_index, "The service, 0 to 255")->required();
    add->add_option("--encapsulation", options.encapsulation, "udp, udp-local or a number");
    options.record.user = 1;
    add->add_option("--user", options.record.user, "Kind of its user; 1, 2 and 4 are known");
    add->add_option("--source", options.source, "Outer source address")->required();
    add->add_option("--destination", options.destination, "Outer destination address");
    add->add_option("--source-port", options.record.sport, "Outer source port")->required();
    add->add_option("--destination-port", options.record.dport, "Outer destination port")
        ->required();
    add_action(vservice, options, "delete", "Delete services", Action::remove)
        ->add_option("index", options.indices, "The services")
        ->required();
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

// ---- feeding -----------------------------------------------------------------------------------

class Feeding {
public:
    Feeding(const VserviceOptions &options, const vlc::CardConfig &card)
        : owned_card_(card_of(options.card_socket, card, *options.state_directory)),
          card_(*owned_card_), session_(card_), host_(handles_of(card_, session_))
    {
        host_.start();
        session_.let_everything_arrive();
        if (host_.found_root())
            settle_what_was_left();
        feeder_.emplace();
    }

    void add(const vservice_config &record)
    {
        const bool was_there = feeder_->programmed(record.vs_index).has_value();
        FedVservice fed{.index = record.vs_index, .config = record};
        complaints_.look();
        feeder_->add(record);
        hear(fed);
        if (fed.said.empty() && feeder_->programmed(record.vs_index))
            fed.came = was_there ? FedVservice::Came::modified : FedVservice::Came::programmed;
        report_.fed.push_back(std::move(fed));
    }

    void remove(uint32_t index)
    {
        const bool was_there = feeder_->programmed(index).has_value();
        FedVservice fed{.index = index};
        complaints_.look();
        feeder_->remove(index);
        hear(fed);
        if (was_there && !feeder_->programmed(index))
            fed.came = FedVservice::Came::deleted;
        report_.fed.push_back(std::move(fed));
    }

    void remove_all() { feeder_->remove_all(); }

    VserviceReport finish()
    {
        session_.let_everything_arrive();
        for (std::string &text : complaints_.look())
            report_.said.push_back(std::move(text));
        for (uint32_t index = 0; index < VSERVICES; ++index)
            report_.programmed_now += feeder_->programmed(index) ? 1U : 0U;
        return std::move(report_);
    }

private:
    // What the hardware answers late belongs to the record too.
    void hear(FedVservice &fed)
    {
        session_.let_everything_arrive();
        fed.said = complaints_.look();
    }

    void settle_what_was_left()
    {
        const CardHardware hardware(card_.access());
        const services::Settlement settled =
            services::settle({.root = host_.root(),
                              .in_shared_memory = in_window(card_.window()),
                              .hardware = &hardware,
                              .run_events = [this] { session_.let_everything_arrive(); }});
        for (const std::string &left : settled.left)
            report_.said.push_back("not settled: " + left);
    }

    std::unique_ptr<vlc::VirtualLineCard> owned_card_;
    vlc::VirtualLineCard &card_;
    CardSession session_;
    services::ServiceHost host_;
    LibraryComplaints complaints_;
    std::optional<services::VserviceFeeder> feeder_;
    VserviceReport report_;
};

void feed(const VserviceOptions &options, const std::vector<vservice_config> &records,
          Feeding &feeding)
{
    for (const vservice_config &record : records) {
        if (interrupted())
            throw std::runtime_error("interrupted");
        feeding.add(record);
    }
    for (const uint32_t index : options.indices)
        feeding.remove(index);
    if (options.action == VserviceOptions::Action::remove_all)
        feeding.remove_all();
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
        const vlc::CardConfig card = options.card_socket
                                         ? card_at_socket(options.card, *options.card_socket)
                                         : card_of_state(options.card, options.state_directory);
        Feeding feeding(options, card);
        feed(options, records, feeding);
        const VserviceReport report = feeding.finish();
        if (options.json)
            write_json(std::cout, report);
        else
            write_text(std::cout, report, standard_output_style());
        return standard_output_arrived() && report.went_well() ? exit_fine : exit_failed;
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
