#include "action_batch.h"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "service_error.h"

namespace services {

ActionBatch::ActionBatch(uint32_t key, uint32_t app_id, uint32_t version)
{
    batch_.uidb_index = static_cast<uint16_t>(key);
    batch_.app_ID = app_id;
    batch_.app_param = version;
    require_success("inline_svc_list_create", inline_svc_list_create(&batch_.node_list));
}

ActionBatch::~ActionBatch()
{
    std::vector<list_link *> elements;
    for (list_link *link = batch_.node_list.first; link != nullptr; link = link->next)
        elements.push_back(link);
    inline_svc_list_destroy(&batch_.node_list);
    for (list_link *element : elements)
        std::free(element); // the library's copies, handed to us: they come from malloc
}

void ActionBatch::create(const NewEntry &entry)
{
    app_node_element element{};
    app_node &node = element.app_node;
    std::ranges::copy(entry.key, node.key);
    node.key_len = static_cast<uint32_t>(entry.key.size());
    std::ranges::copy(entry.result, node.result);
    node.result_len = static_cast<uint32_t>(entry.result.size());
    node.hw_index = 0; // anything but SHADOW_DB_NO_HW_INDEX: the entry has counters
    node.entry_id = entry.entry_id;
    node.table_type = entry.table;
    node.action = SHADOW_DB_CREATE;
    require_success("inline_svc_app_node_insert",
                    inline_svc_app_node_insert(&batch_.node_list, element));
    ++batch_.num_node;
}

} // namespace services
