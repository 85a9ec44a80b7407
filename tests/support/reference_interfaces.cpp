// The reference's interfaces and virtual services: attributes, lookups, messages.
#include <cerrno>
#include <cstring>

#include "encapsulation_layout.h"
#include "platform_card.h"
#include "reference_model.h"

namespace test {
namespace {

constexpr size_t longest_key = 32;
constexpr uint32_t local_host = 0x7F000001;

bool is_supported(const vservice_config &config)
{
    return config.encap == VSERVICE_ENCAP_UDP || config.encap == VSERVICE_ENCAP_UDP_LOCAL;
}

// What the encoder makes of a service, on a card whose slots have no endpoints.
encapsulation_layout::Encoded encoded(const vservice_config &config)
{
    const bool is_known = config.user == 1 || config.user == 2 || config.user == 4;
    encapsulation_layout::Encapsulation wanted{
        .source = config.src_ip,
        .destination = config.encap == VSERVICE_ENCAP_UDP_LOCAL ? local_host : config.dst_ip,
        .source_port = config.sport,
        .destination_port = config.dport};
    wanted.flags = {1, 1, 0, 0};
    wanted.user_flags = config.user == 2 ? 1 : 0;
    wanted.is_user_4 = config.user == 4 ? 1 : 0;
    if (is_known)
        wanted.known_user = {1, 1, 3};
    return encapsulation_layout::encoded(wanted);
}

} // namespace

// ---- virtual services

void ReferenceModel::open_encoder()
{
    has_encoder_ = !call(Service::ac_encode_init);
    takes_vservices_ = has_vservices;
}

void ReferenceModel::configure(const vservice_config &config)
{
    if (!takes_vservices_ || config.vs_index >= VSERVICES)
        return;
    vservices[config.vs_index] = config;
    app_node content{};
    if (is_supported(config) && encode(config, &content))
        program_vservice(lookup_keys::shadow_key_of_vservice(config.vs_index), content);
}

// False for a key that the library cannot take.
bool ReferenceModel::encode(const vservice_config &config, app_node *content)
{
    call(Service::platform_get_my_card_type); // on none of the types does it change anything
    const auto key = lookup_keys::service_key(lookup_keys::shadow_key_of_vservice(config.vs_index));
    const auto no_key = call(Service::appl_construct_config_db_key);
    content->key_len = static_cast<uint32_t>(no_key.value_or(key.size()));
    if (content->key_len > longest_key)
        return false;
    if (!no_key)
        memcpy(content->key, key.data(), key.size());
    const bool is_written =
        !call(Service::appl_construct_sdn_encap_service_config_db_result) && has_encoder_;
    const encapsulation_layout::Encoded result = encoded(config);
    content->result_len = encapsulation_layout::zero_bytes + result.size();
    if (is_written)
        memcpy(content->result + encapsulation_layout::zero_bytes, result.data(), result.size());
    content->table_type = SHADOW_DB_SERVICE_CONFIG;
    content->hw_index = SHADOW_DB_NO_HW_INDEX;
    return true;
}

// By a command list of one command. A list that is refused is empty and usable all the same.
void ReferenceModel::program_vservice(uint16_t key, app_node content)
{
    create_list();
    ModelBatch batch;
    batch.key = key;
    batch.num_node = 1;
    const NodePointer node = stored(key, 0);
    content.action = node != nullptr ? SHADOW_DB_MODIFY : SHADOW_DB_CREATE;
    if (append_to_batch())
        batch.requests.push_back({content, node});
    apply(batch);
}

void ReferenceModel::remove_vservice(uint32_t index)
{
    if (!takes_vservices_ || index >= VSERVICES)
        return;
    vservices.erase(index);
    ModelBatch batch;
    batch.key = lookup_keys::shadow_key_of_vservice(index);
    batch.action = INLINE_SVC_BATCH_DELETE_ALL;
    apply(batch);
}

// ---- interfaces

void ReferenceModel::set_attribute(uint16_t uidb, const uidb_attribute &attribute)
{
    if (!has_attributes || uidb >= UIDB_ATTRIBUTES)
        return;
    attributes[uidb] = attribute;
    if (attribute.app_ID == 0)
        attributes[uidb].app_type = 0;
}

uidb_attribute ReferenceModel::attribute(uint16_t uidb) const
{
    const auto found = attributes.find(uidb);
    return found == attributes.end() ? uidb_attribute{} : found->second;
}

ReferenceModel::Endpoint ReferenceModel::look_up_endpoint(uint16_t uidb)
{
    const uint16_t slot = attribute(uidb).slot;
    if (!has_attributes)
        return {.code = ENOENT};
    if (call(Service::plm_slot_to_nodeid) ||
        (slot != ModelCard::slot_with_endpoint && slot != ModelCard::other_slot))
        return {.code = ENOENT};
    const bool is_other_type = call(Service::platform_node_get_card_type).has_value();
    if (is_other_type || slot != ModelCard::slot_with_endpoint)
        return {.code = 0, .ip = 0, .value = 1};
    const auto found = endpoints.find(slot);
    return found == endpoints.end() ? Endpoint{.code = ENOENT} : found->second;
}

ReferenceModel::Lookup ReferenceModel::look_up_pic()
{
    if (const uint32_t rc = code_of(Service::imc_s_attr_query); rc != 0)
        return {.code = rc};
    if (call(Service::imc_gdp_pic_get))
        return {.code = 0}; // its result is not looked at
    return {.code = 0, .value = ModelCard::pic_of_interface};
}

ReferenceModel::Lookup ReferenceModel::look_up_table()
{
    for (const Service service : {Service::ital_shm_lookup_vrf, Service::rsi_c_tbl_id_decode2}) {
        if (const uint32_t rc = code_of(service); rc != 0)
            return {.code = rc};
    }
    return {.code = 0, .value = ModelCard::table_of_vrf};
}

// ---- packets

std::optional<uint32_t> ReferenceModel::port_of_sent_frame()
{
    constexpr uint32_t port_of_np_0 = 16;
    if (call(Service::plm_np_to_cpu_port_map) || call(Service::spp_prep_bfd_pkt_and_xmt))
        return std::nullopt;
    return port_of_np_0;
}

} // namespace test
