#include <cstring>

#include "platform_card.h"
#include "platform_encoders.h"
#include "platform_error_log.h"
#include "platform_error_text.h"
#include "platform_event_debug.h"
#include "platform_interfaces.h"
#include "platform_list.h"
#include "platform_shared_window.h"
#include "test_card.h"
#include "vlc/error_log.h"

namespace {

class ServiceTaps : public card_test::InEachDeployment<card_test::CardTest> {
protected:
    void record() // and let everything happen
    {
        vlc::set_service_tap([this](const vlc::ServiceCall &call) {
            calls.push_back(call);
            return std::nullopt;
        });
    }
    void force(uint64_t result)
    {
        vlc::set_service_tap([this, result](const vlc::ServiceCall &call) {
            calls.push_back(call);
            return std::optional(result);
        });
    }
    std::vector<std::string> names() const
    {
        std::vector<std::string> all;
        for (const auto &call : calls)
            all.emplace_back(call.service);
        return all;
    }
    std::vector<vlc::ServiceCall> calls;
};

// Calls every service once, with null or zero arguments wherever they are pointers.
void call_every_service()
{
    const uint64_t word = 0;
    (void)list_create(nullptr, 0, 0, 0);
    list_enqueue_default(nullptr, nullptr, nullptr);
    list_remove_default(nullptr, nullptr, nullptr);
    (void)list_dequeue_default(nullptr);
    list_destroy(nullptr);
    ed_init(nullptr, 0, 0, 0, 0);
    ed_print_debug(nullptr, nullptr, nullptr, 0, 0, 0, nullptr, 0);
    ed_slow_debugs(nullptr, nullptr, nullptr, nullptr, 0, 0, 0, nullptr, 0);
    _ltrace(nullptr, 0, word);
    shmwin_malloc(1, 0, nullptr);
    shmwin_free(nullptr);
    shmwin_reset(99);
    platform_get_my_card_type();
    platform_node_get_card_type(0);
    plm_slot_to_nodeid(0, nullptr);
    plm_dpss_stats_init();
    imc_db_bind(nullptr, 0, nullptr);
    imc_s_attr_query(nullptr, 0, 0, 0, 0, 0, nullptr);
    imc_gdp_pic_get(nullptr, 0, nullptr, nullptr);
    ital_shm_lookup_vrf(0, 0, 0, nullptr);
    rsi_c_tbl_id_decode2(0, nullptr, nullptr, nullptr);
    (void)ac_encode_init(0, 0, 0, 0);
    appl_construct_config_db_key(0, 0, nullptr, 0);
    appl_construct_sdn_encap_service_config_db_result(nullptr, nullptr, nullptr);
    prm_mgr_open(nullptr, 0, nullptr, nullptr, 0, nullptr, nullptr);
    prm_srh_get_handle(nullptr, nullptr);
    prm_srh_register(nullptr, 0, nullptr, nullptr);
    prm_srh_reregister(nullptr, nullptr, nullptr);
    prm_srh_set_name(nullptr, nullptr);
    prm_srh_delay_util_init(nullptr, 0, 0, 0, 0, nullptr, 0);
    prm_srh_delay_queue_process(0);
    prm_srh_async_resp_data(nullptr, nullptr);
    prm_srh_service_config_add(nullptr, nullptr);
    prm_srh_service_config_mod(nullptr, nullptr);
    prm_srh_service_config_del(nullptr, nullptr);
    prm_srh_ext_service_db_add(nullptr, nullptr);
    prm_srh_ext_service_db_mod(nullptr, nullptr);
    prm_srh_ext_service_db_del(nullptr, nullptr);
    prm_stats_cl_pre_init();
    prm_stats_cl_get_stateless_double_start();
    prm_stats_cl_get_stateless_double_size();
    prm_stats_cl_read(nullptr, 0, 0, nullptr, nullptr, nullptr, 0);
    (void)prm_stats_err_string(0);
    (void)cerr_strerror(0);
    zem_errmsg(nullptr, 0, nullptr);
}

// In the order in which they are called.
const std::vector<std::string> all_services = {
    "list_create",
    "list_enqueue_default",
    "list_remove_default",
    "list_dequeue_default",
    "list_destroy",
    "ed_init",
    "ed_print_debug",
    "ed_slow_debugs",
    "_ltrace",
    "shmwin_malloc",
    "shmwin_free",
    "shmwin_reset",
    "platform_get_my_card_type",
    "platform_node_get_card_type",
    "plm_slot_to_nodeid",
    "plm_dpss_stats_init",
    "imc_db_bind",
    "imc_s_attr_query",
    "imc_gdp_pic_get",
    "ital_shm_lookup_vrf",
    "rsi_c_tbl_id_decode2",
    "ac_encode_init",
    "appl_construct_config_db_key",
    "appl_construct_sdn_encap_service_config_db_result",
    "prm_mgr_open",
    "prm_srh_get_handle",
    "prm_srh_register",
    "prm_srh_reregister",
    "prm_srh_set_name",
    "prm_srh_delay_util_init",
    "prm_srh_delay_queue_process",
    "prm_srh_async_resp_data",
    "prm_srh_service_config_add",
    "prm_srh_service_config_mod",
    "prm_srh_service_config_del",
    "prm_srh_ext_service_db_add",
    "prm_srh_ext_service_db_mod",
    "prm_srh_ext_service_db_del",
    "prm_stats_cl_pre_init",
    "prm_stats_cl_get_stateless_double_start",
    "prm_stats_cl_get_stateless_double_size",
    "prm_stats_cl_read",
    "prm_stats_err_string",
    "cerr_strerror",
    "zem_errmsg",
};

TEST_P(ServiceTaps, SeeEveryServiceUnderItsNameInTheOrderOfTheCalls)
{
    record();
    call_every_service();
    EXPECT_EQ(all_services, names());
}

TEST_P(ServiceTaps, SeeTheArgumentsWidenedAndPointersByAddress)
{
    void *block = nullptr;
    record();
    shmwin_malloc(card().window_id(), -5, &block);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(3u, calls[0].arg_count);
    EXPECT_EQ(card().window_id(), calls[0].args[0]);
    EXPECT_EQ(static_cast<uint64_t>(-5), calls[0].args[1]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&block), calls[0].args[2]);
}

TEST_P(ServiceTaps, SeeAllNineArgumentsOfTheSlowPrint)
{
    ed_debug_point point{};
    ed_component component{};
    uint32_t matched = 0;
    const uint64_t args[1] = {5};
    const char *format = "%d";
    record();
    ed_slow_debugs(&point, &component, &matched, args, 0, 123, 0, format, 0);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(9u, calls[0].arg_count);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(&matched), calls[0].args[2]);
    EXPECT_EQ(123u, calls[0].args[5]);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(format), calls[0].args[7]);
}

TEST_P(ServiceTaps, AnswerInTheServicesPlace)
{
    void *block = nullptr;
    force(12);
    EXPECT_EQ(12u, shmwin_malloc(card().window_id(), 100, &block));
    EXPECT_EQ(nullptr, block);
    EXPECT_EQ(12u, platform_get_my_card_type());
    EXPECT_EQ(1u, calls[0].args[0]);
    vlc::set_service_tap({});
    EXPECT_EQ(0u, shmwin_malloc(card().window_id(), 100, &block));
    EXPECT_NE(nullptr, block);
}

TEST_P(ServiceTaps, AnswerWithAPointerByItsAddress)
{
    const char *text = "forced";
    list_record list{};
    force(reinterpret_cast<uintptr_t>(text));
    EXPECT_EQ(text, cerr_strerror(22));
    EXPECT_EQ(text, prm_stats_err_string(22));
    EXPECT_EQ(text, list_dequeue_default(&list));
}

TEST_P(ServiceTaps, AForcedRequestIsNotPerformed)
{
    auto record = card_test::make_record(0, vlc::TableKind::service_config, PRM_OP_ADD, "key");
    force(0);
    EXPECT_EQ(0u, prm_srh_service_config_add(reinterpret_cast<void *>(uintptr_t{1}), &record));
    EXPECT_EQ(0u, nps()[0].table(vlc::TableKind::service_config).size());
    EXPECT_EQ(0u, prm().totals().requests[0][0]);
}

TEST_P(ServiceTaps, AForcedMessageIsNotWritten)
{
    force(0);
    EXPECT_EQ(0u, zem_errmsg(nullptr, 0, "lost"));
    EXPECT_TRUE(vlc::ErrorLog::instance().messages().empty());
}

TEST_P(ServiceTaps, AreNotAskedAboutTheServicesThatTheyCallThemselves)
{
    vlc::set_service_tap([this](const vlc::ServiceCall &call) {
        calls.push_back(call);
        return std::optional<uint64_t>(platform_get_my_card_type() + 1);
    });
    EXPECT_EQ(card().config().card_type + 1, platform_get_my_card_type());
    EXPECT_EQ(1u, calls.size());
}

TEST_P(ServiceTaps, MayTakeThemselvesOff)
{
    vlc::set_service_tap([this](const vlc::ServiceCall &call) {
        calls.push_back(call);
        vlc::set_service_tap({});
        return std::optional<uint64_t>(5);
    });
    EXPECT_EQ(5u, platform_get_my_card_type());
    EXPECT_EQ(card().config().card_type, platform_get_my_card_type());
    EXPECT_EQ(1u, calls.size());
}

// ---- several taps ------------------------------------------------------------------------------

class ServiceTapList : public card_test::InEachDeployment<card_test::CardTest> {
protected:
    // Writes down that it was asked, and answers with `result`, or not at all for 0.
    vlc::ServiceTap named(char name, uint64_t result = 0)
    {
        return [this, name, result](const vlc::ServiceCall &) -> std::optional<uint64_t> {
            asked += name;
            return result != 0 ? std::optional(result) : std::nullopt;
        };
    }
    uint64_t ask() { return platform_get_my_card_type(); }

    std::string asked;
};

TEST_P(ServiceTapList, IsAskedInTheOrderInWhichTheTapsWerePutOn)
{
    const vlc::AddedServiceTap first(named('1'));
    const vlc::AddedServiceTap second(named('2'));
    const vlc::AddedServiceTap third(named('3'));
    EXPECT_EQ(card().config().card_type, ask());
    EXPECT_EQ("123", asked);
}

TEST_P(ServiceTapList, GivesTheFirstResultAndAsksNoneBehindIt)
{
    const vlc::AddedServiceTap first(named('1'));
    const vlc::AddedServiceTap second(named('2', 22));
    const vlc::AddedServiceTap third(named('3', 33));
    EXPECT_EQ(22u, ask());
    EXPECT_EQ("12", asked);
}

TEST_P(ServiceTapList, ATapIsAskedForAsLongAsItLives)
{
    const vlc::AddedServiceTap stays(named('s'));
    {
        const vlc::AddedServiceTap goes(named('g', 5));
        EXPECT_EQ(5u, ask());
    }
    EXPECT_EQ(card().config().card_type, ask());
    EXPECT_EQ("sgs", asked);
}

TEST_P(ServiceTapList, TheSetTapIsReplacedAndTheOthersStay)
{
    const vlc::AddedServiceTap added(named('a'));
    vlc::set_service_tap(named('1'));
    vlc::set_service_tap(named('2'));
    ask();
    vlc::set_service_tap({});
    ask();
    EXPECT_EQ("a2a", asked);
}

TEST_P(ServiceTapList, ATapThatATapTakesOffIsNotAskedAboutTheSameCall)
{
    std::optional<vlc::AddedServiceTap> second;
    const vlc::AddedServiceTap first([&](const vlc::ServiceCall &) -> std::optional<uint64_t> {
        asked += '1';
        second.reset();
        return std::nullopt;
    });
    second.emplace(named('2'));
    ask();
    EXPECT_EQ("1", asked);
}

TEST_P(ServiceTapList, ATapThatATapPutsOnIsAskedFromTheNextCallOn)
{
    std::optional<vlc::AddedServiceTap> second;
    const vlc::AddedServiceTap first([&](const vlc::ServiceCall &) -> std::optional<uint64_t> {
        asked += '1';
        if (!second) {
            second.emplace(named('2'));
            EXPECT_EQ(card().config().card_type, ask()) << "no tap is asked inside a tap";
        }
        return std::nullopt;
    });
    ask();
    EXPECT_EQ("1", asked);
    ask();
    EXPECT_EQ("112", asked);
}
IN_BOTH_DEPLOYMENTS(ServiceTaps);
IN_BOTH_DEPLOYMENTS(ServiceTapList);

} // namespace
