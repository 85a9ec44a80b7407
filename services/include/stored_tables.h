// What a window holds of interfaces, virtual services, keys and flows, copied for looking: neither
// damage nor a host that is at work can lead astray.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "inline_service_attributes.h"
#include "inline_service_flowdb.h"
#include "inline_service_shadowdb.h"
#include "inline_service_vservice.h"

namespace services {

struct StoredNode {
    shmem_node content;
    bool has_row; // its table and lengths are such as a row can have
};

// A node in a list of the shadow DB, as it was when the walk came by.
struct StoredEntry {
    const shmem_node *address;
    shmem_node content;
    uint32_t main_key;
    bool has_row; // its table and lengths are such as a row can have
};

// All that can be reached, whatever is damaged.
struct StoredShadow {
    std::vector<StoredEntry> entries;           // by key, then by table, in the lists' order
    std::map<uint32_t, main_entry> keys;        // that are in use
    std::vector<std::vector<uint32_t>> bitmaps; // of counters in use, by NP; empty for none
    std::vector<std::string> damage;            // in words
};

struct StoredKey {
    main_entry content;
    std::vector<StoredNode> nodes;
};

class StoredTables {
public:
    using InSharedMemory = std::function<bool(const void *address, size_t bytes)>;

    // Throws ServiceError without a root, or for one that leads astray.
    StoredTables(const shadow_db *root, InSharedMemory in_shared_memory);

    // Every interface, by index; nothing while there is no table.
    std::optional<std::vector<uidb_attribute>> attributes() const;
    // The last configuration of every service, by index; nothing while there is no table.
    std::optional<std::vector<vservice_config>> vservices() const;
    // Every key that is in use. Throws ServiceError when its chains are damaged.
    std::map<uint32_t, StoredKey> keys() const;
    // `words` are those of an NP's bitmap. Throws nothing.
    StoredShadow shadow(uint32_t nps, uint32_t words) const;
    // Every flow, chain by chain. Throws ServiceError when the chains are damaged.
    std::vector<flow_record> flows() const;

private:
    template <typename Keep>
    void for_each_main_entry(const Keep &keep) const;
    template <typename Record>
    std::optional<std::vector<Record>> copy_of(const void *table, size_t count,
                                               const char *what) const;

    InSharedMemory in_shared_memory_;
    const shadow_db *address_;
    shadow_db root_{};
};

} // namespace services
