// The flow service's side: its encoders, which need no card, and its table's walker.
#include <algorithm>
#include <cstring>

#include "flow_layout.h"
#include "platform_flow.h"
#include "tap_words.h"
#include "vlc/virtual_line_card.h"

using flow_layout::FlowInfo;
using vlc::forced_as;
using vlc::tapped_call;

namespace {

const FlowInfo &flow_at(const void *flow_info)
{
    return *static_cast<const FlowInfo *>(flow_info);
}

} // namespace

void dpss_flow_encoder_key(const void *flow_info, uint8_t *key, uint8_t *key_len)
{
    if (tapped_call("dpss_flow_encoder_key", flow_info, key, key_len))
        return;
    if (!flow_info || !key || !key_len)
        return;
    const flow_layout::Key bytes = flow_layout::key_of(flow_at(flow_info).tuple);
    std::ranges::copy(bytes, key);
    *key_len = static_cast<uint8_t>(bytes.size());
}

void dpss_flow_encoder_result(const void *flow_info, uint8_t *result)
{
    if (tapped_call("dpss_flow_encoder_result", flow_info, result))
        return;
    if (flow_info && result)
        std::ranges::copy(flow_layout::result_of(flow_at(flow_info)), result);
}

void dpss_flow_encoder_userdata(const void *flow_info, uint8_t *user_data)
{
    if (tapped_call("dpss_flow_encoder_userdata", flow_info, user_data))
        return;
    if (flow_info && user_data)
        std::ranges::copy(flow_layout::user_data_of(flow_at(flow_info)), user_data);
}

uint32_t dpss_flow_is_policer_enabled(const void *flow_info)
{
    if (auto forced = tapped_call("dpss_flow_is_policer_enabled", flow_info))
        return forced_as<uint32_t>(*forced);
    return flow_info && flow_at(flow_info).policer ? 1 : 0;
}

void dpss_fill_flow_info_from_db(const uint8_t *user_data, void *out, uint32_t source)
{
    if (tapped_call("dpss_fill_flow_info_from_db", user_data, out, source))
        return;
    if (!user_data || !out || source != DPSS_FILL_FROM_USER_DATA)
        return;
    if (const auto flow = flow_layout::flow_in({user_data, flow_layout::UserData{}.size()}))
        *static_cast<FlowInfo *>(out) = *flow;
}

void dpss_flow_scan_callback(void **records, uint32_t count)
{
    if (tapped_call("dpss_flow_scan_callback", records, count))
        return;
    if (const vlc::VirtualLineCard *card = vlc::VirtualLineCard::current())
        card->scan_flows({records, records ? count : 0});
}
