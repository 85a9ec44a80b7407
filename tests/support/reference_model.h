// A small reference of the library: what a host's start, batches, late answers and a statistics
// pass leave in shadow, hardware, counters and memory, whatever platform services fail on the way.
// It knows nothing of the library's code, only its rules; and since it makes the same platform
// calls in the same order, it says what the n-th call of a service is.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "inline_service_app.h"
#include "inline_service_attributes.h"
#include "inline_service_vservice.h"
#include "model_card.h"
#include "platform_services.h"

namespace test {

struct ModelNode {
    app_node content{};
    std::array<uint32_t, ModelCard::most_nps> rx{};
    std::array<uint32_t, ModelCard::most_nps> drop{};
    bool is_live = false;          // stored, and not freed since
    shmem_node *address = nullptr; // learned from the library after the batch
};
using NodePointer = std::shared_ptr<ModelNode>;

struct ModelTable {
    std::deque<NodePointer> listed;
    std::vector<NodePointer> lost; // taken off the list by a clear that failed; still counted
    uint32_t num_elements = 0;
};

struct ModelEntry {
    uint32_t app_ID = 0, version = 0, timestamp = 0;
    uint16_t tag = 0, stat_round = 0;
    std::array<ModelTable, 2> tables;
    uint32_t nodes() const { return tables[0].num_elements + tables[1].num_elements; }
};

struct ModelRequest {
    app_node content{};
    NodePointer node; // what a modify or delete names; null for none
};

struct ModelBatch {
    uint16_t key = 0, tag = 0;
    uint32_t app_ID = 0, app_param = 0, action = 0, num_node = 0;
    std::vector<ModelRequest> requests;
};

// One call of a service's statistics callback.
struct StatReport {
    uint32_t uidb_index = 0, entry_id = 0, phase = 0, a = 0, b = 0;
    bool operator==(const StatReport &) const = default;
};

// Thrown where the library ends the process.
enum class ProcessEnd { exit_status_1, assertion_shmem_node };

class ReferenceModel {
public:
    struct Rules {
        uint32_t nps = 2;
        // Whether this card's type has the library turn a counter's low three bytes round.
        bool counters_turned_round = true;
    };
    explicit ReferenceModel(Rules rules, CallRule rule = {});
    // Copies would share their nodes.
    ReferenceModel(const ReferenceModel &) = delete;
    ReferenceModel &operator=(const ReferenceModel &) = delete;

    void set_rule(CallRule rule) { rule_ = std::move(rule); }
    // How often each service was called.
    const std::array<uint64_t, service_count> &calls() const { return calls_; }

    // ---- the library's operations, each with what it returns

    bool start_host(); // false when the host could not start; it may be started again
    bool append_to_batch() { return !call(Service::list_enqueue_default); }
    bool create_list() { return !call(Service::list_create); }
    uint32_t apply(const ModelBatch &batch); // inline_svc_shadow_db_insert_action_array
    std::vector<StatReport> collect();
    uint32_t reset_window();
    // The first entry in the lists of a key that has the id, as a query finds it.
    NodePointer stored(uint16_t key, uint32_t entry_id) const;

    // Interfaces and virtual services. What a lookup does not write is as it was before.
    static constexpr uint32_t unwritten = 0xEEEEEEEE;
    struct Endpoint {
        uint32_t code = 0, ip = unwritten, value = unwritten;
    };
    struct Lookup {
        uint32_t code = 0, value = unwritten;
    };
    void open_encoder();
    void configure(const vservice_config &config);
    void remove_vservice(uint32_t index);
    void set_attribute(uint16_t uidb, const uidb_attribute &attribute);
    uidb_attribute attribute(uint16_t uidb) const;
    Endpoint look_up_endpoint(uint16_t uidb); // of the interface's slot
    Lookup look_up_pic();                     // of the known interface
    Lookup look_up_table();                   // of the known VRF
    // Packets, on a card that says no NP for them.
    void note_card_type() { call(Service::platform_get_my_card_type); }
    std::optional<uint32_t> port_of_sent_frame(); // nothing when none reaches the packet path

    // ---- what happens on the card and is heard on the event manager

    void read_answers();
    void queue_delayed_answer();
    void prm_goes_down();
    void prm_comes_up();

    ModelCard card;
    std::map<uint16_t, ModelEntry> entries;
    std::vector<std::vector<bool>> counters_in_use; // by NP and place; empty before registration
    uint32_t bitmap_places = 0;                     // that the bitmaps in the window have room for
    bool has_attributes = false, has_vservices = false; // tables of the root
    std::map<uint16_t, uidb_attribute> attributes;
    std::map<uint32_t, vservice_config> vservices;
    std::map<uint16_t, Endpoint> endpoints; // by slot
    uint64_t blocks = 0;                    // of the window, in use
    uint16_t prm_state = 0, conn_state = 0; // flags of the root
    std::array<bool, INLINE_SVC_APP_TYPES> has_stats_callback{};

private:
    std::optional<uint64_t> call(Service service, uint32_t np = 0);
    uint32_t code_of(Service service, uint32_t np = 0); // of a service that otherwise succeeds
    uint32_t value_of(Service service, uint32_t otherwise);
    bool allocate();
    void release();

    void connection_up();
    void register_handle();
    bool make_bitmaps();
    bool drain();

    uint32_t insert(const ModelBatch &batch);
    uint32_t clear(uint16_t key);
    uint32_t clear_table(ModelTable &table);
    void drop_entry(uint16_t key);
    uint32_t apply_request(ModelEntry &entry, const ModelRequest &request);
    static bool fits(const ModelRequest &request);
    uint32_t create(ModelEntry &entry, const app_node &content);
    uint32_t change(ModelNode &node, const app_node &content);
    uint32_t remove(ModelEntry &entry, const ModelRequest &request);
    void forget(ModelTable &table, ModelNode &node);

    uint32_t program(ModelNode &node);
    void encode(uint32_t &rx, std::string *result) const;
    uint32_t request(uint32_t np, const app_node &content, const std::string &result);
    void take_counter(uint32_t np, uint32_t *number);
    uint32_t give_back(uint32_t number, uint32_t np);
    bool encode(const vservice_config &config, app_node *content);
    void program_vservice(uint16_t key, app_node content);
    void report_node(const ModelNode &node, uint16_t key, std::vector<StatReport> *reports);

    Rules rules_;
    CallRule rule_;
    std::array<uint64_t, service_count> calls_{};
    bool has_root_ = false;
    bool has_main_table_ = false;
    bool has_handle_ = false;
    bool has_encoder_ = false;
    bool takes_vservices_ = false; // a table was there when the encoder was opened
    bool keeps_counters_ = false;  // from the host's first registration on
    bool turns_round_ = false;     // by the card type that the library was told
};

} // namespace test
