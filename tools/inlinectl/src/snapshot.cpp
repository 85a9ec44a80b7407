#include "snapshot.h"

#include <algorithm>
#include <chrono>
#include <string_view>
#include <thread>
#include <unordered_map>
#include <utility>

#include "card_hardware.h"
#include "entry_names.h"
#include "service_error.h"
#include "vlc/state_error.h"
#include "vlc/window.h"

namespace inlinectl {
namespace {

std::string_view as_text(vlc::Bytes bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// Entries by table and key. Several with one key follow each other.
class EntriesByKey {
public:
    explicit EntriesByKey(const std::vector<services::StoredEntry> &entries)
        : next_same_(entries.size(), none)
    {
        for (size_t i = entries.size(); i-- > 0;) {
            if (!entries[i].has_row)
                continue;
            const app_node &content = entries[i].content.app_node;
            const auto [place, is_new] =
                first_[content.table_type].try_emplace(as_text({content.key, content.key_len}), i);
            if (!is_new)
                next_same_[i] = std::exchange(place->second, i);
        }
    }

    template <typename Visit>
    void for_each(uint32_t table, vlc::Bytes key, const Visit &visit) const
    {
        const auto place = first_[table].find(as_text(key));
        for (size_t i = place == first_[table].end() ? none : place->second; i != none;
             i = next_same_[i])
            visit(i);
    }

private:
    static constexpr size_t none = SIZE_MAX;
    std::unordered_map<std::string_view, size_t> first_[SHADOW_DB_TABLES];
    std::vector<size_t> next_same_;
};

// What is damaged for one look alone is what a host that is at work was changing.
services::StoredShadow steady_shadow(const services::StoredTables &tables, uint32_t nps,
                                     const services::CounterRegion &region)
{
    services::StoredShadow shadow = tables.shadow(nps, region.words());
    constexpr int more_looks = 2;
    for (int i = 0; i < more_looks && !shadow.damage.empty(); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        shadow = tables.shadow(nps, region.words());
    }
    return shadow;
}

class Gathering {
public:
    Gathering(const StatePlaces &places, const SnapshotParts &parts)
        : parts_(parts), host_(open_host(*places.state_directory))
    {
        taken_.card = *host_.card();
        taken_.nps.resize(taken_.card.num_nps);
        try {
            card_ = open_card(places, host_);
            taken_.card = card_->config();
        } catch (const vlc::StateError &unreadable) {
            for (NpSnapshot &np : taken_.nps)
                np.unread = unreadable.what();
            taken_.notes.emplace_back(unreadable.what());
        }
    }

    Snapshot take()
    {
        unswapped_ = taken_.region().unswapped;
        take_shadow();
        if (parts_.rows)
            taken_.rows.resize(taken_.entries.size() * taken_.nps.size());
        const EntriesByKey by_key(taken_.entries);
        for (uint32_t np = 0; card_ && np < taken_.nps.size(); ++np)
            take_np(np, by_key);
        return std::move(taken_);
    }

private:
    void take_shadow()
    {
        try {
            const vlc::Window window(host_, 0);
            const services::StoredTables tables(static_cast<const shadow_db *>(window.root()),
                                                in_window(window));
            services::StoredShadow shadow =
                steady_shadow(tables, taken_.card.num_nps, taken_.region());
            taken_.entries = std::move(shadow.entries);
            taken_.keys = std::move(shadow.keys);
            taken_.bitmaps = std::move(shadow.bitmaps);
            std::ranges::move(shadow.damage, std::back_inserter(taken_.notes));
            if (parts_.contents)
                take_contents(tables);
        } catch (const vlc::StateError &unreadable) {
            taken_.shadow_unread = unreadable.what();
        } catch (const services::ServiceError &unreadable) {
            taken_.shadow_unread = host_.path().string() + ": " + unreadable.what();
        }
        if (!taken_.shadow_unread.empty())
            taken_.notes.push_back(taken_.shadow_unread);
    }

    void take_contents(const services::StoredTables &tables)
    {
        const auto note_failure = [this](const auto &take) {
            try {
                take();
            } catch (const services::ServiceError &unreadable) {
                taken_.notes.emplace_back(unreadable.what());
            }
        };
        note_failure([&] {
            taken_.attributes = tables.attributes().value_or(std::vector<uidb_attribute>());
        });
        note_failure([&] {
            taken_.vservices = tables.vservices().value_or(std::vector<vservice_config>());
        });
        note_failure([&] { taken_.flows = tables.flows(); });
    }

    void take_np(uint32_t number, const EntriesByKey &by_key)
    {
        NpSnapshot &np = taken_.nps[number];
        try {
            if (parts_.rows)
                take_rows(number, by_key);
            if (parts_.counters)
                np.counters = card_->counters(number);
            if (parts_.totals)
                take_totals(number);
        } catch (const vlc::StateError &unreadable) {
            np = {};
            np.unread = unreadable.what();
            for (size_t entry = 0; parts_.rows && entry < taken_.entries.size(); ++entry)
                taken_.rows[entry * taken_.nps.size() + number] = {};
            std::erase_if(taken_.np_rows,
                          [number](const SnapshotRow &row) { return row.np == number; });
            taken_.notes.emplace_back(unreadable.what());
        }
    }

    // A look at a table of a card that no process runs checks all of the NP's file, so there is
    // one for all that is to be known of it.
    void take_rows(uint32_t np, const EntriesByKey &by_key)
    {
        const uint32_t tables =
            parts_.contents || parts_.totals ? vlc::table_kinds : uint32_t{SHADOW_DB_TABLES};
        for (uint32_t table = 0; table < tables; ++table)
            card_->for_each_hit_count(np, static_cast<vlc::TableKind>(table),
                                      [&](const vlc::TableRow &row, const vlc::PacketCount &hits) {
                                          ++taken_.nps[np].rows[table];
                                          if (parts_.contents)
                                              taken_.np_rows.push_back({np, table, row, hits});
                                          if (table < SHADOW_DB_TABLES)
                                              take_row(np, by_key, table, row, hits);
                                      });
    }

    void take_row(uint32_t np, const EntriesByKey &by_key, uint32_t table, const vlc::TableRow &row,
                  const vlc::PacketCount &hits)
    {
        by_key.for_each(table, row.key_span(), [&](size_t entry) {
            const auto wanted = services::row_result(taken_.entries[entry].content, np, unswapped_);
            const bool is_same = std::ranges::equal(vlc::Bytes(wanted.bytes.data(), wanted.length),
                                                    row.result_span());
            taken_.rows[entry * taken_.nps.size() + np] = {true, is_same, hits};
        });
    }

    void take_totals(uint32_t number)
    {
        NpSnapshot &np = taken_.nps[number];
        np.totals = card_->totals(number);
        card_->for_each_counter_run(
            number, [&np](const vlc::CounterRun &run) { np.flow_counters_in_use += run.length; });
    }

    SnapshotParts parts_;
    bool unswapped_ = false; // as the card takes counters
    vlc::StateDirectory host_;
    std::unique_ptr<vlc::CardAccess> card_; // null when it cannot be looked into
    Snapshot taken_;
};

} // namespace

services::CounterRegion Snapshot::region() const
{
    return {vlc::CounterBank::first, vlc::CounterBank::count,
            vlc::takes_counters_unswapped(card.card_type)};
}

vlc::PacketCount Snapshot::hits(size_t entry) const
{
    vlc::PacketCount sum{};
    for (uint32_t np = 0; np < nps.size(); ++np) {
        sum.packets += row(entry, np).hits.packets;
        sum.bytes += row(entry, np).hits.bytes;
    }
    return sum;
}

bool Snapshot::has_nps() const
{
    return std::ranges::any_of(nps, [](const NpSnapshot &np) { return np.unread.empty(); });
}

EntryCounters counters_of(const services::StoredEntry &entry, uint32_t np,
                          const services::CounterRegion &region)
{
    return {region.place_of_stored(entry.content.stat_index_rx[np]),
            region.place_of(entry.content.stat_index_drop[np])};
}

Snapshot take_snapshot(const StatePlaces &places, const SnapshotParts &parts)
{
    return Gathering(places, parts).take();
}

vlc::Bytes stored_key(const services::StoredEntry &entry)
{
    const app_node &content = entry.content.app_node;
    return {content.key, entry.has_row ? content.key_len : 0};
}

vlc::Bytes stored_result(const services::StoredEntry &entry)
{
    const app_node &content = entry.content.app_node;
    return {content.result, entry.has_row ? content.result_len : 0};
}

std::string name_of(const services::StoredEntry &entry)
{
    const app_node &content = entry.content.app_node;
    return entry.has_row ? key_name(content.table_type, {content.key, content.key_len}) : "";
}

std::string action_name(uint32_t action)
{
    static constexpr const char *names[] = {"create", "modify", "delete"};
    const bool is_known = action >= SHADOW_DB_CREATE && action <= SHADOW_DB_DELETE;
    return is_known ? names[action - SHADOW_DB_CREATE] : std::to_string(action);
}

} // namespace inlinectl
