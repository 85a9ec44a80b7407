#include "audit_options.h"

#include <CLI/CLI.hpp>

#include "exit_code.h"

namespace inlinectl {
namespace {

constexpr const char *examples =
    "Examples:\n"
    "  A card and its host in one directory, running or not:\n"
    "    inlinectl audit --state card\n"
    "  A host whose card has a directory of its own:\n"
    "    inlinectl audit --state host --card-state card\n"
    "  The same while the card runs:\n"
    "    inlinectl audit --state host --connect card.socket\n"
    "  The differences alone, as JSON:\n"
    "    inlinectl audit --state card --json | jq .differences\n"
    "\n"
    "Nothing is changed, and no lock is taken.\n"
    "Exit codes: 0 no differences, 1 differences, 2 usage or what cannot be read.";

} // namespace

void declare_audit_options(CLI::App &audit, AuditOptions &options)
{
    audit.add_option("--state", options.state_directory, "The host's state")->type_name("DIR");
    audit
        .add_option("--card-state", options.card_directory,
                    "The card's state, where it has a directory of its own")
        ->type_name("DIR");
    audit.add_option("--connect", options.card_socket, "The card that listens here")
        ->type_name("SOCKET");
    audit.add_flag("--json", options.json, "Write the report as one JSON object");
    audit.footer(examples);
}

void check_audit_options(const AuditOptions &options)
{
    if (!options.state_directory)
        throw UsageError("nothing to audit: give --state");
    if (options.card_directory && options.card_socket)
        throw UsageError("a card is read from --card-state or from --connect, not from both");
}

} // namespace inlinectl
