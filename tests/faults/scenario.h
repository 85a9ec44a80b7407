// The reference scenario: a host's whole life as a list of steps. It starts, its services program
// entries of both tables under several keys, change and delete them, clear keys, read their
// statistics; PRM goes down and comes up, answers are read in between. Steps are data and keep no
// state: what a step needs of the entries it looks up when it is carried out, so whoever restarts a
// host can go on with the step after the last one that was done.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace test {

enum class StepKind {
    start_host,        // once more when it fails; a host that cannot start ends the scenario
    register_services, // statistics callbacks of some application types
    apply_batch,
    clear_key,
    run_app_handler, // the library's own driver; its batch is looked at and thrown away
    pass_traffic,    // every NP counts packets on many counters, in use or not
    collect_statistics,
    configure_vservice, // a message of one record, or of one index to delete
    set_attributes,     // of an interface, which are then read, and the endpoint of its slot
    send_packets,       // one of each kind
    look_up_interfaces, // at the interface manager and the table of VRFs
    read_answers,       // time passes, and the event manager runs
    queue_delayed_answer,
    prm_goes_down,
    prm_comes_up,
    reset_window // throws everything away; the last of all
};

struct EntryRequest {
    uint32_t action = 0;
    uint32_t entry_id = 0;
    uint32_t table = 0;
    uint32_t hw_index = 0;
    std::string key;
    std::string result;
};

// What a service does about an entry that it wants to change and that is not stored.
enum class Missing { is_left_out, is_named_by_null };

// What a virtual service is to be.
struct VserviceRequest {
    uint32_t index = 0;
    uint32_t encap = 0; // 0: it is deleted
    uint32_t user = 0;
    uint32_t destination = 0;
};

struct AttributeRequest {
    uint16_t uidb = 0;
    uint32_t app_type = 0;
    uint16_t app_ID = 0;
    uint16_t slot = 0;
    uint32_t infra_ip = 0;
};

struct Step {
    StepKind kind = StepKind::read_answers;
    uint16_t key = 0;
    uint32_t version = 0;
    Missing missing = Missing::is_left_out;
    std::vector<EntryRequest> requests = {};
    VserviceRequest vservice = {};
    AttributeRequest attributes = {};
};

std::vector<Step> reference_scenario();

// "step 12: batch of 18 for key 0x105"
std::string describe(const Step &step, size_t number);

// The entries' counters lie below this place in a run without failures, and far below where the
// traffic ends.
inline constexpr uint32_t places_with_traffic = 400;
inline constexpr uint16_t types_with_callback[] = {1, 2, 4};

} // namespace test
