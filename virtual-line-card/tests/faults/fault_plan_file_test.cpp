// Fault plans as files: what is read, and what is said of a plan that is refused.
#include <gtest/gtest.h>

#include "platform_prm.h"
#include "test_directory.h"
#include "vlc/fault_plan.h"

namespace vlc::test {

namespace {

class FaultPlanFiles : public testing::Test {
protected:
    FaultPlan load(const std::string &content)
    {
        write_file(file, content);
        return load_fault_plan(file);
    }
    // Without the file's name in front.
    std::string told(const std::string &content)
    {
        const std::string all = refusal([&] { load(content); });
        const std::string name = file.string() + ":";
        EXPECT_EQ(all.find(name), 0U) << all;
        EXPECT_EQ(all.find('\n'), std::string::npos) << all;
        return all.size() < name.size() ? all : all.substr(name.size());
    }
    // Of a rule for one service, whose further lines begin at line 3.
    std::string told_of(const std::string &service, const std::string &lines)
    {
        return told("[[rule]]\nservice = '" + service + "'\n" + lines);
    }

    TestDirectory top;
    std::filesystem::path file = top.file("plan.toml");
};

constexpr const char *add = "prm_srh_service_config_add";

} // namespace

// ---- what is read ------------------------------------------------------------------------------

TEST_F(FaultPlanFiles, EveryFieldIsTaken)
{
    const FaultPlan plan = load("seed = 7\n"
                                "[[rule]]\n"
                                "service = 'prm_srh_*'\n"
                                "np = 1\n"
                                "table = 'ext_conf'\n"
                                "operation = 'modify'\n"
                                "key = '11 06 c0 00'\n"
                                "action = 'answer'\n"
                                "status = 0x257C5406\n"
                                "every = 3\n"
                                "limit = 5\n");
    EXPECT_EQ(plan.seed, 7U);
    EXPECT_EQ(plan.file, file.string());
    ASSERT_EQ(plan.rules.size(), 1U);
    const FaultRule &rule = plan.rules[0];
    EXPECT_EQ(rule.service, "prm_srh_*");
    EXPECT_EQ(rule.np, 1U);
    EXPECT_EQ(rule.table, TableKind::ext_conf);
    EXPECT_EQ(rule.operation, uint32_t{PRM_OP_MODIFY});
    EXPECT_EQ(rule.key, (std::vector<uint8_t>{0x11, 0x06, 0xC0, 0x00}));
    EXPECT_EQ(rule.action, FaultAction::answer);
    EXPECT_EQ(rule.status, 0x257C5406U);
    EXPECT_EQ(rule.every, 3U);
    EXPECT_EQ(rule.limit, 5U);
    EXPECT_FALSE(rule.nth || rule.from || rule.probability || rule.code || rule.target);
    EXPECT_EQ(rule.line, 2U);
    EXPECT_EQ(rule.column, 1U);
}

TEST_F(FaultPlanFiles, EveryActionHasItsWordAndItsFields)
{
    const struct {
        const char *service;
        const char *lines;
        FaultAction action;
        const char *text;
        FaultSide side;
    } rows[] = {
        {"shmwin_free", "action = 'return'\ncode = 22", FaultAction::give_code, "return 22",
         FaultSide::host},
        {"prm_mgr_open", "action = 'return'\ncode = 0x257C5403", FaultAction::give_code,
         "return 0x257C5403", FaultSide::host},
        {"list_create", "action = 'return'\ncode = 0", FaultAction::give_code, "return 0",
         FaultSide::host},
        {"shmwin_malloc", "action = 'no-memory'", FaultAction::no_memory, "no-memory",
         FaultSide::host},
        {"spp_prep_bfd_pkt_and_xmt", "action = 'refuse'\nretcode = 12", FaultAction::refuse,
         "refuse retcode 12", FaultSide::host},
        {"spp_prep_bfd_pkt_and_xmt", "action = 'refuse'\ncode = 5\nretcode = 0xFFFFFFFF",
         FaultAction::refuse, "refuse 5 retcode 0xFFFFFFFF", FaultSide::host},
        {"_ltrace", "action = 'kill'\ntarget = 'host'", FaultAction::kill, "kill host",
         FaultSide::host},
        {add, "action = 'kill'\ntarget = 'card'", FaultAction::kill, "kill card", FaultSide::card},
        {add, "action = 'answer'\nstatus = 0", FaultAction::answer, "answer 0", FaultSide::card},
        {add, "action = 'late'\nevents = 3", FaultAction::late, "late by 3", FaultSide::card},
        {add, "action = 'lose'", FaultAction::lose, "lose", FaultSide::card},
        {add, "action = 'twice'", FaultAction::twice, "twice", FaultSide::card},
        {add, "action = 'reorder'", FaultAction::reorder, "reorder", FaultSide::card},
        {add, "action = 'table-full'", FaultAction::table_full, "table-full", FaultSide::card},
        {"prm_stats_cl_read", "action = 'restart'", FaultAction::restart, "restart",
         FaultSide::card},
        {add, "action = 'restart'\ntables = 'lost'\nevents = 4", FaultAction::restart,
         "restart, tables lost, down for 4", FaultSide::card},
        {"prm_srh_register", "action = 'restart'\ntables = 'kept'", FaultAction::restart,
         "restart, tables kept", FaultSide::card},
        {"prm_srh_async_resp_data", "action = 'np-reset'", FaultAction::np_reset, "np-reset",
         FaultSide::card},
    };
    for (const auto &row : rows) {
        const FaultPlan plan =
            load(std::string("[[rule]]\nservice = '") + row.service + "'\n" + row.lines);
        EXPECT_EQ(plan.rules.at(0).action, row.action) << row.lines;
        EXPECT_EQ(action_text(plan.rules.at(0)), row.text);
        EXPECT_EQ(side_of(plan.rules.at(0)), row.side) << row.text;
    }
}

TEST_F(FaultPlanFiles, EveryTriggerHasItsText)
{
    const std::pair<const char *, const char *> rows[] = {
        {"", "each match"},
        {"limit = 2", "each match, at most 2"},
        {"nth = 3", "match 3"},
        {"from = 3", "from match 3"},
        {"every = 3\nlimit = 9", "every 3 matches, at most 9"},
        {"probability = 0.01", "probability 0.01"},
        {"probability = 1", "probability 1"},
    };
    for (const auto &[lines, text] : rows) {
        const FaultPlan plan = load(
            std::string("[[rule]]\nservice = 'shmwin_malloc'\naction = 'no-memory'\n") + lines);
        EXPECT_EQ(trigger_text(plan.rules.at(0)), text);
    }
}

TEST_F(FaultPlanFiles, ARuleIsShownWithWhatNarrowsIt)
{
    const FaultPlan plan = load("[[rule]]\nservice = '*'\nnp = 1\ntable = 'service_config'\n"
                                "operation = 'add'\nkey = '1106C0'\naction = 'lose'");
    EXPECT_EQ(service_text(plan.rules[0]), "* np 1 table service_config operation add key 1106c0");
    EXPECT_EQ(place_text(plan, 0), file.string() + ":1:1");
}

TEST_F(FaultPlanFiles, RulesAreInTheOrderOfTheFile)
{
    const FaultPlan plan = load("[[rule]]\nservice='shmwin_free'\naction='return'\ncode=1\n"
                                "\n[[rule]]\nservice='shmwin_reset'\naction='return'\ncode=2\n");
    ASSERT_EQ(plan.rules.size(), 2U);
    EXPECT_EQ(plan.rules[0].service, "shmwin_free");
    EXPECT_EQ(plan.rules[1].service, "shmwin_reset");
    EXPECT_EQ(plan.rules[1].line, 6U);
}

// ---- what is refused ---------------------------------------------------------------------------

TEST_F(FaultPlanFiles, AnUnknownServiceIsRefusedWithTheNearestName)
{
    EXPECT_EQ(told_of("prm_srh_service_conf_add", "action = 'lose'"),
              "2:11: 'prm_srh_service_conf_add' is no platform service; the nearest known name is "
              "'prm_srh_service_config_add'");
    EXPECT_EQ(told_of("nothing_of_the_kind_at_all", "action = 'lose'"),
              "2:11: 'nothing_of_the_kind_at_all' is no platform service");
    EXPECT_EQ(told_of("shmwin_maloc*", "action = 'no-memory'"),
              "2:11: no platform service matches 'shmwin_maloc*'; the nearest known name is "
              "'shmwin_malloc'");
    EXPECT_EQ(told_of("", "action = 'lose'").find("2:11: '' is no platform service"), 0U);
}

TEST_F(FaultPlanFiles, AnUnknownFieldIsRefusedWithTheNearestName)
{
    EXPECT_EQ(told_of(add, "action = 'lose'\nprobabilty = 0.5"),
              "4:1: field 'probabilty' is not known; the nearest known name is 'probability'");
    EXPECT_EQ(told("sede = 7\n"), "1:1: 'sede' is not known; the nearest known name is 'seed'");
    EXPECT_EQ(told("[[rules]]\n"), "1:3: 'rules' is not known; the nearest known name is 'rule'");
}

TEST_F(FaultPlanFiles, TheFlowTableHasItsWord)
{
    const FaultPlan plan =
        load("[[rule]]\nservice = 'prm_srh_*_add'\ntable = 'flow'\naction = 'lose'\n");
    EXPECT_EQ(plan.rules.at(0).table, TableKind::flow);
    EXPECT_EQ(service_text(plan.rules[0]), "prm_srh_*_add table flow");
    EXPECT_EQ(told_of("prm_srh_flow_db_add", "table = 'ext_conf'\naction = 'lose'"),
              "3:9: 'prm_srh_flow_db_add' goes to the table 'flow'");
    EXPECT_EQ(told_of("prm_stats_cl_alloc", "np = 1\naction = 'return'\ncode = 1"),
              "3:6: 'prm_stats_cl_alloc' has no NP");
}

TEST_F(FaultPlanFiles, AnUnknownWordIsRefusedWithTheNearestName)
{
    EXPECT_EQ(told_of(add, "action = 'loose'"),
              "3:10: action 'loose' is not known; the nearest known name is 'lose'");
    EXPECT_EQ(told_of(add, "action = 'lose'\ntable = 'ext_config'"),
              "4:9: table 'ext_config' is not known; the nearest known name is 'ext_conf'");
    EXPECT_EQ(told_of(add, "action = 'lose'\noperation = 'del'"),
              "4:13: operation 'del' is not known; the nearest known name is 'delete'");
    EXPECT_EQ(told_of(add, "action = 'restart'\ntables = 'keep'"),
              "4:10: tables 'keep' is not known; the nearest known name is 'kept'");
    EXPECT_EQ(told_of(add, "action = 'kill'\ntarget = 'cart'"),
              "4:10: target 'cart' is not known; the nearest known name is 'card'");
}

TEST_F(FaultPlanFiles, AValueOfAnotherKindOrOutOfRangeIsRefused)
{
    const std::pair<const char *, const char *> rows[] = {
        {"np = 8", "3:6: 'np' is a whole number, 0 to 7"},
        {"np = -1", "3:6: 'np' is a whole number, 0 to 7"},
        {"np = '1'", "3:6: 'np' is a whole number, 0 to 7"},
        {"nth = 0", "3:7: 'nth' is a whole number, 1 or more"},
        {"from = 0", "3:8: 'from' is a whole number, 1 or more"},
        {"every = 0", "3:9: 'every' is a whole number, 1 or more"},
        {"limit = 0", "3:9: 'limit' is a whole number, 1 or more"},
        {"events = 0", "3:10: 'events' is a whole number, 1 to 1000000"},
        {"status = 0x100000000", "3:10: 'status' is a whole number, 0 to 4294967295"},
        {"code = -1", "3:8: 'code' is a whole number, 0 to 4294967295"},
        {"table = 1", "3:9: 'table' is a text"},
        {"key = 'a'", "3:7: 'key' is bytes in hexadecimal, two digits each"},
        {"key = 'a b'", "3:7: 'key' is bytes in hexadecimal, two digits each"},
        {"key = 'xy'", "3:7: 'key' is bytes in hexadecimal, two digits each"},
        {"key = ''", "3:7: 'key' is 1 to 100 bytes"},
        {"probability = 'often'", "3:15: 'probability' is a number above 0 and at most 1"},
    };
    for (const auto &[line, text] : rows)
        EXPECT_EQ(told_of(add, line), text);
    EXPECT_EQ(told("seed = -1"), "1:8: 'seed' is a whole number, 0 or more");
}

TEST_F(FaultPlanFiles, AProbabilityIsAboveZeroAndAtMostOne)
{
    for (const char *value : {"0", "0.0", "-0.5", "1.01", "2", "inf", "nan"})
        EXPECT_EQ(told_of(add, std::string("action = 'lose'\nprobability = ") + value),
                  "4:15: 'probability' is above 0 and at most 1")
            << value;
}

TEST_F(FaultPlanFiles, TwoTriggersDoNotGoTogether)
{
    EXPECT_EQ(told_of(add, "action = 'lose'\nevery = 2\nnth = 3"),
              "4:9: 'nth' and 'every' do not go together");
    EXPECT_EQ(told_of(add, "action = 'lose'\nprobability = 0.5\nfrom = 3"),
              "4:15: 'from' and 'probability' do not go together");
}

TEST_F(FaultPlanFiles, AFieldThatDoesNotGoWithTheServiceIsRefused)
{
    EXPECT_EQ(told_of("list_create", "action = 'return'\ncode = 0\nnp = 1"),
              "5:6: 'list_create' has no NP");
    EXPECT_EQ(told_of("prm_stats_cl_read", "action = 'restart'\nkey = '00'"),
              "4:7: 'prm_stats_cl_read' is no request for a table and has no key");
    EXPECT_EQ(told_of("shmwin_malloc", "table = 'ext_conf'\naction = 'no-memory'"),
              "3:9: 'shmwin_malloc' is no request for a table and has no table");
    EXPECT_EQ(told_of("shmwin_malloc", "operation = 'add'\naction = 'no-memory'"),
              "3:13: 'shmwin_malloc' is no request for a table and has no operation");
    EXPECT_EQ(told_of(add, "table = 'ext_conf'\naction = 'lose'"),
              "3:9: 'prm_srh_service_config_add' goes to the table 'service_config'");
    EXPECT_EQ(told_of(add, "operation = 'delete'\naction = 'lose'"),
              "3:13: 'prm_srh_service_config_add' is the operation 'add'");
}

TEST_F(FaultPlanFiles, AnActionThatDoesNotGoWithTheServiceIsRefused)
{
    EXPECT_EQ(told_of("_ltrace", "action = 'return'\ncode = 1"),
              "3:10: '_ltrace' returns nothing, so it cannot return a code");
    EXPECT_EQ(told_of("list_dequeue_default", "action = 'return'\ncode = 1"),
              "4:8: 'list_dequeue_default' returns a pointer: 'code' is 0, for the null pointer");
    EXPECT_EQ(told_of("shmwin_free", "action = 'no-memory'"),
              "3:10: 'no-memory' happens to 'shmwin_malloc' alone, not to 'shmwin_free'");
    EXPECT_EQ(told_of(add, "action = 'refuse'\nretcode = 12"),
              "3:10: 'refuse' happens to services that send frames, and "
              "'prm_srh_service_config_add' is none");
    for (const char *action :
         {"answer'\nstatus = 1", "late'\nevents = 1", "lose'", "twice'", "reorder'"}) {
        const std::string word = std::string(action).substr(0, std::string(action).find('\''));
        EXPECT_EQ(told_of("prm_srh_register", std::string("action = '") + action),
                  "3:10: '" + word +
                      "' happens to requests for a table, and 'prm_srh_register' is none");
    }
    EXPECT_EQ(told_of("prm_srh_service_config_mod", "action = 'table-full'"),
              "3:10: 'table-full' happens to requests that add, and 'prm_srh_service_config_mod' "
              "is none");
    EXPECT_EQ(told_of("shmwin_malloc", "action = 'restart'"),
              "3:10: 'restart' happens at calls that reach the card, and 'shmwin_malloc' stays in "
              "the host");
    EXPECT_EQ(told_of("shmwin_malloc", "action = 'np-reset'"),
              "3:10: 'np-reset' happens at calls that reach the card, and 'shmwin_malloc' stays in "
              "the host");
    EXPECT_EQ(told_of("shmwin_malloc", "action = 'kill'\ntarget = 'card'"),
              "3:10: 'kill' of the card happens at calls that reach the card, and 'shmwin_malloc' "
              "stays in the host");
}

TEST_F(FaultPlanFiles, APatternIsRefusedWhenTheRuleGoesWithNoneOfItsServices)
{
    EXPECT_EQ(told_of("shmwin_*", "action = 'lose'"),
              "3:10: no service that 'shmwin_*' matches will do: 'lose' happens to requests for a "
              "table, and 'shmwin_free' is none");
    EXPECT_EQ(load("[[rule]]\nservice = 'list_*'\naction = 'return'\ncode = 5").rules.size(), 1U)
        << "some of them return a word";
}

TEST_F(FaultPlanFiles, AFieldThatDoesNotGoWithTheActionIsRefused)
{
    EXPECT_EQ(told_of(add, "action = 'lose'\nstatus = 5"),
              "4:10: 'status' goes with the action 'answer', not with 'lose'");
    EXPECT_EQ(told_of(add, "action = 'lose'\ncode = 5"),
              "4:8: 'code' goes with the action 'return' or 'refuse', not with 'lose'");
    EXPECT_EQ(told_of(add, "action = 'lose'\nretcode = 5"),
              "4:11: 'retcode' goes with the action 'refuse', not with 'lose'");
    EXPECT_EQ(told_of(add, "action = 'lose'\nevents = 5"),
              "4:10: 'events' goes with the action 'late' or 'restart', not with 'lose'");
    EXPECT_EQ(told_of(add, "action = 'lose'\ntables = 'lost'"),
              "4:10: 'tables' goes with the action 'restart', not with 'lose'");
    EXPECT_EQ(told_of(add, "action = 'lose'\ntarget = 'card'"),
              "4:10: 'target' goes with the action 'kill', not with 'lose'");
}

TEST_F(FaultPlanFiles, AMissingFieldIsSaid)
{
    EXPECT_EQ(told_of(add, "action = 'return'"), "3:10: the action 'return' needs 'code'");
    EXPECT_EQ(told_of(add, "action = 'answer'"), "3:10: the action 'answer' needs 'status'");
    EXPECT_EQ(told_of(add, "action = 'late'"), "3:10: the action 'late' needs 'events'");
    EXPECT_EQ(told_of(add, "action = 'kill'"), "3:10: the action 'kill' needs 'target'");
    EXPECT_EQ(told_of("spp_prep_bfd_pkt_and_xmt", "action = 'refuse'"),
              "3:10: the action 'refuse' needs 'retcode'");
    EXPECT_EQ(told_of(add, ""), "1:1: a rule without 'action'");
    EXPECT_EQ(told("\n[[rule]]\naction = 'lose'"), "2:1: a rule without 'service'");
}

TEST_F(FaultPlanFiles, WhatIsNoPlanIsRefused)
{
    EXPECT_EQ(told(""), " no [[rule]] in it");
    EXPECT_EQ(told("seed = 3"), " no [[rule]] in it");
    EXPECT_EQ(told("[rule]\nservice = 'x'"),
              "1:1: 'rule' is a list of tables, each written [[rule]]");
    EXPECT_EQ(told("rule = [1]"), "1:9: 'rule' is a list of tables, each written [[rule]]");
    EXPECT_EQ(told("[[rule]\n").find("1:"), 0U);
    EXPECT_EQ(refusal([&] { load_fault_plan(top.file("none.toml")); }),
              top.file("none.toml").string() + ": cannot be read: No such file or directory");
}

// ---- whose rules they are ----------------------------------------------------------------------

TEST_F(FaultPlanFiles, AHostTakesTheHostsRulesAloneAndACardTheCards)
{
    const FaultPlan host = load("[[rule]]\nservice='shmwin_malloc'\naction='no-memory'\n");
    const FaultPlan card = load("[[rule]]\nservice='prm_srh_register'\naction='restart'\n");
    EXPECT_NO_THROW(require_side(host, FaultSide::host));
    EXPECT_NO_THROW(require_side(card, FaultSide::card));
    EXPECT_EQ(refusal([&] { require_side(host, FaultSide::card); }),
              file.string() + ":1:1: the action 'no-memory' happens in the host's process: give "
                              "this rule to 'inlinectl run'");
    EXPECT_EQ(refusal([&] { require_side(card, FaultSide::host); }),
              file.string() + ":1:1: the action 'restart' happens in the card's process: give this "
                              "rule to 'inlinectl card'");
}

} // namespace vlc::test
