#include "flow_walk.h"

#include <array>
#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "shadow_walk.h"

namespace services {

bool StoredFlow::has_row() const
{
    return content.key_len <= FLOW_KEY_BYTES && content.result_len <= FLOW_RESULT_BYTES;
}

bool StoredFlow::is_on(uint32_t np) const
{
    return (content.flags & FLOW_ON_ALL_NPS) != 0 || content.np == np;
}

bool FlowWalk::readable(const void *address, size_t bytes) const
{
    return address != nullptr && reinterpret_cast<uintptr_t>(address) % alignof(void *) == 0 &&
           input_.in_shared_memory(address, bytes);
}

void FlowWalk::broken(const std::string &text)
{
    report_.findings.emplace_back().text = text;
}

const in_hash_table *FlowWalk::table_of_root() const
{
    if (!readable(input_.root, sizeof *input_.root))
        return nullptr; // the walk of the shadow DB says so
    shadow_db root;
    std::memcpy(&root, input_.root, sizeof root);
    return root.flow_db;
}

std::vector<StoredFlow> FlowWalk::run()
{
    const in_hash_table *address = table_of_root();
    if (address == nullptr)
        return {};
    in_hash_table table{};
    const bool has_head = readable(address, sizeof table);
    if (has_head)
        std::memcpy(&table, address, sizeof table);
    const size_t chains = size_t{table.num_buckets} * sizeof(void *);
    if (!has_head || !readable(address, sizeof table + chains)) {
        broken("the flow table lies outside shared memory");
        return {};
    }
    std::vector<const void *> heads(table.num_buckets);
    if (!heads.empty())
        std::memcpy(heads.data(), address + 1, chains);
    for (uint32_t bucket = 0; bucket < table.num_buckets; ++bucket) {
        if (heads[bucket] != nullptr)
            walk_chain(bucket, heads[bucket]);
    }
    if (table.count != flows_.size()) {
        broken("the flow table says " + std::to_string(table.count) +
               " flows and its chains hold " + std::to_string(flows_.size()));
        report_.findings.back().kind = FindingKind::count_wrong;
    }
    return std::move(flows_);
}

void FlowWalk::walk_chain(uint32_t bucket, const void *head)
{
    const std::string chain = "chain " + std::to_string(bucket) + " of the flow table: ";
    for (const void *entry = head; entry != nullptr; entry = flows_.back().content.next) {
        const std::string where = hexadecimal(reinterpret_cast<uintptr_t>(entry));
        if (!readable(entry, sizeof(flow_record)))
            return broken(chain + "it points to " + where + ", outside shared memory");
        if (!seen_.insert(entry).second)
            return broken(chain + "it comes to the flow at " + where + " a second time");
        StoredFlow &flow = flows_.emplace_back();
        flow.address = static_cast<const flow_record *>(entry);
        std::memcpy(&flow.content, entry, sizeof flow.content);
    }
}

std::string text_of(const StoredFlow &flow)
{
    std::array<char, 32> number{};
    std::snprintf(number.data(), number.size(), "%016" PRIx64, flow.content.flow_key);
    const std::string text = std::string("flow ") + number.data();
    if (!flow.has_row())
        return text;
    return text + " (" + hexadecimal(ByteSpan(flow.content.key, flow.content.key_len)) + ")";
}

} // namespace services
