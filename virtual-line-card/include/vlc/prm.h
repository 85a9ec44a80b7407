// PRM as a state machine, in the card's own half: what a PRM process would be. It knows nothing of
// the client's process but the transport that carries requests in and events out.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "platform_prm.h"
#include "vlc/event_manager.h"
#include "vlc/np_store.h"
#include "vlc/prm_faults.h"
#include "vlc/prm_store.h"

namespace vlc {

// Result codes of this PRM beside PRM_RESPONSE_QUEUE_EMPTY; their texts come from cerr_strerror.
enum PrmCode : uint32_t {
    prm_bad_handle = 0x257C5401,
    prm_bad_record = 0x257C5402,
    prm_not_connected = 0x257C5403,
    prm_duplicate_key = 0x257C5404,
    prm_key_not_found = 0x257C5405,
    prm_table_full = 0x257C5406,
    prm_row_too_wide = 0x257C5407,
    prm_no_handle = 0x257C5408,
    prm_name_unknown = 0x257C5409,
    prm_no_room = 0x257C540A,
    prm_bad_counter = 0x257C540B,
    prm_no_counter = 0x257C540C,
    prm_bad_statistics_table = 0x257C540D
};

class HeldAnswers;

enum class PrmEvent { connection_up, connection_down, connection_error, np_running, np_warm_boot };

class Prm {
public:
    Prm(NpStore &nps, PrmStore &store);
    ~Prm();
    Prm(const Prm &) = delete;
    Prm &operator=(const Prm &) = delete;

    // ---- what a person or a test does to PRM
    void power_on();                // connection comes up
    void go_down();                 // connection breaks; requests fail until it is up again
    void come_up();                 // announced also when it was up, as after an NP reset
    void restart(bool keep_tables); // down, then up; handles are kept
    void report_error();            // connection error
    void np_reset();                // tables of every NP are lost, NPs come to running
    void np_warm_boot();
    bool is_up() const { return up_; }
    // What goes wrong from now on; an empty hook ends it. Answers that are kept back wait on
    // `events`, which lives for as long as calls come. The hook must not call PRM.
    void set_faults(PrmFaultHook hook, EventManager &events);

    // ---- what the client's half hears
    void on_event(std::function<void(PrmEvent)> listener);
    void on_answer(std::function<void(uint32_t handle)> listener);

    // ---- requests of the client's half
    uint32_t find_handle(const char *name, uint32_t *handle);
    uint32_t register_handle(uint32_t *handle);
    uint32_t reregister(uint32_t handle);
    uint32_t set_name(uint32_t handle, const char *name);
    uint32_t request(uint32_t handle, TableKind table, uint32_t operation,
                     const prm_config_record &record);
    uint32_t read_answer(uint32_t handle, prm_async_response *response);
    uint64_t unread(uint32_t handle) const;
    bool is_handle(uint32_t handle) const { return store_.is_handle(handle); }
    // `out` may be null: then the counter is only cleared, or only checked.
    uint32_t read_counter(uint32_t np, uint32_t counter, uint32_t option, uint64_t out[2]);
    // Dynamic counters: a run of one or two, known by its first number.
    uint32_t take_counters(uint32_t np, uint32_t length, uint32_t *first);
    uint32_t give_counters_back(uint32_t np, uint32_t first);

    // Queues an answer that no request asked for: one of the delay queue (a reference number whose
    // low byte is PRM_REFNUM_DELAY_QUEUE), or any other that a test needs.
    uint32_t queue_answer(uint32_t handle, const StoredAnswer &answer);

    struct Totals {
        uint64_t requests[table_kinds][3]; // taken in, by table and operation
        uint64_t failed[table_kinds][3];   // answered with a status other than 0
    };
    const Totals &totals() const { return totals_; }

private:
    class Faulted;
    void announce(PrmEvent event);
    void clear_tables();
    void take_down(bool keep_tables);
    bool queue(uint32_t handle, const StoredAnswer &answer);
    bool give(uint32_t handle, const StoredAnswer &answer, const PrmFault &fault);
    void carry_out(const PrmFault &fault);

    NpStore &nps_;
    PrmStore &store_;
    bool up_ = false;
    std::function<void(PrmEvent)> event_listener_;
    std::function<void(uint32_t)> answer_listener_;
    Totals totals_{};
    PrmFaultHook fault_hook_;
    EventManager *fault_events_ = nullptr;
    std::unique_ptr<HeldAnswers> held_;
};

} // namespace vlc
