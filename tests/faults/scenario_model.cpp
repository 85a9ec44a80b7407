#include "scenario_model.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "scenario_host.h"

namespace test {

StepResult ScenarioModel::carry_out(const Step &step)
{
    switch (step.kind) {
    case StepKind::start_host:
        return {start()};
    case StepKind::register_services:
        for (const uint16_t type : types_with_callback)
            model_.has_stats_callback[type] = true;
        model_.open_encoder();
        return {};
    case StepKind::apply_batch:
        return {apply(step)};
    case StepKind::clear_key: {
        ModelBatch batch;
        batch.key = step.key;
        batch.action = INLINE_SVC_BATCH_DELETE_ALL;
        return {model_.apply(batch)};
    }
    case StepKind::run_app_handler:
        return run_app_handler();
    case StepKind::pass_traffic:
        pass_traffic();
        return {};
    case StepKind::collect_statistics:
        return {0, model_.collect()};
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
        model_.read_answers();
        return {};
    case StepKind::queue_delayed_answer:
        model_.queue_delayed_answer();
        return {};
    case StepKind::prm_goes_down:
        model_.prm_goes_down();
        return {};
    case StepKind::prm_comes_up:
        model_.prm_comes_up();
        model_.read_answers();
        return {};
    case StepKind::reset_window:
        return {model_.reset_window()};
    }
    return {};
}

uint32_t ScenarioModel::start()
{
    return model_.start_host() || model_.start_host() ? 0 : StepResult::host_not_started;
}

uint32_t ScenarioModel::apply(const Step &step)
{
    ModelBatch batch;
    batch.key = step.key;
    batch.app_ID = step.key;
    batch.app_param = step.version;
    batch.tag = static_cast<uint16_t>(step.version);
    if (!model_.create_list())
        return StepResult::batch_not_built;
    for (const EntryRequest &entry : step.requests) {
        ModelRequest request;
        if (entry.action != SHADOW_DB_CREATE) {
            request.node = model_.stored(step.key, entry.entry_id);
            if (request.node == nullptr && step.missing == Missing::is_left_out)
                continue;
        }
        app_node &content = request.content;
        memcpy(content.key, entry.key.data(), entry.key.size());
        memcpy(content.result, entry.result.data(), entry.result.size());
        content.key_len = static_cast<uint32_t>(entry.key.size());
        content.result_len = static_cast<uint32_t>(entry.result.size());
        content.hw_index = entry.hw_index;
        content.entry_id = entry.entry_id;
        content.table_type = entry.table;
        content.action = entry.action;
        if (!model_.append_to_batch())
            return StepResult::batch_not_built;
        batch.requests.push_back(request);
    }
    batch.num_node = static_cast<uint32_t>(batch.requests.size());
    return batch.num_node == 0 ? StepResult::nothing_to_do : model_.apply(batch);
}

// Entries 1 to 4 of key 1 as they are stored, the last of them twice; four samples where the key
// has no entry. An append that fails is counted all the same.
StepResult ScenarioModel::run_app_handler()
{
    struct Element {
        uint32_t entry_id, action;
    };
    static constexpr Element replayed[] = {{1, 2}, {2, 3}, {3, 3}, {4, 2}, {4, 3}};
    static constexpr Element samples[] = {{1, 1}, {2, 1}, {3, 1}, {4, 1}};
    constexpr uint16_t key = 1;
    if (!model_.create_list())
        return {ENOMEM};
    StepResult result;
    result.batch.push_back(0);
    const auto append = [&](const Element &element) {
        ++result.batch[0];
        if (model_.append_to_batch())
            result.batch.insert(result.batch.end(), {element.entry_id, element.action});
    };
    if (!model_.entries.contains(key)) {
        std::ranges::for_each(samples, append);
        return result;
    }
    for (const Element &element : replayed) {
        if (model_.stored(key, element.entry_id) != nullptr)
            append(element);
    }
    return result;
}

void ScenarioModel::configure(const VserviceRequest &wanted)
{
    if (wanted.encap == 0)
        model_.remove_vservice(wanted.index);
    else
        model_.configure(config_of(wanted));
}

StepResult ScenarioModel::set_attributes(const AttributeRequest &wanted)
{
    model_.set_attribute(wanted.uidb, attribute_of(wanted));
    if (wanted.infra_ip != 0)
        model_.endpoints[wanted.slot] = {0, wanted.infra_ip, wanted.uidb};
    StepResult read;
    const uidb_attribute found = model_.attribute(wanted.uidb);
    if (model_.has_attributes && wanted.uidb < UIDB_ATTRIBUTES)
        read.words = {found.app_type, found.app_ID, found.vqi,
                      found.slot,     found.iftype, found.dirty};
    else
        read.words = {0, 0, UIDB_UNKNOWN_VQI, UIDB_UNKNOWN_SLOT, 0, 0};
    return read;
}

StepResult ScenarioModel::send_packets()
{
    constexpr uint32_t headers = 16 + 56;
    constexpr uint32_t ip_and_udp = 20 + 8;
    StepResult sent;
    model_.note_card_type(); // by the registration
    model_.note_card_type(); // by the first packet
    if (const auto port = model_.port_of_sent_frame())
        sent.words = {*port, headers + ip_and_udp + service_packet_bytes, 0x8000u | tag_of_packets,
                      0};
    if (const auto port = model_.port_of_sent_frame())
        sent.words.insert(sent.words.end(), {*port, headers + ip_packet_bytes, 0, tag_of_packets});
    return sent;
}

StepResult ScenarioModel::look_up_interfaces()
{
    StepResult found;
    for (const uint16_t uidb : interfaces_looked_up) {
        const ReferenceModel::Endpoint endpoint = model_.look_up_endpoint(uidb);
        found.words.insert(found.words.end(), {endpoint.code, endpoint.ip, endpoint.value});
    }
    const ReferenceModel::Lookup pic = model_.look_up_pic();
    const ReferenceModel::Lookup table = model_.look_up_table();
    found.words.insert(found.words.end(), {pic.code, pic.value, table.code, table.value});
    return found;
}

void ScenarioModel::pass_traffic()
{
    for (uint32_t np = 0; np < model_.card.nps; ++np) {
        for (uint32_t place = 0; place < places_with_traffic; ++place)
            model_.card.count(np, place, traffic_on(np, place));
    }
}

} // namespace test
