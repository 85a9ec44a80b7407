#include "settled_model.h"

#include "predicted_audit.h"

namespace test {
namespace {

// A delete that was begun is finished. What a node that is off its list took of the window stays
// taken.
void mend_counts(ReferenceModel &model)
{
    for (auto place = model.entries.begin(); place != model.entries.end();) {
        ModelEntry &entry = place->second;
        for (ModelTable &table : entry.tables) {
            model.blocks -= std::erase_if(table.listed, [](const NodePointer &node) {
                return node->content.action == SHADOW_DB_DELETE;
            });
            table.lost.clear();
            table.num_elements = static_cast<uint32_t>(table.listed.size());
        }
        if (entry.nodes() != 0) {
            ++place;
            continue;
        }
        place = model.entries.erase(place);
        --model.blocks;
    }
}

void hold(std::vector<bool> &in_use, uint32_t number)
{
    if (const std::optional<uint32_t> place = ModelCard::place(number))
        in_use[*place] = true;
}

void put_in_order(ReferenceModel &model, const ModelNode &node, bool counters_unswapped)
{
    const app_node &content = node.content;
    const std::string key(reinterpret_cast<const char *>(content.key), content.key_len);
    for (uint32_t np = 0; np < model.card.nps; ++np) {
        model.card.tables[np][content.table_type][key] =
            predicted_row(node, np, counters_unswapped);
        if (has_counters(node)) {
            hold(model.counters_in_use[np], node.rx[np]);
            hold(model.counters_in_use[np], node.drop[np]);
        }
    }
}

} // namespace

void settle(ReferenceModel &model, bool counters_unswapped)
{
    model.read_answers();
    mend_counts(model);
    for (auto &tables : model.card.tables)
        tables = {};
    for (std::vector<bool> &in_use : model.counters_in_use)
        in_use.assign(in_use.size(), false);
    for (const auto &[key, entry] : model.entries) {
        for (const ModelTable &table : entry.tables) {
            for (const NodePointer &node : table.listed)
                put_in_order(model, *node, counters_unswapped);
        }
    }
}

} // namespace test
