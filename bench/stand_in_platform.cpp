// Platform services that cost next to nothing, so that what is measured around them is the
// library's own. They do what the library relies on, and nothing fails.
#include "stand_in_platform.h"

#include <cstring>

#include <sys/mman.h>

#include "platform_card.h"
#include "platform_encoders.h"
#include "platform_error_text.h"
#include "platform_flow.h"
#include "platform_list.h"
#include "platform_prm.h"
#include "platform_prm_stats.h"
#include "platform_shared_window.h"

// ---- the window: blocks lie as on the card, those given back are handed out first --------------

namespace {

constexpr size_t window_bytes = size_t{1} << 30;
constexpr size_t block_unit = 16;
constexpr size_t kept_sizes = 64;

struct FreeBlock {
    FreeBlock *next;
};

uint8_t *window_begin = nullptr;
size_t window_used = 0;
FreeBlock *free_blocks[kept_sizes] = {};

// The unit in front of a block says how many units it has.
size_t &units_of(void *block)
{
    return *reinterpret_cast<size_t *>(static_cast<uint8_t *>(block) - block_unit);
}

} // namespace

uint32_t shmwin_malloc(uint32_t, int32_t size, void **block)
{
    if (window_begin == nullptr)
        window_begin =
            static_cast<uint8_t *>(mmap(nullptr, window_bytes, PROT_READ | PROT_WRITE,
                                        MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    const size_t units = (static_cast<size_t>(size) + block_unit - 1) / block_unit;
    if (units < kept_sizes && free_blocks[units] != nullptr) {
        *block = free_blocks[units];
        free_blocks[units] = free_blocks[units]->next;
        return 0;
    }
    *block = window_begin + window_used + block_unit;
    window_used += (units + 1) * block_unit;
    units_of(*block) = units;
    return 0;
}

uint32_t shmwin_free(void *block)
{
    const size_t units = units_of(block);
    if (units < kept_sizes) {
        auto *freed = static_cast<FreeBlock *>(block);
        freed->next = free_blocks[units];
        free_blocks[units] = freed;
    }
    return 0;
}

uint32_t shmwin_reset(uint32_t)
{
    window_used = 0;
    std::memset(free_blocks, 0, sizeof free_blocks);
    return 0;
}

// ---- lists -------------------------------------------------------------------------------------

namespace {

void take_out(list_record &list, list_link &link)
{
    (link.prev != nullptr ? link.prev->next : list.first) = link.next;
    (link.next != nullptr ? link.next->prev : list.last) = link.prev;
    --list.count;
    link = {};
}

} // namespace

void *list_create(list_record *list, uint64_t, uint64_t, uint64_t)
{
    *list = {};
    return list;
}

uint32_t list_enqueue_default(list_record *list, void *element, void *data)
{
    auto *link = static_cast<list_link *>(element);
    *link = {nullptr, list->last, data, list};
    (list->last != nullptr ? list->last->next : list->first) = link;
    list->last = link;
    ++list->count;
    return LIST_OK;
}

uint32_t list_remove_default(list_record *list, void *element, void *)
{
    take_out(*list, *static_cast<list_link *>(element));
    return LIST_OK;
}

void *list_dequeue_default(list_record *list)
{
    list_link *first = list->first;
    if (first == nullptr)
        return nullptr;
    void *data = first->data;
    take_out(*list, *first);
    return data;
}

uint32_t list_destroy(list_record *list)
{
    *list = {};
    return LIST_OK;
}

// ---- PRM ---------------------------------------------------------------------------------------

#define STAND_IN_REQUEST(name)                                                                     \
    uint32_t name(void *, prm_config_record *record)                                               \
    {                                                                                              \
        bench::np_of_last_request = record->np;                                                    \
        return 0;                                                                                  \
    }

volatile uint32_t bench::np_of_last_request = 0;
STAND_IN_REQUEST(prm_srh_service_config_add)
STAND_IN_REQUEST(prm_srh_service_config_mod)
STAND_IN_REQUEST(prm_srh_service_config_del)
STAND_IN_REQUEST(prm_srh_ext_service_db_add)
STAND_IN_REQUEST(prm_srh_ext_service_db_mod)
STAND_IN_REQUEST(prm_srh_ext_service_db_del)
STAND_IN_REQUEST(prm_srh_flow_db_add)
STAND_IN_REQUEST(prm_srh_flow_db_mod)
STAND_IN_REQUEST(prm_srh_flow_db_del)

uint32_t prm_stats_cl_pre_init()
{
    return 0;
}
uint32_t prm_stats_cl_get_stateless_double_start()
{
    return 0xC00000;
}
uint32_t prm_stats_cl_get_stateless_double_size()
{
    return bench::counters_of_an_np;
}
uint32_t bench::counters_of_an_np = 65536;

namespace {

// Each NP has a few counters, which all numbers share.
constexpr uint32_t counters_kept = 64;
struct DoubleCounter {
    uint64_t packets;
    uint64_t bytes;
};
DoubleCounter counted[SHADOW_DB_MAX_NPS][counters_kept] = {};

} // namespace

uint32_t prm_stats_cl_read(void *, uint32_t counter, uint32_t np, uint32_t *,
                           uint64_t double_counter[2], void *, uint32_t option)
{
    DoubleCounter &asked = counted[np][counter % counters_kept];
    if (double_counter != nullptr) {
        double_counter[0] = asked.packets;
        double_counter[1] = asked.bytes;
    }
    if (option == PRM_STATS_READ_AND_CLEAR)
        asked = {};
    return 0;
}

uint32_t prm_stats_cl_alloc(void *, uint32_t, uint32_t, uint32_t, uint32_t *, uint32_t *counter)
{
    *counter = 1;
    return 0;
}
uint32_t prm_stats_cl_free(void *, uint32_t, uint32_t)
{
    return 0;
}
uint32_t prm_stats_cl_get_phy_stats_ptr(uint32_t counter)
{
    return counter;
}
const uint32_t *plm_dpss_get_stats_tbl_id(uint32_t)
{
    static const uint32_t table_id = 1;
    return &table_id;
}

// ---- texts -------------------------------------------------------------------------------------

const char *cerr_strerror(uint32_t)
{
    return "an error";
}
const char *prm_stats_err_string(uint32_t)
{
    return "an error";
}
// ---- the flow service: a flow's info is its key ------------------------------------------------

void *ac_encode_init(uint64_t, uint64_t, uint64_t, uint64_t)
{
    return &free_blocks;
}
void dpss_flow_encoder_key(const void *flow_info, uint8_t *key, uint8_t *key_len)
{
    std::memcpy(key, flow_info, sizeof(uint64_t));
    *key_len = sizeof(uint64_t);
}
void dpss_flow_encoder_result(const void *flow_info, uint8_t *result)
{
    std::memcpy(result, flow_info, sizeof(uint64_t));
}
void dpss_flow_encoder_userdata(const void *flow_info, uint8_t *user_data)
{
    std::memcpy(user_data, flow_info, sizeof(uint64_t));
}
uint32_t dpss_flow_is_policer_enabled(const void *)
{
    return 0;
}
void dpss_flow_scan_callback(void **, uint32_t) {}

// ---- the host ----------------------------------------------------------------------------------

namespace bench {

StandInHost::StandInHost(uint16_t num_nps)
{
    shmwin_reset(0);
    root_ = {};
    context_ = {};
    context_.shadow_db = &root_;
    context_.num_nps = num_nps;
    context_.prm_conn = &root_;
    root_.prm_srh_hdl = &root_;
    inline_svc_set_global_cntx(&context_);
    inline_svc_shadow_db_initialized(0, 0, 0, 0);
    inline_svc_stats_init();
}

} // namespace bench
