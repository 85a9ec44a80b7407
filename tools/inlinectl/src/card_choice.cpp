#include "card_choice.h"

#include <array>
#include <cstdio>

#include "exit_code.h"
#include "numbers.h"
#include "vlc/card_access.h"
#include "vlc/state_directory.h"

namespace inlinectl {
namespace {

// What is asked for of a card, the rest as it is.
vlc::CardConfig wanted(const CardChoice &choice, const vlc::CardConfig &otherwise)
{
    vlc::CardConfig card = choice.card_file ? vlc::load_card_file(*choice.card_file) : otherwise;
    if (choice.num_nps)
        card.num_nps = *choice.num_nps;
    return card;
}

bool is_same(const vlc::CardConfig &one, const vlc::CardConfig &other)
{
    return one.num_nps == other.num_nps && one.card_type == other.card_type;
}

} // namespace

std::string card_text(const vlc::CardConfig &card)
{
    std::array<char, 16> type{};
    std::snprintf(type.data(), type.size(), "0x%X", card.card_type);
    return counted(card.num_nps, "NP", "NPs") + ", type " + type.data();
}

vlc::CardConfig card_of_state(const CardChoice &choice,
                              const std::optional<std::filesystem::path> &state_directory)
{
    std::optional<vlc::CardConfig> stored;
    if (state_directory)
        stored = vlc::stored_card(*state_directory);
    if (stored && !choice.card_file && !choice.num_nps)
        return *stored;
    const vlc::CardConfig card = wanted(choice, stored.value_or(vlc::CardConfig{}));
    if (stored && !is_same(card, *stored))
        throw UsageError(state_directory->string() + ": was made for a card of " +
                         card_text(*stored) + ", not of " + card_text(card) +
                         "; without --card and --nps it goes on as it is");
    return card;
}

vlc::CardConfig card_at_socket(const CardChoice &choice, const std::filesystem::path &socket)
{
    const vlc::CardConfig there = vlc::look_into_card(socket)->config();
    const vlc::CardConfig card = wanted(choice, there);
    if (!is_same(card, there))
        throw UsageError(socket.string() + ": the card there has " + card_text(there) + ", not " +
                         card_text(card) + "; without --card and --nps it is taken as it is");
    return there;
}

} // namespace inlinectl
