#include "shown_state.h"

#include <algorithm>
#include <cstring>

#include "card_hardware.h"
#include "exit_code.h"
#include "lookup_keys.h"
#include "service_error.h"
#include "vlc/window.h"

namespace inlinectl {
namespace {

template <typename Bytes>
std::string text_of_bytes(const Bytes &bytes)
{
    return {bytes.begin(), bytes.end()};
}

} // namespace

vlc::PacketCount ShownVservice::hits() const
{
    vlc::PacketCount sum{};
    for (const NpRow &np : programmed ? programmed->nps : std::vector<NpRow>()) {
        sum.packets += np.hits.packets;
        sum.bytes += np.hits.bytes;
    }
    return sum;
}

ShownState::ShownState(const StatePlaces &places)
    : host_(open_host(*places.state_directory)), card_(open_card(places, host_)),
      window_(std::make_unique<vlc::Window>(host_, 0))
{
}

ShownState::~ShownState() = default;

services::StoredTables ShownState::tables() const
{
    try {
        return {static_cast<const shadow_db *>(window_->root()), in_window(*window_)};
    } catch (const services::ServiceError &unreadable) {
        throw UsageError(host_.path().string() + ": " + unreadable.what());
    }
}

const std::vector<ShownState::Rows> &ShownState::rows(uint32_t table) const
{
    std::vector<Rows> &all = rows_[table];
    if (!all.empty())
        return all;
    all.resize(card_->config().num_nps);
    for (uint32_t np = 0; np < all.size(); ++np)
        card_->for_each_hit_count(
            np, static_cast<vlc::TableKind>(table),
            [&rows = all[np]](const vlc::TableRow &row, const vlc::PacketCount &hits) {
                rows[text_of_bytes(row.key_span())] = {text_of_bytes(row.result_span()), hits};
            });
    return all;
}

ShownNode ShownState::shown(const services::StoredNode &node) const
{
    ShownNode shown{node, {}};
    if (!node.has_row)
        return shown;
    const app_node &stored = node.content.app_node;
    const std::string key(stored.key, stored.key + stored.key_len);
    const std::vector<Rows> &all = rows(stored.table_type);
    for (uint32_t np = 0; np < all.size(); ++np) {
        const auto row = all[np].find(key);
        if (row == all[np].end()) {
            shown.nps.push_back({});
            continue;
        }
        const auto &[result, hits] = row->second;
        const auto wanted = services::row_result(
            node.content, np, vlc::takes_counters_unswapped(card_->config().card_type));
        const std::string wanted_text(wanted.bytes.data(), wanted.bytes.data() + wanted.length);
        shown.nps.push_back({true, result == wanted_text, hits});
    }
    return shown;
}

std::vector<ShownAttribute> ShownState::attributes() const
{
    std::vector<ShownAttribute> shown;
    const auto stored = tables().attributes();
    for (uint32_t uidb = 0; stored && uidb < stored->size(); ++uidb) {
        const auto &interfaces = card_->config().interfaces;
        const auto interface = std::ranges::find(interfaces, uidb, &vlc::InterfaceConfig::uidb);
        const bool is_of_card = interface != interfaces.end();
        constexpr uidb_attribute unset{};
        if (!is_of_card && std::memcmp(&(*stored)[uidb], &unset, sizeof unset) == 0)
            continue;
        shown.push_back(
            {static_cast<uint16_t>(uidb), (*stored)[uidb], is_of_card ? &*interface : nullptr});
    }
    return shown;
}

std::vector<ShownVservice> ShownState::vservices() const
{
    std::vector<ShownVservice> shown;
    const services::StoredTables tables = this->tables();
    const auto configs = tables.vservices();
    const auto keys = tables.keys();
    constexpr vservice_config unset{};
    for (uint32_t index = 0; index < VSERVICES; ++index) {
        const uint16_t shadow_key = lookup_keys::shadow_key_of_vservice(index);
        ShownVservice service{.index = index, .config = {}, .programmed = {}};
        if (configs)
            service.config = (*configs)[index];
        const auto key = keys.find(shadow_key);
        if (key != keys.end() && !key->second.nodes.empty())
            service.programmed = this->shown(key->second.nodes.front());
        service.takes_traffic = std::ranges::any_of(
            card_->config().interfaces,
            [shadow_key](const vlc::InterfaceConfig &one) { return one.key == shadow_key; });
        if (service.programmed || std::memcmp(&service.config, &unset, sizeof unset) != 0)
            shown.push_back(std::move(service));
    }
    return shown;
}

std::optional<ShownKey> ShownState::key(uint32_t key) const
{
    const auto keys = tables().keys();
    const auto found = keys.find(key);
    if (found == keys.end())
        return std::nullopt;
    ShownKey shown{key, found->second.content, {}};
    for (const services::StoredNode &node : found->second.nodes)
        shown.nodes.push_back(this->shown(node));
    return shown;
}

std::vector<ShownFlow> ShownState::flows() const
{
    return shown_flows(tables().flows(), *card_);
}

} // namespace inlinectl
