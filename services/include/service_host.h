// A host process: hands the library its handles and starts it, the first time and after a restart.
//
// docs/HOSTING.md says why the steps come in this order, and what a kill between any two leaves.
#pragma once

#include <cstdint>
#include <functional>

#include "inline_service_context.h"
#include "inline_service_shadowdb.h"

namespace services {

// What the platform gives a host, as plain values.
struct HostHandles {
    void *event_manager = nullptr;
    uint32_t window_id = 0;
    uint16_t num_nps = 0;      // 1 to 8
    shadow_db *root = nullptr; // what an earlier host published in the window; null for none
    std::function<void(shadow_db *)> publish_root; // makes it found after a restart, in one store
    // Runs the event manager until `done` holds; false when it cannot come to hold.
    std::function<bool(const std::function<bool()> &done)> run_until;
};

// The library keeps a pointer to the host's context for good: a host lives until the last call of
// the library. One a process.
class ServiceHost {
public:
    explicit ServiceHost(HostHandles handles);
    ServiceHost(const ServiceHost &) = delete;
    ServiceHost &operator=(const ServiceHost &) = delete;

    // Returns with the connection up and registered: entries may be programmed. Throws
    // ServiceError with the step that failed; the process may then start again on the same window.
    void start();

    bool found_root() const { return found_root_; } // false: this was the window's first start
    shadow_db *root() const { return handles_.root; }
    const inline_svc_global_cntx &context() const { return context_; }

private:
    void find_or_make_root();
    void hand_over_context();
    void prepare_shadow_db();
    void make_tables();
    void connect();

    HostHandles handles_;
    bool found_root_ = false;
    inline_svc_global_cntx context_{};
};

} // namespace services
