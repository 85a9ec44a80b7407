#include "inject_command.h"

#include <cstdio>
#include <filesystem>
#include <iostream>
#include <limits>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "card_choice.h"
#include "exit_code.h"
#include "host_handles.h"
#include "injected_bytes.h"
#include "injection.h"
#include "injection_console.h"
#include "injection_report.h"
#include "interrupt.h"
#include "library_exit.h"
#include "standard_streams.h"
#include "started_host.h"
#include "temporary_directory.h"
#include "terminal.h"
#include "vlc/card_access.h"
#include "vlc/state_error.h"
#include "vservice_names.h"

namespace inlinectl {
namespace {

using injection_layout::Kind;

constexpr const char *examples =
    "Examples:\n"
    "  What does the library put in front of a payload?\n"
    "    inlinectl inject udp --tag 0x1234 --source 192.0.2.1 --destination 198.51.100.7 \\\n"
    "        --text hello\n"
    "  Through the host that runs in a directory, or one of its own when none does:\n"
    "    inlinectl inject ip --state card --tag 7 --pcap captures/office-lan.pcap\n"
    "  Through a card in a process of its own:\n"
    "    inlinectl inject udp --connect /tmp/card.sock --state host --source 192.0.2.1 \\\n"
    "        --destination 192.0.2.9 --hex '00 01 02'\n"
    "\n"
    "Frames land in cpu-portN.pcap of the card's state directory, or leave on the device that the\n"
    "card file gives the port. Without --state and --connect the card is there for this alone.\n"
    "Exit codes: 0 the packet was sent, 1 it was not, 2 usage.";

struct InjectOptions {
    CardChoice card;
    std::optional<std::filesystem::path> card_socket;
    std::optional<std::filesystem::path> state_directory;
    bool json = false;

    std::optional<Kind> kind; // none: nothing to do
    std::string source;
    std::string destination;
    BytesChoice bytes;
    Injection injection{};
};

// ---- the command line --------------------------------------------------------------------------

CLI::App *add_kind(CLI::App &inject, InjectOptions &options, const char *name, const char *summary,
                   Kind kind)
{
    CLI::App *app = inject.add_subcommand(name, summary);
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
    app->add_option("--hex", options.bytes.hex, "The bytes as pairs of hexadecimal digits")
        ->type_name("BYTES");
    app->add_option("--file", options.bytes.file, "The bytes of a file")->type_name("FILE");
    app->callback([&options, kind] { options.kind = kind; });
    return app;
}

void add_tag(CLI::App &app, InjectOptions &options, int64_t most, const char *summary)
{
    app.add_option("--tag", options.injection.tag, summary)
        ->type_name("N")
        ->check(CLI::Range(int64_t{0}, most).description(""));
}

void declare(CLI::App &inject, InjectOptions &options)
{
    CLI::App *udp =
        add_kind(inject, options, "udp", "A payload in UDP and IPv4, towards a service line card",
                 Kind::service);
    add_tag(*udp, options, std::numeric_limits<uint32_t>::max(),
            "Tag, of which 12 bits travel; 0 unless given");
    udp->add_option("--source,--src", options.source, "Source address")->required();
    udp->add_option("--destination,--dst", options.destination, "Destination address")->required();
    udp->add_option("--text", options.bytes.text, "The payload as it is written here");
    CLI::App *ip = add_kind(inject, options, "ip", "A whole IP packet", Kind::ip);
    add_tag(*ip, options, std::numeric_limits<uint16_t>::max(), "Tag, 16 bits; 0 unless given");
    ip->add_option("--pcap", options.bytes.capture, "The first IPv4 packet of a capture")
        ->type_name("FILE");
    inject.require_subcommand(0, 1);
    inject.footer(examples);
}

uint32_t required_address(const char *option, const std::string &text)
{
    const std::optional<uint32_t> address = address_number(text);
    if (!address)
        throw UsageError(std::string(option) + " is an IPv4 address such as 192.0.2.1");
    return *address;
}

void check(InjectOptions &options)
{
    if (!options.kind)
        throw UsageError("nothing to do: say udp or ip");
    if (options.card_socket && !options.state_directory)
        throw UsageError("no place for the host: give --state beside --connect");
    options.injection.kind = *options.kind;
    check_bytes(options.bytes, *options.kind);
    if (options.kind == Kind::service) {
        options.injection.source = required_address("--source", options.source);
        options.injection.destination = required_address("--destination", options.destination);
    }
}

// ---- carrying it out ---------------------------------------------------------------------------

InjectionReport inject_by_own_host(const InjectOptions &options)
{
    std::optional<TemporaryDirectory> temporary;
    if (!options.state_directory)
        temporary.emplace();
    const std::filesystem::path directory =
        temporary ? temporary->path() : *options.state_directory;
    const vlc::CardConfig card = options.card_socket
                                     ? card_at_socket(options.card, *options.card_socket)
                                     : card_of_state(options.card, directory);
    const LibraryExitWatch watch(say_that_the_library_ended_the_process);
    const StartedHost host(card_of(options.card_socket, card, directory), directory);
    return inject(options.injection);
}

InjectionReport carry_out(const InjectOptions &options)
{
    if (options.state_directory) {
        if (auto report = inject_through_host(*options.state_directory, options.injection))
            return *report;
    }
    return inject_by_own_host(options);
}

int perform(InjectOptions &options)
{
    vlc::CardClock::set_mode(vlc::ClockMode::real);
    watch_interrupts();
    try {
        options.injection.bytes = chosen_bytes(options.bytes);
        const InjectionReport report = carry_out(options);
        if (options.json)
            write_json(std::cout, report);
        else
            write_text(std::cout, report, standard_output_style());
        return exit_code_of_report(report.is_sent ? exit_fine : exit_failed);
    } catch (const vlc::CardGone &gone) {
        throw std::runtime_error(gone.what());
    } catch (const vlc::StateError &unreadable) {
        throw UsageError(unreadable.what());
    }
}

} // namespace

Command inject_command()
{
    const auto options = std::make_shared<InjectOptions>();
    return {.name = "inject",
            .summary = "Send one packet through a host's library",
            .words_hint = "say udp or ip",
            .declare = [options](CLI::App &app) { declare(app, *options); },
            .check = [options] { check(*options); },
            .perform = [options] { return perform(*options); }};
}

} // namespace inlinectl
