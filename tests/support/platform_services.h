// The platform services that the library calls, by number, so that a call costs no string.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace test {

#define TEST_PLATFORM_SERVICES(SERVICE)                                                            \
    SERVICE(shmwin_malloc)                                                                         \
    SERVICE(shmwin_free)                                                                           \
    SERVICE(shmwin_reset)                                                                          \
    SERVICE(list_create)                                                                           \
    SERVICE(list_enqueue_default)                                                                  \
    SERVICE(list_dequeue_default)                                                                  \
    SERVICE(list_remove_default)                                                                   \
    SERVICE(list_destroy)                                                                          \
    SERVICE(platform_get_my_card_type)                                                             \
    SERVICE(platform_node_get_card_type)                                                           \
    SERVICE(plm_slot_to_nodeid)                                                                    \
    SERVICE(imc_s_attr_query)                                                                      \
    SERVICE(imc_gdp_pic_get)                                                                       \
    SERVICE(ital_shm_lookup_vrf)                                                                   \
    SERVICE(rsi_c_tbl_id_decode2)                                                                  \
    SERVICE(ac_encode_init)                                                                        \
    SERVICE(appl_construct_config_db_key)                                                          \
    SERVICE(appl_construct_sdn_encap_service_config_db_result)                                     \
    SERVICE(zem_errmsg)                                                                            \
    SERVICE(plm_np_to_cpu_port_map)                                                                \
    SERVICE(spp_prep_bfd_pkt_and_xmt)                                                              \
    SERVICE(prm_mgr_open)                                                                          \
    SERVICE(prm_srh_get_handle)                                                                    \
    SERVICE(prm_srh_register)                                                                      \
    SERVICE(prm_srh_reregister)                                                                    \
    SERVICE(prm_srh_set_name)                                                                      \
    SERVICE(prm_srh_delay_util_init)                                                               \
    SERVICE(prm_srh_delay_queue_process)                                                           \
    SERVICE(prm_srh_async_resp_data)                                                               \
    SERVICE(prm_srh_service_config_add)                                                            \
    SERVICE(prm_srh_service_config_mod)                                                            \
    SERVICE(prm_srh_service_config_del)                                                            \
    SERVICE(prm_srh_ext_service_db_add)                                                            \
    SERVICE(prm_srh_ext_service_db_mod)                                                            \
    SERVICE(prm_srh_ext_service_db_del)                                                            \
    SERVICE(plm_dpss_stats_init)                                                                   \
    SERVICE(prm_stats_cl_pre_init)                                                                 \
    SERVICE(prm_stats_cl_get_stateless_double_size)                                                \
    SERVICE(prm_stats_cl_get_stateless_double_start)                                               \
    SERVICE(prm_stats_cl_read)                                                                     \
    SERVICE(prm_stats_err_string)                                                                  \
    SERVICE(cerr_strerror)                                                                         \
    SERVICE(ed_init)                                                                               \
    SERVICE(ed_print_debug)                                                                        \
    SERVICE(ed_slow_debugs)                                                                        \
    SERVICE(_ltrace)

enum class Service : uint8_t {
#define SERVICE_NUMBER(name) name,
    TEST_PLATFORM_SERVICES(SERVICE_NUMBER)
#undef SERVICE_NUMBER
};

inline constexpr std::array service_names = {
#define SERVICE_NAME(name) std::string_view(#name),
    TEST_PLATFORM_SERVICES(SERVICE_NAME)
#undef SERVICE_NAME
};
inline constexpr size_t service_count = service_names.size();

inline std::string_view name_of(Service service)
{
    return service_names[static_cast<size_t>(service)];
}

std::optional<Service> service_named(std::string_view name);

} // namespace test
