#include "shadow_walk.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

namespace services {

bool ShadowWalk::readable(const void *address, size_t bytes, size_t alignment) const
{
    return address != nullptr && reinterpret_cast<uintptr_t>(address) % alignment == 0 &&
           input_.in_shared_memory(address, bytes);
}

template <typename Record>
bool ShadowWalk::copy(const Record *address, Record *record) const
{
    if (!readable(address, sizeof(Record), alignof(Record)))
        return false;
    std::memcpy(record, address, sizeof(Record));
    return true;
}

Finding &ShadowWalk::broken(const std::string &text)
{
    Finding finding;
    finding.main_key = main_key_;
    finding.table = table_;
    finding.text =
        "key " + std::to_string(main_key_) + ", " + table_text(table_) + " list: " + text;
    return report_.findings.emplace_back(std::move(finding));
}

std::vector<StoredEntry> ShadowWalk::run()
{
    if (input_.root == nullptr)
        return {};
    has_root_ = copy(input_.root, &root_);
    if (!has_root_) {
        whole_ = false;
        report_.findings.emplace_back().text = "the root lies outside shared memory";
        return {};
    }
    const auto *table = root_.main_table;
    if (table == nullptr)
        return {};
    if (!readable(table, SHADOW_DB_MAIN_SLOTS * sizeof *table, alignof(main_entry *))) {
        whole_ = false;
        report_.findings.emplace_back().text = "the main table lies outside shared memory";
        return {};
    }
    for (uint32_t slot = 0; slot < SHADOW_DB_MAIN_SLOTS; ++slot) {
        if (const main_entry *entry = table[slot])
            walk_entry(slot, entry);
    }
    return std::move(entries_);
}

bool ShadowWalk::bitmaps_are_readable(uint32_t nps, uint32_t words) const
{
    for (uint32_t np = 0; has_root_ && np < nps; ++np) {
        const uint32_t *bitmap = root_.counters[np];
        if (bitmap != nullptr && !readable(bitmap, words * sizeof *bitmap, alignof(uint32_t)))
            return false;
    }
    return true;
}

const uint32_t *ShadowWalk::bitmap(uint32_t np, uint32_t words)
{
    const uint32_t *bitmap = has_root_ ? root_.counters[np] : nullptr;
    if (bitmap == nullptr || readable(bitmap, words * sizeof *bitmap, alignof(uint32_t)))
        return bitmap;
    Finding &finding = report_.findings.emplace_back();
    finding.np = np;
    finding.text = "the counter bitmap of NP " + std::to_string(np) + " lies outside shared memory";
    return nullptr;
}

void ShadowWalk::walk_entry(uint32_t slot, const main_entry *address)
{
    main_key_ = slot;
    main_entry entry;
    if (!copy(address, &entry)) {
        whole_ = false;
        Finding &finding = report_.findings.emplace_back();
        finding.main_key = slot;
        finding.text = "key " + std::to_string(slot) + ": the entry lies outside shared memory";
        return;
    }
    ++report_.entries;
    if (entry.uidb_index != slot) {
        Finding &finding = report_.findings.emplace_back();
        finding.main_key = slot;
        finding.text = "key " + std::to_string(slot) + ": the entry stored there says key " +
                       std::to_string(entry.uidb_index);
    }
    for (table_ = 0; table_ < SHADOW_DB_TABLES; ++table_)
        walk_list(entry.table_array[table_], &address->table_array[table_],
                  entry.num_elements[table_]);
}

void ShadowWalk::walk_list(const list_record &list, const list_record *address, uint32_t elements)
{
    const list_link *previous = nullptr;
    uint64_t walked = 0;
    for (const list_link *link = list.first; link != nullptr; ++walked) {
        const list_link *next = nullptr;
        if (!take_link(link, previous, address, &next))
            return; // how long the list is cannot be said
        previous = link;
        link = next;
    }
    if (list.last != previous)
        broken("its last node is not the one that it names as the last");
    if (list.count != walked)
        broken("it says " + std::to_string(list.count) + " nodes and holds " +
               std::to_string(walked));
    if (elements != walked) {
        Finding &finding = broken("the entry says " + std::to_string(elements) +
                                  " nodes and the list holds " + std::to_string(walked));
        finding.kind = FindingKind::count_wrong;
    }
}

// Returns false when the list cannot be followed any further.
bool ShadowWalk::take_link(const list_link *address, const list_link *previous,
                           const list_record *list, const list_link **next)
{
    const auto *node_address = reinterpret_cast<const shmem_node *>(address);
    const auto where = [address] { return hexadecimal(reinterpret_cast<uintptr_t>(address)); };
    shmem_node node;
    if (!copy(node_address, &node)) {
        whole_ = false;
        broken("it points to " + where() + ", outside shared memory");
        return false;
    }
    if (!seen_.insert(address).second) {
        whole_ = false;
        broken("it comes to the node at " + where() + " a second time");
        return false;
    }
    ++report_.nodes[table_];
    if (node.link.prev != previous)
        broken("the node at " + where() + " does not name the one before it");
    if (node.link.owner != list)
        broken("the node at " + where() + " names another list as its own");
    whole_ = whole_ && node.link.data == address;
    if (node.link.data == nullptr)
        broken("the link at " + where() + " carries no node");
    else if (node.link.data != address)
        broken("the link at " + where() + " carries another node than itself");
    else
        take_node(node_address, node);
    *next = node.link.next;
    return true;
}

void ShadowWalk::take_node(const shmem_node *address, const shmem_node &node)
{
    const app_node &content = node.app_node;
    const bool fits = content.table_type < SHADOW_DB_TABLES &&
                      content.key_len <= SHADOW_DB_KEY_BYTES &&
                      content.result_len <= SHADOW_DB_RESULT_BYTES;
    entries_.push_back({address, node, main_key_, fits});
    whole_ = whole_ && fits && content.table_type == table_;
    const auto say = [&](const std::string &text) {
        Finding &finding = broken("the node of entry " + std::to_string(content.entry_id) + text);
        finding.entry_id = content.entry_id;
        finding.node = address;
    };
    if (content.table_type != table_)
        say(" names table " + std::to_string(content.table_type));
    if (!fits && content.table_type < SHADOW_DB_TABLES)
        say(" has a key or a result that is longer than one can be");
    if (content.shmem_node != address)
        say(" does not name itself");
}

// ---- texts ---------------------------------------------------------------------------------

std::string hexadecimal(ByteSpan bytes)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += digits[byte >> 4];
        text += digits[byte & 15];
    }
    return text;
}

std::string hexadecimal(uint64_t number)
{
    char text[24];
    std::snprintf(text, sizeof text, "0x%" PRIx64, number);
    return text;
}

std::string table_text(uint32_t table)
{
    return table == SHADOW_DB_SERVICE_CONFIG ? "service config" : "ext conf";
}

std::string text_of(const StoredEntry &entry)
{
    const app_node &content = entry.content.app_node;
    std::string text =
        "entry " + std::to_string(content.entry_id) + " of key " + std::to_string(entry.main_key);
    if (entry.has_row)
        text += " (" + table_text(content.table_type) + " " +
                hexadecimal(ByteSpan(content.key, content.key_len)) + ")";
    return text;
}

} // namespace services
