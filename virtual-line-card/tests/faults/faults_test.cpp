// A plan at work on a card: what each action does, when each trigger acts, and what is counted.
#include "vlc/faults.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <sys/wait.h>
#include <unistd.h>

#include "platform_card.h"
#include "platform_error_text.h"
#include "platform_list.h"
#include "platform_packet_path.h"
#include "platform_shared_window.h"
#include "test_card.h"
#include "vlc/state_error.h"

using card_test::heard;
using card_test::key_of;
using card_test::make_record;
using vlc::FaultAction;
using vlc::FaultRule;
using vlc::FaultSide;
using vlc::TableKind;

namespace {

constexpr const char *add_service = "prm_srh_service_config_add";

class FaultPlans : public card_test::ClientTest {
protected:
    void play(std::vector<FaultRule> rules, uint64_t seed = 0)
    {
        faults = std::make_unique<vlc::Faults>(vlc::FaultPlan{seed, std::move(rules)});
        faults->attach_host();
        faults->attach_card(prm(), events());
    }
    uint64_t matched(size_t rule = 0) const { return faults->counts()[rule].matched; }
    uint64_t fired(size_t rule = 0) const { return faults->counts()[rule].fired; }

    uint32_t request(uint32_t np, TableKind table, uint32_t operation, const std::string &key)
    {
        auto record = make_record(np, table, operation, key);
        using Service = uint32_t (*)(void *, prm_config_record *);
        constexpr Service services[vlc::table_kinds][3] = {
            {prm_srh_service_config_add, prm_srh_service_config_mod, prm_srh_service_config_del},
            {prm_srh_ext_service_db_add, prm_srh_ext_service_db_mod, prm_srh_ext_service_db_del},
            {prm_srh_flow_db_add, prm_srh_flow_db_mod, prm_srh_flow_db_del}};
        return services[static_cast<size_t>(table)][operation](handle(), &record);
    }
    // All twelve: two NPs, two tables, three operations.
    void request_everything(const std::string &key = "key")
    {
        for (const TableKind table : {TableKind::service_config, TableKind::ext_conf}) {
            for (const uint32_t operation : {PRM_OP_ADD, PRM_OP_MODIFY, PRM_OP_DELETE}) {
                for (const uint32_t np : {0u, 1u})
                    request(np, table, operation, key);
            }
        }
    }
    std::string keys_heard()
    {
        events().run_until_idle();
        std::string keys;
        for (const auto &answer : heard().answers)
            keys += key_of(answer);
        return keys;
    }
    std::vector<uint32_t> statuses_heard()
    {
        events().run_until_idle();
        std::vector<uint32_t> statuses;
        for (const auto &answer : heard().answers)
            statuses.push_back(answer.status);
        return statuses;
    }
    uint32_t allocate()
    {
        void *block = nullptr;
        return shmwin_malloc(card().window_id(), 32, &block);
    }
    // How the n-th of many allocations went, as "1" for each that was refused.
    std::string allocations(int count)
    {
        std::string went;
        for (int i = 0; i < count; i++)
            went += allocate() == ENOMEM ? '1' : '0';
        return went;
    }

    std::unique_ptr<vlc::Faults> faults;
};

// ---- actions of the host's side ----------------------------------------------------------------

TEST_F(FaultPlans, ReturnGivesTheCodeInsteadOfPerformingTheService)
{
    play(
        {{.service = "platform_get_my_card_type", .code = 5}, {.service = add_service, .code = 0}});
    EXPECT_EQ(platform_get_my_card_type(), 5u);
    EXPECT_EQ(add("a"), 0u);
    EXPECT_EQ(keys_heard(), "") << "PRM never heard of it";
    EXPECT_EQ(fired(0), 1u);
    EXPECT_EQ(fired(1), 1u);
}

TEST_F(FaultPlans, ReturnGivesTheNullPointer)
{
    list_record list{};
    play({{.service = "list_create", .code = 0}});
    EXPECT_EQ(list_create(&list, 0, 0, 0), nullptr);
    faults.reset();
    EXPECT_EQ(list_create(&list, 0, 0, 0), &list);
}

TEST_F(FaultPlans, ReturnOnAPatternLeavesServicesAloneThatCannotReturnTheCode)
{
    list_record list{};
    list_link element{};
    play({{.service = "list_*", .code = 0x55}});
    EXPECT_EQ(list_create(&list, 0, 0, 0), &list) << "returns a pointer";
    EXPECT_EQ(list_enqueue_default(&list, &element, nullptr), 0x55u);
    EXPECT_EQ(matched(), 1u);
}

TEST_F(FaultPlans, NoMemoryIsWhatTheWindowReturnsWhenItIsFull)
{
    void *block = nullptr;
    play({{.service = "shmwin_malloc", .action = FaultAction::no_memory}});
    EXPECT_EQ(shmwin_malloc(card().window_id(), 32, &block), uint32_t{ENOMEM});
    EXPECT_EQ(block, nullptr);
}

// ---- actions of the card's side ----------------------------------------------------------------

TEST_F(FaultPlans, AnswerGivesTheStatusAndLeavesTheTable)
{
    play({{.service = add_service, .action = FaultAction::answer, .status = 99}});
    EXPECT_EQ(add("a"), 0u);
    EXPECT_EQ(statuses_heard(), std::vector<uint32_t>{99});
    EXPECT_EQ(card().nps()[0].table(TableKind::service_config).size(), 0u);
}

TEST_F(FaultPlans, TableFullIsWhatAFullTableAnswers)
{
    play({{.service = "prm_srh_*", .action = FaultAction::table_full}});
    request_everything();
    EXPECT_EQ(matched(), 4u) << "requests to add, on two NPs for two tables";
    const auto statuses = statuses_heard();
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), vlc::prm_table_full), 4);
    EXPECT_EQ(std::count(statuses.begin(), statuses.end(), vlc::prm_key_not_found), 8);
}

TEST_F(FaultPlans, LateLetsOthersGoAhead)
{
    play({{.service = add_service, .action = FaultAction::late, .events = 2, .nth = 1}});
    add("a");
    add("b");
    EXPECT_EQ(keys_heard(), "ba");
}

TEST_F(FaultPlans, LoseTwiceAndReorderDoAsTheySay)
{
    play({{.service = add_service, .action = FaultAction::lose, .nth = 1},
          {.service = add_service, .action = FaultAction::twice, .nth = 2},
          {.service = add_service, .action = FaultAction::reorder, .nth = 3}});
    for (const char *key : {"a", "b", "c", "d"})
        add(key);
    EXPECT_EQ(keys_heard(), "bbdc");
    EXPECT_EQ(card().nps()[0].table(TableKind::service_config).size(), 4u);
}

TEST_F(FaultPlans, RestartKeepsTheTablesUnlessToldToLoseThem)
{
    play(
        {{.service = add_service, .action = FaultAction::restart, .nth = 1},
         {.service = add_service, .action = FaultAction::restart, .keep_tables = false, .nth = 2}});
    add("a");
    events().run_until_idle();
    EXPECT_EQ(heard().notifications, (std::vector<std::string>{"2.2", "2.1"}));
    EXPECT_EQ(card().nps()[0].table(TableKind::service_config).size(), 1u);
    add("b");
    EXPECT_EQ(card().nps()[0].table(TableKind::service_config).size(), 0u);
}

TEST_F(FaultPlans, RestartMayKeepPrmDownForSomeEvents)
{
    play({{.service = add_service, .action = FaultAction::restart, .events = 1, .nth = 1}});
    add("a");
    EXPECT_EQ(add("b"), vlc::prm_not_connected);
    events().run_until_idle();
    EXPECT_EQ(add("c"), 0u);
}

TEST_F(FaultPlans, NpResetLosesTheTablesAndSaysSo)
{
    play({{.service = add_service, .action = FaultAction::np_reset}});
    add("a");
    EXPECT_EQ(card().nps()[0].table(TableKind::service_config).size(), 0u);
    events().run_until_idle();
    EXPECT_EQ(heard().notifications, (std::vector<std::string>{"1.2"}));
}

// The child's end; the call is one that a plan may kill.
int end_of_child(const std::function<void()> &call)
{
    const pid_t child = fork();
    if (child == 0) {
        call();
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
}

class FaultKills : public FaultPlans {
protected:
    void expect_an_end_before_the_second_request(FaultSide side)
    {
        play({{.service = add_service, .action = FaultAction::kill, .target = side, .nth = 2}});
        EXPECT_EQ(SIGKILL, end_of_child([this] {
                      add("first");
                      add("second");
                  }));
        // The tables are files, which this process sees too.
        const auto &table = card().nps()[0].table(TableKind::service_config);
        EXPECT_NE(table.find(card_test::bytes_of("first")), nullptr);
        EXPECT_EQ(table.find(card_test::bytes_of("second")), nullptr);
    }
};

TEST_F(FaultKills, OfTheHostEndItsProcessBeforeTheCallIsPerformed)
{
    expect_an_end_before_the_second_request(FaultSide::host);
}

TEST_F(FaultKills, OfTheCardEndItsProcessBeforeTheCallIsPerformed)
{
    expect_an_end_before_the_second_request(FaultSide::card);
}

TEST_F(FaultKills, HappenBehindRulesThatActAtTheSameCall)
{
    play({{.service = "shmwin_malloc", .action = FaultAction::no_memory},
          {.service = "shmwin_malloc",
           .action = FaultAction::kill,
           .target = FaultSide::host,
           .nth = 2}});
    EXPECT_EQ(0, end_of_child([this] { allocate(); }));
    EXPECT_EQ(SIGKILL, end_of_child([this] { allocations(2); }));
}

// ---- what a rule matches -----------------------------------------------------------------------

TEST_F(FaultPlans, ARuleMatchesItsServiceAlone)
{
    play({{.service = "prm_srh_ext_service_db_mod", .action = FaultAction::twice},
          {.service = "prm_srh_ext_service_db_mod", .code = 9}});
    request_everything();
    EXPECT_EQ(matched(1), 2u);
    EXPECT_EQ(matched(0), 0u) << "what the host's side answered does not reach the card";
}

TEST_F(FaultPlans, ARuleIsNarrowedByNpTableAndOperation)
{
    play({{.service = "prm_*", .np = 1, .action = FaultAction::twice},
          {.service = "prm_*", .table = TableKind::ext_conf, .action = FaultAction::twice},
          {.service = "prm_*", .operation = PRM_OP_MODIFY, .action = FaultAction::twice},
          {.service = "prm_*",
           .np = 0,
           .table = TableKind::service_config,
           .operation = PRM_OP_DELETE,
           .action = FaultAction::twice}});
    request_everything();
    EXPECT_EQ(matched(0), 6u);
    EXPECT_EQ(matched(1), 6u);
    EXPECT_EQ(matched(2), 4u);
    EXPECT_EQ(matched(3), 1u);
}

TEST_F(FaultPlans, ARequestForAFlowIsNoneForTheTableWhoseNumberItCarries)
{
    play({{.service = "prm_*", .table = TableKind::flow, .action = FaultAction::twice},
          {.service = "prm_*", .table = TableKind::ext_conf, .action = FaultAction::twice},
          {.service = "prm_srh_flow_db_add", .action = FaultAction::table_full, .nth = 2}});
    EXPECT_EQ(request(1, TableKind::flow, PRM_OP_ADD, "a"), 0u);
    EXPECT_EQ(matched(0), 1u);
    EXPECT_EQ(matched(1), 0u);
    EXPECT_EQ(request(1, TableKind::flow, PRM_OP_ADD, "b"), 0u);
    EXPECT_EQ(card().nps()[1].table(TableKind::flow).size(), 2u) << "the first rule decides";
    EXPECT_EQ(request(1, TableKind::ext_conf, PRM_OP_ADD, "a"), 0u);
    EXPECT_EQ(matched(1), 1u);
}

TEST_F(FaultPlans, AFlowTableCanBeFull)
{
    play({{.service = "prm_srh_flow_db_add", .action = FaultAction::table_full}});
    EXPECT_EQ(request(1, TableKind::flow, PRM_OP_ADD, "a"), 0u);
    events().run_until_idle();
    ASSERT_EQ(card_test::heard().answers.size(), 1u);
    EXPECT_EQ(card_test::heard().answers[0].status, uint32_t{vlc::prm_table_full});
    EXPECT_EQ(card().nps()[1].table(TableKind::flow).size(), 0u);
}

TEST_F(FaultPlans, DynamicCountersCanBeRefusedAndPrmCanRestartBehindThem)
{
    play({{.service = "prm_stats_cl_alloc", .code = 5, .nth = 1},
          {.service = "prm_stats_cl_free", .action = FaultAction::restart, .keep_tables = false}});
    uint32_t one = 1;
    uint32_t counter = 0;
    const uint32_t table = *plm_dpss_get_stats_tbl_id(0);
    EXPECT_EQ(prm_stats_cl_alloc(nullptr, table, 27, 2, &one, &counter), 5u);
    EXPECT_EQ(prm_stats_cl_alloc(nullptr, table, 27, 2, &one, &counter), 0u);
    EXPECT_EQ(request(0, TableKind::flow, PRM_OP_ADD, "a"), 0u);
    EXPECT_EQ(prm_stats_cl_free(nullptr, table, counter), 0u);
    EXPECT_EQ(card().nps()[0].table(TableKind::flow).size(), 0u);
    EXPECT_EQ(card().nps()[0].dynamic_counters().in_use(), 0u);
}

TEST_F(FaultPlans, TheHostsSideIsNarrowedAsTheCards)
{
    play({{.service = "prm_srh_*", .np = 1, .table = TableKind::ext_conf, .code = 7}});
    EXPECT_EQ(request(1, TableKind::ext_conf, PRM_OP_ADD, "a"), 7u);
    EXPECT_EQ(request(0, TableKind::ext_conf, PRM_OP_ADD, "a"), 0u);
    EXPECT_EQ(request(1, TableKind::service_config, PRM_OP_ADD, "a"), 0u);
}

TEST_F(FaultPlans, ARuleIsNarrowedByHowTheKeyBegins)
{
    play({{.service = add_service, .key = {'a', 'b'}, .action = FaultAction::twice},
          {.service = add_service, .key = {'a', 'b', 'c'}, .code = 3}});
    EXPECT_EQ(add("ab"), 0u);
    EXPECT_EQ(add("abd"), 0u);
    EXPECT_EQ(add("abc"), 3u);
    EXPECT_EQ(add("a"), 0u) << "shorter than the prefix";
    EXPECT_EQ(add("xab"), 0u);
    EXPECT_EQ(matched(0), 2u);
    EXPECT_EQ(matched(1), 1u);
}

TEST_F(FaultPlans, AReadOfACounterIsNarrowedByItsNp)
{
    play({{.service = "prm_stats_cl_read", .np = 1, .code = 4}});
    uint32_t mode = PRM_STATS_MODE;
    const auto read = [&mode](uint32_t np) {
        return prm_stats_cl_read(nullptr, vlc::CounterBank::first, np, &mode, nullptr, nullptr,
                                 PRM_STATS_READ);
    };
    EXPECT_EQ(read(0), 0u);
    EXPECT_EQ(read(1), 4u);
}

TEST_F(FaultPlans, ARequestWithoutARecordMatchesNothingNarrow)
{
    play({{.service = add_service, .np = 0, .code = 7},
          {.service = add_service, .key = {0}, .code = 8},
          {.service = add_service, .code = 9, .nth = 2}});
    EXPECT_EQ(prm_srh_service_config_add(handle(), nullptr), vlc::prm_bad_record);
    EXPECT_EQ(matched(0), 0u);
    EXPECT_EQ(matched(1), 0u);
    EXPECT_EQ(matched(2), 1u);
}

TEST_F(FaultPlans, OfRulesThatAreDueTogetherTheFirstDecidesAndTheOthersOnlyMatch)
{
    play({{.service = add_service, .action = FaultAction::answer, .status = 1},
          {.service = add_service, .action = FaultAction::lose},
          {.service = "shmwin_malloc", .code = 28},
          {.service = "shmwin_malloc", .action = FaultAction::no_memory}});
    add("a");
    EXPECT_EQ(statuses_heard(), std::vector<uint32_t>{1});
    EXPECT_EQ(allocate(), 28u);
    for (const size_t rule : {0u, 2u}) {
        EXPECT_EQ(fired(rule), 1u);
        EXPECT_EQ(matched(rule + 1), 1u);
        EXPECT_EQ(fired(rule + 1), 0u);
    }
}

TEST_F(FaultPlans, AnAnswerAndARestartMayBeOfOneRequest)
{
    play({{.service = add_service, .action = FaultAction::twice},
          {.service = add_service, .action = FaultAction::restart},
          {.service = add_service, .action = FaultAction::np_reset}});
    add("a");
    EXPECT_EQ(keys_heard(), "aa");
    EXPECT_EQ(heard().notifications, (std::vector<std::string>{"2.2", "2.1"}));
    EXPECT_EQ(fired(0), 1u);
    EXPECT_EQ(fired(1), 1u);
    EXPECT_EQ(fired(2), 0u) << "the restart decided already";
}

// ---- triggers ----------------------------------------------------------------------------------

class FaultTriggers : public FaultPlans {
protected:
    std::string went(FaultRule rule, int count = 10, uint64_t seed = 0)
    {
        rule.service = "shmwin_malloc";
        rule.action = FaultAction::no_memory;
        play({rule}, seed);
        std::string all = allocations(count);
        EXPECT_EQ(matched(), static_cast<uint64_t>(count));
        EXPECT_EQ(fired(), static_cast<uint64_t>(std::count(all.begin(), all.end(), '1')));
        return all;
    }
};

TEST_F(FaultTriggers, WithoutOneEachMatchActs)
{
    EXPECT_EQ(went({}), "1111111111");
}

TEST_F(FaultTriggers, TheNthMatchActsOnce)
{
    EXPECT_EQ(went({.nth = 1}), "1000000000");
    EXPECT_EQ(went({.nth = 4}), "0001000000");
    EXPECT_EQ(went({.nth = 11}), "0000000000");
}

TEST_F(FaultTriggers, FromTheNthOnEachMatchActs)
{
    EXPECT_EQ(went({.from = 4}), "0001111111");
}

TEST_F(FaultTriggers, EveryKthMatchActs)
{
    EXPECT_EQ(went({.every = 1}), "1111111111");
    EXPECT_EQ(went({.every = 3}), "0010010010");
}

TEST_F(FaultTriggers, ALimitEndsThem)
{
    EXPECT_EQ(went({.limit = 2}), "1100000000");
    EXPECT_EQ(went({.from = 4, .limit = 2}), "0001100000");
    EXPECT_EQ(went({.every = 3, .limit = 2}), "0010010000");
}

TEST_F(FaultTriggers, AProbabilityActsAboutAsOftenAsItSays)
{
    const std::string all = went({.probability = 0.25}, 4000, 1);
    const auto acted = std::count(all.begin(), all.end(), '1');
    EXPECT_GT(acted, 900);
    EXPECT_LT(acted, 1100);
    EXPECT_EQ(went({.probability = 1.0}), "1111111111");
    EXPECT_EQ(went({.probability = 1e-300}), "0000000000");
}

TEST_F(FaultTriggers, AProbabilityIsDrawnTheSameOnEveryMachine)
{
    EXPECT_EQ(went({.probability = 0.5}, 40, 7), "1100100011111001110000110010000000110100");
}

TEST_F(FaultTriggers, TheSameSeedActsAtTheSameMatchesAndAnotherAtOthers)
{
    const std::string first = went({.probability = 0.5}, 64, 7);
    EXPECT_EQ(went({.probability = 0.5}, 64, 7), first);
    EXPECT_NE(went({.probability = 0.5}, 64, 8), first);
    EXPECT_NE(went({.probability = 0.5}, 64, 7 + (uint64_t{1} << 32)), first);
}

TEST_F(FaultTriggers, EachRuleDrawsForItself)
{
    const FaultRule half{
        .service = "shmwin_malloc", .action = FaultAction::no_memory, .probability = 0.5};
    const std::string alone = went(half, 64, 7);
    // The one in front acts on other services, and takes none of the draws.
    play({{.service = "shmwin_free", .code = 1, .probability = 0.5}, half}, 7);
    std::string second;
    for (int i = 0; i < 64; i++) {
        shmwin_free(nullptr);
        second += allocate() == ENOMEM ? '1' : '0';
    }
    EXPECT_NE(second, alone) << "the rule's number is part of its seed";
    play({{.service = "platform_get_my_card_type", .code = 1}, half}, 7);
    EXPECT_EQ(allocations(64), second);
}

// ---- how long, and what is refused -------------------------------------------------------------

TEST_F(FaultPlans, FaultsEndWithThePlanAndHeldAnswersAreStillGiven)
{
    play({{.service = add_service, .action = FaultAction::late, .events = 3},
          {.service = "shmwin_malloc", .action = FaultAction::no_memory}});
    add("a");
    EXPECT_EQ(allocate(), uint32_t{ENOMEM});
    faults.reset();
    EXPECT_EQ(allocate(), 0u);
    add("b");
    EXPECT_EQ(keys_heard(), "ba");
}

TEST_F(FaultPlans, APlanMayOutliveItsCard)
{
    play({{.service = add_service, .action = FaultAction::late, .events = 3}});
    add("a");
    restart_process();
    EXPECT_EQ(fired(), 1u);
    faults.reset();
}

TEST_F(FaultPlans, OnlyTheAttachedSideActs)
{
    const vlc::FaultPlan plan{0,
                              {{.service = add_service, .code = 5, .nth = 1},
                               {.service = add_service, .action = FaultAction::lose}}};
    vlc::Faults host(plan);
    host.attach_host();
    EXPECT_EQ(add("a"), 5u);
    EXPECT_EQ(add("b"), 0u);
    EXPECT_EQ(keys_heard(), "b");
    EXPECT_EQ(host.counts()[1].matched, 0u);
    vlc::Faults card(plan);
    card.attach_card(prm(), events());
    EXPECT_EQ(add("c"), 0u);
    EXPECT_EQ(keys_heard(), "b");
    EXPECT_EQ(card.counts()[0].matched, 0u);
    EXPECT_EQ(card.counts()[1].fired, 1u);
}

TEST_F(FaultPlans, APlanAndARecorderAreOnTogether)
{
    size_t recorded = 0;
    const vlc::AddedServiceTap recorder([&recorded](const vlc::ServiceCall &) {
        recorded++;
        return std::nullopt;
    });
    play({{.service = "shmwin_malloc", .action = FaultAction::no_memory, .every = 2}});
    EXPECT_EQ(allocations(6), "010101");
    EXPECT_EQ(recorded, 6u);
}

TEST_F(FaultPlans, ARuleThatCannotBeIsRefusedByItsNumber)
{
    const auto refusal = [this](FaultRule rule) -> std::string {
        try {
            play({{.service = "shmwin_free", .code = 1}, std::move(rule)});
        } catch (const vlc::StateError &error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(refusal({.service = "shmwin_malloc", .action = FaultAction::lose}),
              "rule 2: 'lose' happens to requests for a table, and 'shmwin_malloc' is none");
    EXPECT_EQ(refusal({.service = "shmwin_free", .code = 1, .nth = 0}),
              "rule 2: 'nth' is 1 or more");
    EXPECT_EQ(refusal({.service = "shmwin_free", .code = 1, .limit = 0}),
              "rule 2: 'limit' is 1 or more");
    EXPECT_EQ(refusal({.service = "shmwin_fre", .code = 1}),
              "rule 2: 'shmwin_fre' is no platform service; the nearest known name is "
              "'shmwin_free'");
}

// ---- frames ------------------------------------------------------------------------------------

class RefusedFrames : public FaultPlans {
protected:
    // The service's code and its retcode.
    std::pair<uint32_t, uint32_t> send()
    {
        void *client = nullptr;
        EXPECT_EQ(spp_client_init_v2(&client, {}), 0u);
        gather_piece piece = {"a frame", 7};
        uint32_t retcode = 0xEEEE;
        const uint32_t code = spp_prep_bfd_pkt_and_xmt(client, 16, &piece, 1, SPP_SEND_WORD_1,
                                                       &retcode, SPP_SEND_WORD_2);
        return {code, retcode};
    }
    bool has_left() const { return std::filesystem::exists(card_directory() / "cpu-port16.pcap"); }
    using Outcome = std::pair<uint32_t, uint32_t>;
};

constexpr const char *send_service = "spp_prep_bfd_pkt_and_xmt";

TEST_F(RefusedFrames, ARefusedFrameHasTheRetcodeOfTheRuleAndDoesNotLeave)
{
    play({{.service = send_service, .action = FaultAction::refuse, .retcode = 12}});
    EXPECT_EQ(send(), (Outcome{0, 12}));
    EXPECT_FALSE(has_left());
    EXPECT_EQ(fired(), 1u);
}

TEST_F(RefusedFrames, TheRuleMayGiveTheServicesCodeBeside)
{
    play({{.service = send_service,
           .action = FaultAction::refuse,
           .code = 5,
           .retcode = 0xFFFFFFFF,
           .nth = 2}});
    EXPECT_EQ(send(), (Outcome{0, 0}));
    EXPECT_EQ(send(), (Outcome{5, 0xFFFFFFFF}));
    EXPECT_EQ(send(), (Outcome{0, 0}));
}

TEST_F(RefusedFrames, AnNpsPortCanBeTakenAwayByItsNumber)
{
    play({{.service = "plm_np_to_cpu_port_map", .np = 1, .code = PLM_NO_CPU_PORT}});
    EXPECT_EQ(plm_np_to_cpu_port_map(0), 16u);
    EXPECT_EQ(plm_np_to_cpu_port_map(1), PLM_NO_CPU_PORT);
}

} // namespace
