// Traffic meter: a service that counts packets and bytes per destination and per address.
//
// It owns one key of the shadow DB: application type 1 and an index. Into the service config table
// it programs one entry per (IP protocol, destination address, destination port), into the ext conf
// table one per destination address; key and result bytes are laid out as lookup_keys.h says. Every
// entry has counters and an id of its own, unique over both tables.
//
// What the shadow DB holds for the key is the meter's memory: a meter that starts on a window where
// one ran before finds its entries there by their key bytes, and sends nothing for them.
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "inline_service_shadowdb.h"

namespace services {

// Numbers in host byte order. Port 0 where a packet has none.
struct Destination {
    uint8_t protocol = 0;
    uint32_t address = 0;
    uint16_t port = 0;
    auto operator<=>(const Destination &) const = default;
};

enum class MeterTable : uint32_t {
    destinations = SHADOW_DB_SERVICE_CONFIG,
    addresses = SHADOW_DB_EXT_CONF
};

struct MeterCount {
    uint64_t packets = 0;
    uint64_t bytes = 0;
};

// One entry as it is reported. In the address table protocol and port are 0.
struct MeterEntry {
    MeterTable table = MeterTable::destinations;
    Destination destination;
    uint32_t entry_id = 0;
    bool found = false;     // it was there when the meter started
    MeterCount counted;     // since the meter started
    MeterCount total;       // since the entry was programmed, the time before this start included
    uint32_t nps = 0;       // bit n: NP n has counted since the meter started
    uint32_t total_nps = 0; // since the entry was programmed
    bool unread = false;    // the last pass could not read all its counters
};

class TrafficMeter {
public:
    static constexpr int32_t app_type = 1;
    static constexpr size_t batch_entries = 64;

    // Registers the callbacks of application type 1 and finds the entries that are there; needs a
    // started host. Throws ServiceError for an index above 255 and a refused registration. The
    // library has no way to take a registration back, so a process has one meter.
    explicit TrafficMeter(uint32_t index = 1);
    ~TrafficMeter();
    TrafficMeter(const TrafficMeter &) = delete;
    TrafficMeter &operator=(const TrafficMeter &) = delete;

    struct Programmed {
        size_t found = 0; // wanted entries that were there: nothing was sent for them
        size_t made = 0;
        bool stopped = false; // by `between_batches`
        std::string failure;  // empty when every entry is stored
    };
    // Called after each batch with the entries done so far and all that are to be made; the place
    // to run the event manager, so that the answers are read. Returns whether to go on.
    using BetweenBatches = std::function<bool(size_t made, size_t to_make)>;

    // Programs what is missing for these destinations and their addresses. After each batch it
    // looks up what the shadow DB holds: a failed insertion clears the whole key, and then the
    // meter has no entries left, which `failure` says.
    Programmed program(const std::vector<Destination> &wanted,
                       const BetweenBatches &between_batches);

    // One statistics pass. The library's sums are 32 bits wide and wrap, so a pass must come before
    // any entry has counted 2^32 more packets or bytes than at the last one. What an entry had
    // counted before this start is known modulo 2^32. An entry whose counters cannot all be read
    // keeps its counts, and the next pass makes up for it.
    void collect();
    bool has_unread() const; // entries, in the last pass

    std::vector<MeterEntry> entries() const; // by table, then destination
    uint32_t key() const { return key_; }

private:
    struct EntryName {
        MeterTable table;
        Destination destination;
        auto operator<=>(const EntryName &) const = default;
    };
    struct Sum {
        uint32_t packets = 0;
        uint32_t bytes = 0;
        bool operator==(const Sum &) const = default;
    };
    struct Reading { // of an entry's counters, by NP
        uint64_t packets[SHADOW_DB_MAX_NPS] = {};
        uint64_t bytes[SHADOW_DB_MAX_NPS] = {};
        Sum sum() const;
        bool is_below(const Reading &earlier) const; // on any NP
    };
    struct Entry {
        shmem_node *node = nullptr;
        bool found = false;
        bool measured = false; // a pass has set the starting point
        bool unread = false;
        std::optional<Sum> passed;      // to the callback, in this pass
        std::optional<Reading> reading; // before this pass
        Sum last;
        uint32_t nps = 0;
        uint32_t nps_before = 0; // this start
        MeterCount before;
        MeterCount counted;
    };

    static void on_statistics(uint32_t uidb_index, uint32_t entry_id, uint32_t phase, uint32_t a,
                              uint32_t b);
    static bool name_of(const shmem_node &node, EntryName *name);

    void read_back(bool at_start);
    bool read_new(size_t made);
    void read_on(const main_entry &stored, bool at_start);
    void take_node(shmem_node *node, bool at_start);
    std::vector<EntryName> missing(const std::vector<Destination> &wanted, size_t *found) const;
    std::string program_batch(const EntryName *first, const EntryName *last);
    static std::optional<Reading> read_counters(const Entry &entry);
    static bool is_credible(const Entry &entry, const Reading &now);
    static void measure(Entry &entry);
    static void take_in(Entry &entry, const Reading &now);

    uint32_t key_;
    uint32_t next_entry_id_ = 1;
    size_t nodes_read_ = 0;                             // whoever's they are
    const list_link *last_read_[SHADOW_DB_TABLES] = {}; // null before the first of a table
    std::map<EntryName, Entry> entries_;
    std::unordered_map<uint32_t, Entry *> by_id_; // into entries_, whose places do not move
};

} // namespace services
