// All of a host's window and its card at one moment, copied, so that it can be sorted, compared and
// drawn at leisure. Damage and what cannot be read are notes: the rest is there all the same.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "entry_content.h"
#include "state_places.h"
#include "stored_tables.h"
#include "vlc/card_access.h"

namespace inlinectl {

// What an NP has for an entry.
struct NpRow {
    bool is_there = false;
    bool is_as_stored = false; // the row is the entry's, its counter included
    vlc::PacketCount hits{};
};

struct NpSnapshot {
    std::string unread; // why nothing of it could be read; empty when it was
    vlc::NpTotals totals;
    std::array<uint64_t, vlc::table_kinds> rows{};
    std::vector<vlc::PacketCount> counters; // by place
    uint64_t flow_counters_in_use = 0;
};

struct SnapshotRow {
    uint32_t np;
    uint32_t table; // as in vlc::TableKind
    vlc::TableRow row;
    vlc::PacketCount hits;
};

struct Snapshot {
    vlc::CardConfig card;
    std::string shadow_unread;                  // why nothing of the window could be read
    std::vector<services::StoredEntry> entries; // by key, then by table
    std::vector<NpRow> rows;                    // an NP each, entry by entry
    std::map<uint32_t, main_entry> keys;        // that are in use
    std::vector<std::vector<uint32_t>> bitmaps; // of counters in use, by NP
    std::vector<NpSnapshot> nps;
    // These are read on demand.
    std::vector<SnapshotRow> np_rows; // of every table, in no order
    std::vector<uidb_attribute> attributes;
    std::vector<vservice_config> vservices;
    std::vector<flow_record> flows;
    std::vector<std::string> notes; // damage, and what could not be read

    services::CounterRegion region() const;
    const NpRow &row(size_t entry, uint32_t np) const { return rows[entry * nps.size() + np]; }
    vlc::PacketCount hits(size_t entry) const; // of all NPs
    bool has_nps() const;                      // at least one could be read
};

// The counters that an entry holds on an NP, by place in the region; nothing where it has none.
struct EntryCounters {
    std::optional<uint32_t> received;
    std::optional<uint32_t> dropped;
    bool operator==(const EntryCounters &) const = default;
};
EntryCounters counters_of(const services::StoredEntry &entry, uint32_t np,
                          const services::CounterRegion &region);

// Which parts of a card are read; the shadow DB always is.
struct SnapshotParts {
    bool rows = true;
    bool counters = false; // each of the region with what it has counted
    bool contents = false; // every row, attributes, virtual services and flows
    bool totals = false;   // of NPs, with rows those of flows too, and flow counters in use
};

// Throws UsageError and StateError when the places themselves cannot be: no state, another card's
// host, a card that nobody says the place of.
Snapshot take_snapshot(const StatePlaces &places, const SnapshotParts &parts);

// What an entry has of them; nothing where its lengths cannot be.
vlc::Bytes stored_key(const services::StoredEntry &entry);
vlc::Bytes stored_result(const services::StoredEntry &entry);

// The name of an entry, "tcp 192.0.2.1:80"; empty where its key has no known meaning.
std::string name_of(const services::StoredEntry &entry);

// What a stored action is called: "create", "modify", "delete", or its number.
std::string action_name(uint32_t action);

} // namespace inlinectl
