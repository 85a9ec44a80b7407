// Registering the service-request handle: which of the two ways is taken, how patiently, and what
// follows once it succeeded.

#include "card_fixture.h"
#include "vlc/event_manager.h"

namespace test {
namespace {

using Names = std::vector<std::string>;
using Log = std::vector<std::string>;

template <typename T>
uint64_t word(T *pointer)
{
    return reinterpret_cast<uintptr_t>(pointer);
}

std::string text_at(uint64_t address)
{
    return reinterpret_cast<const char *>(address);
}

class PrmRegister : public CardTest {
protected:
    PrmRegister()
    {
        attach_context();
        set_context();
        initialize_shadow_db();
        EXPECT_EQ(inline_svc_prm_init(), 0u);
        services.forget();
        forget_log();
    }
    // PRM finds this handle under the name.
    void let_handle_be_found(void *handle)
    {
        services.script("prm_srh_get_handle", [handle](const vlc::ServiceCall &call) {
            *reinterpret_cast<void **>(call.args[1]) = handle;
            return uint64_t{0};
        });
    }
};

// ---- the two ways ------------------------------------------------------------------------------

TEST_F(PrmRegister, ANewHandleIsRegisteredWithExactlyTheseArguments)
{
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    const RecordedCall find = services.calls_of("prm_srh_get_handle").at(0);
    ASSERT_EQ(find.args.size(), 2u);
    EXPECT_EQ(text_at(find.args[0]), "inline_service");
    EXPECT_EQ(find.args[1], word(&root->prm_srh_hdl));

    const RecordedCall made = services.calls_of("prm_srh_register").at(0);
    EXPECT_EQ(made.args,
              (std::vector<uint64_t>{word(&root->prm_srh_hdl), 2, word(card->events().handle()),
                                     word(inline_svc_prm_async_resp_handler)}));

    const RecordedCall name = services.calls_of("prm_srh_set_name").at(0);
    ASSERT_EQ(name.args.size(), 2u);
    EXPECT_EQ(name.args[0], word(root->prm_srh_hdl));
    EXPECT_EQ(text_at(name.args[1]), "inline_service");
    EXPECT_EQ(services.count("prm_srh_reregister"), 0u);
}

TEST_F(PrmRegister, AHandleThatPrmStillKnowsIsReregisteredAndNeverRegistered)
{
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    void *const handle = root->prm_srh_hdl;
    root->prm_srh_hdl = nullptr; // a host that starts anew on the same card
    services.forget();
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(root->prm_srh_hdl, handle);
    EXPECT_EQ(services.calls_of("prm_srh_reregister").at(0).args,
              (std::vector<uint64_t>{word(handle), word(card->events().handle()),
                                     word(inline_svc_prm_async_resp_handler)}));
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
    EXPECT_EQ(services.calls_of("prm_srh_set_name").at(0).args[0], word(handle));
}

TEST_F(PrmRegister, AFailedLookupThatFilledTheHandleStillMeansReregister)
{
    services.script("prm_srh_get_handle", [this](const vlc::ServiceCall &call) {
        *reinterpret_cast<void **>(call.args[1]) = root;
        return uint64_t{5};
    });
    services.force("prm_srh_reregister", 0);
    services.force("prm_srh_set_name", 0);
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.calls_of("prm_srh_reregister").at(0).args[0], word(root));
    EXPECT_EQ(services.count("prm_srh_register"), 0u);
}

TEST_F(PrmRegister, ALookupThatFailsLeavesTheHandleOfTheRootToReregister)
{
    root->prm_srh_hdl = root;
    services.force("prm_srh_get_handle", 2);
    services.force("prm_srh_reregister", 0);
    services.force("prm_srh_set_name", 0);
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.calls_of("prm_srh_reregister").at(0).args[0], word(root));
}

TEST_F(PrmRegister, ASuccessfulLookupOfNothingMeansRegister)
{
    let_handle_be_found(nullptr);
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.count("prm_srh_register"), 1u);
    EXPECT_EQ(services.count("prm_srh_reregister"), 0u);
}

TEST_F(PrmRegister, ARegistrationCallsThePlatformInOrder)
{
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(
        services.names(),
        (Names{"prm_srh_get_handle", "prm_srh_register", "prm_srh_set_name", "plm_dpss_stats_init",
               "prm_stats_cl_pre_init", "prm_stats_cl_get_stateless_double_size",
               "prm_stats_cl_get_stateless_double_size", "shmwin_malloc", "shmwin_malloc"}));
    EXPECT_EQ(log(), (Log{"Reregister with PRM Enter\n",
                          "Total counters available for inline service on this LC65536",
                          "counter_word_per_np 65568", "Reregister with PRM Exit\n"}));
}

TEST_F(PrmRegister, AReregistrationOfARestartedHostKeepsItsCounters)
{
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    root->stats_state = 1;
    uint32_t *const bitmap = root->counters[0];
    services.forget();
    forget_log();
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.names(),
              (Names{"prm_srh_get_handle", "prm_srh_reregister", "prm_srh_set_name",
                     "plm_dpss_stats_init", "prm_stats_cl_pre_init"}));
    EXPECT_EQ(log(), (Log{"Reregister with PRM Enter\n", "Reregister with PRM Exit\n"}));
    EXPECT_EQ(root->counters[0], bitmap);
}

TEST_F(PrmRegister, ANullContextIs22WithItsLineAndPrmIsNotCalled)
{
    EXPECT_EQ(inline_svc_prm_register(nullptr), 22u);
    EXPECT_EQ(log(), (Log{"context is NULL in inline_svc_prm_register"}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(PrmRegister, WithoutTheGlobalContextOrItsRootItIs22WithItsLine)
{
    context.shadow_db = nullptr;
    EXPECT_EQ(inline_svc_prm_register(&context), 22u);
    EXPECT_EQ(log(), (Log{"pgbl_ptr->shadow_db is NULL in inline_svc_prm_register"}));
    forget_log();
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_prm_register(&context), 22u);
    EXPECT_EQ(log(), (Log{"pgbl_ptr is NULL in inline_svc_prm_register"}));
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(PrmRegister, TheEventManagerIsTheGivenContextsAndTheHandleTheGlobalContexts)
{
    shadow_db other_root = {};
    vlc::EventManager other_events;
    inline_svc_global_cntx other = context;
    other.shadow_db = &other_root;
    other.inline_evm = other_events.handle();
    ASSERT_EQ(inline_svc_prm_register(&other), 0u);
    EXPECT_NE(root->prm_srh_hdl, nullptr);
    EXPECT_EQ(other_root.prm_srh_hdl, nullptr);
    EXPECT_EQ(services.calls_of("prm_srh_register").at(0).args[2], word(other_events.handle()));
    ASSERT_EQ(inline_svc_prm_register(&other), 0u);
    EXPECT_EQ(services.calls_of("prm_srh_reregister").at(0).args[1], word(other_events.handle()));
}

// ---- retries -----------------------------------------------------------------------------------

struct Way {
    const char *name;
    bool handle_is_found;
    const char *service;
    const char *failed;
    const char *retrying; // in front of the attempt's number
    const char *given_up;
};

void PrintTo(const Way &way, std::ostream *out)
{
    *out << way.name;
}

constexpr Way ways[] = {
    {"Register", false, "prm_srh_register",
     "Registeration to PRM failed,probably prm restarted or crashed\n",
     "Retrying prm_srh_register, retry count : ", " Register with PRM failed\n"},
    {"Reregister", true, "prm_srh_reregister", "Reregister with PRM failed\n",
     "Retrying prm_srh_reregister, retry count : ", "V4 Re-register with PRM failed\n"},
};

class PrmRetries : public PrmRegister, public ::testing::WithParamInterface<Way> {
protected:
    PrmRetries()
    {
        if (way().handle_is_found) {
            EXPECT_EQ(inline_svc_prm_register(&context), 0u);
            services.forget();
            forget_log();
        }
        before = vlc::CardClock::slept_seconds();
    }
    const Way &way() const { return GetParam(); }
    uint64_t slept() const { return vlc::CardClock::slept_seconds() - before; }
    Log retries(int count) const
    {
        Log lines;
        for (int attempt = 1; attempt <= count; ++attempt) {
            lines.push_back(way().failed);
            lines.push_back(way().retrying + std::to_string(attempt) + "\n");
        }
        return lines;
    }
    // Every attempt fails with a code of its own: 101, 102 and so on.
    void fail_for_ever()
    {
        services.script(way().service,
                        [this](const vlc::ServiceCall &) { return 100 + ++attempts; });
    }

    uint64_t attempts = 0;
    uint64_t before = 0;
};

INSTANTIATE_TEST_SUITE_P(BothWays, PrmRetries, ::testing::ValuesIn(ways),
                         [](const auto &row) { return std::string(row.param.name); });

TEST_P(PrmRetries, ASuccessAtOnceSleepsNotAtAll)
{
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.count(way().service), 1u);
    EXPECT_EQ(slept(), 0u);
    EXPECT_EQ(log_count(way().failed), 0u);
}

TEST_P(PrmRetries, ASuccessOnTheThirdAttemptHasRetriedTwiceAndSleptAMinute)
{
    services.force(way().service, 5, 1, 2);
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.count(way().service), 3u);
    EXPECT_EQ(slept(), 60u);
    Log expected = {"Reregister with PRM Enter\n"};
    for (const std::string &line : retries(2))
        expected.push_back(line);
    EXPECT_EQ(log().size(), 8u);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), log().begin()));
    EXPECT_EQ(log().back(), "Reregister with PRM Exit\n");
}

TEST_P(PrmRetries, ASuccessOnTheSixtiethAttemptIsASuccess)
{
    services.force(way().service, 5, 1, 59);
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.count(way().service), 60u);
    EXPECT_EQ(slept(), 59u * 30);
    EXPECT_EQ(log_count(way().given_up), 0u);
}

TEST_P(PrmRetries, SixtyFailuresGiveUpWithTheLastStatus)
{
    fail_for_ever();
    EXPECT_EQ(inline_svc_prm_register(&context), 160u);
    EXPECT_EQ(services.count(way().service), 60u);
    EXPECT_EQ(slept(), 60u * 30);
    Log expected = {"Reregister with PRM Enter\n"};
    for (const std::string &line : retries(60))
        expected.push_back(line);
    expected.push_back(way().given_up);
    EXPECT_EQ(log(), expected);
}

TEST_P(PrmRetries, AfterSixtyFailuresNothingFurtherIsSetUp)
{
    fail_for_ever();
    inline_svc_prm_register(&context);
    for (const char *service : {"prm_srh_set_name", "plm_dpss_stats_init", "prm_stats_cl_pre_init",
                                "shmwin_malloc", "prm_srh_delay_util_init"})
        EXPECT_EQ(services.count(service), 0u) << service;
}

// The stamps of the stepped clock: it stands while nothing sleeps.
TEST_P(PrmRetries, TheFinalTextComesThirtySecondsAfterTheSixtiethAttempt)
{
    fail_for_ever();
    vlc::CardClock::set_mode(vlc::ClockMode::stepped); // midnight again
    inline_svc_prm_register(&context);
    const std::string text = log_text();
    const auto stamp_of = [&text](const std::string &message) {
        const size_t at = text.find(":" + message);
        return at == std::string::npos ? "" : text.substr(at - 12, 12);
    };
    EXPECT_EQ(stamp_of(way().retrying + std::string("1\n")), "00:00:00.000");
    EXPECT_EQ(stamp_of(way().retrying + std::string("2\n")), "00:00:30.000");
    EXPECT_EQ(stamp_of(way().retrying + std::string("60\n")), "00:29:30.000");
    EXPECT_EQ(stamp_of(way().given_up), "00:30:00.000");
}

TEST_P(PrmRetries, TheHandleIsLookedUpOnlyOnce)
{
    services.force(way().service, 5, 1, 2);
    ASSERT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(services.count("prm_srh_get_handle"), 1u);
}

// ---- what follows a registration ---------------------------------------------------------------

TEST_F(PrmRegister, AQueueThatCannotBeNamedIsOnlySaid)
{
    services.force("prm_srh_set_name", 5);
    EXPECT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(log(), (Log{"Reregister with PRM Enter\n",
                          "Setting name for prm queue failed Verify handle passed in \n",
                          "Total counters available for inline service on this LC65536",
                          "counter_word_per_np 65568", "Reregister with PRM Exit\n"}));
    EXPECT_EQ(services.count("plm_dpss_stats_init"), 1u);
}

TEST_F(PrmRegister, DataPathStatisticsThatDoNotStartAreOnlySaid)
{
    services.force("plm_dpss_stats_init", 5);
    EXPECT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(log(), (Log{"Reregister with PRM Enter\n", "plm_dpss_stats_init failed \n",
                          "Total counters available for inline service on this LC65536",
                          "counter_word_per_np 65568", "Reregister with PRM Exit\n"}));
}

TEST_F(PrmRegister, BitmapsThatCannotBeMadeAreSaidAndReturned)
{
    services.force("shmwin_malloc", 12);
    EXPECT_EQ(inline_svc_prm_register(&context), 22u);
    EXPECT_EQ(log(),
              (Log{"Reregister with PRM Enter\n",
                   "Total counters available for inline service on this LC65536",
                   "counter_word_per_np 65568", "shared memory alloc failed c 65576",
                   "counter alloc failed: chip:0,Success", "shared memory alloc failed c 65576",
                   "counter alloc failed: chip:1,Invalid argument", "inline stat init failed \n",
                   "Reregister with PRM Exit\n"}));
}

TEST_F(PrmRegister, AStatisticsClientThatDoesNotPrepareIsNotSpokenOf)
{
    services.force("prm_stats_cl_pre_init", 5);
    EXPECT_EQ(inline_svc_prm_register(&context), 0u);
    EXPECT_EQ(log_count("inline stat init failed \n"), 0u);
}

} // namespace
} // namespace test
