// The file by which a state directory is known: which card it was made for and what of
// it is in there, once it is complete.
#pragma once

#include <filesystem>
#include <optional>

#include "vlc/card_config.h"
#include "vlc/state_directory.h"

namespace vlc {

constexpr const char *marker_name = "virtual-line-card";
constexpr const char *unfinished_marker_name = "virtual-line-card.new";

struct Marker {
    CardConfig card;
    Holdings holdings = Holdings::card_and_host;
};

// None: the directory's files are still being made. Throws StateError.
std::optional<Marker> read_marker(const std::filesystem::path &directory);

// Under another name first, so that a marker is whole or as it was. Throws StateError.
void write_marker(const std::filesystem::path &directory, const std::optional<Marker> &marker);

} // namespace vlc
