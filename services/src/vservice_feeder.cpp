#include "vservice_feeder.h"

#include <cstring>
#include <vector>

#include "service_error.h"

namespace services {

namespace {

constexpr uint32_t the_entry = 0; // the only one of a service

void send(int32_t type, const void *item, size_t bytes)
{
    const vservice_message head{0, 0, type, bytes > 0 ? 1 : 0};
    std::vector<uint8_t> message(sizeof head + bytes);
    std::memcpy(message.data(), &head, sizeof head);
    if (bytes > 0)
        std::memcpy(message.data() + sizeof head, item, bytes);
    plm_vservice_msg_handler(message.data());
}

} // namespace

VserviceFeeder::VserviceFeeder()
{
    if (plm_vservice_init(0, 0, 0, 0) == nullptr)
        throw ServiceError("the window has no table of virtual services, and no room for one");
}

void VserviceFeeder::add(const vservice_config &config) const
{
    send(VSERVICE_ADD, &config, sizeof config);
}

void VserviceFeeder::remove(uint32_t index) const
{
    send(VSERVICE_DELETE, &index, sizeof index);
}

void VserviceFeeder::remove_all() const
{
    send(VSERVICE_DELETE_ALL, nullptr, 0);
}

std::optional<app_node> VserviceFeeder::programmed(uint32_t index) const
{
    if (index >= VSERVICES)
        return std::nullopt;
    main_entry *main =
        inline_svc_shadow_db_query_main(inline_shadow_db_appid_to_key(VSERVICE_APP_TYPE, index));
    const shmem_node *node =
        main != nullptr ? inline_shadow_db_query_entry_id(main, the_entry) : nullptr;
    return node != nullptr ? std::optional(node->app_node) : std::nullopt;
}

} // namespace services
