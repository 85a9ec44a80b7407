#include "shadow_audit.h"

#include <algorithm>
#include <bit>
#include <string_view>
#include <tuple>
#include <unordered_map>

#include "entry_content.h"
#include "shadow_walk.h"

namespace services {
namespace {

std::string_view as_text(ByteSpan bytes)
{
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

// Which counters of one NP are in use, and which entries hold them.
class NpCounters {
public:
    NpCounters(const uint32_t *bitmap, const CounterRegion &region) : holders_(region.places())
    {
        if (bitmap != nullptr)
            words_.assign(bitmap, bitmap + region.words());
    }
    bool in_use(uint32_t place) const
    {
        return !words_.empty() && (words_[place / 32] & UINT32_C(0x80000000) >> place % 32) != 0;
    }
    template <typename Visit>
    void for_each_in_use(const Visit &visit) const
    {
        for (uint32_t word = 0; word < words_.size(); ++word) {
            for (uint32_t place = word * 32; words_[word] != 0 && place < (word + 1) * 32;
                 ++place) {
                if (in_use(place))
                    visit(place);
            }
        }
    }
    uint64_t used() const
    {
        uint64_t sum = 0;
        for (const uint32_t word : words_)
            sum += static_cast<uint64_t>(std::popcount(word));
        return sum;
    }
    // Returns who held it before; null when nobody did.
    const StoredEntry *hold(uint32_t place, const StoredEntry *entry)
    {
        const StoredEntry *before = holders_[place];
        if (before == nullptr)
            holders_[place] = entry;
        return before;
    }
    bool held(uint32_t place) const { return holders_[place] != nullptr; }

private:
    std::vector<uint32_t> words_;
    std::vector<const StoredEntry *> holders_;
};

class Audit {
public:
    Audit(const AuditInput &input, AuditReport &report)
        : input_(input), report_(report), region_{input.first_counter, input.counter_count,
                                                  input.counters_unswapped},
          nps_(std::min<uint32_t>(input.num_nps, SHADOW_DB_MAX_NPS))
    {
    }

    void run()
    {
        report_.nps.resize(nps_);
        ShadowWalk walk(input_, report_);
        entries_ = walk.run();
        for (uint32_t np = 0; np < nps_; ++np)
            look_at_counters(np, NpCounters(walk.bitmap(np, region_.words()), region_));
        if (input_.hardware != nullptr) {
            find_keys();
            for (uint32_t np = 0; np < std::min(nps_, input_.hardware->nps()); ++np)
                compare_rows(np);
            collect_answers();
        }
        sort_findings(report_);
    }

private:
    Finding &say(FindingKind kind, uint32_t np, const StoredEntry &entry)
    {
        const app_node &content = entry.content.app_node;
        Finding &finding = report_.findings.emplace_back();
        finding.kind = kind;
        finding.np = np;
        finding.main_key = entry.main_key;
        finding.entry_id = content.entry_id;
        finding.node = entry.address;
        if (entry.has_row) {
            finding.table = content.table_type;
            finding.key.assign(content.key, content.key + content.key_len);
        }
        finding.text = "NP " + std::to_string(np) + ": " + text_of(entry);
        return finding;
    }

    // ---- counters

    void look_at_counters(uint32_t np, NpCounters counters)
    {
        report_.nps[np].counters_in_use = counters.used();
        for (const StoredEntry &entry : entries_) {
            const uint32_t rx = entry.content.stat_index_rx[np];
            const uint32_t drop = entry.content.stat_index_drop[np];
            look_at_counter(np, entry, {"received", rx, region_.place_of_stored(rx)}, &counters);
            look_at_counter(np, entry, {"dropped", drop, region_.place_of(drop)}, &counters);
        }
        counters.for_each_in_use([&](uint32_t place) {
            if (!counters.held(place))
                say_leaked(np, region_.first + place);
        });
    }

    struct HeldNumber {
        const char *what;
        uint32_t stored;
        std::optional<uint32_t> place;
    };

    void look_at_counter(uint32_t np, const StoredEntry &entry, const HeldNumber &number,
                         NpCounters *counters)
    {
        const bool counted = has_counters(entry.content.app_node);
        const auto what = [&number] { return std::string(number.what) + "-packets counter"; };
        if (number.place) {
            const StoredEntry *before = counters->hold(*number.place, &entry);
            const uint32_t plain = region_.first + *number.place;
            if (before != nullptr)
                add(say(FindingKind::counter_shared, np, entry), plain,
                    " holds " + what() + " " + hexadecimal(plain) + ", which " + text_of(*before) +
                        " holds");
            if (!counters->in_use(*number.place))
                add(say(FindingKind::counter_free, np, entry), plain,
                    " holds " + what() + " " + hexadecimal(plain) + ", which is free");
        }
        if (number.place.has_value() == counted && (counted || number.stored == 0))
            return;
        if (counted)
            add(say(FindingKind::counter_invalid, np, entry), number.stored,
                number.stored == 0 ? " has no " + what()
                                   : " holds " + what() + " " + hexadecimal(number.stored) +
                                         ", which is no counter's number");
        else
            add(say(FindingKind::counter_invalid, np, entry), number.stored,
                " takes no counters and holds " + what() + " " + hexadecimal(number.stored));
    }

    static void add(Finding &finding, uint32_t counter, const std::string &text)
    {
        finding.counter = counter;
        finding.text += text;
    }

    void say_leaked(uint32_t np, uint32_t counter)
    {
        Finding &finding = report_.findings.emplace_back();
        finding.kind = FindingKind::counter_leaked;
        finding.np = np;
        finding.counter = counter;
        finding.text = "NP " + std::to_string(np) + ": counter " + hexadecimal(counter) +
                       " is in use and no entry holds it";
    }

    // ---- rows

    // Entries by table and key. Several with one key follow each other through next_same_.
    void find_keys()
    {
        constexpr size_t none = SIZE_MAX;
        next_same_.assign(entries_.size(), none);
        for (size_t i = entries_.size(); i-- > 0;) {
            if (!entries_[i].has_row)
                continue;
            const app_node &content = entries_[i].content.app_node;
            const auto [place, is_new] = by_key_[content.table_type].try_emplace(
                as_text(ByteSpan(content.key, content.key_len)), i);
            if (!is_new) {
                next_same_[i] = place->second;
                place->second = i;
            }
        }
    }

    void compare_rows(uint32_t np)
    {
        std::vector<bool> found(entries_.size());
        for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
            input_.hardware->for_each_row(np, table, [&](ByteSpan key, ByteSpan result) {
                ++report_.nps[np].rows[table];
                const auto place = by_key_[table].find(as_text(key));
                if (place == by_key_[table].end())
                    return say_stale(np, table, key);
                for (size_t i = place->second; i < entries_.size(); i = next_same_[i]) {
                    found[i] = true;
                    compare_row(np, entries_[i], result);
                }
            });
        }
        for (size_t i = 0; i < entries_.size(); ++i) {
            if (entries_[i].has_row && !found[i])
                say(FindingKind::entry_missing, np, entries_[i]).text += " has no row";
        }
    }

    void compare_row(uint32_t np, const StoredEntry &entry, ByteSpan result)
    {
        const RowResult wanted = row_result(entry.content, np, input_.counters_unswapped);
        const ByteSpan bytes(wanted.bytes.data(), wanted.length);
        if (!std::ranges::equal(bytes, result))
            say(FindingKind::entry_differs, np, entry).text +=
                " should be " + hexadecimal(bytes) + " and is " + hexadecimal(result);
    }

    void say_stale(uint32_t np, uint32_t table, ByteSpan key)
    {
        Finding &finding = report_.findings.emplace_back();
        finding.kind = FindingKind::entry_stale;
        finding.np = np;
        finding.table = table;
        finding.key.assign(key.begin(), key.end());
        finding.text = "NP " + std::to_string(np) + ": no entry has the row " + table_text(table) +
                       " " + hexadecimal(key);
    }

    void collect_answers()
    {
        input_.hardware->for_each_unread_answer(
            [this](uint32_t np, uint32_t table, uint32_t refnum, uint32_t status, ByteSpan key) {
                report_.in_flight.push_back({np, table, refnum, status, {key.begin(), key.end()}});
            });
    }

    const AuditInput &input_;
    AuditReport &report_;
    const CounterRegion region_;
    const uint32_t nps_;
    std::vector<StoredEntry> entries_;
    std::unordered_map<std::string_view, size_t> by_key_[SHADOW_DB_TABLES];
    std::vector<size_t> next_same_;
};

struct KindText {
    const char *name;
    const char *words;
};

constexpr KindText kind_texts[] = {
    {"entry_missing", "entry missing on an NP"},
    {"entry_stale", "stale row on an NP"},
    {"entry_differs", "row differs from its entry"},
    {"counter_leaked", "counter in use with no entry"},
    {"counter_free", "entry's counter is free"},
    {"counter_shared", "counter shared by two entries"},
    {"counter_invalid", "no counter where one must be, or one where none may be"},
    {"count_wrong", "count does not match its list"},
    {"list_broken", "broken list"},
};
static_assert(std::size(kind_texts) == finding_kinds);

} // namespace

const char *words_of(FindingKind kind)
{
    return kind_texts[static_cast<size_t>(kind)].words;
}

const char *name_of(FindingKind kind)
{
    return kind_texts[static_cast<size_t>(kind)].name;
}

std::array<uint64_t, finding_kinds> AuditReport::count() const
{
    std::array<uint64_t, finding_kinds> counts{};
    for (const Finding &finding : findings)
        ++counts[static_cast<size_t>(finding.kind)];
    return counts;
}

void sort_findings(AuditReport &report)
{
    std::ranges::stable_sort(report.findings, {}, [](const Finding &finding) {
        return std::tuple(finding.kind, finding.np);
    });
}

AuditReport audit(const AuditInput &input)
{
    AuditReport report;
    Audit(input, report).run();
    return report;
}

} // namespace services
