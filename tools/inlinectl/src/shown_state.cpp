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

constexpr size_t counter_begin = 1; // the bytes of a result that an NP's counter has
constexpr size_t counter_end = 4;

vlc::StateDirectory opened(const std::filesystem::path &path)
{
    vlc::StateDirectory directory(path, vlc::Access::read_only);
    directory.require(vlc::Holdings::host);
    if (!directory.card())
        throw UsageError(path.string() + ": is not complete: its card was never up");
    return directory;
}

std::unique_ptr<vlc::CardAccess> card_or_own(std::unique_ptr<vlc::CardAccess> card,
                                             const vlc::StateDirectory &host)
{
    if (card)
        return card;
    if (host.holdings() == vlc::Holdings::host)
        throw UsageError(host.path().string() +
                         ": is a host's alone; say where its card is with --card-state or "
                         "--connect");
    return vlc::look_into_directory(host.path());
}

template <typename Bytes>
std::string text_of_bytes(const Bytes &bytes)
{
    return {bytes.begin(), bytes.end()};
}

bool is_same_result(const app_node &stored, const std::string &row)
{
    if (stored.result_len != row.size())
        return false;
    const bool has_counter =
        stored.hw_index != SHADOW_DB_NO_HW_INDEX || stored.table_type != SHADOW_DB_SERVICE_CONFIG;
    for (size_t i = 0; i < row.size(); ++i) {
        const bool is_counter = has_counter && i >= counter_begin && i < counter_end;
        if (!is_counter && static_cast<uint8_t>(row[i]) != stored.result[i])
            return false;
    }
    return true;
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

ShownState::ShownState(const std::filesystem::path &host, std::unique_ptr<vlc::CardAccess> card)
    : host_(opened(host)), card_(card_or_own(std::move(card), host_)),
      window_(std::make_unique<vlc::Window>(host_, 0))
{
    if (card_->config().num_nps != host_.card()->num_nps ||
        card_->config().card_type != host_.card()->card_type)
        throw UsageError(host.string() + ": is the host of another card");
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
    for (const Rows &of_np : rows(stored.table_type)) {
        const auto row = of_np.find(key);
        if (row == of_np.end())
            shown.nps.push_back({});
        else
            shown.nps.push_back(
                {true, is_same_result(stored, row->second.first), row->second.second});
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
