#include "stored_tables.h"

#include <algorithm>
#include <cstring>

#include "flow_walk.h"
#include "service_error.h"
#include "shadow_walk.h"

namespace services {

StoredTables::StoredTables(const shadow_db *root, InSharedMemory in_shared_memory)
    : in_shared_memory_(std::move(in_shared_memory)), address_(root)
{
    if (root == nullptr)
        throw ServiceError("no host was ever up: the window has no root");
    if (!in_shared_memory_(root, sizeof *root))
        throw ServiceError("the window's root leads out of it");
    std::memcpy(&root_, root, sizeof root_);
}

template <typename Record>
std::optional<std::vector<Record>> StoredTables::copy_of(const void *table, size_t count,
                                                         const char *what) const
{
    if (table == nullptr)
        return std::nullopt;
    if (!in_shared_memory_(table, count * sizeof(Record)))
        throw ServiceError("the window's table of " + std::string(what) + " leads out of it");
    std::vector<Record> records(count);
    std::memcpy(records.data(), table, count * sizeof(Record));
    return records;
}

std::optional<std::vector<uidb_attribute>> StoredTables::attributes() const
{
    return copy_of<uidb_attribute>(root_.uidb_attr_table, UIDB_ATTRIBUTES, "attributes");
}

std::optional<std::vector<vservice_config>> StoredTables::vservices() const
{
    return copy_of<vservice_config>(root_.vservice_db, VSERVICES, "virtual services");
}

std::map<uint32_t, StoredKey> StoredTables::keys() const
{
    const AuditInput input{.root = address_, .in_shared_memory = in_shared_memory_};
    AuditReport report;
    ShadowWalk walk(input, report);
    std::map<uint32_t, StoredKey> keys;
    for (const StoredEntry &entry : walk.run())
        keys[entry.main_key].nodes.push_back({entry.content, entry.has_row});
    if (!walk.chains_are_whole())
        throw ServiceError("the shadow DB is damaged; see 'inlinectl audit'");
    for_each_main_entry(
        [&keys](uint32_t key, const main_entry &content) { keys[key].content = content; });
    return keys;
}

template <typename Keep>
void StoredTables::for_each_main_entry(const Keep &keep) const
{
    const auto slots = copy_of<const main_entry *>(root_.main_table, SHADOW_DB_MAIN_SLOTS, "keys");
    for (uint32_t key = 0; slots && key < slots->size(); ++key) {
        const main_entry *address = (*slots)[key];
        main_entry content;
        if (address == nullptr || !in_shared_memory_(address, sizeof *address))
            continue;
        std::memcpy(&content, address, sizeof content);
        keep(key, content);
    }
}

StoredShadow StoredTables::shadow(uint32_t nps, uint32_t words) const
{
    const AuditInput input{.root = address_, .in_shared_memory = in_shared_memory_};
    AuditReport report;
    ShadowWalk walk(input, report);
    StoredShadow shadow;
    shadow.entries = walk.run();
    for (uint32_t np = 0; np < std::min<uint32_t>(nps, SHADOW_DB_MAX_NPS); ++np) {
        const uint32_t *bitmap = walk.bitmap(np, words);
        std::vector<uint32_t> &copied = shadow.bitmaps.emplace_back();
        if (bitmap != nullptr)
            copied.assign(bitmap, bitmap + words);
    }
    try {
        for_each_main_entry(
            [&shadow](uint32_t key, const main_entry &content) { shadow.keys[key] = content; });
    } catch (const ServiceError &) {
        // The walk has said it.
    }
    for (Finding &finding : report.findings)
        shadow.damage.push_back(std::move(finding.text));
    return shadow;
}

std::vector<flow_record> StoredTables::flows() const
{
    const AuditInput input{.root = address_, .in_shared_memory = in_shared_memory_};
    AuditReport report;
    std::vector<flow_record> flows;
    for (const StoredFlow &flow : FlowWalk(input, report).run())
        flows.push_back(flow.content);
    for (const Finding &finding : report.findings) {
        if (finding.kind == FindingKind::list_broken) // a count may be of another moment
            throw ServiceError(finding.text + "; see 'inlinectl audit'");
    }
    return flows;
}

} // namespace services
