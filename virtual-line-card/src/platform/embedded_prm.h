// The transport to a PRM in this process: each request is a call.
#pragma once

#include "prm_transport.h"

namespace vlc {

class EmbeddedPrm final : public PrmTransport {
public:
    explicit EmbeddedPrm(Prm &prm) : prm_(prm) {}

    bool is_connected() const override { return prm_.is_up(); }
    void on_event(std::function<void(PrmEvent)> listener) override;
    void on_answer(std::function<void(uint32_t handle)> listener) override;

    uint32_t find_handle(const std::string &name, uint32_t *handle) override;
    uint32_t register_handle(uint32_t *handle) override;
    uint32_t reregister(uint32_t handle) override;
    uint32_t set_name(uint32_t handle, const std::string &name) override;
    Taken request(uint32_t handle, TableKind table, uint32_t operation,
                  const prm_config_record &record) override;
    uint32_t read_answer(uint32_t handle, prm_async_response *response) override;
    uint64_t unread(uint32_t handle) override { return prm_.unread(handle); }
    bool is_handle(uint32_t handle) override { return prm_.is_handle(handle); }

    CounterRegion counter_region() override { return {CounterBank::first, CounterBank::count}; }
    uint32_t read_counter(uint32_t np, uint32_t counter, uint32_t option, uint64_t out[2]) override;
    uint32_t take_counters(uint32_t np, uint32_t length, uint32_t *first) override;
    uint32_t give_counters_back(uint32_t np, uint32_t first) override;

private:
    Prm &prm_;
};

} // namespace vlc
