// The audit: compares the shadow DB with every NP's tables and with the counter bitmaps. That of
// flows is in flow_audit.h.
//
// It reads and changes nothing, and needs no library running: the shadow DB may be a dead host's.
// No pointer of the shadow DB is followed before it is checked, so a damaged one is a finding and
// never a fault.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "hardware_view.h"
#include "inline_service_shadowdb.h"

struct flow_record;

namespace services {

struct AuditInput {
    const shadow_db *root = nullptr; // null: nothing was ever programmed
    // Whether these bytes lie in shared memory and can be read.
    std::function<bool(const void *address, size_t bytes)> in_shared_memory;
    bool counters_unswapped = false; // the card's type is one of card_types.def
    uint32_t first_counter = 0;      // the region of stateless double counters
    uint32_t counter_count = 0;
    uint32_t num_nps = 0;
    const HardwareView *hardware =
        nullptr; // null: only the shadow DB and the bitmaps are looked at
};

// An entry is a node in a list of the shadow DB, whatever its action says, or a flow in a chain of
// the flow table. What is not in a list or chain is no entry: its rows are stale and its counters
// are leaked.
enum class FindingKind {
    entry_missing,   // an NP has no row for the entry; one finding an NP
    entry_stale,     // an NP has a row that no entry has the key of
    entry_differs,   // an NP's row has the entry's key and another result; one finding an NP
    counter_leaked,  // in use, and no entry holds it
    counter_free,    // an entry holds it, and it is not in use; received and dropped apart
    counter_shared,  // two entries hold it, or one holds it twice; said of the second
    counter_invalid, // an entry with counters holds 0 or a number outside the region, or an entry
                     // without counters holds one
    count_wrong,     // num_elements is not the number of nodes in the list
    list_broken      // what holds the shadow DB together: see the text
};
inline constexpr size_t finding_kinds = 9;

// "entry missing", ... in words, and as a word for programs: "entry_missing".
const char *words_of(FindingKind kind);
const char *name_of(FindingKind kind);

struct Finding {
    static constexpr uint32_t none = 0xFFFFFFFF;

    FindingKind kind = FindingKind::list_broken;
    uint32_t np = none;
    uint32_t table = none;
    uint32_t main_key = none;
    uint32_t entry_id = none;
    std::vector<uint8_t> key; // of the entry or row
    uint32_t counter = none;  // its number, plain: as the allocator counts
    const shmem_node *node = nullptr;
    const flow_record *flow = nullptr;
    std::string text; // one line for a person
};

// An answer of PRM that no host has read: in flight, no difference.
struct UnreadAnswer {
    uint32_t np = 0;
    uint32_t table = 0; // also flow_table
    uint32_t refnum = 0;
    uint32_t status = 0;
    std::vector<uint8_t> key;
};

struct AuditReport {
    struct Np {
        std::array<uint64_t, SHADOW_DB_TABLES> rows{};
        uint64_t counters_in_use = 0; // bits of the bitmap
        uint64_t flow_rows = 0;
        uint64_t flow_counters_in_use = 0; // dynamic ones
    };
    std::vector<Finding> findings; // by kind, then by NP
    std::vector<UnreadAnswer> in_flight;
    std::vector<Np> nps;
    uint64_t entries = 0;                              // main entries
    std::array<uint64_t, SHADOW_DB_TABLES> nodes{};    // in lists
    uint64_t flows = 0;                                // in chains
    std::array<uint64_t, finding_kinds> count() const; // of findings, by kind
    bool clean() const { return findings.empty(); }
};

// What an NP's row of an entry must hold is the entry's key and its result, where bytes 1 to 3 of
// the result of an entry with counters are the received-packets counter's: the first three bytes
// in memory of stat_index_rx[np], or on a card that takes counters unswapped its bytes 1 to 3.
// Every entry of the ext conf table has counters, and in the service config table every one whose
// hw_index is not SHADOW_DB_NO_HW_INDEX.
AuditReport audit(const AuditInput &input);

// By kind, then by NP.
void sort_findings(AuditReport &report);

} // namespace services
