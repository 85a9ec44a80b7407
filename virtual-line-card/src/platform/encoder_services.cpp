// The service side's encoders. They need no card: the layouts are the same on all of them.
#include <algorithm>
#include <cstring>

#include "encapsulation_layout.h"
#include "lookup_keys.h"
#include "platform_encoders.h"
#include "tap_words.h"

using vlc::forced_as;
using vlc::tapped_call;

namespace {

char encoder; // what the handle points to

constexpr uint32_t nothing_written = 0;

} // namespace

void *ac_encode_init(uint64_t arg1, uint64_t arg2, uint64_t arg3, uint64_t arg4)
{
    if (auto forced = tapped_call("ac_encode_init", arg1, arg2, arg3, arg4))
        return forced_as<void *>(*forced);
    return &encoder;
}

uint32_t appl_construct_config_db_key(uint32_t vs_index, uint32_t zero, uint8_t *key,
                                      uint32_t key_type)
{
    if (auto forced = tapped_call("appl_construct_config_db_key", vs_index, zero, key, key_type))
        return forced_as<uint32_t>(*forced);
    const bool is_kind = key_type == ENCODER_KEY_ORDINARY || key_type == ENCODER_KEY_USER_2;
    if (vs_index >= lookup_keys::vservices || zero != 0 || !key || !is_kind)
        return nothing_written;
    const auto bytes = lookup_keys::service_key(lookup_keys::shadow_key_of_vservice(vs_index));
    std::ranges::copy(bytes, key);
    return bytes.size();
}

uint32_t appl_construct_sdn_encap_service_config_db_result(void *handle, const void *input,
                                                           uint8_t *result)
{
    if (auto forced =
            tapped_call("appl_construct_sdn_encap_service_config_db_result", handle, input, result))
        return forced_as<uint32_t>(*forced);
    if (handle != &encoder || !input || !result)
        return nothing_written;
    sdn_encap_input wanted;
    std::memcpy(&wanted, input, sizeof wanted);
    const auto bytes = encapsulation_layout::encoded(
        {.source = wanted.src_ip,
         .destination = wanted.dst_ip,
         .source_port = wanted.sport,
         .destination_port = wanted.dport,
         .protocol = wanted.protocol,
         .flags = {wanted.flag_0, wanted.flag_1, wanted.flag_2, wanted.flag_3},
         .user_flags = wanted.user_2_flags,
         .is_user_4 = wanted.is_user_4,
         .known_user = {wanted.known_user_30, wanted.known_user_36, wanted.known_user_37}});
    std::ranges::copy(bytes, result);
    return bytes.size();
}
