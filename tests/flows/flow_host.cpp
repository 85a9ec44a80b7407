#include "flow_host.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "platform_flow.h"
#include "platform_shared_window.h"

namespace test {
namespace {

constexpr char state_directory[] = "/tmp/card";
constexpr uint32_t first_table_id = 0x7100;
constexpr uint64_t handle = 0x5000;
constexpr uint64_t client = 0x6000;

// A wrong argument ends the driver at once: what follows would only confuse.
void expect(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "wrong argument of a platform call: %s\n", what);
    abort();
}

struct KnownService {
    std::string_view name;
    FlowEvent::Kind kind;
};
constexpr KnownService known_services[] = {
    {"prm_srh_flow_db_add", FlowEvent::add_row},
    {"prm_srh_flow_db_mod", FlowEvent::modify_row},
    {"prm_srh_flow_db_del", FlowEvent::delete_row},
    {"plm_dpss_get_stats_tbl_id", FlowEvent::find_table},
    {"prm_stats_cl_alloc", FlowEvent::take_run},
    {"prm_stats_cl_get_phy_stats_ptr", FlowEvent::find_address},
    {"prm_stats_cl_free", FlowEvent::give_back},
    {"prm_stats_cl_read", FlowEvent::read_counter},
    {"shmwin_malloc", FlowEvent::allocate},
    {"shmwin_free", FlowEvent::release},
    {"dpss_flow_encoder_userdata", FlowEvent::encode_user_data},
    {"dpss_flow_encoder_key", FlowEvent::encode_key},
    {"dpss_flow_encoder_result", FlowEvent::encode_result},
    {"dpss_flow_is_policer_enabled", FlowEvent::ask_policer},
    {"dpss_fill_flow_info_from_db", FlowEvent::fill_info},
    {"dpss_flow_scan_callback", FlowEvent::scan}};

// The walker's pause is the process's: the next call for any table visits it.
void end_pause_of_walker()
{
    static uint32_t visits;
    struct OneBucket {
        in_hash_table table;
        void *head;
    } one = {};
    void *entry[1] = {};
    visits = 0;
    in_hash_init(
        1, &one.table, [](const void *) { return 0; }, nullptr);
    in_hash_set_scan_callback(
        &one.table, [](void **, uint32_t) { ++visits; }, 1, 1);
    in_hash_insert(&one.table, entry);
    while (visits == 0)
        in_hash_periodic_walker(&one.table);
}

} // namespace

FlowHost::FlowHost(uint16_t nps, uint32_t buckets, uint64_t window_bytes)
{
    current_ = this;
    buckets_ = buckets;
    vlc::CardClock::set_mode(vlc::ClockMode::stepped);
    std::filesystem::remove_all(state_directory);
    vlc::CardConfig config;
    config.num_nps = nps;
    config.service_config_capacity = 256;
    config.ext_conf_capacity = 256;
    config.window_bytes = window_bytes;
    card_ = std::make_unique<vlc::VirtualLineCard>(config, state_directory);
    void *block = nullptr;
    if (shmwin_malloc(card_->window_id(), sizeof(shadow_db), &block) != 0)
        abort();
    root_ = static_cast<shadow_db *>(memset(block, 0, sizeof(shadow_db)));
    root_->prm_srh_hdl = reinterpret_cast<void *>(handle);
    context_.shadow_db = root_;
    context_.shmwin_id = card_->window_id();
    context_.prm_conn = reinterpret_cast<void *>(client);
    context_.num_nps = nps;
    if (inline_svc_set_global_cntx(&context_) != 0)
        abort();
    root_->flow_db = flowdb_init(buckets, bucket_of, match);
    if (root_->flow_db == nullptr)
        abort();
    tap_ = std::make_unique<vlc::AddedServiceTap>(
        [this](const vlc::ServiceCall &call) { return answer(call); });
    start();
    end_pause_of_walker();
}

FlowHost::~FlowHost()
{
    tap_.reset();
    pgbl_ptr = nullptr;
    pshadow_db = nullptr;
    card_.reset();
    std::filesystem::remove_all(state_directory);
    current_ = nullptr;
}

void FlowHost::start()
{
    in_hash_init(buckets_, table(), bucket_of, match);
    dpss_flow_table_init(0, 0, 0, 0);
}

int32_t FlowHost::bucket_of(const void *record)
{
    return static_cast<int32_t>(static_cast<const flow_record *>(record)->flow_key % buckets_);
}

int32_t FlowHost::match(const void *entry, const void *key_record)
{
    return static_cast<const flow_record *>(entry)->flow_key ==
                   static_cast<const flow_record *>(key_record)->flow_key
               ? 1
               : 0;
}

uint32_t FlowHost::keep_read(void **records, uint32_t count, uint32_t last)
{
    current_->keep_records(FlowEvent::read_all, records, count, last);
    return ++current_->reads_;
}

void FlowHost::keep_records(FlowEvent::Kind kind, void **records, uint32_t count, uint32_t last)
{
    records_seen_ += count;
    if (!keeps_book_)
        return;
    std::string keys;
    for (uint32_t i = 0; i < count; ++i) {
        const uint64_t key = static_cast<const flow_record *>(records[i])->flow_key;
        keys.append(reinterpret_cast<const char *>(&key), sizeof key);
    }
    note({kind, 0, last, std::move(keys)});
}

std::optional<uint64_t> FlowHost::answer(const vlc::ServiceCall &call)
{
    const std::string_view name = call.service;
    if (name == "_ltrace") // every line: the card's ring of them is not wanted
        return 0;
    const auto *known =
        std::find_if(std::begin(known_services), std::end(known_services),
                     [name](const KnownService &service) { return service.name == name; });
    if (known == std::end(known_services))
        return std::nullopt;
    const auto first = static_cast<uint32_t>(call.args[0]);
    switch (known->kind) {
    case FlowEvent::add_row:
    case FlowEvent::modify_row:
    case FlowEvent::delete_row:
        return request(known->kind, call);
    case FlowEvent::find_table:
        note({FlowEvent::find_table, first, 0, ""});
        table_ids_.at(first) = first_table_id + first;
        return fails(failures_.without_table, first)
                   ? 0
                   : reinterpret_cast<uint64_t>(&table_ids_.at(first));
    case FlowEvent::take_run:
        return take(call);
    case FlowEvent::find_address:
        note({FlowEvent::find_address, 0, first, ""});
        return FlowHardware::address_of(first);
    case FlowEvent::give_back: {
        const auto np = static_cast<uint32_t>(call.args[1]) - first_table_id;
        const auto counter = static_cast<uint32_t>(call.args[2]);
        expect(call.args[0] == client, "client of a give-back");
        note({FlowEvent::give_back, np, counter, ""});
        return fails(failures_.keeping, np) ? FlowFailures::give_back_code
                                            : hardware_.give_back(np, counter);
    }
    case FlowEvent::read_counter:
        return read(call);
    case FlowEvent::allocate:
        note({FlowEvent::allocate, 0, static_cast<uint32_t>(call.args[1]), ""});
        return failures_.window_is_full ? std::optional<uint64_t>(12) : std::nullopt;
    case FlowEvent::release:
        note({FlowEvent::release, 0, 0, ""});
        return std::nullopt;
    case FlowEvent::scan:
        keep_records(FlowEvent::scan, reinterpret_cast<void **>(call.args[0]),
                     static_cast<uint32_t>(call.args[1]), 0);
        return 0;
    case FlowEvent::fill_info: {
        std::string user_data(reinterpret_cast<const char *>(call.args[0]), FLOW_USER_DATA_BYTES);
        memcpy(reinterpret_cast<void *>(call.args[1]), user_data.data(), user_data.size());
        note({FlowEvent::fill_info, 0, static_cast<uint32_t>(call.args[2]), std::move(user_data)});
        return 0;
    }
    default:
        return serve_encoders(known->kind, call);
    }
}

uint64_t FlowHost::serve_encoders(FlowEvent::Kind kind, const vlc::ServiceCall &call)
{
    const auto &info = *reinterpret_cast<const FlowInfo *>(call.args[0]);
    note({kind, 0, 0, ""});
    if (kind == FlowEvent::ask_policer)
        return info.policer;
    const std::string &bytes = kind == FlowEvent::encode_user_data ? info.user_data
                               : kind == FlowEvent::encode_result  ? info.result
                                                                   : info.key;
    memcpy(reinterpret_cast<void *>(call.args[1]), bytes.data(), bytes.size());
    if (kind == FlowEvent::encode_key)
        *reinterpret_cast<uint8_t *>(call.args[2]) = static_cast<uint8_t>(bytes.size());
    return 0;
}

uint64_t FlowHost::request(FlowEvent::Kind kind, const vlc::ServiceCall &call)
{
    expect(call.args[0] == handle, "handle of a request");
    const auto &record = *reinterpret_cast<const prm_config_record *>(call.args[1]);
    const std::string bytes(reinterpret_cast<const char *>(&record), sizeof record);
    note({kind, record.np, 0, bytes});
    if (fails(failures_.refusing, record.np))
        return FlowFailures::request_code;
    if (keeps_book_)
        hardware_.program(kind, record.np, bytes);
    return 0;
}

uint64_t FlowHost::take(const vlc::ServiceCall &call)
{
    const auto np = static_cast<uint32_t>(call.args[1]) - first_table_id;
    const uint32_t length = *reinterpret_cast<const uint32_t *>(call.args[4]);
    expect(call.args[0] == client && call.args[2] == 27 && call.args[3] == 2, "of an allocation");
    note({FlowEvent::take_run, np, length, ""});
    if (fails(failures_.without_counters, np))
        return 28;
    *reinterpret_cast<uint32_t *>(call.args[5]) = hardware_.take(np, length);
    return 0;
}

uint64_t FlowHost::read(const vlc::ServiceCall &call)
{
    const auto counter = static_cast<uint32_t>(call.args[1]);
    const auto np = static_cast<uint32_t>(call.args[2]);
    expect(call.args[0] == client && call.args[6] == 0, "of a read");
    expect(*reinterpret_cast<const uint32_t *>(call.args[3]) == 2, "mode of a read");
    note({FlowEvent::read_counter, np, counter, ""});
    if (fails(failures_.unreadable, np))
        return 5;
    const auto count = FlowHardware::count_of(np, counter);
    memcpy(reinterpret_cast<void *>(call.args[4]), count.data(), sizeof count);
    return 0;
}

} // namespace test
