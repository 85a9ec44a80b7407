// The rows that chosen keys have on every NP, read in one pass over the hardware.
#pragma once

#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "hardware_view.h"
#include "inline_service_shadowdb.h"

namespace services {

class KnownRows {
public:
    void want(uint32_t table, ByteSpan key) { wanted_[table].try_emplace(text(key)); }
    void read(const HardwareView &hardware);
    uint32_t nps() const { return nps_; }
    // Null when the NP has no row of that key. The key must have been wanted.
    const std::vector<uint8_t> *find(uint32_t np, uint32_t table, ByteSpan key) const;

private:
    using Results = std::vector<std::optional<std::vector<uint8_t>>>; // by NP
    static std::string text(ByteSpan key) { return {key.begin(), key.end()}; }

    std::unordered_map<std::string, Results> wanted_[SHADOW_DB_TABLES];
    uint32_t nps_ = 0;
};

} // namespace services
