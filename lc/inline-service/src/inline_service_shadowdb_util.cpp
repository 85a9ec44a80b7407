// The shadow DB: shared memory, keys, lists, queries, changes, prints.

#include "inline_service_shadowdb.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <span>

#include "inline_service_app.h"
#include "inline_service_context.h"
#include "inline_service_list.h"
#include "inline_service_log.h"
#include "inline_service_prm.h"
#include "platform_shared_window.h"

using namespace inline_service;

namespace {

constexpr uint32_t key_mask = 0xFFFF;
constexpr uint32_t refused_key_bits = 0xFC00;
constexpr uint32_t key_index_bits = 8;

// What is printed of a key or a result may reach past its field, but never past a request.
constexpr size_t printed_key_bytes = 127;
constexpr size_t printed_result_bytes =
    sizeof(app_node_element) - offsetof(app_node_element, app_node.result);
static_assert(offsetof(app_node_element, app_node.key) + printed_key_bytes <=
              sizeof(app_node_element));

} // namespace

// ---- shared memory -----------------------------------------------------------------------------

namespace {

// With what was in it before.
void *take_block(int32_t size)
{
    void *block = nullptr;
    const uint32_t rc = pgbl_ptr == nullptr ? static_cast<uint32_t>(ENOMEM)
                                            : shmwin_malloc(pgbl_ptr->shmwin_id, size, &block);
    if (rc != 0) {
        static constexpr char text[] = "shared memory alloc failed %x %d";
        INLINE_SVC_SITE(ED_ERROR_BUFFER, "inline_svc_shared_mem_alloc", text, rc, size);
        return nullptr;
    }
    return block;
}

} // namespace

void *inline_svc_shared_mem_alloc(int32_t size)
{
    void *block = take_block(size);
    if (block != nullptr && size > 0) // the window hands out what was used before
        memset(block, 0, static_cast<size_t>(size));
    return block;
}

uint32_t inline_svc_shared_mem_free(void *block)
{
    return shmwin_free(block);
}

uint32_t inline_svc_shared_mem_reset(void)
{
    inline_svc_trace("shared memory reset");
    if (pgbl_ptr == nullptr) {
        refuse_null("pgbl_ptr");
        return ENOMEM;
    }
    return shmwin_reset(pgbl_ptr->shmwin_id);
}

// ---- initialisation and keys -------------------------------------------------------------------

uint32_t inline_svc_shadow_db_initialized(uint64_t arg1, uint64_t arg2, uint64_t arg3,
                                          uint64_t arg4)
{
    if (pshadow_db == nullptr)
        inline_svc_assert(FALSE);
    register_component(arg1, arg2, arg3, arg4);
    if (pshadow_db->initialized != 0)
        return 0;

    constexpr int32_t table_bytes = SHADOW_DB_MAIN_SLOTS * sizeof(main_entry *);
    void **table = reinterpret_cast<void **>(&pshadow_db->main_table);
    uint32_t rc = pgbl_ptr == nullptr ? static_cast<uint32_t>(ENOMEM)
                                      : shmwin_malloc(pgbl_ptr->shmwin_id, table_bytes, table);
    if (rc == 0 && *table == nullptr)
        rc = ENOMEM;
    if (rc != 0) {
        inline_svc_trace_error("shared memory alloc for element array failed rc %x", rc);
        return rc;
    }
    memset(*table, 0, table_bytes);
    inline_svc_trace("MAIN entry initialization");
    return 0;
}

uint32_t inline_shadow_db_appid_to_key(int32_t app_type, uint32_t index)
{
    // Kept: bits of the index above the lower 16 are not checked and pass into the key.
    if ((index & 0xFF00) != 0 || app_type < 1 || app_type >= INLINE_SVC_APP_TYPES)
        return SHADOW_DB_NO_KEY;
    return (static_cast<uint32_t>(app_type - 1) << key_index_bits) | index;
}

uint32_t inline_shadow_db_key_to_apptype(uint32_t key)
{
    // Kept: keys of application type 5 are made but not decoded.
    if ((key & refused_key_bits) != 0)
        return 0;
    return ((key >> key_index_bits) & 0xFF) + 1;
}

uint32_t inline_shadow_db_key_to_appid(uint32_t key)
{
    if ((key & refused_key_bits) != 0)
        return 0;
    return key & 0xFF;
}

// ---- node lists --------------------------------------------------------------------------------

uint32_t inline_svc_list_create(list_record *list)
{
    if (list == nullptr)
        return refuse_null("list");
    if (list_create(list, 0, 0, 0) == nullptr) {
        inline_svc_trace_error(" list create failed\n");
        return ENOMEM;
    }
    inline_svc_trace(" list is created");
    return 0;
}

uint32_t inline_svc_list_insert(list_record *list, shmem_node *node)
{
    if (list == nullptr || node == nullptr)
        return refuse_null(list == nullptr ? "list" : "node");
    if (!list_append(*list, node)) {
        inline_svc_trace_error(" enqueue failed \n");
        return ENOMEM;
    }
    return 0;
}

uint32_t inline_svc_list_delete(list_record *list, shmem_node *node)
{
    if (list == nullptr || node == nullptr)
        return refuse_null(list == nullptr ? "list" : "node");
    list_remove(*list, node); // Kept: a failed removal goes unnoticed
    return 0;
}

uint32_t inline_svc_list_destroy(list_record *list)
{
    if (list == nullptr)
        return refuse_null("list");
    list_destroy(list);
    return 0;
}

uint32_t inline_shadow_db_compare_node_entry_id(const shmem_node *node, uint32_t entry_id)
{
    return node != nullptr && node->app_node.entry_id == entry_id;
}

// ---- queries -----------------------------------------------------------------------------------

main_entry *inline_svc_shadow_db_query_main(uint32_t argument)
{
    if (pshadow_db == nullptr)
        inline_svc_assert(FALSE);
    const uint32_t key = argument & key_mask;
    if ((key & refused_key_bits) != 0) {
        inline_svc_trace_error("Invalid shadow db key %d", key);
        return nullptr;
    }
    main_entry *main = pshadow_db->main_table != nullptr ? pshadow_db->main_table[key] : nullptr;
    if (main == nullptr) {
        inline_svc_trace(" Query Main entry  NULL for uind_index  %d", key);
        return nullptr;
    }
    inline_svc_trace(" Query Main entry found for uidb_index %d", key);
    return main;
}

namespace {

// Kept: keys and results compare as strings, so bytes behind a zero byte that both sides share take
// no part, and the stored lengths are not looked at.
bool same_text(std::span<const uint8_t> stored, const void *given, uint32_t length)
{
    if (length == 0)
        return true;
    return given != nullptr &&
           strncmp(reinterpret_cast<const char *>(stored.data()), static_cast<const char *>(given),
                   std::min<size_t>(length, stored.size())) == 0;
}

} // namespace

shmem_node *inline_shadow_db_query_node(main_entry *main, const void *key, uint32_t key_len,
                                        const void *result, uint32_t result_len)
{
    if (main == nullptr) {
        inline_svc_trace_error("Query MAIN entry is NULL ");
        return nullptr;
    }
    inline_svc_trace("Query MAIN entry ");
    for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
        inline_svc_trace("Table is present in the main");
        for (list_link *link = main->table_array[table].first; link != nullptr; link = link->next) {
            auto *node = static_cast<shmem_node *>(link->data);
            if (node == nullptr) {
                inline_svc_trace_error("Node is not present in the table %d", table);
                continue;
            }
            inline_svc_trace("Compare the node in the table %d", table);
            if (!same_text(node->app_node.key, key, key_len))
                continue;
            if (!same_text(node->app_node.result, result, result_len)) {
                inline_svc_trace("Key is matched  But result is not matched");
                continue;
            }
            inline_svc_trace("result is matched ");
            inline_svc_trace("Found the node in the table %d", table);
            return node;
        }
    }
    inline_svc_trace("NOT Found the node in the tables");
    return nullptr;
}

shmem_node *inline_shadow_db_query_entry_id(main_entry *main, uint32_t entry_id)
{
    if (main == nullptr) {
        inline_svc_trace_error("Query MAIN entry is NULL ");
        return nullptr;
    }
    inline_svc_trace("Query MAIN entry ");
    inline_svc_shadow_db_print_main_entry(main);
    for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
        inline_svc_trace("Table is present in the main");
        for (list_link *link = main->table_array[table].first; link != nullptr; link = link->next) {
            auto *node = static_cast<shmem_node *>(link->data);
            if (node == nullptr) {
                inline_svc_trace_error("Node is not present in the table %d", table);
                continue;
            }
            if (inline_shadow_db_compare_node_entry_id(node, entry_id) != 0) {
                const auto address = reinterpret_cast<uintptr_t>(node);
                inline_svc_trace("Found the node in the table%d x%lx", table, address);
                return node;
            }
        }
    }
    inline_svc_trace("NOT Found the node in the tables");
    return nullptr;
}

// ---- changes -----------------------------------------------------------------------------------

namespace {

// A stored node's own pointer to itself says that it is alive; it is cleared before the node goes.
bool is_live(const shmem_node &node)
{
    return node.app_node.shmem_node == &node;
}

// Gives a stored node the content of a request. Until it is whole the node does not name itself, so
// that a kill in between shows; the hardware has heard nothing by then.
void overwrite(shmem_node &node, const app_node &content)
{
    app_node whole = content;
    whole.shmem_node = nullptr;
    node.app_node.shmem_node = nullptr;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    node.app_node = whole;
    std::atomic_signal_fence(std::memory_order_seq_cst);
    node.app_node.shmem_node = &node;
}

// What a request does not bring is zero; only that is cleared, for a node is mostly request.
void make_node(shmem_node &node, const app_node &content)
{
    node.link = {};
    node.app_node = content;
    memset(node.stat_index_rx, 0, sizeof node - offsetof(shmem_node, stat_index_rx));
}

void free_node(shmem_node *node)
{
    node->app_node.shmem_node = nullptr;
    inline_svc_shared_mem_free(node);
}

uint32_t prepare_table(main_entry &main, uint32_t table)
{
    if (main.num_elements[table] != 0) {
        inline_svc_trace(" table_array is present for the table %d", table);
        return 0;
    }
    if (inline_svc_list_create(&main.table_array[table]) != 0) {
        inline_svc_trace_error("app_main list create failed\n");
        return ENOMEM;
    }
    inline_svc_trace("table_array is created for the table %d", table);
    return 0;
}

uint32_t create_node(uint32_t key, const app_node_element &request)
{
    inline_svc_trace(" enter to create shadow_db entry");
    const uint32_t table = request.app_node.table_type;
    main_entry *main = inline_svc_shadow_db_query_main(key);
    if (main == nullptr) {
        inline_svc_trace_error(" shmem main entry is NULL\n");
        return ENOMEM;
    }
    if (table >= SHADOW_DB_TABLES) {
        inline_svc_trace_error("node pass INCORRECT Table in prm update \n");
        return EINVAL;
    }
    if (prepare_table(*main, table) != 0)
        return ENOMEM;

    // Kept: a list that was made for a node that cannot be allocated stays.
    auto *node = static_cast<shmem_node *>(take_block(sizeof(shmem_node)));
    if (node == nullptr) {
        inline_svc_trace_error("shared mem node allocation failed");
        return ENOMEM;
    }
    make_node(*node, request.app_node);

    const uint32_t rc = inline_svc_prm_update(node);
    if (rc != 0) {
        inline_svc_trace_error(" PRM node insertion failed\n");
        free_node(node);
        if (main->num_elements[table] == 0) {
            inline_svc_trace_error("PRM failed deleting the list\n");
            inline_svc_list_destroy(&main->table_array[table]);
        }
        return rc;
    }
    if (inline_svc_list_insert(&main->table_array[table], node) != 0) {
        // Kept: what the hardware took stays there.
        free_node(node);
        if (main->num_elements[table] == 0) {
            inline_svc_trace_error("list enqueue failed deleting the list\n");
            inline_svc_list_destroy(&main->table_array[table]);
        }
        inline_svc_trace_error("enqueue failed \n");
        return ENOMEM;
    }
    node->app_node.shmem_node = node;
    ++main->num_elements[table];
    inline_svc_trace(" enqueue create successful \n");
    return 0;
}

// The node that a modify or delete names, or null when the request does not fit it.
shmem_node *named_node(const app_node_element &request)
{
    shmem_node *shmem_node = request.app_node.shmem_node;
    inline_svc_assert(shmem_node);
    if (!is_live(*shmem_node)) {
        inline_svc_trace_error("node named by the request is not a live one");
        return nullptr;
    }
    if (request.app_node.table_type >= SHADOW_DB_TABLES ||
        request.app_node.table_type != shmem_node->app_node.table_type) {
        const uint32_t table = request.app_node.table_type;
        inline_svc_trace_error("table %d of the request is not the node's", table);
        return nullptr;
    }
    // Kept: lengths are for the hardware update to refuse, when the node is overwritten already.
    return shmem_node;
}

uint32_t modify_node(uint32_t key, const app_node_element &request)
{
    const main_entry *main = inline_svc_shadow_db_query_main(key);
    if (main == nullptr)
        inline_svc_assert(FALSE);
    inline_svc_trace(" table_array is present for the table %d", request.app_node.table_type);
    shmem_node *node = named_node(request);
    if (node == nullptr)
        return EINVAL;
    overwrite(*node, request.app_node); // the link and the counters stay

    // Kept: the new content stays also when the hardware refuses it.
    const uint32_t rc = inline_svc_prm_update(node);
    if (rc != 0)
        inline_svc_trace_error("PRM node modification failed\n");
    else
        inline_svc_trace("enqueue modify successful \n");
    return rc;
}

uint32_t delete_node(uint32_t key, const app_node_element &request)
{
    inline_svc_trace(" enter to delete shadow_db entry");
    main_entry *main = inline_svc_shadow_db_query_main(key);
    if (main == nullptr)
        inline_svc_assert(FALSE);
    const uint32_t table = request.app_node.table_type;
    inline_svc_trace(" table_array is present for the table %d", table);
    shmem_node *node = named_node(request);
    if (node == nullptr)
        return EINVAL;
    if (&node->app_node != &request.app_node) // a clear names the node by itself
        overwrite(*node, request.app_node);

    uint32_t rc = inline_svc_prm_update(node);
    if (rc != 0) {
        // Kept: the node stays where it is, holding the request's content.
        inline_svc_trace_error(" PRM node delete failed\n");
        return rc;
    }
    inline_svc_trace("PRM node delete success\n");
    rc = inline_svc_list_delete(&main->table_array[table], node);
    if (rc != 0) {
        inline_svc_trace_error(" node removal failed \n");
        return rc;
    }
    free_node(node);
    if (--main->num_elements[table] == 0) {
        inline_svc_list_destroy(&main->table_array[table]);
        inline_svc_trace("since number of node is 0 so destoying the list %d", table);
    }
    inline_svc_trace("delete the noe is successful for  the list %d", table);
    return 0;
}

// The entry's lists and nodes are not looked at.
void delete_main(uint32_t key)
{
    if (pshadow_db == nullptr)
        inline_svc_assert(FALSE);
    main_entry *main = pshadow_db->main_table[key];
    if (main == nullptr) {
        inline_svc_trace(" DEL Main entry is NULL for  %d", key);
        return;
    }
    inline_svc_trace(" DEL Main entry uidb_index %d", main->uidb_index);
    pshadow_db->main_table[key] = nullptr; // first, so that nothing ever points at a freed entry
    inline_svc_shared_mem_free(main);
}

uint32_t apply_element(uint32_t key, const app_node_element &element)
{
    uint32_t rc = EINVAL;
    switch (element.app_node.action) {
    case SHADOW_DB_CREATE:
        rc = create_node(key, element);
        if (rc != 0)
            inline_svc_trace_error("shadow mem node creation failed");
        break;
    case SHADOW_DB_MODIFY:
        rc = modify_node(key, element);
        if (rc != 0)
            inline_svc_trace_error("shadow mem node modification failed");
        break;
    case SHADOW_DB_DELETE:
        rc = delete_node(key, element);
        if (rc != 0)
            inline_svc_trace_error("shadow mem node deletion failed");
        break;
    default:
        inline_svc_trace_error("shadow mem node unknown action");
        break;
    }
    return rc;
}

// The entry of a batch's key, made when there is none; null when it cannot be.
main_entry *find_or_create_main(uint32_t key)
{
    main_entry *main = inline_svc_shadow_db_query_main(key);
    if (main != nullptr) {
        inline_svc_trace("MAIN entry updated");
        return main;
    }
    if (pshadow_db->main_table == nullptr) {
        inline_svc_trace_error("no main table for uidb_index %d", key);
        return nullptr;
    }
    main = pshadow_db->main_table[key];
    if (main != nullptr) {
        inline_svc_trace_error(" CREATE: Main entry is found for uidb_index %d", main->uidb_index);
        inline_svc_assert(FALSE);
    }
    inline_svc_trace(" CREATE: Main entry  %d", key);
    main = static_cast<main_entry *>(inline_svc_shared_mem_alloc(sizeof(main_entry)));
    pshadow_db->main_table[key] = main;
    return main;
}

// Applies the elements in order and stops at the first that fails. An element without data ends
// the whole batch at once: *abandoned is set.
uint32_t apply_elements(const action_array &batch, bool *abandoned)
{
    for (const list_link *link = batch.node_list.first; link != nullptr; link = link->next) {
        const auto *element = static_cast<const app_node_element *>(link->data);
        if (element == nullptr) {
            inline_svc_trace_error("APP Node is not present in the main array ");
            *abandoned = true;
            return EINVAL;
        }
        inline_svc_trace("Insert the node in shared_db ");
        inline_svc_shadow_db_print_node(static_cast<const shmem_node *>(link->data));
        const uint32_t rc = apply_element(batch.uidb_index, *element);
        if (rc != 0) {
            inline_svc_trace_error("shadow_db insert node failed");
            return rc;
        }
        inline_svc_trace("shadow mem node action handled successfully");
    }
    return 0;
}

void delete_empty_main(uint32_t key)
{
    static constexpr char text[] =
        "Total node in shmem node %d is 0 so freeing thefreeing the shared memory";
    inline_svc_trace(text, key);
    delete_main(key);
}

} // namespace

uint32_t inline_shadow_db_insert_main(action_array *batch)
{
    if (pshadow_db == nullptr)
        inline_svc_assert(FALSE);
    if (batch == nullptr)
        return refuse_null("batch");
    const uint32_t key = batch->uidb_index;
    if (key >= SHADOW_DB_KEYS) {
        inline_svc_shadow_db_query_main(key); // says so in the log
        return EINVAL;
    }
    main_entry *main = find_or_create_main(key);
    if (main == nullptr)
        return ENOMEM;
    main->uidb_index = batch->uidb_index;
    main->app_ID = batch->app_ID;
    main->entry_tag = batch->entry_tag;

    if (batch->num_node == 0) {
        // Kept: the entry goes whatever its tables still hold.
        inline_svc_trace("Table is NOT present in the main");
        delete_empty_main(key);
        return 0;
    }
    inline_svc_trace("Table is present in the main");
    bool abandoned = false;
    const uint32_t rc = apply_elements(*batch, &abandoned);
    if (abandoned)
        return rc;

    inline_svc_shadow_db_print_main_entry(main);
    if (main->num_elements[0] + main->num_elements[1] == 0) {
        delete_empty_main(key);
        return rc;
    }
    main->entry_version = batch->app_param;
    main->timestamp = 1;
    return rc;
}

uint32_t inline_shadow_db_clear_main(action_array *batch)
{
    if (batch == nullptr)
        return 0;
    const uint32_t key = batch->uidb_index;
    main_entry *main = inline_svc_shadow_db_query_main(key);
    if (main == nullptr) {
        inline_svc_trace("Query MAIN entry is NULL ");
        return 0;
    }
    inline_svc_trace("Delete MAIN entry ");
    for (uint32_t table = 0; table < SHADOW_DB_TABLES; ++table) {
        if (main->num_elements[table] == 0)
            continue;
        while (void *first = list_take_first(main->table_array[table])) {
            inline_svc_trace("Delete the node in the table %d", table);
            auto *node = static_cast<shmem_node *>(first);
            node->app_node.action = SHADOW_DB_DELETE;
            const uint32_t rc = delete_node(key, *static_cast<const app_node_element *>(first));
            if (rc != 0) {
                // Kept: this node is off its list and still counted; the rest stays as it is.
                inline_svc_trace_error("node removal failed table %d", table);
                return rc;
            }
        }
    }
    delete_main(key);
    return 0;
}

// ---- prints ------------------------------------------------------------------------------------

namespace {

// Bytes of a node as hexadecimal text, from an offset on.
class NodeHex {
public:
    NodeHex(const shmem_node *node, size_t offset, size_t length, size_t most)
    {
        const auto *bytes = reinterpret_cast<const uint8_t *>(node) + offset;
        char *out = text_;
        for (size_t i = 0; i < std::min(length, most); ++i) {
            *out++ = "0123456789abcdef"[bytes[i] >> 4];
            *out++ = "0123456789abcdef"[bytes[i] & 15];
        }
        *out = '\0';
    }
    const char *text() const { return text_; }

private:
    char text_[2 * printed_key_bytes + 1];
};

} // namespace

uint32_t inline_svc_shadow_db_print_node(const shmem_node *node)
{
    if (node == nullptr)
        return refuse_null("node");
    const NodeHex key(node, offsetof(shmem_node, app_node.key), node->app_node.key_len,
                      printed_key_bytes);
    const NodeHex result(node, offsetof(shmem_node, app_node.result), node->app_node.result_len,
                         printed_result_bytes);
    inline_svc_trace("*********Node *********\n");
    inline_svc_trace("*******key %s\n", key.text());
    inline_svc_trace("*******key_len %d\n", node->app_node.key_len);
    inline_svc_trace("*******result %s\n", result.text());
    inline_svc_trace("*******result_len %d\n", node->app_node.result_len);
    inline_svc_trace("*******table_type %d\n", node->app_node.table_type);
    inline_svc_trace("*******action %d\n", node->app_node.action);
    inline_svc_trace("*******entry_id %d\n", node->app_node.entry_id);
    return 0;
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow" // the facility shows arguments under this name
uint32_t inline_svc_shadow_db_print_main_entry(const main_entry *main_entry)
{
    if (main_entry == nullptr)
        return refuse_null("main_entry");
    const uint32_t total_elements = main_entry->num_elements[0] + main_entry->num_elements[1];
    inline_svc_trace("************main entry uidb_index %d*********\n", main_entry->uidb_index);
    inline_svc_trace("****Entry AppID %d\n", main_entry->app_ID);
    inline_svc_trace("****Entry Version %x\n", main_entry->entry_version);
    inline_svc_trace("****Entry Timestamp %x\n", main_entry->timestamp);
    inline_svc_trace("****Entry total Number of elemenets %d\n", total_elements);
    return 0;
}
#pragma GCC diagnostic pop

uint32_t inline_svc_shadow_db_dump(void)
{
    if (pshadow_db == nullptr)
        inline_svc_assert(FALSE);
    inline_svc_trace("****************shadow_dump*********\n");
    // Kept: all 1280 slots, although lookups refuse the last 256.
    for (uint32_t slot = 0; pshadow_db->main_table != nullptr && slot < SHADOW_DB_MAIN_SLOTS;
         ++slot) {
        const main_entry *main = pshadow_db->main_table[slot];
        if (main == nullptr)
            continue;
        inline_svc_shadow_db_print_main_entry(main);
        for (const list_record &table : main->table_array) {
            for (const list_link *link = table.first; link != nullptr; link = link->next) {
                if (link->data == nullptr)
                    return EINVAL; // Kept: no closing line
                inline_svc_shadow_db_print_node(static_cast<const shmem_node *>(link->data));
            }
        }
    }
    inline_svc_trace("****************shadow_dump Done*********\n");
    return 0;
}
