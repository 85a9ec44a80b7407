// Which interface a packet enters on.
#pragma once

#include <cstdint>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "vlc/card_config.h"
#include "vlc/packet.h"

namespace vlc {

// Rows that ask for the same things of a packet (a VLAN or not, a capture or not, a source prefix
// of the same length) share one table, so that a packet costs one look a kind of row, however many
// rows there are. Of the rows that fit, the first of the card file is the packet's.
class InterfaceMap {
public:
    // The configuration must outlive the map.
    explicit InterfaceMap(const CardConfig &config);

    bool empty() const noexcept { return kinds_.empty(); } // no row takes traffic
    // Null for a packet that enters on no interface of the card file.
    const InterfaceConfig *find(const CapturedPacket &packet,
                                const ParsedPacket &parsed) const noexcept;

private:
    struct Kind {
        bool by_vlan;
        bool by_capture;
        uint32_t mask; // of the source; 0 where rows ask for none or for any
        size_t first;  // the first row of this kind
        std::unordered_map<uint64_t, size_t> rows;
    };

    const std::vector<InterfaceConfig> &interfaces_;
    std::unordered_map<std::string_view, uint32_t> captures_; // that rows name, numbered from 1
    std::vector<Kind> kinds_;                                 // by their first rows
};

} // namespace vlc
