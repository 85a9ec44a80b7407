// PRM's connection, handles, requests and answers, as a client calls them.
#include <cerrno>

#include "card_services.h"
#include "platform_prm.h"
#include "prm_client.h"
#include "tap_words.h"

using vlc::CardServices;
using vlc::forced_as;
using vlc::PrmClient;
using vlc::TableKind;
using vlc::tapped_call;

uint32_t prm_mgr_open(void *evm, uint32_t zero, const char *client, prm_notif_fn notif,
                      uint32_t events, void *context, void **conn)
{
    if (auto forced = tapped_call("prm_mgr_open", evm, zero, client, notif, events, context, conn))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->open(evm, client, notif, context, conn) : EINVAL;
}

uint32_t prm_srh_get_handle(const char *client, void **handle)
{
    if (auto forced = tapped_call("prm_srh_get_handle", client, handle))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->find_handle(client, handle) : EINVAL;
}

uint32_t prm_srh_register(void **handle, uint32_t client_kind, void *evm, prm_async_fn async)
{
    if (auto forced = tapped_call("prm_srh_register", handle, client_kind, evm, async))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->register_handle(handle, evm, async) : EINVAL;
}

uint32_t prm_srh_reregister(void *handle, void *evm, prm_async_fn async)
{
    if (auto forced = tapped_call("prm_srh_reregister", handle, evm, async))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->reregister(handle, evm, async) : EINVAL;
}

uint32_t prm_srh_set_name(void *handle, const char *name)
{
    if (auto forced = tapped_call("prm_srh_set_name", handle, name))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->set_name(handle, name) : EINVAL;
}

uint32_t prm_srh_delay_util_init(void *handle, uint32_t queue, uint32_t flags, uint32_t depth,
                                 uint32_t seconds, prm_delay_fn delay, uint32_t kind)
{
    if (auto forced = tapped_call("prm_srh_delay_util_init", handle, queue, flags, depth, seconds,
                                  delay, kind))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->set_up_delay_queue(handle, depth, seconds, delay) : EINVAL;
}

uint32_t prm_srh_delay_queue_process(uint32_t refnum)
{
    if (auto forced = tapped_call("prm_srh_delay_queue_process", refnum))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->process_delayed(refnum) : EINVAL;
}

uint32_t prm_srh_async_resp_data(void *handle, prm_async_response *response)
{
    if (auto forced = tapped_call("prm_srh_async_resp_data", handle, response))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->read_answer(handle, response) : EINVAL;
}

namespace {

uint32_t request(const char *service, TableKind table, uint32_t operation, void *handle,
                 prm_config_record *record)
{
    if (auto forced = tapped_call(service, handle, record))
        return forced_as<uint32_t>(*forced);
    PrmClient *prm = CardServices::prm_client();
    return prm ? prm->request(handle, table, operation, record) : EINVAL;
}

} // namespace

#define REQUEST_SERVICE(name, table, operation)                                                    \
    uint32_t name(void *handle, prm_config_record *record)                                         \
    {                                                                                              \
        return request(#name, TableKind::table, operation, handle, record);                        \
    }

REQUEST_SERVICE(prm_srh_service_config_add, service_config, PRM_OP_ADD)
REQUEST_SERVICE(prm_srh_service_config_mod, service_config, PRM_OP_MODIFY)
REQUEST_SERVICE(prm_srh_service_config_del, service_config, PRM_OP_DELETE)
REQUEST_SERVICE(prm_srh_ext_service_db_add, ext_conf, PRM_OP_ADD)
REQUEST_SERVICE(prm_srh_ext_service_db_mod, ext_conf, PRM_OP_MODIFY)
REQUEST_SERVICE(prm_srh_ext_service_db_del, ext_conf, PRM_OP_DELETE)
REQUEST_SERVICE(prm_srh_flow_db_add, flow, PRM_OP_ADD)
REQUEST_SERVICE(prm_srh_flow_db_mod, flow, PRM_OP_MODIFY)
REQUEST_SERVICE(prm_srh_flow_db_del, flow, PRM_OP_DELETE)
