// Walks the shadow DB without trusting it: each record is checked to lie in shared memory and
// copied before it is looked at, so that neither damage nor a host that is at work can lead astray.
#pragma once

#include <cstdint>
#include <unordered_set>
#include <vector>

#include "shadow_audit.h"
#include "stored_tables.h"

namespace services {

// Fills entries, nodes and the findings of kinds count_wrong and list_broken.
class ShadowWalk {
public:
    ShadowWalk(const AuditInput &input, AuditReport &report) : input_(input), report_(report) {}
    std::vector<StoredEntry> run();
    // Every node that there is was reached, so whatever is wrong follows from the chains.
    bool chains_are_whole() const { return whole_; }
    bool bitmaps_are_readable(uint32_t nps, uint32_t words) const;

    // Null when the NP has no bitmap that could be read.
    const uint32_t *bitmap(uint32_t np, uint32_t words);

private:
    bool readable(const void *address, size_t bytes, size_t alignment) const;
    template <typename Record>
    bool copy(const Record *address, Record *record) const;
    void walk_entry(uint32_t slot, const main_entry *address);
    void walk_list(const list_record &list, const list_record *address, uint32_t elements);
    bool take_link(const list_link *address, const list_link *previous, const list_record *list,
                   const list_link **next);
    void take_node(const shmem_node *address, const shmem_node &node);
    Finding &broken(const std::string &text);

    const AuditInput &input_;
    AuditReport &report_;
    shadow_db root_{};
    bool has_root_ = false;
    bool whole_ = true;
    uint32_t main_key_ = 0; // where the walk is
    uint32_t table_ = 0;
    std::unordered_set<const void *> seen_; // links of every list
    std::vector<StoredEntry> entries_;
};

// "entry 7 of key 1 (service config 1106c0...)"
std::string text_of(const StoredEntry &entry);
std::string table_text(uint32_t table);
std::string hexadecimal(ByteSpan bytes);
std::string hexadecimal(uint64_t number); // 0x...

} // namespace services
