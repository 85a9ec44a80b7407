#include "traffic_meter.h"

#include <algorithm>
#include <cstring>

#include "action_batch.h"
#include "inline_service_app.h"
#include "inline_service_context.h"
#include "inline_service_stat.h"
#include "lookup_keys.h"
#include "platform_prm_stats.h"
#include "service_error.h"

namespace services {
namespace {

// The statistics callback carries no context of its own.
TrafficMeter *registered_meter = nullptr;

constexpr uint32_t meter_app_id = 1;
constexpr uint32_t entry_layout_version = 1; // of key and result bytes; stored with the entries
constexpr uint32_t max_index = 255;

} // namespace

TrafficMeter::TrafficMeter(uint32_t index) : key_(inline_shadow_db_appid_to_key(app_type, index))
{
    if (index > max_index)
        throw ServiceError("a traffic meter's index is 0 to 255, not " + std::to_string(index));
    const app_registration registration{
        .app_type = app_type,
        .padding_4 = 0,
        .handler = nullptr,
        .stats_handler = on_statistics,
        .data = this,
    };
    require_success("inline_svc_app_register", inline_svc_app_register(&registration));
    registered_meter = this;
    read_back(true);
    collect();
}

TrafficMeter::~TrafficMeter()
{
    registered_meter = nullptr;
}

// ---- what is stored ------------------------------------------------------------------------

bool TrafficMeter::name_of(const shmem_node &node, EntryName *name)
{
    const app_node &stored = node.app_node;
    if (stored.key_len > sizeof stored.key)
        return false;
    const auto meaning = lookup_keys::meaning_of({stored.key, stored.key_len});
    if (!meaning || meaning->kind == lookup_keys::service_kind)
        return false;
    const bool by_address = meaning->kind == lookup_keys::address_kind;
    if (stored.table_type != (by_address ? SHADOW_DB_EXT_CONF : SHADOW_DB_SERVICE_CONFIG))
        return false;
    *name = {static_cast<MeterTable>(stored.table_type),
             {meaning->protocol, meaning->address, meaning->port}};
    return true;
}

// Brings entries_ to what the shadow DB holds for the key. What is there no longer goes, what is
// new comes, and the counts of the others stay.
void TrafficMeter::read_back(bool at_start)
{
    for (auto &[name, entry] : entries_)
        entry.node = nullptr;
    by_id_.clear();
    nodes_read_ = 0;
    std::ranges::fill(last_read_, nullptr);
    if (main_entry *stored = inline_svc_shadow_db_query_main(key_); stored != nullptr)
        read_on(*stored, at_start);
    std::erase_if(entries_, [](const auto &item) { return item.second.node == nullptr; });
}

// After a batch that was stored whole only its own nodes are new, at the lists' ends. Returns false
// when the key holds anything else, as it does when the library cleared it.
bool TrafficMeter::read_new(size_t made)
{
    main_entry *stored = inline_svc_shadow_db_query_main(key_);
    if (stored == nullptr ||
        stored->num_elements[0] + stored->num_elements[1] != nodes_read_ + made)
        return false;
    read_on(*stored, false);
    return true;
}

// Takes in the nodes behind those that were read last.
void TrafficMeter::read_on(const main_entry &stored, bool at_start)
{
    for (size_t table = 0; table < SHADOW_DB_TABLES; ++table) {
        const list_link *&last = last_read_[table];
        const list_link *link = last != nullptr ? last->next : stored.table_array[table].first;
        for (; link != nullptr; link = link->next) {
            last = link;
            ++nodes_read_;
            if (link->data != nullptr)
                take_node(static_cast<shmem_node *>(link->data), at_start);
        }
    }
}

void TrafficMeter::take_node(shmem_node *node, bool at_start)
{
    const uint32_t id = node->app_node.entry_id;
    if (id != SHADOW_DB_NO_ENTRY_ID)
        next_entry_id_ = std::max(next_entry_id_, id + 1);
    EntryName name;
    if (!name_of(*node, &name))
        return;
    Entry &entry = entries_[name];
    entry.node = node;
    entry.found = entry.found || at_start;
    by_id_[id] = &entry;
}

// ---- programming ---------------------------------------------------------------------------

std::vector<TrafficMeter::EntryName> TrafficMeter::missing(const std::vector<Destination> &wanted,
                                                           size_t *found) const
{
    std::vector<EntryName> names;
    names.reserve(2 * wanted.size());
    for (const Destination &destination : wanted) {
        names.push_back({MeterTable::destinations, destination});
        names.push_back({MeterTable::addresses, {0, destination.address, 0}});
    }
    std::ranges::sort(names);
    names.erase(std::unique(names.begin(), names.end()), names.end());
    *found =
        std::erase_if(names, [this](const EntryName &name) { return entries_.contains(name); });
    return names;
}

TrafficMeter::Programmed TrafficMeter::program(const std::vector<Destination> &wanted,
                                               const BetweenBatches &between_batches)
{
    Programmed outcome;
    const std::vector<EntryName> to_make = missing(wanted, &outcome.found);
    while (outcome.made < to_make.size() && outcome.failure.empty() && !outcome.stopped) {
        const size_t count = std::min(batch_entries, to_make.size() - outcome.made);
        const EntryName *first = to_make.data() + outcome.made;
        outcome.failure = program_batch(first, first + count);
        if (outcome.failure.empty())
            outcome.made += count;
        outcome.stopped = !between_batches(outcome.made, to_make.size());
    }
    collect(); // the starting point of the new entries
    return outcome;
}

std::string TrafficMeter::program_batch(const EntryName *first, const EntryName *last)
{
    ActionBatch batch(key_, meter_app_id, entry_layout_version);
    for (const EntryName *name = first; name != last; ++name) {
        const auto [protocol, address, port] = name->destination;
        const auto destination_key = lookup_keys::destination_key(protocol, address, port);
        const auto address_key = lookup_keys::address_key(address);
        const uint32_t entry_id = next_entry_id_++;
        const auto result = lookup_keys::counting_result(entry_id);
        const bool by_address = name->table == MeterTable::addresses;
        batch.create({.entry_id = entry_id,
                      .table = static_cast<uint32_t>(name->table),
                      .key = by_address ? std::span<const uint8_t>(address_key)
                                        : std::span<const uint8_t>(destination_key),
                      .result = result});
    }
    const size_t before = entries_.size();
    const uint32_t code = batch.insert();
    if (code != 0 || !read_new(static_cast<size_t>(last - first)))
        read_back(false);
    const auto stored = std::count_if(
        first, last, [this](const EntryName &name) { return entries_.contains(name); });
    if (code == 0 && stored == last - first)
        return {};
    std::string failure = "a batch of " + std::to_string(last - first) + " entries for key " +
                          std::to_string(key_) + " was refused";
    if (code != 0)
        failure += ": " + std::string(cerr_strerror(code)) + " (code " + std::to_string(code) + ")";
    return failure + "; of " + std::to_string(before) + " entries before it " +
           std::to_string(entries_.size()) + " are left";
}

// ---- counting ------------------------------------------------------------------------------

void TrafficMeter::collect()
{
    for (auto &[name, entry] : entries_) {
        entry.passed.reset();
        if (!entry.measured)
            entry.reading = read_counters(entry);
    }
    inline_svc_stats_collection();
    for (auto &[name, entry] : entries_)
        measure(entry);
}

void TrafficMeter::on_statistics(uint32_t uidb_index, uint32_t entry_id, uint32_t phase, uint32_t a,
                                 uint32_t b)
{
    constexpr uint32_t one_entry = 0;
    TrafficMeter *meter = registered_meter;
    if (meter == nullptr || uidb_index != meter->key_ || phase != one_entry)
        return;
    if (const auto place = meter->by_id_.find(entry_id); place != meter->by_id_.end())
        place->second->passed = Sum{a, b};
}

TrafficMeter::Sum TrafficMeter::Reading::sum() const
{
    Sum sum;
    for (uint32_t np = 0; np < SHADOW_DB_MAX_NPS; ++np) {
        sum.packets += static_cast<uint32_t>(packets[np]);
        sum.bytes += static_cast<uint32_t>(bytes[np]);
    }
    return sum;
}

bool TrafficMeter::Reading::is_below(const Reading &earlier) const
{
    for (uint32_t np = 0; np < SHADOW_DB_MAX_NPS; ++np) {
        if (packets[np] < earlier.packets[np])
            return true;
    }
    return false;
}

// Nothing when one of the entry's counters cannot be read, as while the card is away.
std::optional<TrafficMeter::Reading> TrafficMeter::read_counters(const Entry &entry)
{
    Reading reading;
    for (uint32_t np = 0; np < NUM_LC_NPS && np < SHADOW_DB_MAX_NPS; ++np) {
        const uint32_t counter = entry.node->stat_index_rx[np];
        if (counter == 0)
            continue;
        uint32_t mode = PRM_STATS_READ_AND_CLEAR; // of every read; the option says what is done
        uint64_t words[2] = {};
        if (prm_stats_cl_read(pgbl_ptr->prm_conn, counter, np, &mode, words, nullptr,
                              PRM_STATS_READ) != 0)
            return std::nullopt;
        reading.packets[np] = words[0];
        reading.bytes[np] = words[1];
    }
    return reading;
}

// A read that fails in the library's pass adds nothing to the sum, which says nothing of it. So the
// sum is held between what the counters said before the pass and what they say behind it.
bool TrafficMeter::is_credible(const Entry &entry, const Reading &now)
{
    const auto lies_between = [](uint32_t low, uint32_t value, uint32_t high) {
        return value - low <= high - low; // they wrap
    };
    const Sum high = now.sum();
    if (now.is_below(*entry.reading)) // cleared meanwhile
        return *entry.passed == high;
    const Sum low = entry.reading->sum();
    return lies_between(low.packets, entry.passed->packets, high.packets) &&
           lies_between(low.bytes, entry.passed->bytes, high.bytes);
}

void TrafficMeter::measure(Entry &entry)
{
    const std::optional<Reading> now = read_counters(entry);
    entry.unread = !now || !entry.reading || !entry.passed || !is_credible(entry, *now);
    if (!entry.unread)
        take_in(entry, *now);
}

void TrafficMeter::take_in(Entry &entry, const Reading &now)
{
    const Sum sum = *entry.passed;
    const bool was_cleared = now.is_below(*entry.reading);
    if (!entry.measured) {
        entry.before = {sum.packets, sum.bytes};
    } else if (!was_cleared) { // and otherwise counting starts anew
        // Differences of wrapping sums, in their own width.
        entry.counted.packets += static_cast<uint32_t>(sum.packets - entry.last.packets);
        entry.counted.bytes += static_cast<uint32_t>(sum.bytes - entry.last.bytes);
    }
    // Which NPs have counted: the callback's sums do not say it, the node's counters do.
    const Reading before = entry.measured && !was_cleared ? *entry.reading : Reading{};
    for (uint32_t np = 0; np < SHADOW_DB_MAX_NPS; ++np) {
        if (now.packets[np] != before.packets[np])
            (entry.measured ? entry.nps : entry.nps_before) |= uint32_t{1} << np;
    }
    entry.last = sum;
    entry.reading = now;
    entry.measured = true;
}

bool TrafficMeter::has_unread() const
{
    return std::ranges::any_of(entries_, [](const auto &item) { return item.second.unread; });
}

std::vector<MeterEntry> TrafficMeter::entries() const
{
    std::vector<MeterEntry> report;
    report.reserve(entries_.size());
    for (const auto &[name, entry] : entries_) {
        report.push_back({.table = name.table,
                          .destination = name.destination,
                          .entry_id = entry.node->app_node.entry_id,
                          .found = entry.found,
                          .counted = entry.counted,
                          .total = {entry.before.packets + entry.counted.packets,
                                    entry.before.bytes + entry.counted.bytes},
                          .nps = entry.nps,
                          .total_nps = entry.nps | entry.nps_before,
                          .unread = entry.unread});
    }
    return report;
}

} // namespace services
