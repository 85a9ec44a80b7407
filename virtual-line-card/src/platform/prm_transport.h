// What carries a client's requests to PRM and PRM's events back. Everything that the client's half
// knows of PRM goes through here, by value, so that PRM may live in another process.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "vlc/prm.h"

namespace vlc {

struct CounterRegion {
    uint32_t start;
    uint32_t size;
};

// What became of handing a request over.
struct Taken {
    uint32_t code;
    bool in_doubt = false; // it went out, and the connection broke before PRM said anything
};

class PrmTransport {
public:
    virtual ~PrmTransport() = default;

    virtual bool is_connected() const = 0;
    virtual void on_event(std::function<void(PrmEvent)> listener) = 0;
    virtual void on_answer(std::function<void(uint32_t handle)> listener) = 0;

    virtual uint32_t find_handle(const std::string &name, uint32_t *handle) = 0;
    virtual uint32_t register_handle(uint32_t *handle) = 0;
    virtual uint32_t reregister(uint32_t handle) = 0;
    virtual uint32_t set_name(uint32_t handle, const std::string &name) = 0;
    virtual Taken request(uint32_t handle, TableKind table, uint32_t operation,
                          const prm_config_record &record) = 0;
    virtual uint32_t read_answer(uint32_t handle, prm_async_response *response) = 0;
    virtual uint64_t unread(uint32_t handle) = 0;
    virtual bool is_handle(uint32_t handle) = 0;

    virtual CounterRegion counter_region() = 0;
    virtual uint32_t read_counter(uint32_t np, uint32_t counter, uint32_t option,
                                  uint64_t out[2]) = 0;
    virtual uint32_t take_counters(uint32_t np, uint32_t length, uint32_t *first) = 0;
    virtual uint32_t give_counters_back(uint32_t np, uint32_t first) = 0;
};

} // namespace vlc
