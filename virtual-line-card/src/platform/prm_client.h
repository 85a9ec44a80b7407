// The client's half of PRM: connections, callbacks and the delay queue of this process. It reaches
// PRM through the transport alone.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "platform_prm.h"
#include "prm_transport.h"
#include "vlc/prm_ledger.h"

namespace vlc {

class PrmClient {
public:
    // How long an asynchronous-response callback that read nothing is left alone.
    static constexpr std::chrono::milliseconds idle_callback_delay{100};

    explicit PrmClient(PrmTransport &prm);
    PrmClient(const PrmClient &) = delete;
    PrmClient &operator=(const PrmClient &) = delete;

    uint32_t open(void *evm, const char *client, prm_notif_fn notif, void *context, void **conn);

    uint32_t find_handle(const char *name, void **handle);
    uint32_t register_handle(void **handle, void *evm, prm_async_fn async);
    uint32_t reregister(void *handle, void *evm, prm_async_fn async);
    uint32_t set_name(void *handle, const char *name);
    uint32_t request(void *handle, TableKind table, uint32_t operation,
                     const prm_config_record *record);
    uint32_t read_answer(void *handle, prm_async_response *response);
    // Sees each answer of a request that was not carried out, when it is read.
    void on_failed_answer(std::function<void(const prm_async_response &)> listener)
    {
        failed_answer_listener_ = std::move(listener);
    }

    const PrmLedger &ledger() const { return ledger_; }
    // Since the connection is up.
    bool is_registered() const { return is_registered_; }
    // Called when anything of the ledger, the connection or the registration has changed.
    void on_change(std::function<void()> listener) { change_listener_ = std::move(listener); }

    uint32_t set_up_delay_queue(void *handle, uint32_t depth, uint32_t seconds, prm_delay_fn delay);
    uint32_t process_delayed(uint32_t refnum);

    uint32_t prepare_statistics() const;
    CounterRegion counter_region() { return prm_.counter_region(); }
    uint32_t read_counter(uint32_t np, uint32_t counter, uint32_t option, uint64_t out[2]);
    uint32_t take_counters(uint32_t np, uint32_t length, uint32_t *first)
    {
        return prm_.take_counters(np, length, first);
    }
    uint32_t give_counters_back(uint32_t np, uint32_t first)
    {
        return prm_.give_counters_back(np, first);
    }

private:
    struct Connection {
        void *evm;
        prm_notif_fn notif;
        void *context;
    };
    // A handle that this process registered or took over.
    struct Registration {
        void *evm = nullptr;
        prm_async_fn async = nullptr;
        uint64_t generation = 0; // a callback that an earlier registration scheduled is dropped
        bool is_scheduled = false;
        uint64_t answers_read = 0;
    };
    struct DelayQueue {
        void *evm = nullptr;
        prm_delay_fn delay = nullptr;
        uint32_t depth = 0;
        uint32_t seconds = 0;
        uint32_t waiting = 0;
    };

    std::function<void()> while_alive(std::function<void()> task) const;
    void post(void *evm, std::function<void()> task);
    void after(void *evm, std::chrono::nanoseconds delay, std::function<void()> task);
    void notify(const Connection &connection, PrmEvent event);
    void take_over(uint32_t handle, void *evm, prm_async_fn async);
    void announce_answers(uint32_t handle);
    void schedule_callback(uint32_t handle, std::chrono::nanoseconds delay);
    void call_back(uint32_t handle, uint64_t generation);

    void tell_change() const
    {
        if (change_listener_)
            change_listener_();
    }

    PrmTransport &prm_;
    PrmLedger ledger_;
    bool is_registered_ = false;
    std::function<void()> change_listener_;
    std::function<void(const prm_async_response &)> failed_answer_listener_;
    std::map<std::string, Connection> connections_; // by client name; each keeps its address
    std::map<uint32_t, Registration> registrations_;
    DelayQueue delay_queue_;
    // Event managers may outlive this; what is left on them finds out through here.
    std::shared_ptr<const char> alive_ = std::make_shared<const char>();
};

} // namespace vlc
