#include "service_failures.h"

#include <array>
#include <cerrno>
#include <sstream>

#include "platform_card.h"
#include "platform_prm.h"
#include "vlc/prm.h"

namespace test {
namespace {

constexpr std::array failures = {
    ServiceFailure{Service::shmwin_malloc, "no memory", ENOMEM},
    ServiceFailure{Service::shmwin_free, "block refused", EINVAL},
    ServiceFailure{Service::shmwin_reset, "window refused", EINVAL},
    ServiceFailure{Service::list_create, "null", 0},
    ServiceFailure{Service::list_enqueue_default, "refused", 0},
    ServiceFailure{Service::list_dequeue_default, "null, as of an empty list", 0},
    // The platform refuses only what is in no list, and what the library takes out is in one. A
    // list that kept a node whose memory goes would be no list any more, in any library.
    ServiceFailure{Service::list_remove_default, "removed, and said to be refused", 0, true},
    ServiceFailure{Service::list_destroy, "refused", 0},
    ServiceFailure{Service::platform_get_my_card_type, "no type", 0},
    ServiceFailure{Service::platform_node_get_card_type, "no type", 0},
    ServiceFailure{Service::plm_slot_to_nodeid, "slot unknown", ENOENT},
    ServiceFailure{Service::imc_s_attr_query, "interface unknown", ENOENT},
    ServiceFailure{Service::imc_gdp_pic_get, "no such attribute", EINVAL},
    ServiceFailure{Service::ital_shm_lookup_vrf, "VRF unknown", ENOENT},
    ServiceFailure{Service::rsi_c_tbl_id_decode2, "no table id", EINVAL},
    ServiceFailure{Service::ac_encode_init, "no encoder", 0},
    ServiceFailure{Service::appl_construct_config_db_key, "no key", 0},
    ServiceFailure{Service::appl_construct_config_db_key, "a key that is too long", 33},
    ServiceFailure{Service::appl_construct_sdn_encap_service_config_db_result, "no result", 0},
    ServiceFailure{Service::prm_mgr_open, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_srh_get_handle, "name unknown", vlc::prm_name_unknown},
    ServiceFailure{Service::prm_srh_register, "no handle left", vlc::prm_no_handle},
    ServiceFailure{Service::prm_srh_reregister, "bad handle", vlc::prm_bad_handle},
    ServiceFailure{Service::prm_srh_set_name, "bad handle", vlc::prm_bad_handle},
    ServiceFailure{Service::prm_srh_delay_util_init, "no room", vlc::prm_no_room},
    ServiceFailure{Service::prm_srh_delay_queue_process, "no room", vlc::prm_no_room},
    ServiceFailure{Service::prm_srh_async_resp_data, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_srh_async_resp_data, "empty too early", PRM_RESPONSE_QUEUE_EMPTY},
    ServiceFailure{Service::prm_srh_service_config_add, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_srh_service_config_mod, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_srh_service_config_del, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_srh_ext_service_db_add, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_srh_ext_service_db_mod, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_srh_ext_service_db_del, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::plm_dpss_stats_init, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_stats_cl_pre_init, "not connected", vlc::prm_not_connected},
    // These return values, so a failure is one that means nothing is there.
    ServiceFailure{Service::prm_stats_cl_get_stateless_double_size, "0", 0},
    ServiceFailure{Service::prm_stats_cl_get_stateless_double_start, "0", 0},
    ServiceFailure{Service::prm_stats_cl_read, "not connected", vlc::prm_not_connected},
    ServiceFailure{Service::prm_stats_err_string, "no text", 0},
    ServiceFailure{Service::cerr_strerror, "no text", 0},
    ServiceFailure{Service::plm_np_to_cpu_port_map, "no port", PLM_NO_CPU_PORT},
    ServiceFailure{Service::spp_prep_bfd_pkt_and_xmt, "frame refused", EINVAL},
    ServiceFailure{Service::ed_init, "no memory", ENOMEM},
};

constexpr std::array infallible = {
    Infallible{Service::ed_print_debug, "returns nothing; called where a message was switched on"},
    Infallible{Service::ed_slow_debugs, "returns nothing; called where a message was switched on"},
    Infallible{Service::_ltrace, "returns nothing"},
    Infallible{Service::zem_errmsg, "is called where programming failed, and not asked whether"},
};

constexpr std::array elsewhere = {
    std::string_view("dpss_fill_flow_info_from_db"),
    std::string_view("dpss_flow_encoder_key"),
    std::string_view("dpss_flow_encoder_result"),
    std::string_view("dpss_flow_encoder_userdata"),
    std::string_view("dpss_flow_is_policer_enabled"),
    std::string_view("dpss_flow_scan_callback"),
    std::string_view("imc_db_bind"),
    std::string_view("plm_dpss_get_stats_tbl_id"),
    std::string_view("plm_pkt_dir_to_np_map"),
    std::string_view("prm_srh_flow_db_add"),
    std::string_view("prm_srh_flow_db_del"),
    std::string_view("prm_srh_flow_db_mod"),
    std::string_view("prm_stats_cl_alloc"),
    std::string_view("prm_stats_cl_free"),
    std::string_view("prm_stats_cl_get_phy_stats_ptr"),
    std::string_view("spp_client_init_v2"),
};

// The number of a failure among those of its service.
size_t number_of(size_t failure)
{
    size_t number = 0;
    while (number < failure && failures[failure - number - 1].service == failures[failure].service)
        ++number;
    return number;
}

} // namespace

std::span<const ServiceFailure> service_failures()
{
    return failures;
}

std::span<const Infallible> infallible_services()
{
    return infallible;
}

std::span<const std::string_view> services_elsewhere()
{
    return elsewhere;
}

std::optional<uint64_t> FaultPoint::answer(Service service, uint64_t count) const
{
    const bool fails = service == how().service && (for_ever ? count >= nth : count == nth);
    return fails ? std::optional(how().result) : std::nullopt;
}

std::string describe(const FaultPoint &point)
{
    std::ostringstream text;
    text << name_of(point.how().service) << ':' << number_of(point.failure) << ':' << point.nth
         << (point.for_ever ? ":ever" : ":once");
    return text.str();
}

std::optional<FaultPoint> point_named(const std::string &text)
{
    std::istringstream words(text);
    std::string name;
    std::string number;
    std::string nth;
    std::string times;
    std::getline(words, name, ':');
    std::getline(words, number, ':');
    std::getline(words, nth, ':');
    std::getline(words, times);
    for (size_t i = 0; i < failures.size(); ++i) {
        const FaultPoint point = {i, std::strtoull(nth.c_str(), nullptr, 10), times == "ever"};
        if (describe(point) == text)
            return point;
    }
    return std::nullopt;
}

} // namespace test
