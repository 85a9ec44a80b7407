#include "predicted_audit.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <optional>
#include <set>
#include <sstream>

namespace test {
namespace {

using services::FindingKind;

std::string line_of(const services::Finding &finding)
{
    std::ostringstream line;
    line << services::name_of(finding.kind);
    const auto field = [&line](const char *name, uint32_t value) {
        if (value != services::Finding::none)
            line << ' ' << name << ' ' << value;
    };
    field("np", finding.np);
    field("table", finding.table);
    field("key", finding.main_key);
    field("entry", finding.entry_id);
    field("counter", finding.counter);
    line << ' ' << std::string(finding.key.begin(), finding.key.end());
    return line.str();
}

std::vector<uint8_t> bytes_of(const std::string &text)
{
    return {text.begin(), text.end()};
}

class Prediction {
public:
    Prediction(const ReferenceModel &model, bool counters_unswapped, uint32_t counter_count)
        : model_(model), unswapped_(counters_unswapped), places_(counter_count / 32 * 32 + 32)
    {
        for (const auto &[key, entry] : model.entries) {
            for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
                const ModelTable &nodes = entry.tables[table];
                for (const NodePointer &node : nodes.listed)
                    entries_.push_back({key, node.get()});
                if (nodes.num_elements != nodes.listed.size()) {
                    services::Finding &finding = say(FindingKind::count_wrong);
                    finding.table = table;
                    finding.main_key = key;
                }
            }
        }
    }

    std::vector<services::Finding> run()
    {
        for (uint32_t np = 0; np < model_.card.nps; ++np) {
            look_at_rows(np);
            if (np < model_.counters_in_use.size() && !model_.counters_in_use[np].empty())
                look_at_counters(np);
        }
        return findings_;
    }

private:
    struct Entry {
        uint16_t main_key;
        const ModelNode *node;
        std::string key() const
        {
            return {reinterpret_cast<const char *>(node->content.key), node->content.key_len};
        }
    };

    services::Finding &say(FindingKind kind, uint32_t np = services::Finding::none)
    {
        services::Finding &finding = findings_.emplace_back();
        finding.kind = kind;
        finding.np = np;
        return finding;
    }

    services::Finding &say(FindingKind kind, uint32_t np, const Entry &entry)
    {
        services::Finding &finding = say(kind, np);
        finding.table = entry.node->content.table_type;
        finding.main_key = entry.main_key;
        finding.entry_id = entry.node->content.entry_id;
        finding.key = bytes_of(entry.key());
        return finding;
    }

    void look_at_rows(uint32_t np)
    {
        std::array<std::set<std::string>, 2> keys;
        for (const Entry &entry : entries_) {
            const uint32_t table = entry.node->content.table_type;
            keys[table].insert(entry.key());
            const ModelCard::Table &rows = model_.card.tables[np][table];
            const auto row = rows.find(entry.key());
            if (row == rows.end())
                say(FindingKind::entry_missing, np, entry);
            else if (row->second != predicted_row(*entry.node, np, unswapped_))
                say(FindingKind::entry_differs, np, entry);
        }
        for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
            for (const auto &[key, result] : model_.card.tables[np][table]) {
                if (keys[table].contains(key))
                    continue;
                services::Finding &finding = say(FindingKind::entry_stale, np);
                finding.table = table;
                finding.key = bytes_of(key);
            }
        }
    }

    std::optional<uint32_t> place(uint32_t number) const
    {
        const uint32_t place = number - ModelCard::first_counter;
        return number >= ModelCard::first_counter && place < places_ ? std::optional(place)
                                                                     : std::nullopt;
    }
    // What counts received packets may stand in either order, but on cards that keep it as it is.
    std::optional<uint32_t> place_in_either_order(uint32_t number) const
    {
        const std::optional<uint32_t> plain = place(number);
        return plain || unswapped_
                   ? plain
                   : place((number & 0xFF00FF00) | (number & 0xFF) << 16 | (number >> 16 & 0xFF));
    }

    void look_at_counters(uint32_t np)
    {
        std::set<uint32_t> held;
        const std::vector<bool> &in_use = model_.counters_in_use[np];
        const auto look = [&](const Entry &entry, uint32_t number, std::optional<uint32_t> where) {
            if (where && !held.insert(*where).second)
                say(FindingKind::counter_shared, np, entry).counter =
                    ModelCard::first_counter + *where;
            if (where && !in_use[*where])
                say(FindingKind::counter_free, np, entry).counter =
                    ModelCard::first_counter + *where;
            if (has_counters(*entry.node) ? !where : number != 0)
                say(FindingKind::counter_invalid, np, entry).counter = number;
        };
        for (const Entry &entry : entries_) {
            look(entry, entry.node->rx[np], place_in_either_order(entry.node->rx[np]));
            look(entry, entry.node->drop[np], place(entry.node->drop[np]));
        }
        for (uint32_t where = 0; where < places_; ++where) {
            if (in_use[where] && !held.contains(where))
                say(FindingKind::counter_leaked, np).counter = ModelCard::first_counter + where;
        }
    }

    const ReferenceModel &model_;
    const bool unswapped_;
    const uint32_t places_;
    std::vector<Entry> entries_;
    std::vector<services::Finding> findings_;
};

std::string line_of(uint32_t np, uint32_t refnum, uint32_t status, const std::string &key)
{
    std::ostringstream line;
    line << "np " << np << " refnum 0x" << std::hex << refnum << " status 0x" << status << ' '
         << key;
    return line.str();
}

} // namespace

bool has_counters(const ModelNode &node)
{
    return node.content.table_type == SHADOW_DB_EXT_CONF ||
           node.content.hw_index != SHADOW_DB_NO_HW_INDEX;
}

std::string predicted_row(const ModelNode &node, uint32_t np, bool counters_unswapped)
{
    const app_node &content = node.content;
    std::string result(reinterpret_cast<const char *>(content.result), content.result_len);
    if (has_counters(node)) // the number's bytes as they lie in the node
        result.replace(1, 3, reinterpret_cast<const char *>(&node.rx[np]) + counters_unswapped, 3);
    return result;
}

std::vector<std::string> lines_of(const std::vector<services::Finding> &findings)
{
    std::vector<std::string> lines;
    for (const services::Finding &finding : findings)
        lines.push_back(line_of(finding));
    std::sort(lines.begin(), lines.end());
    return lines;
}

std::vector<std::string> predicted_findings(const ReferenceModel &model, bool counters_unswapped,
                                            uint32_t counter_count)
{
    return lines_of(Prediction(model, counters_unswapped, counter_count).run());
}

std::vector<std::string> lines_of(const std::vector<services::UnreadAnswer> &answers)
{
    std::vector<std::string> lines;
    for (const services::UnreadAnswer &answer : answers)
        lines.push_back(line_of(answer.np, answer.refnum, answer.status,
                                {answer.key.begin(), answer.key.end()}));
    return lines;
}

std::vector<std::string> predicted_answers(const ReferenceModel &model)
{
    std::vector<std::string> lines;
    for (const ModelAnswer &answer : model.card.answers)
        lines.push_back(line_of(answer.np, answer.refnum, answer.status, answer.key));
    return lines;
}

} // namespace test
