// A card as a TOML document.
#pragma once

#include "vlc/card_config.h"
#include "vlc/toml_reader.h"

namespace vlc {

// What a document does not say is the default card's.
CardConfig card_of_document(const TomlReader &reader, const toml::table &document);
// Whether nothing is left to the default card.
bool says_whole_card(const toml::table &document);

} // namespace vlc
