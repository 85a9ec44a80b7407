// The reference's host: starting, registering, answers, batches, statistics. What one entry is to
// the hardware stands in reference_hardware.cpp.
#include "reference_model.h"

#include <algorithm>
#include <cerrno>

#include "platform_prm.h"

namespace test {
namespace {

constexpr int register_attempts = 60;

} // namespace

ReferenceModel::ReferenceModel(Rules rules, CallRule rule)
    : card(rules.nps), rules_(rules), rule_(std::move(rule))
{
}

std::optional<uint64_t> ReferenceModel::call(Service service, uint32_t np)
{
    ++calls_[static_cast<size_t>(service)];
    return rule_ ? rule_(service, np) : std::nullopt;
}

uint32_t ReferenceModel::code_of(Service service, uint32_t np)
{
    return static_cast<uint32_t>(call(service, np).value_or(0));
}

uint32_t ReferenceModel::value_of(Service service, uint32_t otherwise)
{
    return static_cast<uint32_t>(call(service).value_or(otherwise));
}

bool ReferenceModel::allocate()
{
    if (call(Service::shmwin_malloc))
        return false;
    ++blocks;
    return true;
}

void ReferenceModel::release()
{
    if (!call(Service::shmwin_free)) // one that the window refuses to take back stays in use
        --blocks;
}

// ---- the host, and PRM's connection

bool ReferenceModel::start_host()
{
    const auto refused = [this] {
        call(Service::cerr_strerror); // the host says why
        return false;
    };
    if (!has_root_ && !allocate())
        return refused();
    has_root_ = true;
    call(Service::ed_init);
    if (!has_main_table_ && !allocate())
        return refused();
    has_main_table_ = true;
    // A host does without the tables of attributes and virtual services when there is no room.
    for (bool *has_table : {&has_attributes, &has_vservices})
        *has_table = *has_table || allocate();
    const auto forced_type = call(Service::platform_get_my_card_type);
    turns_round_ = rules_.counters_turned_round || forced_type; // an unknown type is turned round
    if (call(Service::prm_mgr_open))
        return refused();
    prm_state = SHADOW_DB_READY;
    connection_up();
    keeps_counters_ = true;
    return true;
}

void ReferenceModel::connection_up()
{
    call(Service::prm_srh_get_handle);
    register_handle();
    call(Service::prm_srh_set_name);
    call(Service::plm_dpss_stats_init);
    call(Service::prm_stats_cl_pre_init);
    if (!keeps_counters_ && !make_bitmaps())
        throw ProcessEnd::exit_status_1;
    conn_state = SHADOW_DB_READY;
    call(Service::prm_srh_delay_util_init);
    card.callback_waits = !card.answers.empty(); // they are announced anew
}

void ReferenceModel::register_handle()
{
    const Service service = has_handle_ ? Service::prm_srh_reregister : Service::prm_srh_register;
    for (int attempt = 1; attempt <= register_attempts; ++attempt) {
        if (code_of(service) == 0) {
            has_handle_ = true;
            return;
        }
    }
    throw ProcessEnd::exit_status_1;
}

bool ReferenceModel::make_bitmaps()
{
    call(Service::prm_stats_cl_get_stateless_double_size); // said in the log
    const uint32_t size =
        value_of(Service::prm_stats_cl_get_stateless_double_size, ModelCard::counter_count);
    bitmap_places = 8 * (size / 32 * 32 + 32 + 8); // a count of counters taken for one of bytes
    bool all = true;
    counters_in_use.assign(rules_.nps, {});
    for (std::vector<bool> &bitmap : counters_in_use) {
        if (allocate()) {
            bitmap.assign(ModelCard::counter_count + 32, false);
        } else {
            call(Service::cerr_strerror);
            all = false;
        }
    }
    return all;
}

void ReferenceModel::prm_goes_down()
{
    card.up = false;
    conn_state = 0;
    card.callback_waits = false; // answers stay, and are announced when it is up again
}

void ReferenceModel::prm_comes_up()
{
    card.up = true;
    connection_up();
}

void ReferenceModel::queue_delayed_answer()
{
    card.answers.push_back(
        {0, 0, PRM_OP_MODIFY << PRM_REFNUM_OP_SHIFT | PRM_REFNUM_DELAY_QUEUE, {}});
    card.callback_waits = true;
}

// The callback is called until nothing is left; one that read nothing is called again later.
void ReferenceModel::read_answers()
{
    bool made_progress = true;
    while (card.callback_waits && made_progress) {
        made_progress = card.up && !card.answers.empty() && drain();
        card.callback_waits = card.up && !card.answers.empty();
    }
}

bool ReferenceModel::drain()
{
    bool read_one = false;
    for (;;) {
        if (const auto forced = call(Service::prm_srh_async_resp_data)) {
            if (*forced != PRM_RESPONSE_QUEUE_EMPTY)
                call(Service::cerr_strerror);
            break;
        }
        if (card.answers.empty())
            break;
        const ModelAnswer answer = card.answers.front();
        card.answers.pop_front();
        read_one = true;
        if ((answer.refnum & PRM_REFNUM_TABLE_MASK) == PRM_REFNUM_DELAY_QUEUE) {
            call(Service::prm_srh_delay_queue_process);
            break;
        }
        if (answer.status != 0)
            call(Service::cerr_strerror);
    }
    call(Service::cerr_strerror); // the summary, whatever was read
    return read_one;
}

uint32_t ReferenceModel::reset_window()
{
    const uint32_t rc = code_of(Service::shmwin_reset);
    if (rc == 0)
        blocks = 0;
    return rc;
}

// ---- batches

uint32_t ReferenceModel::apply(const ModelBatch &batch)
{
    if (batch.action != INLINE_SVC_BATCH_DELETE_ALL && insert(batch) == 0)
        return 0;
    return clear(batch.key);
}

void ReferenceModel::drop_entry(uint16_t key)
{
    entries.erase(key); // nodes that it still had stay in memory, and nobody finds them
    release();
}

uint32_t ReferenceModel::insert(const ModelBatch &batch)
{
    if (batch.key >= SHADOW_DB_KEYS)
        return EINVAL;
    if (!entries.contains(batch.key) && !allocate())
        return ENOMEM;
    ModelEntry &entry = entries[batch.key];
    entry.app_ID = batch.app_ID;
    entry.tag = batch.tag;
    if (batch.num_node == 0) {
        drop_entry(batch.key);
        return 0;
    }
    uint32_t rc = 0;
    for (size_t i = 0; rc == 0 && i < batch.requests.size(); ++i)
        rc = apply_request(entry, batch.requests[i]);
    if (entry.nodes() == 0) {
        drop_entry(batch.key);
        return rc;
    }
    entry.version = batch.app_param;
    entry.timestamp = 1;
    return rc;
}

uint32_t ReferenceModel::apply_request(ModelEntry &entry, const ModelRequest &request)
{
    switch (request.content.action) {
    case SHADOW_DB_CREATE:
        return create(entry, request.content);
    case SHADOW_DB_MODIFY:
        return fits(request) ? change(*request.node, request.content) : EINVAL;
    case SHADOW_DB_DELETE:
        return fits(request) ? remove(entry, request) : EINVAL;
    default:
        return EINVAL;
    }
}

// A modify or delete must name a node that lives, and the node's own table.
bool ReferenceModel::fits(const ModelRequest &request)
{
    if (request.node == nullptr)
        throw ProcessEnd::assertion_shmem_node;
    const uint32_t table = request.content.table_type;
    return request.node->is_live && table < SHADOW_DB_TABLES &&
           table == request.node->content.table_type;
}

uint32_t ReferenceModel::create(ModelEntry &entry, const app_node &content)
{
    if (content.table_type >= SHADOW_DB_TABLES)
        return EINVAL;
    ModelTable &table = entry.tables[content.table_type];
    const auto end_empty_list = [this, &table] {
        if (table.num_elements == 0)
            call(Service::list_destroy);
    };
    if (table.num_elements == 0 && !create_list())
        return ENOMEM;
    if (!allocate())
        return ENOMEM;
    const auto node = std::make_shared<ModelNode>();
    node->content = content;
    if (const uint32_t rc = program(*node); rc != 0) {
        release();
        end_empty_list();
        return rc;
    }
    if (call(Service::list_enqueue_default)) {
        release(); // the hardware and the counters keep what they took
        end_empty_list();
        return ENOMEM;
    }
    node->is_live = true;
    table.listed.push_back(node);
    ++table.num_elements;
    return 0;
}

uint32_t ReferenceModel::change(ModelNode &node, const app_node &content)
{
    node.content = content;
    return program(node);
}

uint32_t ReferenceModel::remove(ModelEntry &entry, const ModelRequest &request)
{
    if (const uint32_t rc = change(*request.node, request.content); rc != 0)
        return rc;
    ModelTable &table = entry.tables[request.content.table_type];
    call(Service::list_remove_default);
    std::erase(table.listed, request.node);
    std::erase(table.lost, request.node);
    forget(table, *request.node);
    return 0;
}

// The node's memory goes, and with the last node the list.
void ReferenceModel::forget(ModelTable &table, ModelNode &node)
{
    node.is_live = false;
    release();
    if (--table.num_elements == 0)
        call(Service::list_destroy);
}

uint32_t ReferenceModel::clear(uint16_t key)
{
    const auto found = entries.find(key);
    if (found == entries.end())
        return 0;
    for (ModelTable &table : found->second.tables) {
        if (table.num_elements == 0)
            continue;
        if (const uint32_t rc = clear_table(table); rc != 0)
            return rc;
    }
    drop_entry(key);
    return 0;
}

uint32_t ReferenceModel::clear_table(ModelTable &table)
{
    // A dequeue that fails says that the list is empty.
    while (!call(Service::list_dequeue_default) && !table.listed.empty()) {
        const NodePointer node = table.listed.front();
        table.listed.pop_front();
        node->content.action = SHADOW_DB_DELETE;
        if (const uint32_t rc = program(*node); rc != 0) {
            table.lost.push_back(node);
            return rc;
        }
        call(Service::list_remove_default); // finds that it is off the list
        forget(table, *node);
    }
    return 0;
}

NodePointer ReferenceModel::stored(uint16_t key, uint32_t entry_id) const
{
    const auto entry = entries.find(key);
    if (entry == entries.end())
        return nullptr;
    for (const ModelTable &table : entry->second.tables) {
        for (const NodePointer &node : table.listed) {
            if (node->content.entry_id == entry_id)
                return node;
        }
    }
    return nullptr;
}

} // namespace test
