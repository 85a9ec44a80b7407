#include "vlc/interface_map.h"

#include <algorithm>

namespace vlc {
namespace {

// VLAN ids have 12 bits and captures less than 16; 0 stands for what is not asked for.
uint64_t key_of(uint32_t source, uint32_t vlan, uint32_t capture)
{
    return uint64_t{source} << 32 | uint64_t{capture} << 16 | vlan;
}

} // namespace

InterfaceMap::InterfaceMap(const CardConfig &config) : interfaces_(config.interfaces)
{
    for (size_t i = 0; i < interfaces_.size(); ++i) {
        const InterfaceConfig &row = interfaces_[i];
        if (!row.takes_traffic()) {
            continue;
        }
        const bool by_vlan = row.vlan.has_value();
        const bool by_capture = !row.capture.empty();
        const uint32_t mask = row.source ? row.source->mask() : 0;
        auto kind = std::ranges::find_if(kinds_, [&](const Kind &one) {
            return one.by_vlan == by_vlan && one.by_capture == by_capture && one.mask == mask;
        });
        if (kind == kinds_.end()) {
            kind = kinds_.insert(kind, {by_vlan, by_capture, mask, i, {}});
        }
        const uint32_t capture =
            by_capture ? captures_.try_emplace(row.capture, captures_.size() + 1).first->second : 0;
        // A row that says the same as an earlier one gets no packets.
        kind->rows.try_emplace(
            key_of(row.source ? row.source->network : 0, row.vlan.value_or(0), capture), i);
    }
}

const InterfaceConfig *InterfaceMap::find(const CapturedPacket &packet,
                                          const ParsedPacket &parsed) const noexcept
{
    if (kinds_.empty()) {
        return nullptr;
    }
    uint32_t capture = 0;
    if (!captures_.empty()) {
        const auto named = captures_.find(packet.capture);
        capture = named == captures_.end() ? 0 : named->second;
    }
    size_t found = interfaces_.size();
    for (const Kind &kind : kinds_) {
        if (kind.first >= found) {
            break; // every row of it and of those behind it comes later
        }
        if (kind.by_capture && capture == 0) {
            continue;
        }
        const auto row = kind.rows.find(key_of(parsed.tuple.source & kind.mask,
                                               kind.by_vlan ? parsed.vlan_id : 0,
                                               kind.by_capture ? capture : 0));
        if (row != kind.rows.end()) {
            found = std::min(found, row->second);
        }
    }
    return found == interfaces_.size() ? nullptr : &interfaces_[found];
}

} // namespace vlc
