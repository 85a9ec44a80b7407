#include "host_verbs.h"

#include <fstream>
#include <sstream>

#include "card_hardware.h"
#include "injection_console.h"
#include "inline_service_packet.h"
#include "numbers.h"
#include "platform_prm_stats.h"

namespace inlinectl {
namespace {

std::vector<std::pair<std::string, std::string>> connection_of(vlc::VirtualLineCard &card)
{
    const vlc::PrmLedger::Sums &requests = card.ledger().sums();
    uint64_t taken = 0;
    for (const auto &of_table : requests.requests) {
        for (const uint64_t of_operation : of_table)
            taken += of_operation;
    }
    return {{"card", card.is_distant()
                         ? (card.card_is_away() ? "another process's, away" : "another process's")
                         : "this process's"},
            {"requests taken in", grouped(taken)},
            {"not answered yet", grouped(requests.unanswered)},
            {"in doubt", grouped(requests.in_doubt)},
            {"connections broken", grouped(requests.breaks)}};
}

services::UtilitySources sources_of(vlc::VirtualLineCard &card)
{
    return {.in_shared_memory = in_window(card.window()),
            .counter_count = prm_stats_cl_get_stateless_double_size(),
            .connection = [&card] { return connection_of(card); }};
}

// "KIND" or "KIND ABOUT", in decimal.
services::UtilityMessage message_of(std::string_view request)
{
    services::UtilityMessage message;
    std::istringstream words{std::string(request)};
    if (!(words >> message.kind))
        throw std::runtime_error("a utility message without a kind");
    words >> message.about;
    return message;
}

std::string result_text()
{
    std::ifstream file(utility_result_file, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

vlc::ConsoleAnswer deliver(std::string_view request)
{
    const services::UtilityMessage message = message_of(request);
    const bool is_registered =
        message.kind < INUTIL_KINDS && inutil_handler[message.kind] != nullptr;
    if (plm_inline_process_util_msg(&message) != 0)
        return {1, std::string(utility_result_file) + " could not be written"};
    if (!is_registered)
        return {1, "the host has no handler for messages of kind " + std::to_string(message.kind)};
    return {0, result_text()};
}

} // namespace

HostVerbs::HostVerbs(vlc::VirtualLineCard &card) : card_(card), utility_(sources_of(card))
{
    card.console().answer("util", deliver);
    offer_injections(card.console());
}

HostVerbs::~HostVerbs()
{
    card_.console().answer("util", {});
}

} // namespace inlinectl
