// The bytes of a packet, from where the command line says.
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "injection_layout.h"

namespace inlinectl {

// One of them.
struct BytesChoice {
    std::optional<std::string> text;
    std::optional<std::string> hex;
    std::optional<std::filesystem::path> file;
    std::optional<std::filesystem::path> capture;
};

// Throws UsageError for none and for several of them.
void check_bytes(const BytesChoice &choice, injection_layout::Kind kind);

// Throws UsageError for what cannot be read and for more than fits into a frame.
std::vector<uint8_t> chosen_bytes(const BytesChoice &choice);

} // namespace inlinectl
