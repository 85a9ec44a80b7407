// PRM's late answers in great numbers: drains that the delay queue or a failed read cut short,
// failures among thousands of successes, and answers that come late, twice or out of order.
// Whatever happens, no answer stays unread, and each drain says what it says alone.

#include <cstdarg>
#include <cstring>

#include "card_fixture.h"
#include "vlc/faults.h"
#include "vlc/prm_store.h"

namespace test {
namespace {

using Log = std::vector<std::string>;

constexpr uint32_t delay_event = 0xAB;
constexpr const char *reads = "prm_srh_async_resp_data";
constexpr const char *nothing_read =
    "Async Error on Service CONF: rc=Success (0x0) on Service Add route NP0";

// One answer that PRM has ready.
vlc::StoredAnswer answer(uint32_t np, uint32_t status, uint32_t refnum)
{
    vlc::StoredAnswer made = {};
    made.np = np;
    made.status = status;
    made.refnum = refnum;
    return made;
}

[[gnu::format(printf, 1, 2)]] std::string text(const char *format, ...)
{
    char line[400];
    va_list values;
    va_start(values, format);
    vsnprintf(line, sizeof line, format, values);
    va_end(values);
    return line;
}

std::string failed_line(const vlc::StoredAnswer &failed)
{
    return text("PRM async call failed(v4): np %u flags 0x0 refnum 0x%x key_size %u res_size %u "
                "Err:%s",
                failed.np, failed.refnum, failed.key_len, failed.result_len,
                strerror(static_cast<int>(failed.status)));
}

std::string report_line(const vlc::StoredAnswer &first)
{
    return text("PRM connection error Error encountered while programming the hw. FIB will be "
                "reset and routes will be reprogrammed.Error = 0x%08x, np_id = %u, ref_num = "
                "0x%08x vrf id = 0",
                first.status, first.np, first.refnum);
}

std::string summary_line(const vlc::StoredAnswer &last)
{
    const char *operations[] = {"Add", "Modify", "Delete"};
    const uint32_t table = last.refnum & 0xFF;
    const char *operation = operations[last.refnum >> 8];
    const char *reason = strerror(static_cast<int>(last.status));
    if (table == delay_event)
        return text("Async Error: rc=%s (0x%x) on Unknown %s refnum 0x%08x NP%u", reason,
                    last.status, operation, last.refnum, last.np);
    return text("Async Error on %s CONF: rc=%s (0x%x) on %s %s route NP%u",
                table == 0 ? "Service" : "Ext Datadb", reason, last.status,
                table == 0 ? "Service" : "Ext Con", operation, last.np);
}

// What is logged of the answers that one drain reads, the delay queue's included. A read that fails
// ends it with `error_line`.
Log drain_log(const std::vector<vlc::StoredAnswer> &answers, const std::string &error_line = "")
{
    Log lines;
    const vlc::StoredAnswer *first = nullptr;
    vlc::StoredAnswer last = {};
    for (const vlc::StoredAnswer &one : answers) {
        const bool is_delay_event = (one.refnum & 0xFF) == delay_event;
        if (first)
            last = one;
        if (is_delay_event || one.status == 0)
            continue;
        lines.push_back(failed_line(one));
        if (!first)
            first = &one;
    }
    if (!error_line.empty())
        lines.push_back(error_line);
    if (first)
        lines.push_back(report_line(*first));
    lines.push_back(summary_line(last));
    return lines;
}

void append(Log &all, const Log &more)
{
    all.insert(all.end(), more.begin(), more.end());
}

class PrmAnswerLoad : public RunningCardTest {
protected:
    uint32_t handle() const
    {
        return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(root->prm_srh_hdl));
    }
    uint64_t unread() { return card->prm().unread(handle()); }
    void ready(const vlc::StoredAnswer &one)
    {
        ASSERT_EQ(card->prm().queue_answer(handle(), one), 0u);
    }
    void ready(const std::vector<vlc::StoredAnswer> &answers)
    {
        for (const vlc::StoredAnswer &one : answers)
            ready(one);
    }
    // Every `failing`-th fails, with another reason each time; none for 0.
    static std::vector<vlc::StoredAnswer> burst(uint32_t count, uint32_t failing)
    {
        constexpr uint32_t reasons[] = {5, 12, 22};
        std::vector<vlc::StoredAnswer> answers;
        for (uint32_t i = 1; i <= count; ++i) {
            const bool fails = failing != 0 && i % failing == 0;
            answers.push_back(
                answer(i % 8, fails ? reasons[i % 3] : 0, (i / 8 % 3) << 8 | (i / 24 % 2)));
        }
        return answers;
    }
    size_t log_lines(const std::string &beginning) const
    {
        const Log lines = log();
        return static_cast<size_t>(
            std::count_if(lines.begin(), lines.end(),
                          [&](const std::string &line) { return line.rfind(beginning, 0) == 0; }));
    }
};

// ---- bursts ------------------------------------------------------------------------------------

TEST_F(PrmAnswerLoad, ThousandsOfSuccessesAreOneDrainAndOneLine)
{
    ready(burst(10000, 0));
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(services.count(reads), 10001u) << "each answer, and the end";
    EXPECT_EQ(log(), (Log{nothing_read}));
}

TEST_F(PrmAnswerLoad, FailuresInABurstHaveALineEachInTheirOrderAndOneReport)
{
    const auto answers = burst(5000, 7);
    ready(answers);
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(log_lines("PRM async call failed"), 5000u / 7);
    EXPECT_EQ(log_lines("PRM connection error"), 1u);
    EXPECT_EQ(log(), drain_log(answers));
}

TEST_F(PrmAnswerLoad, ABurstOfFailuresAloneIsReportedOnce)
{
    const auto answers = burst(3000, 1);
    ready(answers);
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(log().size(), 3002u) << "one each, the report and the summary";
    EXPECT_EQ(log(), drain_log(answers));
}

TEST_F(PrmAnswerLoad, TheFirstFailuresKeyAndResultAreReportedHoweverManyFollow)
{
    auto answers = burst(2000, 3);
    vlc::StoredAnswer &first = answers[2];
    first.key_len = 2;
    first.key[0] = 0xAB;
    first.key[1] = 0xCD;
    first.result_len = 1;
    first.result[0] = 0x42;
    vlc::StoredAnswer &later = answers[5];
    later.key_len = 3;
    memset(later.key, 0xEE, sizeof later.key);
    ready(answers);
    run_events();
    Log expected = drain_log(answers);
    expected.insert(expected.end() - 1, {"key key <len 2>: abcd", "result result <len 1>: 42"});
    EXPECT_EQ(log(), expected);
}

TEST_F(PrmAnswerLoad, EachBurstIsADrainOfItsOwn)
{
    Log expected;
    for (const uint32_t failing : {7u, 0u, 11u}) {
        const auto answers = burst(1500, failing);
        ready(answers);
        run_events();
        EXPECT_EQ(unread(), 0u);
        append(expected, drain_log(answers));
    }
    EXPECT_EQ(log(), expected);
}

TEST_F(PrmAnswerLoad, AnswersThatComeWhileADrainReadsAreReadInIt)
{
    uint64_t left = 3000;
    services.observe([&](const vlc::ServiceCall &call) {
        if (left > 0 && std::string(call.service) == reads) {
            --left;
            ready(answer(1, left % 100 == 0 ? 5 : 0, 0x101));
        }
    });
    ready(answer(0, 0, 0));
    run_events();
    services.observe({});
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(services.count(reads), 3002u);
    EXPECT_EQ(log_lines("PRM async call failed"), 30u);
    EXPECT_EQ(log_lines("PRM connection error"), 1u);
    EXPECT_EQ(log_lines("Async Error"), 1u);
}

// ---- behind the delay queue --------------------------------------------------------------------

TEST_F(PrmAnswerLoad, FailuresBehindADelayQueueEventAreTheNextDrains)
{
    auto before = burst(1000, 13);
    before.push_back(answer(0, 0, delay_event));
    const auto behind = burst(2000, 17);
    ready(before);
    ready(behind);
    run_events();
    EXPECT_EQ(unread(), 0u);
    Log expected = drain_log(before);
    append(expected, drain_log(behind));
    EXPECT_EQ(log(), expected);
    EXPECT_EQ(services.count("prm_srh_delay_queue_process"), 1u);
}

TEST_F(PrmAnswerLoad, EveryDelayQueueEventEndsADrainAndTheRestIsReadAfterIt)
{
    Log expected;
    for (uint32_t i = 0; i < PRM_DELAY_QUEUE_DEPTH; ++i) {
        auto part = burst(40, i % 2 == 0 ? 0 : 9);
        part.push_back(answer(0, 0, i % 3 << 8 | delay_event));
        ready(part);
        append(expected, drain_log(part));
    }
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(log(), expected);
    EXPECT_EQ(services.count("prm_srh_delay_queue_process"), uint32_t{PRM_DELAY_QUEUE_DEPTH});
}

TEST_F(PrmAnswerLoad, ADelayQueueThatIsFullKeepsNothingFromBeingRead)
{
    constexpr uint32_t events = 4 * PRM_DELAY_QUEUE_DEPTH;
    for (uint32_t i = 0; i < events; ++i) {
        ready(answer(0, 0, delay_event));
        ready(answer(1, 5, 0));
    }
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(services.count("prm_srh_delay_queue_process"), events);
    EXPECT_EQ(log_lines("PRM async call failed"), events);
    EXPECT_EQ(log_lines("PRM connection error"), events) << "each in a drain of its own";
    EXPECT_EQ(log_lines("Async Error"), events + 1);
}

TEST_F(PrmAnswerLoad, ADelayQueueEventAloneIsADrainWithoutAFailure)
{
    for (int i = 0; i < 3; ++i)
        ready(answer(0, 5, delay_event));
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(log(), (Log{nothing_read, nothing_read, nothing_read}));
}

// ---- reads that fail ---------------------------------------------------------------------------

constexpr const char *read_failed = "prm_srh_async_resp_data() error: rc=0x5(Input/output error)";

TEST_F(PrmAnswerLoad, AReadThatFailsAmidADrainEndsItAndTheRestIsReadAfterIt)
{
    const auto answers = burst(3000, 10);
    ready(answers);
    services.force(reads, 5, 1001, 1);
    run_events();
    EXPECT_EQ(unread(), 0u);
    const std::vector<vlc::StoredAnswer> before(answers.begin(), answers.begin() + 1000);
    const std::vector<vlc::StoredAnswer> behind(answers.begin() + 1000, answers.end());
    Log expected = drain_log(before, read_failed);
    append(expected, drain_log(behind));
    EXPECT_EQ(log(), expected);
}

TEST_F(PrmAnswerLoad, ReadsThatFailAgainAndAgainLeaveNothingUnread)
{
    ready(burst(5000, 10));
    uint64_t read = 0;
    services.script(reads, [&](const vlc::ServiceCall &) -> std::optional<uint64_t> {
        return ++read % 100 == 0 ? std::optional<uint64_t>(5) : std::nullopt;
    });
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(log_lines("PRM async call failed"), 500u) << "each once";
    const size_t failed_reads = log_lines(read_failed);
    EXPECT_EQ(failed_reads, 50u) << "5000 answers and the end of the last drain";
    EXPECT_EQ(log_lines("Async Error"), failed_reads + 1) << "one for each drain";
    EXPECT_EQ(log_lines("PRM connection error"), failed_reads + 1);
}

TEST_F(PrmAnswerLoad, ADrainThatReadsNothingIsTriedAgainLaterAndNotAtOnce)
{
    const auto answers = burst(100, 10);
    ready(answers);
    services.force(reads, 5, 1, 3);
    run_events();
    EXPECT_EQ(unread(), 100u);
    EXPECT_EQ(log(), (Log{read_failed, nothing_read}));
    EXPECT_TRUE(card->events().run_until([this] { return unread() == 0; }));
    Log expected;
    for (int i = 0; i < 3; ++i)
        append(expected, {read_failed, nothing_read});
    append(expected, drain_log(answers));
    EXPECT_EQ(log(), expected);
}

// ---- PRM goes while answers are unread ---------------------------------------------------------

TEST_F(PrmAnswerLoad, WhatARestartedPrmKeptUnreadIsReadAfterTheReRegistration)
{
    const auto answers = burst(2000, 10);
    ready(answers);
    card->prm().restart(true);
    run_events();
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(services.count("prm_srh_reregister"), 1u);
    EXPECT_EQ(log_lines("PRM async call failed"), 200u);
    EXPECT_EQ(log_lines("PRM connection error Error encountered"), 1u);
}

TEST_F(PrmAnswerLoad, APrmThatGoesDownAmidADrainLosesNoAnswer)
{
    vlc::Faults faults(
        {.rules = {
             {.service = reads, .action = vlc::FaultAction::restart, .events = 5, .nth = 700}}});
    faults.attach_card(card->prm(), card->events());
    ready(burst(2000, 10));
    run_events();
    EXPECT_EQ(faults.counts()[0].fired, 1u);
    EXPECT_EQ(unread(), 0u);
    EXPECT_EQ(log_lines("prm_srh_async_resp_data() error: rc=0x257c5403(PRM: not connected)"), 1u);
    EXPECT_EQ(log_lines("PRM async call failed"), 200u) << "each once";
    EXPECT_EQ(log_lines("PRM connection error Error encountered"), 2u) << "before and after";
}

// ---- answers to the library's own requests -----------------------------------------------------

class PrmRequestLoad : public PrmAnswerLoad {
protected:
    PrmRequestLoad()
    {
        vlc::CardConfig large = config;
        large.service_config_capacity = large.ext_conf_capacity = entries;
        large.window_bytes = uint64_t{32} << 20;
        pgbl_ptr = nullptr;
        pshadow_db = nullptr;
        restart_card(large);
        bring_up();
    }
    void play(std::vector<vlc::FaultRule> rules)
    {
        faults = std::make_unique<vlc::Faults>(vlc::FaultPlan{11, std::move(rules)});
        faults->attach_card(card->prm(), card->events());
    }
    // One entry a batch, over both tables, and then all answers.
    void program_all()
    {
        for (uint32_t i = 0; i < entries; ++i) {
            Batch batch(1);
            batch.create(i + 1, i % 2, "key " + std::to_string(i), "0123456789");
            ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
        }
        forget_log();
        run_events();
        EXPECT_EQ(unread(), 0u);
    }
    uint64_t fired(size_t rule) const { return faults->counts()[rule].fired; }

    static constexpr uint32_t entries = 1500; // two requests each
    std::unique_ptr<vlc::Faults> faults;
};

TEST_F(PrmRequestLoad, FailuresSprinkledIntoThousandsOfAnswersAreLoggedOnceEach)
{
    play({{.service = "prm_srh_*",
           .action = vlc::FaultAction::answer,
           .status = 5,
           .probability = 0.1}});
    program_all();
    EXPECT_EQ(faults->counts()[0].matched, 2u * entries);
    EXPECT_GT(fired(0), 200u);
    EXPECT_EQ(log_lines("PRM async call failed"), fired(0));
    EXPECT_EQ(log_lines("PRM connection error"), 1u);
    EXPECT_EQ(log_lines("Async Error"), 1u);
}

TEST_F(PrmRequestLoad, AnswersLateTwiceAndOutOfOrderAreAllRead)
{
    play({{.service = "prm_srh_*",
           .action = vlc::FaultAction::late,
           .events = 20,
           .probability = 0.1},
          {.service = "prm_srh_*", .action = vlc::FaultAction::twice, .probability = 0.1},
          {.service = "prm_srh_*", .action = vlc::FaultAction::reorder, .probability = 0.1},
          {.service = "prm_srh_*", .action = vlc::FaultAction::lose, .probability = 0.1}});
    services.forget();
    program_all();
    size_t drains = log_lines("Async Error");
    EXPECT_EQ(log().size(), drains) << "no failure among them";
    EXPECT_EQ(services.count(reads) - drains, 2u * entries + fired(1) - fired(3));
    for (size_t rule = 0; rule < 4; ++rule)
        EXPECT_GT(fired(rule), 100u) << rule;
}

TEST_F(PrmRequestLoad, AFailureThatIsAnsweredTwiceIsLoggedTwice)
{
    play(
        {{.service = "prm_srh_service_config_add", .action = vlc::FaultAction::twice, .every = 1}});
    Batch batch(1);
    batch.create(1, 0, "key", "0123456789").create(2, 0, "key", "0123456789");
    ASSERT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    forget_log();
    run_events();
    EXPECT_EQ(log_lines("PRM async call failed"), 4u) << "two NPs, twice each";
    EXPECT_EQ(unread(), 0u);
}

} // namespace
} // namespace test
