// What `inlinectl run` was asked for.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <vector>

namespace inlinectl {

struct RunOptions {
    std::optional<std::filesystem::path> card_file;
    std::optional<std::filesystem::path> scenario_file;
    std::optional<std::filesystem::path> state_directory;
    std::optional<uint16_t> num_nps; // instead of the card's own number
    std::vector<std::filesystem::path> captures;
    bool json = false;
    bool quiet = false;
};

} // namespace inlinectl
