#include "embedded_prm.h"

#include <utility>

namespace vlc {

void EmbeddedPrm::on_event(std::function<void(PrmEvent)> listener)
{
    prm_.on_event(std::move(listener));
}

void EmbeddedPrm::on_answer(std::function<void(uint32_t handle)> listener)
{
    prm_.on_answer(std::move(listener));
}

uint32_t EmbeddedPrm::find_handle(const std::string &name, uint32_t *handle)
{
    return prm_.find_handle(name.c_str(), handle);
}

uint32_t EmbeddedPrm::register_handle(uint32_t *handle)
{
    return prm_.register_handle(handle);
}

uint32_t EmbeddedPrm::reregister(uint32_t handle)
{
    return prm_.reregister(handle);
}

uint32_t EmbeddedPrm::set_name(uint32_t handle, const std::string &name)
{
    return prm_.set_name(handle, name.c_str());
}

Taken EmbeddedPrm::request(uint32_t handle, TableKind table, uint32_t operation,
                           const prm_config_record &record)
{
    return {prm_.request(handle, table, operation, record)};
}

uint32_t EmbeddedPrm::read_answer(uint32_t handle, prm_async_response *response)
{
    return prm_.read_answer(handle, response);
}

uint32_t EmbeddedPrm::read_counter(uint32_t np, uint32_t counter, uint32_t option, uint64_t out[2])
{
    return prm_.read_counter(np, counter, option, out);
}

uint32_t EmbeddedPrm::take_counters(uint32_t np, uint32_t length, uint32_t *first)
{
    return prm_.take_counters(np, length, first);
}

uint32_t EmbeddedPrm::give_counters_back(uint32_t np, uint32_t first)
{
    return prm_.give_counters_back(np, first);
}

} // namespace vlc
