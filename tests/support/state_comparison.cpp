#include "state_comparison.h"

#include <algorithm>
#include <cstring>
#include <sstream>

namespace test {
namespace {

class Comparison {
public:
    Comparison(const ReferenceModel &model, const shadow_db *root, vlc::VirtualLineCard &card)
        : model_(model), root_(root), card_(card)
    {
    }

    std::vector<std::string> run()
    {
        expect("blocks of the window", model_.blocks, card_.window().usage().blocks_in_use);
        for (uint32_t np = 0; np < model_.card.nps; ++np) {
            for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table)
                compare_rows(np, table);
        }
        if (root_ == nullptr)
            return lines_;
        expect("prm_state", model_.prm_state, root_->prm_state);
        expect("conn_state", model_.conn_state, root_->conn_state);
        compare_table("attribute", root_->uidb_attr_table, model_.has_attributes, model_.attributes,
                      UIDB_ATTRIBUTES);
        compare_table("virtual service", static_cast<const vservice_config *>(root_->vservice_db),
                      model_.has_vservices, model_.vservices, VSERVICES);
        for (uint32_t np = 0; np < model_.counters_in_use.size(); ++np)
            compare_counters(np);
        for (uint32_t key = 0; root_->main_table != nullptr && key < SHADOW_DB_MAIN_SLOTS; ++key)
            compare_entry(static_cast<uint16_t>(key));
        return lines_;
    }

private:
    template <typename Value>
    void expect(const std::string &what, const Value &expected, const Value &found)
    {
        if (expected == found)
            return;
        std::ostringstream line;
        line << what << ": " << found << " instead of " << expected;
        lines_.push_back(line.str());
    }

    template <typename Record, typename Records>
    void compare_table(const std::string &what, const Record *table, bool is_there,
                       const Records &expected, uint32_t count)
    {
        expect("table of " + what + "s", is_there, table != nullptr);
        for (uint32_t i = 0; table != nullptr && i < count; ++i) {
            const auto set = expected.find(static_cast<typename Records::key_type>(i));
            const Record record = set == expected.end() ? Record{} : set->second;
            if (memcmp(&table[i], &record, sizeof record) != 0)
                lines_.push_back(what + " " + std::to_string(i) + " has another content");
        }
    }

    void compare_rows(uint32_t np, uint32_t table)
    {
        ModelCard::Table rows;
        card_.access().for_each_row(
            np, static_cast<vlc::TableKind>(table), [&rows](const vlc::TableRow &row) {
                rows[{reinterpret_cast<const char *>(row.key), row.key_len}] = {
                    reinterpret_cast<const char *>(row.result), row.result_len};
            });
        const ModelCard::Table &expected = model_.card.tables[np][table];
        if (rows == expected)
            return;
        const std::string where =
            "np " + std::to_string(np) + " table " + std::to_string(table) + " row ";
        for (const auto &[key, result] : expected) {
            if (!rows.contains(key))
                lines_.push_back(where + key + " is missing");
            else if (rows[key] != result)
                lines_.push_back(where + key + " has another result");
        }
        for (const auto &[key, result] : rows) {
            if (!expected.contains(key))
                lines_.push_back(where + key + " should not be there");
        }
    }

    void compare_counters(uint32_t np)
    {
        const std::vector<bool> &expected = model_.counters_in_use[np];
        const uint32_t *words = root_->counters[np];
        expect("np " + std::to_string(np) + " has a bitmap", !expected.empty(), words != nullptr);
        if (expected.empty() || words == nullptr)
            return;
        const size_t places = std::min<size_t>(expected.size(), model_.bitmap_places);
        for (uint32_t place = 0; place < places; ++place) {
            const bool used = (words[place / 32] << place % 32 & 0x80000000) != 0;
            if (expected[place] != used)
                expect("np " + std::to_string(np) + " counter " + std::to_string(place) + " in use",
                       expected[place] + 0, used + 0);
        }
    }

    void compare_entry(uint16_t key)
    {
        const main_entry *main = root_->main_table[key];
        const auto found = model_.entries.find(key);
        const std::string where = "key " + std::to_string(key) + " ";
        const bool expected = found != model_.entries.end();
        if (expected != (main != nullptr)) {
            lines_.push_back(where + (expected ? "is missing" : "should not be there"));
            return;
        }
        if (!expected)
            return;
        const ModelEntry &entry = found->second;
        expect(where + "uidb_index", key, main->uidb_index);
        expect(where + "app_ID", entry.app_ID, main->app_ID);
        expect(where + "entry_tag", entry.tag, main->entry_tag);
        expect(where + "entry_version", entry.version, main->entry_version);
        expect(where + "timestamp", entry.timestamp, main->timestamp);
        expect(where + "stat_round", entry.stat_round, main->stat_round);
        for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table)
            compare_table(where + "table " + std::to_string(table) + " ", entry.tables[table],
                          main->num_elements[table], main->table_array[table]);
    }

    void compare_table(const std::string &where, const ModelTable &expected, uint32_t num_elements,
                       const list_record &list)
    {
        expect(where + "num_elements", expected.num_elements, num_elements);
        expect(where + "list count", uint64_t{expected.listed.size()}, list.count);
        const list_link *link = list.first;
        const list_link *before = nullptr;
        for (const NodePointer &node : expected.listed) {
            if (link == nullptr || link->data != node->address) {
                lines_.push_back(where + "does not list entry " +
                                 std::to_string(node->content.entry_id) + " where it should");
                return;
            }
            if (link->prev != before || link->owner != &list || link != &node->address->link)
                lines_.push_back(where + "has a broken link");
            compare_node(where, *node);
            before = link;
            link = link->next;
        }
        expect(where + "list ends", true, link == nullptr && list.last == before);
        for (const NodePointer &node : expected.lost)
            compare_node(where + "lost ", *node);
    }

    void compare_node(const std::string &where, const ModelNode &node)
    {
        const std::string what = where + "entry " + std::to_string(node.content.entry_id) + " ";
        if (node.address == nullptr) {
            lines_.push_back(what + "was never seen");
            return;
        }
        app_node expected = node.content;
        expected.shmem_node = node.address;
        if (memcmp(&node.address->app_node, &expected, sizeof expected) != 0)
            lines_.push_back(what + "has another content");
        for (uint32_t np = 0; np < SHADOW_DB_MAX_NPS; ++np) {
            expect(what + "rx", node.rx[np], node.address->stat_index_rx[np]);
            expect(what + "drop", node.drop[np], node.address->stat_index_drop[np]);
        }
        expect(what + "last word", uint64_t{0}, node.address->reserved_240);
    }

    const ReferenceModel &model_;
    const shadow_db *root_;
    vlc::VirtualLineCard &card_;
    std::vector<std::string> lines_;
};

} // namespace

void learn_addresses(const ReferenceModel &model, const shadow_db &root, uint16_t key)
{
    const auto entry = model.entries.find(key);
    const main_entry *main = root.main_table[key];
    for (uint32_t table = 0; main != nullptr && entry != model.entries.end() && table < 2;
         ++table) {
        const list_link *link = main->table_array[table].first;
        for (const NodePointer &node : entry->second.tables[table].listed) {
            if (link == nullptr)
                return;
            if (node->address == nullptr)
                node->address = static_cast<shmem_node *>(link->data);
            link = link->next;
        }
    }
}

std::vector<std::string> differences(const ReferenceModel &model, const shadow_db *root,
                                     vlc::VirtualLineCard &card)
{
    return Comparison(model, root, card).run();
}

} // namespace test
