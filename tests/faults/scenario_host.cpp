#include "scenario_host.h"

#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string_view>

#include "inline_service_app.h"
#include "inline_service_attributes.h"
#include "inline_service_packet.h"
#include "inline_service_stat.h"
#include "inline_service_vservice.h"
#include "platform_prm.h"
#include "service_error.h"
#include "vlc/service_tap.h"

namespace test {
namespace {

std::vector<StatReport> collected; // the services' callback has no context of its own

void on_statistics(uint32_t key, uint32_t entry_id, uint32_t phase, uint32_t a, uint32_t b)
{
    collected.push_back({key, entry_id, phase, a, b});
}

// Without any platform service, so that a failing one leaves nothing behind.
void free_elements(list_record &list)
{
    for (list_link *link = list.first; link != nullptr;) {
        list_link *next = link->next;
        free(link);
        link = next;
    }
}

// A service's batch.
class ScenarioBatch {
public:
    explicit ScenarioBatch(const Step &step)
    {
        batch_.uidb_index = step.key;
        batch_.app_ID = step.key;
        batch_.app_param = step.version;
        batch_.entry_tag = static_cast<uint16_t>(step.version);
    }
    ~ScenarioBatch() { free_elements(batch_.node_list); }
    ScenarioBatch(const ScenarioBatch &) = delete;
    ScenarioBatch &operator=(const ScenarioBatch &) = delete;

    bool create_list() { return inline_svc_list_create(&batch_.node_list) == 0; }
    bool add(const EntryRequest &request, shmem_node *node)
    {
        app_node_element element = {};
        app_node &content = element.app_node;
        memcpy(content.key, request.key.data(), request.key.size());
        memcpy(content.result, request.result.data(), request.result.size());
        content.key_len = static_cast<uint32_t>(request.key.size());
        content.result_len = static_cast<uint32_t>(request.result.size());
        content.hw_index = request.hw_index;
        content.entry_id = request.entry_id;
        content.table_type = request.table;
        content.action = request.action;
        content.shmem_node = node;
        ++batch_.num_node;
        return inline_svc_app_node_insert(&batch_.node_list, element) == 0;
    }
    action_array *get() { return &batch_; }

private:
    action_array batch_{};
};

} // namespace

ScenarioHost::ScenarioHost(const vlc::CardConfig &config,
                           const std::filesystem::path &state_directory)
{
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    card_ = std::make_unique<vlc::VirtualLineCard>(config, state_directory);
    act_ = [this](CardAct what, uint32_t handle) {
        act_on_card(what, card_->nps(), card_->prm(), handle);
    };
}

ScenarioHost::ScenarioHost(const vlc::CardAtSocket &card,
                           const std::filesystem::path &state_directory, ActOnCard act)
    : act_(std::move(act))
{
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    card_ = std::make_unique<vlc::VirtualLineCard>(card, state_directory);
}

ScenarioHost::~ScenarioHost()
{
    pgbl_ptr = nullptr;
    pshadow_db = nullptr;
}

StepResult ScenarioHost::carry_out(const Step &step)
{
    switch (step.kind) {
    case StepKind::start_host:
        return {start()};
    case StepKind::register_services:
        return {register_services()};
    case StepKind::apply_batch:
        return {apply(step)};
    case StepKind::clear_key:
        return {clear(step.key)};
    case StepKind::run_app_handler:
        return run_app_handler();
    case StepKind::pass_traffic:
        act(CardAct::pass_traffic);
        return {};
    case StepKind::collect_statistics:
        return collect();
    case StepKind::configure_vservice:
        configure(step.vservice);
        return {};
    case StepKind::set_attributes:
        return set_attributes(step.attributes);
    case StepKind::send_packets:
        return send_packets();
    case StepKind::look_up_interfaces:
        return look_up_interfaces();
    case StepKind::read_answers:
        let_time_pass();
        return {};
    case StepKind::queue_delayed_answer:
        act(CardAct::queue_delayed_answer);
        return {};
    case StepKind::prm_goes_down:
        act(CardAct::go_down);
        let_time_pass();
        return {};
    case StepKind::prm_comes_up:
        act(CardAct::come_up);
        let_time_pass();
        return {};
    case StepKind::reset_window:
        return {inline_svc_shared_mem_reset()};
    }
    return {};
}

uint32_t ScenarioHost::start()
{
    for (int attempt = 1; attempt <= 2; ++attempt) {
        const auto run_until = [this](const std::function<bool()> &done) {
            return card_->events().run_until(done);
        };
        host_ = std::make_unique<services::ServiceHost>(services::HostHandles{
            .event_manager = card_->events().handle(),
            .window_id = card_->window_id(),
            .num_nps = card_->config().num_nps,
            .root = root(),
            .publish_root = [this](shadow_db *made) { card_->window().set_root(made); },
            .run_until = run_until});
        try {
            host_->start();
            return 0;
        } catch (const services::ServiceError &) {
            continue;
        }
    }
    return StepResult::host_not_started;
}

uint32_t ScenarioHost::register_services()
{
    for (const uint16_t type : types_with_callback) {
        app_registration registration = {};
        registration.app_type = type;
        registration.stats_handler = on_statistics;
        if (const uint32_t rc = inline_svc_app_register(&registration); rc != 0)
            return rc;
    }
    plm_vservice_init(0, 0, 0, 0);
    return 0;
}

shmem_node *ScenarioHost::stored(uint16_t key, uint32_t entry_id) const
{
    const main_entry *main = root()->main_table[key];
    for (uint32_t table = 0; main != nullptr && table < SHADOW_DB_TABLES; ++table) {
        for (list_link *link = main->table_array[table].first; link != nullptr; link = link->next) {
            auto *node = static_cast<shmem_node *>(link->data);
            if (node->app_node.entry_id == entry_id)
                return node;
        }
    }
    return nullptr;
}

uint32_t ScenarioHost::apply(const Step &step)
{
    ScenarioBatch batch(step);
    if (!batch.create_list())
        return StepResult::batch_not_built;
    for (const EntryRequest &request : step.requests) {
        shmem_node *node = nullptr;
        if (request.action != SHADOW_DB_CREATE) {
            node = stored(step.key, request.entry_id);
            if (node == nullptr && step.missing == Missing::is_left_out)
                continue;
        }
        if (!batch.add(request, node))
            return StepResult::batch_not_built;
    }
    if (batch.get()->num_node == 0) // which would clear the key
        return StepResult::nothing_to_do;
    return inline_svc_shadow_db_insert_action_array(batch.get());
}

uint32_t ScenarioHost::clear(uint16_t key)
{
    action_array batch = {};
    batch.uidb_index = key;
    batch.action = INLINE_SVC_BATCH_DELETE_ALL;
    return inline_svc_shadow_db_insert_action_array(&batch);
}

StepResult ScenarioHost::run_app_handler()
{
    app_handler_result built = {};
    StepResult result;
    result.code = inline_svc_app_handler(0, &built);
    if (result.code != 0)
        return result;
    result.batch.push_back(built.batch->num_node);
    for (const list_link *link = built.batch->node_list.first; link != nullptr; link = link->next) {
        const app_node &node = static_cast<const app_node_element *>(link->data)->app_node;
        result.batch.insert(result.batch.end(), {node.entry_id, node.action});
    }
    free_elements(built.batch->node_list);
    free(built.batch);
    return result;
}

StepResult ScenarioHost::collect()
{
    collected.clear();
    const uint32_t rc = inline_svc_stats_collection();
    return {rc, collected};
}

void ScenarioHost::configure(const VserviceRequest &wanted)
{
    const bool is_deleted = wanted.encap == 0;
    struct {
        vservice_message head;
        vservice_config config;
    } message = {{0, 0, is_deleted ? VSERVICE_DELETE : VSERVICE_ADD, 1}, config_of(wanted)};
    plm_vservice_msg_handler(
        &message); // a deletion's item is the index, which a record begins with
}

StepResult ScenarioHost::set_attributes(const AttributeRequest &wanted)
{
    const uint16_t uidb = wanted.uidb;
    const uidb_attribute attribute = attribute_of(wanted);
    inline_api_set_uidb_to_app(attribute.app_type, uidb, attribute.app_ID);
    inline_api_set_uidb_to_vqi(uidb, attribute.vqi);
    inline_api_set_slot_iftype(uidb, attribute.slot, attribute.iftype);
    inline_api_set_dirty_bit(uidb);
    if (wanted.infra_ip != 0)
        inline_api_set_infra_slot_infra_ip(0, wanted.slot, 99, wanted.infra_ip, wanted.uidb);
    StepResult read;
    read.words = {inline_api_uidb_to_apptype(uidb), inline_api_uidb_to_appid(0, uidb),
                  inline_api_uidb_to_vqi(uidb),     inline_api_get_slot(uidb),
                  inline_api_get_iftype(uidb),      inline_api_get_dirty_bit(uidb)};
    return read;
}

// What reaches the packet path: of each frame the port, the length, and the bytes at which the two
// kinds have their tag.
StepResult ScenarioHost::send_packets()
{
    StepResult sent;
    const vlc::AddedServiceTap tap([&sent](const vlc::ServiceCall &call) {
        if (std::string_view(call.service) != "spp_prep_bfd_pkt_and_xmt")
            return std::optional<uint64_t>();
        const std::span pieces(reinterpret_cast<const gather_piece *>(call.args[2]), call.args[3]);
        uint32_t length = 0;
        for (const gather_piece &piece : pieces)
            length += static_cast<uint32_t>(piece.length);
        const auto *header = static_cast<const uint8_t *>(pieces[1].data); // the NP's
        sent.words.insert(sent.words.end(), {static_cast<uint32_t>(call.args[1]), length,
                                             uint32_t{header[0]} << 8 | header[1],
                                             uint32_t{header[42]} << 8 | header[41]});
        return std::optional<uint64_t>();
    });
    const std::vector<uint8_t> bytes(100, 0x55);
    plm_inline_spp_client_register({});
    plm_inline_send_packet_to_service_lc(tag_of_packets, 1, 2, bytes.data(), service_packet_bytes);
    plm_inline_send_ip_packet(tag_of_packets, bytes.data(), ip_packet_bytes);
    return sent;
}

StepResult ScenarioHost::look_up_interfaces()
{
    StepResult found;
    for (const uint16_t uidb : interfaces_looked_up) {
        ReferenceModel::Endpoint endpoint;
        endpoint.code = inline_api_get_infra_ip_from_uidb(uidb, &endpoint.ip, &endpoint.value);
        found.words.insert(found.words.end(), {endpoint.code, endpoint.ip, endpoint.value});
    }
    ReferenceModel::Lookup pic;
    pic.code = inline_api_get_pic(ModelCard::interface, &pic.value);
    ReferenceModel::Lookup table;
    table.code = inline_api_get_hw_table_id(ModelCard::vrf, &table.value);
    found.words.insert(found.words.end(), {pic.code, pic.value, table.code, table.value});
    return found;
}

void ScenarioHost::act(CardAct what)
{
    const void *handle = root() == nullptr ? nullptr : root()->prm_srh_hdl;
    act_(what, static_cast<uint32_t>(reinterpret_cast<uintptr_t>(handle)));
}

void ScenarioHost::let_time_pass()
{
    vlc::CardClock::advance(std::chrono::seconds(1)); // a callback that read nothing is due again
    do {
        card_->events().run_until_idle();
    } while (card_->access().settle());
}

} // namespace test
