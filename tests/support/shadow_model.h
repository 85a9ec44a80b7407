// A small reference of the shadow DB: what a batch leaves in shadow, hardware, counters and memory
// when chosen platform services fail. It knows nothing of the library's code, only its rules.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "inline_service_app.h"

namespace test {

inline constexpr uint32_t model_nps = 2;
inline constexpr uint32_t first_counter = 0xC00000;
inline constexpr uint32_t counter_count = 65536;
inline constexpr uint32_t prm_refusal = 77;

// Which services fail while one batch is applied.
struct Failures {
    uint32_t refusing_nps = 0; // bit np: PRM refuses every request for it
    bool list_create = false;
    bool enqueue = false;
    uint32_t failing_malloc = 0; // the n-th allocation fails; 0 for none
};

struct ModelNode {
    app_node content{};
    std::array<uint32_t, model_nps> rx{};
    std::array<uint32_t, model_nps> drop{};
    shmem_node *address = nullptr; // learned from the library after the batch
};
using NodePointer = std::shared_ptr<ModelNode>;

struct ModelTable {
    std::vector<NodePointer> listed;
    std::vector<NodePointer> lost; // taken off the list by a clear that failed; still counted
    uint32_t count() const { return static_cast<uint32_t>(listed.size() + lost.size()); }
};

struct ModelEntry {
    uint32_t app_ID = 0, version = 0, timestamp = 0;
    uint16_t tag = 0;
    ModelTable tables[2];
};

struct ModelRequest {
    app_node content{};
    NodePointer node; // what a modify or delete names
};

struct ModelBatch {
    uint16_t key = 0, tag = 0;
    uint32_t app_ID = 0, app_param = 0, action = 0, num_node = 0;
    std::vector<ModelRequest> requests;
};

class ShadowModel {
public:
    using HardwareTable = std::map<std::string, std::string>; // result by key

    // What inline_svc_shadow_db_insert_action_array returns.
    uint32_t apply(const ModelBatch &batch, const Failures &failures)
    {
        failures_ = failures;
        allocations_ = 0;
        if (batch.action != 3 && insert(batch) == 0)
            return 0;
        return clear(batch.key);
    }

    std::map<uint16_t, ModelEntry> entries;
    HardwareTable hardware[model_nps][2];
    std::set<uint32_t> counters[model_nps]; // in use, as places in the region
    uint64_t leaked_nodes = 0;              // their entry went without them

    uint64_t blocks() const
    {
        uint64_t sum = leaked_nodes + entries.size();
        for (const auto &[key, entry] : entries)
            sum += entry.tables[0].count() + entry.tables[1].count();
        return sum;
    }

private:
    bool allocate() { return ++allocations_ != failures_.failing_malloc; }

    void drop_entry(uint16_t key)
    {
        for (const ModelTable &table : entries[key].tables)
            leaked_nodes += table.count();
        entries.erase(key);
    }

    uint32_t insert(const ModelBatch &batch)
    {
        if (batch.key >= 1024)
            return 22;
        if (!entries.contains(batch.key) && !allocate())
            return 12;
        ModelEntry &entry = entries[batch.key];
        entry.app_ID = batch.app_ID;
        entry.tag = batch.tag;
        if (batch.num_node == 0) {
            drop_entry(batch.key);
            return 0;
        }
        uint32_t rc = 0;
        for (size_t i = 0; rc == 0 && i < batch.requests.size(); ++i)
            rc = apply_request(entry, batch.requests[i]);
        if (entry.tables[0].count() + entry.tables[1].count() == 0) {
            entries.erase(batch.key);
            return rc;
        }
        entry.version = batch.app_param;
        entry.timestamp = 1;
        return rc;
    }

    uint32_t apply_request(ModelEntry &entry, const ModelRequest &request)
    {
        switch (request.content.action) {
        case 1:
            return create(entry, request.content);
        case 2:
            return fits(entry, request) ? change(*request.node, request.content) : 22;
        case 3:
            return fits(entry, request) ? remove(entry, request) : 22;
        default:
            return 22;
        }
    }

    // A modify or delete must name a node that lives, and the node's own table.
    static bool fits(const ModelEntry &entry, const ModelRequest &request)
    {
        const uint32_t type = request.content.table_type;
        if (type > 1 || type != request.node->content.table_type)
            return false;
        const auto holds = [&request](const std::vector<NodePointer> &nodes) {
            return std::find(nodes.begin(), nodes.end(), request.node) != nodes.end();
        };
        return holds(entry.tables[type].listed) || holds(entry.tables[type].lost);
    }

    uint32_t create(ModelEntry &entry, const app_node &content)
    {
        if (content.table_type > 1)
            return 22;
        ModelTable &table = entry.tables[content.table_type];
        if (table.count() == 0 && failures_.list_create)
            return 12;
        if (!allocate())
            return 12;
        auto node = std::make_shared<ModelNode>();
        node->content = content;
        if (const uint32_t rc = program(*node); rc != 0)
            return rc;
        if (failures_.enqueue)
            return 12; // the hardware and the counters keep what they took
        table.listed.push_back(node);
        return 0;
    }

    uint32_t change(ModelNode &node, const app_node &content)
    {
        node.content = content;
        return program(node);
    }

    uint32_t remove(ModelEntry &entry, const ModelRequest &request)
    {
        if (const uint32_t rc = change(*request.node, request.content); rc != 0)
            return rc;
        ModelTable &table = entry.tables[request.content.table_type];
        std::erase(table.listed, request.node);
        std::erase(table.lost, request.node);
        return 0;
    }

    uint32_t clear(uint16_t key)
    {
        if (!entries.contains(key))
            return 0;
        for (ModelTable &table : entries[key].tables) {
            while (!table.listed.empty()) {
                const NodePointer node = table.listed.front();
                table.listed.erase(table.listed.begin());
                node->content.action = 3;
                if (const uint32_t rc = program(*node); rc != 0) {
                    table.lost.push_back(node);
                    return rc;
                }
            }
        }
        drop_entry(key);
        return 0;
    }

    // ---- the hardware's side of one node

    uint32_t program(ModelNode &node)
    {
        if (node.content.key_len > 48 || node.content.result_len > 64)
            return 22;
        const bool counted = node.content.table_type == 1 || node.content.hw_index != 0xFFFFFFFF;
        std::string result(reinterpret_cast<const char *>(node.content.result), 64);
        uint32_t rc = 0;
        for (uint32_t np = 0; np < model_nps; ++np) {
            if (node.content.action == 1) {
                node.rx[np] = counted ? take_counter(np) : 0;
                node.drop[np] = counted ? take_counter(np) : 0;
            }
            if (counted || node.content.action == 3)
                encode(node.rx[np], &result);
            rc = request(np, node.content, result);
            if (node.content.action == 3 && counted) {
                give_back(node.rx[np], np);
                rc = give_back(node.drop[np], np);
            }
        }
        return rc;
    }

    // On this card the number's outer bytes change places in the node with every use.
    static void encode(uint32_t &rx, std::string *result)
    {
        rx = (rx & 0xFF00FF00) | (rx & 0xFF) << 16 | (rx >> 16 & 0xFF);
        memcpy(result->data() + 1, &rx, 3);
    }

    uint32_t request(uint32_t np, const app_node &content, const std::string &result)
    {
        if ((failures_.refusing_nps >> np & 1) != 0)
            return prm_refusal;
        HardwareTable &table = hardware[np][content.table_type];
        const std::string key(reinterpret_cast<const char *>(content.key), content.key_len);
        const std::string bytes = result.substr(0, content.result_len);
        if (content.action == 1)
            table.emplace(key, bytes); // a duplicate is said later, and changes nothing
        else if (content.action == 3)
            table.erase(key);
        else if (table.contains(key))
            table[key] = bytes;
        return 0;
    }

    uint32_t take_counter(uint32_t np)
    {
        uint32_t place = 0;
        for (const uint32_t taken : counters[np]) {
            if (taken != place)
                break;
            ++place;
        }
        counters[np].insert(place);
        return first_counter + place;
    }

    uint32_t give_back(uint32_t counter, uint32_t np)
    {
        if (counter < first_counter || counter > first_counter + counter_count)
            return 22;
        counters[np].erase(counter - first_counter);
        return 0;
    }

    Failures failures_;
    uint32_t allocations_ = 0;
};

} // namespace test
