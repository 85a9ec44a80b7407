#include "large_state.h"

#include <cstring>
#include <stdexcept>

#include "entry_content.h"
#include "inline_service_shadowdb.h"
#include "lookup_keys.h"
#include "vlc/np_store.h"
#include "vlc/prm_store.h"
#include "vlc/window.h"

namespace test {
namespace {

constexpr uint32_t keys = 100;
constexpr uint32_t bitmap_words = vlc::CounterBank::count / 32 + 1;

vlc::CardConfig config_of(const LargeState &wanted)
{
    vlc::CardConfig config;
    config.num_nps = wanted.nps;
    config.service_config_capacity = wanted.entries;
    config.ext_conf_capacity = wanted.entries;
    config.window_bytes = (uint64_t{wanted.entries} * 320 + (uint64_t{4} << 20)) >> 12 << 12;
    return config;
}

class Writer {
public:
    Writer(const std::filesystem::path &path, const LargeState &wanted)
        : wanted_(wanted), config_(config_of(wanted)), directory_(path, vlc::Access::read_write),
          nps_(directory_, config_), prm_(directory_), window_(directory_, config_.window_bytes)
    {
    }

    void write()
    {
        auto *root = make<shadow_db>();
        root->initialized = 1;
        root->stats_state = 1;
        root->main_table = make<main_entry *>(SHADOW_DB_MAIN_SLOTS);
        for (uint32_t np = 0; np < wanted_.nps; ++np)
            root->counters[np] = make<uint32_t>(bitmap_words);
        for (uint32_t key = 0; key < keys; ++key) {
            root->main_table[key] = make<main_entry>();
            root->main_table[key]->uidb_index = static_cast<uint16_t>(key);
        }
        window_.set_root(root);
        for (uint32_t id = 0; id < wanted_.entries; ++id)
            append(*root, *root->main_table[id % keys], id);
        directory_.complete(config_);
    }

private:
    template <typename Record>
    Record *make(size_t count = 1)
    {
        void *block = nullptr;
        if (window_.allocate(static_cast<int64_t>(count * sizeof(Record)), &block) != 0)
            throw std::runtime_error("the window is too small");
        std::memset(block, 0, count * sizeof(Record));
        return static_cast<Record *>(block);
    }

    void append(shadow_db &root, main_entry &main, uint32_t id)
    {
        const bool counted = id < wanted_.counted;
        const uint32_t table =
            counted && id % 2 != 0 ? SHADOW_DB_EXT_CONF : SHADOW_DB_SERVICE_CONFIG;
        auto *node = make<shmem_node>();
        list_record &list = main.table_array[table];
        node->link = {nullptr, list.last, node, &list};
        (list.last != nullptr ? list.last->next : list.first) = &node->link;
        list.last = &node->link;
        ++list.count;
        ++main.num_elements[table];
        fill(node->app_node, table, id);
        node->app_node.hw_index = counted ? 0 : SHADOW_DB_NO_HW_INDEX;
        node->app_node.shmem_node = node;
        for (uint32_t np = 0; np < wanted_.nps; ++np) {
            if (counted)
                take_counters(root, *node, np, 2 * id);
            add_row(*node, np);
        }
    }

    static void fill(app_node &content, uint32_t table, uint32_t id)
    {
        const auto put = [](const auto &bytes, uint8_t *place, uint32_t &length) {
            std::memcpy(place, bytes.data(), bytes.size());
            length = static_cast<uint32_t>(bytes.size());
        };
        if (table == SHADOW_DB_EXT_CONF)
            put(lookup_keys::address_key(0x0A000000 + id), content.key, content.key_len);
        else
            put(lookup_keys::destination_key(17, 0x0A000000 + id, 53), content.key,
                content.key_len);
        put(lookup_keys::counting_result(id), content.result, content.result_len);
        content.entry_id = id;
        content.table_type = table;
        content.action = SHADOW_DB_CREATE;
    }

    static void take_counters(shadow_db &root, shmem_node &node, uint32_t np, uint32_t place)
    {
        for (const uint32_t one : {place, place + 1})
            root.counters[np][one / 32] |= UINT32_C(0x80000000) >> one % 32;
        node.stat_index_rx[np] = services::exchanged(vlc::CounterBank::first + place);
        node.stat_index_drop[np] = vlc::CounterBank::first + place + 1;
    }

    void add_row(const shmem_node &node, uint32_t np)
    {
        const app_node &content = node.app_node;
        if (np == 1 && wanted_.rowless != 0 && content.entry_id % wanted_.rowless == 0)
            return;
        vlc::NpTable &table = nps_[np].table(static_cast<vlc::TableKind>(content.table_type));
        const services::RowResult result = services::row_result(node, np, false);
        const vlc::Bytes key(content.key, content.key_len);
        if (table.add(key, {result.bytes.data(), result.length}) != vlc::TableOutcome::done)
            throw std::runtime_error("a row was not taken");
        const vlc::TableRow &row = *table.find(key);
        for (uint32_t packet = 0; packet < content.entry_id % 100; ++packet)
            table.count_hit(row, 100);
    }

    LargeState wanted_;
    vlc::CardConfig config_;
    vlc::StateDirectory directory_;
    vlc::NpStore nps_;
    vlc::PrmStore prm_;
    vlc::Window window_;
};

} // namespace

void make_large_state(const std::filesystem::path &directory, const LargeState &wanted)
{
    Writer(directory, wanted).write();
}

} // namespace test
