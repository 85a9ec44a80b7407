// Every service that needs a card, called when none is alive.
#include <gtest/gtest.h>

#include "platform_card.h"
#include "platform_event_debug.h"
#include "platform_flow.h"
#include "platform_interfaces.h"
#include "platform_list.h"
#include "platform_shared_window.h"
#include "test_card.h"

namespace {

void *const some_handle = reinterpret_cast<void *>(uintptr_t{1});

TEST(WithoutACard, NoneIsCurrent)
{
    EXPECT_EQ(nullptr, vlc::VirtualLineCard::current());
}

TEST(WithoutACard, TheCardTypeIsZeroAndStatisticsDoNotStart)
{
    EXPECT_EQ(0u, platform_get_my_card_type());
    EXPECT_NE(0u, plm_dpss_stats_init());
}

TEST(WithoutACard, NoSlotInterfaceOrVrfIsKnown)
{
    uint32_t node = 77;
    EXPECT_NE(0u, plm_slot_to_nodeid(0, &node));
    EXPECT_EQ(77u, node);
    EXPECT_EQ(0u, platform_node_get_card_type(0));
    const uint32_t bind_record[2] = {IMC_BIND_CLIENT, 0};
    void *database = nullptr;
    EXPECT_NE(0u, imc_db_bind(bind_record, IMC_BIND_LENGTH, &database));
    EXPECT_EQ(nullptr, database);
    vrf_record record{};
    EXPECT_NE(0u, ital_shm_lookup_vrf(0, 1, 1, &record));
}

TEST(WithoutACard, TheWindowIsUnknown)
{
    void *block = nullptr;
    EXPECT_NE(0u, shmwin_malloc(1, 100, &block));
    EXPECT_EQ(nullptr, block);
    EXPECT_NE(0u, shmwin_free(&block));
    EXPECT_NE(0u, shmwin_reset(1));
}

TEST(WithoutACard, PrmAnswersWithCodes)
{
    vlc::EventManager events;
    void *out = nullptr;
    prm_async_response answer;
    EXPECT_NE(0u,
              prm_mgr_open(events.handle(), 0, "c", card_test::on_notification, 7, nullptr, &out));
    EXPECT_NE(0u, prm_srh_get_handle("c", &out));
    EXPECT_NE(0u, prm_srh_register(&out, 2, events.handle(), card_test::on_answers));
    EXPECT_NE(0u, prm_srh_reregister(some_handle, events.handle(), card_test::on_answers));
    EXPECT_NE(0u, prm_srh_set_name(some_handle, "c"));
    EXPECT_NE(0u, prm_srh_delay_util_init(some_handle, 1, 0, 50, 30, card_test::on_delayed, 4));
    EXPECT_NE(0u, prm_srh_delay_queue_process(PRM_REFNUM_DELAY_QUEUE));
    EXPECT_NE(0u, prm_srh_async_resp_data(some_handle, &answer));
    EXPECT_EQ(nullptr, out);
    EXPECT_EQ(0u, events.run_until_idle());
}

TEST(WithoutACard, RequestsAreRefused)
{
    auto record = card_test::make_record(0, vlc::TableKind::service_config, PRM_OP_ADD, "key");
    EXPECT_NE(0u, prm_srh_service_config_add(some_handle, &record));
    EXPECT_NE(0u, prm_srh_service_config_mod(some_handle, &record));
    EXPECT_NE(0u, prm_srh_service_config_del(some_handle, &record));
    EXPECT_NE(0u, prm_srh_ext_service_db_add(some_handle, &record));
    EXPECT_NE(0u, prm_srh_ext_service_db_mod(some_handle, &record));
    EXPECT_NE(0u, prm_srh_ext_service_db_del(some_handle, &record));
    EXPECT_NE(0u, prm_srh_flow_db_add(some_handle, &record));
    EXPECT_NE(0u, prm_srh_flow_db_mod(some_handle, &record));
    EXPECT_NE(0u, prm_srh_flow_db_del(some_handle, &record));
}

TEST(WithoutACard, ThereAreNoCounters)
{
    uint32_t mode = PRM_STATS_MODE;
    EXPECT_NE(0u, prm_stats_cl_pre_init());
    EXPECT_EQ(0u, prm_stats_cl_get_stateless_double_start());
    EXPECT_EQ(0u, prm_stats_cl_get_stateless_double_size());
    EXPECT_NE(0u, prm_stats_cl_read(nullptr, 0xC00000, 0, &mode, nullptr, nullptr, 0));
    uint32_t one = 1;
    uint32_t counter = 77;
    EXPECT_EQ(nullptr, plm_dpss_get_stats_tbl_id(0));
    EXPECT_NE(0u, prm_stats_cl_alloc(nullptr, 0x5701, 27, 2, &one, &counter));
    EXPECT_NE(0u, prm_stats_cl_free(nullptr, 0x5701, 0));
    EXPECT_EQ(77u, counter);
    void *record = &one;
    dpss_flow_scan_callback(&record, 1); // goes nowhere
}

TEST(WithoutACard, ListsAndEventDebugWorkAsEver)
{
    list_record list;
    list_link element{};
    EXPECT_NE(nullptr, list_create(&list, 0, 0, 0));
    EXPECT_EQ(uint32_t{LIST_OK}, list_enqueue_default(&list, &element, &element));
    ed_component component{};
    EXPECT_EQ(0u, ed_init(&component, 0, 0, 0, 0));
    EXPECT_NE(nullptr, component.buffer_handles[ED_EVENT_BUFFER]);
}

} // namespace
