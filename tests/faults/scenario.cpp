#include "scenario.h"

#include <cstdio>
#include <map>

#include "inline_service_shadowdb.h"
#include "inline_service_vservice.h"
#include "lookup_keys.h"
#include "scenario_card.h"

namespace test {
namespace {

constexpr uint32_t batch_size = 18;

// Application types 1, 2, 3 (which has no statistics callback) and 4.
constexpr uint16_t keys[] = {0x001, 0x002, 0x0FF, 0x105, 0x2FF, 0x300};
constexpr uint16_t cleared_key = 0x002;
constexpr uint16_t emptied_key = 0x0FF;

class ScenarioBuilder {
public:
    std::vector<Step> build()
    {
        add({StepKind::start_host});
        add({StepKind::register_services});
        add({StepKind::run_app_handler}); // with nothing stored
        create_everything();
        configure_vservices();
        set_attributes();
        add({StepKind::look_up_interfaces});
        add({StepKind::send_packets});
        add({StepKind::run_app_handler});
        add({StepKind::pass_traffic});
        add({StepKind::collect_statistics});
        change_entries();
        mix_actions();
        add({StepKind::prm_goes_down});
        add({StepKind::collect_statistics}); // every read fails
        add({StepKind::prm_comes_up});
        clear_and_refill();
        configure_vservices_anew();
        empty_a_key();
        add({StepKind::queue_delayed_answer});
        add({StepKind::read_answers});
        add({StepKind::pass_traffic});
        add({StepKind::collect_statistics});
        change_blindly();
        add({StepKind::send_packets});
        add({StepKind::look_up_interfaces});
        add({StepKind::read_answers});
        add({StepKind::reset_window});
        return std::move(steps_);
    }

private:
    struct Entry {
        uint32_t table;
        uint32_t hw_index;
        std::string key;
        uint32_t changes = 0;
    };

    void add(Step step) { steps_.push_back(std::move(step)); }

    Step &batch(uint16_t key)
    {
        Step step;
        step.kind = StepKind::apply_batch;
        step.key = key;
        step.version = ++last_version_;
        add(step);
        return steps_.back();
    }

    void read_every_third()
    {
        if (++batches_ % 3 == 0)
            add({StepKind::read_answers});
    }

    // A new entry: two of three in the service config table, and of these half without counters.
    void create(Step &step)
    {
        const uint32_t id = ++last_id_;
        Entry entry;
        entry.table = id % 3 == 0 ? SHADOW_DB_EXT_CONF : SHADOW_DB_SERVICE_CONFIG;
        entry.hw_index = id % 6 < 3 ? SHADOW_DB_NO_HW_INDEX : id;
        entry.key = "entry " + std::to_string(id);
        request(step, SHADOW_DB_CREATE, id, entry);
        entries_[id] = entry;
        ids_of_[step.key].push_back(id);
    }

    void modify(Step &step, uint32_t id)
    {
        ++entries_[id].changes; // always to another content
        request(step, SHADOW_DB_MODIFY, id, entries_[id]);
    }

    void remove(Step &step, uint32_t id)
    {
        request(step, SHADOW_DB_DELETE, id, entries_[id]);
        std::erase(ids_of_[step.key], id);
    }

    static void request(Step &step, uint32_t action, uint32_t id, const Entry &entry)
    {
        // Of every length that a result may have from 4 bytes on, so that the counter has room.
        std::string result = "Rccc" + std::to_string(entry.changes) + "/" + std::to_string(id);
        result.resize(4 + id % 61, 'x');
        result[0] = static_cast<char>('A' + entry.changes);
        step.requests.push_back({action, id, entry.table, entry.hw_index, entry.key, result});
    }

    void create_everything()
    {
        for (uint32_t round = 0; round < 2; ++round) {
            for (const uint16_t key : keys) {
                Step &step = batch(key);
                while (step.requests.size() < batch_size)
                    create(step);
                read_every_third();
            }
        }
    }

    // Once each, and of the first key twice, so that both orders of a counter's bytes are seen.
    void change_entries()
    {
        for (const uint16_t key : keys) {
            for (uint32_t round = 0; round < (key == keys[0] ? 2 : 1); ++round) {
                Step &step = batch(key);
                for (size_t i = 0; i < 6; ++i)
                    modify(step, ids_of_[key][5 * i]);
                read_every_third();
            }
        }
    }

    void mix_actions()
    {
        for (const uint16_t key : keys) {
            Step &step = batch(key);
            remove(step, ids_of_[key].front());
            modify(step, ids_of_[key][7]);
            create(step);
            remove(step, ids_of_[key][2]);
            modify(step, ids_of_[key][8]);
            create(step);
            modify(step, ids_of_[key].back()); // made by this very batch: not stored yet
            remove(step, ids_of_[key][3]);
            read_every_third();
        }
    }

    void clear_and_refill()
    {
        Step clear;
        clear.kind = StepKind::clear_key;
        clear.key = cleared_key;
        add(clear);
        ids_of_[cleared_key].clear();
        Step &step = batch(cleared_key);
        while (step.requests.size() < batch_size)
            create(step);
        read_every_third();
    }

    void empty_a_key()
    {
        Step &step = batch(emptied_key);
        while (!ids_of_[emptied_key].empty())
            remove(step, ids_of_[emptied_key].back());
    }

    void configure(VserviceRequest vservice)
    {
        Step step;
        step.kind = StepKind::configure_vservice;
        step.vservice = vservice;
        if (vservice.index < VSERVICES)
            step.key = lookup_keys::shadow_key_of_vservice(vservice.index);
        add(step);
    }

    // Of every kind of user, the local one, one that is not supported and one that cannot be.
    void configure_vservices()
    {
        configure({.index = 1, .encap = 1, .user = 1, .destination = 0x0A000001});
        configure({.index = 2, .encap = 4, .user = 2, .destination = 0x0A000002});
        configure({.index = 3, .encap = 2, .user = 1, .destination = 0x0A000003});
        configure({.index = 4, .encap = 1, .user = 4, .destination = 0x0A000004});
        configure({.index = 255, .encap = 1, .user = 3, .destination = 0x0A0000FF});
        configure({.index = 256, .encap = 1, .user = 1, .destination = 0x0A000100});
    }

    void configure_vservices_anew()
    {
        configure({.index = 1, .encap = 1, .user = 2, .destination = 0x0A000101});
        configure({.index = 3, .encap = 4, .user = 1, .destination = 0x0A000103});
        configure({.index = 4, .encap = 3, .user = 4, .destination = 0x0A000104}); // stays as it is
        configure({.index = 2});
        configure({.index = 256});
    }

    void set_attributes()
    {
        for (const AttributeRequest &attributes :
             {AttributeRequest{40, 2, 7, slot_with_endpoint, 0xC0000201},
              AttributeRequest{41, 3, 8, other_slot, 0}, AttributeRequest{4095, 4, 0, 0, 0},
              AttributeRequest{4096, 1, 1, 1, 0}}) {
            Step step;
            step.kind = StepKind::set_attributes;
            step.attributes = attributes;
            add(step);
        }
    }

    // By a service that does not look whether its entries are still there.
    void change_blindly()
    {
        for (const uint16_t key : {keys[0], keys[3]}) {
            Step &step = batch(key);
            step.missing = Missing::is_named_by_null;
            modify(step, ids_of_[key][4]);
            remove(step, ids_of_[key][6]);
        }
    }

    std::vector<Step> steps_;
    std::map<uint32_t, Entry> entries_;
    std::map<uint16_t, std::vector<uint32_t>> ids_of_; // stored, when nothing fails
    uint32_t last_id_ = 0;
    uint32_t last_version_ = 0;
    uint32_t batches_ = 0;
};

const char *words_of(StepKind kind)
{
    switch (kind) {
    case StepKind::start_host:
        return "start the host";
    case StepKind::register_services:
        return "register the services";
    case StepKind::apply_batch:
        return "batch";
    case StepKind::clear_key:
        return "clear";
    case StepKind::run_app_handler:
        return "run the app handler";
    case StepKind::pass_traffic:
        return "pass traffic";
    case StepKind::collect_statistics:
        return "collect statistics";
    case StepKind::configure_vservice:
        return "configure a virtual service";
    case StepKind::set_attributes:
        return "set attributes";
    case StepKind::look_up_interfaces:
        return "look interfaces up";
    case StepKind::send_packets:
        return "send packets";
    case StepKind::read_answers:
        return "read answers";
    case StepKind::queue_delayed_answer:
        return "queue an answer of the delay queue";
    case StepKind::prm_goes_down:
        return "PRM goes down";
    case StepKind::prm_comes_up:
        return "PRM comes up";
    case StepKind::reset_window:
        return "reset the window";
    }
    return "unknown";
}

} // namespace

std::vector<Step> reference_scenario()
{
    return ScenarioBuilder().build();
}

std::string describe(const Step &step, size_t number)
{
    std::string text = "step " + std::to_string(number) + ": " + words_of(step.kind);
    if (step.kind == StepKind::apply_batch)
        text += " of " + std::to_string(step.requests.size());
    if (step.kind == StepKind::apply_batch || step.kind == StepKind::clear_key) {
        char key[16];
        std::snprintf(key, sizeof key, "0x%03X", static_cast<unsigned>(step.key));
        text += std::string(" for key ") + key;
    }
    if (step.kind == StepKind::configure_vservice)
        text += " " + std::to_string(step.vservice.index);
    return text;
}

} // namespace test
