// `inlinectl show shadow`: every entry of the shadow DB, with its counters and its rows.
#pragma once

#include <cstdint>
#include <optional>
#include <ostream>

#include "snapshot.h"

namespace inlinectl {

struct ShadowSelection {
    std::optional<uint32_t> key;
    size_t first = SIZE_MAX;
    bool full = false; // in text: all bytes of keys and results
};

void write_shadow_text(std::ostream &out, const Snapshot &state, const ShadowSelection &selection);
void write_shadow_json(std::ostream &out, const Snapshot &state, const ShadowSelection &selection);

// "0xc00000"
std::string counter_text(uint32_t number);

// "note: TEXT" for each, before which a line is left blank.
void write_notes_text(std::ostream &out, const std::vector<std::string> &notes);

} // namespace inlinectl
