// What kind of card this is. Comes from the card file (TOML), or is the default card.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

namespace vlc {

struct CardConfig {
    std::string name = "default";
    uint32_t card_type = 0xD20001; // outside the codes that take counters unswapped
    uint16_t slot = 0;
    uint16_t num_nps = 2;                    // 1 to 8
    uint32_t service_config_capacity = 8192; // rows of an NP's table
    uint32_t ext_conf_capacity = 8192;
    uint64_t window_bytes = uint64_t{64} << 20;
};

// Reads a card file. Throws StateError "FILE:LINE:COLUMN: ..." for what is broken, out of range or
// unknown (with the nearest known name).
CardConfig load_card_file(const std::filesystem::path &file);

} // namespace vlc
