#include "vlc/platform_services.h"

#include "platform_prm.h"

namespace vlc {

namespace {

using Returns = PlatformService::Returns;
using Side = PlatformService::Side;

constexpr PlatformService on_host(const char *name, Returns returns)
{
    return {.name = name, .returns = returns};
}

constexpr PlatformService on_card(const char *name)
{
    return {.name = name, .returns = Returns::word, .side = Side::card};
}

constexpr PlatformService request(const char *name, TableKind table, uint32_t operation)
{
    return {.name = name,
            .returns = Returns::word,
            .side = Side::card,
            .table = table,
            .operation = operation};
}

constexpr PlatformService services[] = {
    on_host("_ltrace", Returns::nothing),
    on_host("ac_encode_init", Returns::pointer),
    on_host("appl_construct_config_db_key", Returns::word),
    on_host("appl_construct_sdn_encap_service_config_db_result", Returns::word),
    on_host("cerr_strerror", Returns::pointer),
    on_host("dpss_fill_flow_info_from_db", Returns::nothing),
    on_host("dpss_flow_encoder_key", Returns::nothing),
    on_host("dpss_flow_encoder_result", Returns::nothing),
    on_host("dpss_flow_encoder_userdata", Returns::nothing),
    on_host("dpss_flow_is_policer_enabled", Returns::word),
    on_host("dpss_flow_scan_callback", Returns::nothing),
    on_host("ed_init", Returns::word),
    on_host("ed_print_debug", Returns::nothing),
    on_host("ed_slow_debugs", Returns::nothing),
    on_host("imc_db_bind", Returns::word),
    on_host("imc_gdp_pic_get", Returns::word),
    on_host("imc_s_attr_query", Returns::word),
    on_host("ital_shm_lookup_vrf", Returns::word),
    on_host("list_create", Returns::pointer),
    on_host("list_dequeue_default", Returns::pointer),
    on_host("list_destroy", Returns::word),
    on_host("list_enqueue_default", Returns::word),
    on_host("list_remove_default", Returns::word),
    on_host("platform_get_my_card_type", Returns::word),
    on_host("platform_node_get_card_type", Returns::word),
    on_host("plm_dpss_get_stats_tbl_id", Returns::pointer),
    on_host("plm_dpss_stats_init", Returns::word),
    {.name = "plm_np_to_cpu_port_map", .returns = Returns::word, .np_argument = 0},
    on_host("plm_pkt_dir_to_np_map", Returns::word),
    on_host("plm_slot_to_nodeid", Returns::word),
    on_host("prm_mgr_open", Returns::word),
    on_card("prm_srh_async_resp_data"),
    on_host("prm_srh_delay_queue_process", Returns::word),
    on_host("prm_srh_delay_util_init", Returns::word),
    request("prm_srh_ext_service_db_add", TableKind::ext_conf, PRM_OP_ADD),
    request("prm_srh_ext_service_db_del", TableKind::ext_conf, PRM_OP_DELETE),
    request("prm_srh_ext_service_db_mod", TableKind::ext_conf, PRM_OP_MODIFY),
    request("prm_srh_flow_db_add", TableKind::flow, PRM_OP_ADD),
    request("prm_srh_flow_db_del", TableKind::flow, PRM_OP_DELETE),
    request("prm_srh_flow_db_mod", TableKind::flow, PRM_OP_MODIFY),
    on_card("prm_srh_get_handle"),
    on_card("prm_srh_register"),
    on_card("prm_srh_reregister"),
    request("prm_srh_service_config_add", TableKind::service_config, PRM_OP_ADD),
    request("prm_srh_service_config_del", TableKind::service_config, PRM_OP_DELETE),
    request("prm_srh_service_config_mod", TableKind::service_config, PRM_OP_MODIFY),
    on_card("prm_srh_set_name"),
    on_card("prm_stats_cl_alloc"),
    on_card("prm_stats_cl_free"),
    on_host("prm_stats_cl_get_phy_stats_ptr", Returns::word),
    on_host("prm_stats_cl_get_stateless_double_size", Returns::word),
    on_host("prm_stats_cl_get_stateless_double_start", Returns::word),
    on_host("prm_stats_cl_pre_init", Returns::word),
    {.name = "prm_stats_cl_read", .returns = Returns::word, .side = Side::card, .np_argument = 2},
    on_host("prm_stats_err_string", Returns::pointer),
    on_host("rsi_c_tbl_id_decode2", Returns::word),
    on_host("shmwin_free", Returns::word),
    on_host("shmwin_malloc", Returns::word),
    on_host("shmwin_reset", Returns::word),
    on_host("spp_client_init_v2", Returns::word),
    {.name = "spp_prep_bfd_pkt_and_xmt", .returns = Returns::word, .retcode_argument = 5},
    on_host("zem_errmsg", Returns::word),
};

} // namespace

std::span<const PlatformService> platform_services()
{
    return services;
}

bool matches_pattern(std::string_view name, std::string_view pattern)
{
    size_t at = 0;                             // in the pattern
    size_t last_star = std::string_view::npos; // in the pattern
    size_t behind_star = 0;                    // in the name: where what follows the star begins
    for (size_t i = 0; i < name.size();) {
        if (at < pattern.size() && pattern[at] == '*') {
            last_star = at++;
            behind_star = i;
        } else if (at < pattern.size() && pattern[at] == name[i]) {
            at++;
            i++;
        } else if (last_star != std::string_view::npos) {
            at = last_star + 1; // the star takes one letter more
            i = ++behind_star;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

} // namespace vlc
