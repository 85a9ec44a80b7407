#include "card_fixture.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "platform_shared_window.h"

namespace test {
namespace {

constexpr char state_directory[] = "/tmp/card";

vlc::CardConfig small_card(uint16_t num_nps)
{
    vlc::CardConfig config;
    config.num_nps = num_nps;
    config.service_config_capacity = 256;
    config.ext_conf_capacity = 256;
    config.window_bytes = uint64_t{4} << 20;
    return config;
}

} // namespace

CardTest::CardTest(uint16_t num_nps) : config(small_card(num_nps))
{
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    std::filesystem::remove_all(state_directory);
    card = std::make_unique<vlc::VirtualLineCard>(config, state_directory);
}

CardTest::~CardTest()
{
    pgbl_ptr = nullptr;
    pshadow_db = nullptr;
    card.reset();
    std::filesystem::remove_all(state_directory);
}

void CardTest::restart_card(vlc::CardConfig new_config)
{
    card.reset();
    std::filesystem::remove_all(state_directory);
    config = new_config;
    card = std::make_unique<vlc::VirtualLineCard>(config, state_directory);
}

void CardTest::attach_context()
{
    void *block = nullptr;
    ASSERT_EQ(shmwin_malloc(card->window_id(), sizeof(shadow_db), &block), 0u);
    memset(block, 0, sizeof(shadow_db));
    card->window().set_root(block);
    root = static_cast<shadow_db *>(block);
    context = {};
    context.inline_evm = card->events().handle();
    context.shadow_db = root;
    context.shmwin_id = card->window_id();
    context.num_nps = config.num_nps;
}

void CardTest::set_context()
{
    ASSERT_EQ(inline_svc_set_global_cntx(&context), 0u);
}

void CardTest::initialize_shadow_db()
{
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    root->initialized = 1;
}

void CardTest::connect()
{
    ASSERT_EQ(inline_svc_prm_init(), 0u);
    run_events();
    ASSERT_NE(root->conn_state & SHADOW_DB_READY, 0);
    root->stats_state = 1;
}

void CardTest::bring_up()
{
    attach_context();
    set_context();
    initialize_shadow_db();
    connect();
    services.forget();
    forget_log();
}

size_t CardTest::log_count(const std::string &message) const
{
    const std::vector<std::string> messages = log();
    return static_cast<size_t>(std::count(messages.begin(), messages.end(), message));
}

app_node make_node(uint32_t entry_id, uint32_t table, const std::string &key,
                   const std::string &result, uint32_t action, uint32_t hw_index)
{
    app_node node = {};
    memcpy(node.key, key.data(), std::min(key.size(), sizeof node.key));
    node.key_len = static_cast<uint32_t>(key.size());
    memcpy(node.result, result.data(), std::min(result.size(), sizeof node.result));
    node.result_len = static_cast<uint32_t>(result.size());
    node.hw_index = hw_index;
    node.entry_id = entry_id;
    node.table_type = table;
    node.action = action;
    return node;
}

Batch::Batch(uint16_t key, uint32_t app_param)
{
    batch_.uidb_index = key;
    batch_.app_ID = key;
    batch_.app_param = app_param;
    batch_.action = 0;
    list_create(&batch_.node_list, 0, 0, 0);
}

Batch::~Batch()
{
    while (void *element = list_dequeue_default(&batch_.node_list))
        free(element);
}

Batch &Batch::add(const app_node &node)
{
    app_node_element element = {};
    element.app_node = node;
    EXPECT_EQ(inline_svc_app_node_insert(&batch_.node_list, element), 0u);
    ++batch_.num_node;
    return *this;
}

Batch &Batch::create(uint32_t entry_id, uint32_t table, const std::string &key,
                     const std::string &result, uint32_t hw_index)
{
    return add(make_node(entry_id, table, key, result, SHADOW_DB_CREATE, hw_index));
}

Batch &Batch::modify(shmem_node *node, const std::string &result)
{
    app_node changed = node->app_node;
    memset(changed.result, 0, sizeof changed.result);
    memcpy(changed.result, result.data(), std::min(result.size(), sizeof changed.result));
    changed.result_len = static_cast<uint32_t>(result.size());
    changed.action = SHADOW_DB_MODIFY;
    changed.shmem_node = node;
    return add(changed);
}

Batch &Batch::remove(shmem_node *node)
{
    app_node removed = node->app_node;
    removed.action = SHADOW_DB_DELETE;
    removed.shmem_node = node;
    return add(removed);
}

shmem_node *stored_node(uint32_t key, uint32_t entry_id)
{
    const main_entry *main = pshadow_db->main_table[key];
    for (uint32_t table = 0; main != nullptr && table < SHADOW_DB_TABLES; ++table) {
        for (list_link *link = main->table_array[table].first; link != nullptr; link = link->next) {
            auto *node = static_cast<shmem_node *>(link->data);
            if (node->app_node.entry_id == entry_id)
                return node;
        }
    }
    return nullptr;
}

} // namespace test
