#include "metrics_text.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <numeric>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "entry_names.h"
#include "hardware_failures.h"
#include "host_words.h"
#include "shown_counters.h"

namespace inlinectl {
namespace {

using Labels = std::vector<std::pair<const char *, std::string>>;

std::string escaped(const std::string &text)
{
    std::string safe;
    for (const char character : text) {
        if (character == '\\' || character == '"')
            safe += '\\';
        if (character == '\n')
            safe += "\\n";
        else
            safe += character;
    }
    return safe;
}

// Whoever collects metrics has others beside these.
constexpr const char *prefix = "inline_";

struct Family {
    const char *name; // behind the prefix
    const char *type; // counter, gauge, info or stateset
    const char *unit; // its name ends in it; empty for none
    const char *help;
};

class MetricWriter {
public:
    explicit MetricWriter(std::ostream &out) : out_(out) {}

    // The samples that come next are of this family.
    void begin(const Family &family)
    {
        name_ = prefix + std::string(family.name);
        const std::string type = family.type;
        out_ << "# TYPE " << name_ << " " << type << "\n";
        if (*family.unit != '\0')
            out_ << "# UNIT " << name_ << " " << family.unit << "\n";
        out_ << "# HELP " << name_ << " " << escaped(family.help) << "\n";
        if (type == "counter")
            name_ += "_total";
        if (type == "info")
            name_ += "_info";
    }
    void sample(const Labels &labels, const std::string &value)
    {
        out_ << name_;
        const char *before = "{";
        for (const auto &[name, text] : labels) {
            out_ << before << name << "=\"" << escaped(text) << "\"";
            before = ",";
        }
        out_ << (labels.empty() ? "" : "}") << " " << value << "\n";
    }
    void sample(const Labels &labels, uint64_t value) { sample(labels, std::to_string(value)); }
    void one(const Family &family, uint64_t value)
    {
        begin(family);
        sample({}, value);
    }
    void end() { out_ << "# EOF\n"; }

private:
    std::ostream &out_;
    std::string name_;
};

// ---- network processors

struct NpCount {
    Family family;
    uint64_t vlc::NpTotals::*count;
};

constexpr NpCount np_counts[] = {
    {{"np_packets", "counter", "packets", "Packets that came to the NP."}, &vlc::NpTotals::packets},
    {{"np_bytes", "counter", "bytes", "Bytes on the wire of packets that came to the NP."},
     &vlc::NpTotals::bytes},
    {{"np_uncounted_hits", "counter", "", "Hits of rows whose result carries no counter."},
     &vlc::NpTotals::uncounted_hits},
    {{"np_missed_packets", "counter", "packets", "Packets that hit no table."},
     &vlc::NpTotals::missed_packets},
    {{"np_missed_bytes", "counter", "bytes", "Bytes of packets that hit no table."},
     &vlc::NpTotals::missed_bytes},
    {{"np_encapsulated_packets", "counter", "packets", "Packets that left encapsulated."},
     &vlc::NpTotals::encapsulated_packets},
    {{"np_encapsulated_bytes", "counter", "bytes", "Bytes that left encapsulated."},
     &vlc::NpTotals::encapsulated_bytes},
    {{"np_too_long_packets", "counter", "packets", "Packets dropped as too long to encapsulate."},
     &vlc::NpTotals::too_long_packets},
    {{"np_policed_packets", "counter", "packets", "Packets dropped by a flow's policer."},
     &vlc::NpTotals::policed_packets},
    {{"np_policed_bytes", "counter", "bytes", "Bytes of packets dropped by a flow's policer."},
     &vlc::NpTotals::policed_bytes},
};

template <typename Visit>
void for_each_read_np(const Snapshot &state, const Visit &visit)
{
    for (uint32_t np = 0; np < state.nps.size(); ++np) {
        if (state.nps[np].unread.empty())
            visit(std::to_string(np), state.nps[np]);
    }
}

// A label a table: "service_config", "ext_conf", "flow".
std::string table_label(uint32_t table)
{
    std::string name = table_name(table);
    std::ranges::replace(name, ' ', '_');
    return name;
}

void write_nps(MetricWriter &metrics, const Snapshot &state)
{
    metrics.begin({"np_readable", "gauge", "", "Whether what the NP holds could be read."});
    for (uint32_t np = 0; np < state.nps.size(); ++np)
        metrics.sample({{"np", std::to_string(np)}}, state.nps[np].unread.empty() ? 1 : 0);
    for (const auto &[family, count] : np_counts) {
        metrics.begin(family);
        for_each_read_np(state, [&, number = count](const std::string &np, const NpSnapshot &read) {
            metrics.sample({{"np", np}}, read.totals.*number);
        });
    }
    const auto by_table = [&](const Family &family, const auto &number) {
        metrics.begin(family);
        for_each_read_np(state, [&](const std::string &np, const NpSnapshot &read) {
            for (uint32_t table = 0; table < vlc::table_kinds; ++table)
                metrics.sample({{"np", np}, {"table", table_label(table)}}, number(read, table));
        });
    };
    by_table({"np_hits", "counter", "", "Packets that hit a row of the table."},
             [](const NpSnapshot &read, uint32_t table) { return read.totals.hits[table]; });
    by_table({"np_rows", "gauge", "", "Rows of the table."},
             [](const NpSnapshot &read, uint32_t table) { return read.rows[table]; });
    metrics.begin({"np_flow_counters_in_use", "gauge", "", "Counters of flows in use."});
    for_each_read_np(state, [&](const std::string &np, const NpSnapshot &read) {
        metrics.sample({{"np", np}}, read.flow_counters_in_use);
    });
}

void write_counters(MetricWriter &metrics, const Snapshot &state)
{
    const std::vector<NpCounters> all = counters_in_use(state);
    const auto each = [&](const Family &family, uint64_t NpCounters::*number) {
        metrics.begin(family);
        for (const NpCounters &np : all)
            metrics.sample({{"np", std::to_string(np.np)}}, np.*number);
    };
    each({"np_counters_in_use", "gauge", "", "Counters of entries in use."}, &NpCounters::in_use);
    each({"np_counters_free", "gauge", "", "Counters of entries that are free."},
         &NpCounters::free);
    each({"np_counters_leaked", "gauge", "", "Counters in use that no entry holds."},
         &NpCounters::leaked);
}

// ---- the shadow DB

struct BusyEntry {
    size_t place;
    vlc::PacketCount count;
};

std::vector<BusyEntry> busiest(const Snapshot &state, size_t most)
{
    std::vector<BusyEntry> entries;
    entries.reserve(state.entries.size());
    for (size_t place = 0; place < state.entries.size(); ++place)
        entries.push_back({place, state.hits(place)});
    const auto middle = entries.begin() + static_cast<ptrdiff_t>(std::min(most, entries.size()));
    std::ranges::partial_sort(entries, middle, [](const BusyEntry &a, const BusyEntry &b) {
        return std::pair(b.count.packets, a.place) < std::pair(a.count.packets, b.place);
    });
    entries.erase(middle, entries.end());
    return entries;
}

Labels labels_of(const services::StoredEntry &entry)
{
    const app_node &content = entry.content.app_node;
    return {{"key", std::to_string(entry.main_key)},
            {"table", table_label(content.table_type)},
            {"entry", std::to_string(content.entry_id)},
            {"lookup_key", plain_hex(stored_key(entry))},
            {"name", name_of(entry)}};
}

void write_entry_counts(MetricWriter &metrics, const Snapshot &state, size_t most)
{
    // Samples of one family must not have the same labels, as those of a damaged DB can.
    std::vector<std::pair<Labels, vlc::PacketCount>> told;
    std::set<Labels> seen;
    for (const BusyEntry &entry : busiest(state, most)) {
        Labels labels = labels_of(state.entries[entry.place]);
        if (seen.insert(labels).second)
            told.emplace_back(std::move(labels), entry.count);
    }
    const std::string limit = " Of the " + std::to_string(most) + " entries with most packets.";
    const std::string packets = "Packets that hit the entry's rows on all NPs." + limit;
    metrics.begin({"entry_packets", "counter", "packets", packets.c_str()});
    for (const auto &[labels, count] : told)
        metrics.sample(labels, count.packets);
    const std::string bytes = "Bytes of packets that hit the entry's rows on all NPs." + limit;
    metrics.begin({"entry_bytes", "counter", "bytes", bytes.c_str()});
    for (const auto &[labels, count] : told)
        metrics.sample(labels, count.bytes);
}

void write_shadow(MetricWriter &metrics, const Snapshot &state, size_t most)
{
    std::array<uint64_t, SHADOW_DB_TABLES> entries{};
    uint64_t as_stored = 0;
    for (size_t place = 0; place < state.entries.size(); ++place) {
        const services::StoredEntry &entry = state.entries[place];
        if (entry.has_row)
            ++entries[entry.content.app_node.table_type];
        bool everywhere = true;
        for (uint32_t np = 0; np < state.nps.size(); ++np)
            everywhere = everywhere && state.row(place, np).is_as_stored;
        as_stored += everywhere ? 1U : 0U;
    }
    metrics.one({"shadow_keys", "gauge", "", "Keys of the shadow DB that are in use."},
                state.keys.size());
    metrics.begin({"shadow_entries", "gauge", "", "Entries of the shadow DB."});
    for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table)
        metrics.sample({{"table", table_label(table)}}, entries[table]);
    metrics.one({"shadow_entries_as_stored", "gauge", "",
                 "Entries whose rows are on every NP as they are stored."},
                as_stored);
    write_counters(metrics, state);
    write_entry_counts(metrics, state, most);
}

// ---- the host

std::string seconds(int64_t nanoseconds)
{
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%lld.%09lld",
                  static_cast<long long>(nanoseconds / 1'000'000'000),
                  static_cast<long long>(nanoseconds % 1'000'000'000));
    return text.data();
}

void write_host(MetricWriter &metrics, const vlc::HostState &host)
{
    metrics.begin({"host_life", "stateset", "", "What has become of the host."});
    for (const auto life : {vlc::HostLife::running, vlc::HostLife::stopped, vlc::HostLife::killed})
        metrics.sample({{"inline_host_life", name_of(life)}}, host.life == life ? 1 : 0);
    metrics.begin({"host_card", "stateset", "", "Where the host's card is for it."});
    for (const auto reach : {vlc::CardReach::own, vlc::CardReach::connected, vlc::CardReach::away,
                             vlc::CardReach::given_up})
        metrics.sample({{"inline_host_card", name_of(reach)}},
                       host.connection.card == reach ? 1 : 0);
    metrics.begin({"host_start_time_seconds", "gauge", "seconds", "When the host was started."});
    metrics.sample({}, seconds(host.started_real));
    const bool runs = host.life == vlc::HostLife::running;
    metrics.one({"host_prm_up", "gauge", "", "Whether the host's connection to PRM is up."},
                runs && host.connection.prm_is_up ? 1 : 0);
    metrics.one({"host_registered", "gauge", "", "Whether the host is registered with PRM."},
                runs && host.connection.is_registered ? 1 : 0);
    const vlc::PrmLedger::Sums &sums = host.requests;
    metrics.begin({"host_requests", "counter", "", "Requests that PRM has taken in."});
    for (uint32_t table = 0; table < vlc::table_kinds; ++table) {
        for (uint32_t operation = 0; operation < std::size(sums.requests[table]); ++operation)
            metrics.sample(
                {{"table", table_label(table)}, {"operation", operation_name(operation)}},
                sums.requests[table][operation]);
    }
    metrics.one({"host_answers", "counter", "", "Answers to requests."}, sums.answered);
    metrics.one({"host_failed_answers", "counter", "", "Answers that the request has failed."},
                sums.failed);
    metrics.one({"host_unasked_answers", "counter", "", "Answers to what this host did not ask."},
                sums.unasked);
    metrics.one({"host_requests_in_flight", "gauge", "", "Requests without an answer yet."},
                sums.unanswered);
    metrics.one({"host_requests_in_doubt", "gauge", "",
                 "Requests of which nobody knows whether PRM took them in."},
                sums.in_doubt);
    metrics.one({"host_connection_breaks", "counter", "", "Breaks of the connection to PRM."},
                sums.breaks);
}

} // namespace

void write_metrics(std::ostream &out, const Snapshot &state,
                   const std::optional<vlc::HostState> &host, size_t entries)
{
    MetricWriter metrics(out);
    std::array<char, 16> type{};
    std::snprintf(type.data(), type.size(), "0x%X", state.card.card_type);
    metrics.begin({"card", "info", "", "The card that the state was made for."});
    metrics.sample({{"name", state.card.name},
                    {"type", type.data()},
                    {"nps", std::to_string(state.card.num_nps)}},
                   uint64_t{1});
    metrics.one({"state_notes", "gauge", "",
                 "What is damaged or could not be read; 'inlinectl show shadow' tells it."},
                state.notes.size());
    if (host)
        write_host(metrics, *host);
    write_nps(metrics, state);
    if (state.shadow_unread.empty())
        write_shadow(metrics, state, entries);
    metrics.end();
}

} // namespace inlinectl
