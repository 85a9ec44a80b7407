#include "host_on_card.h"

#include <csignal>
#include <cstring>
#include <filesystem>

#include <sys/wait.h>
#include <unistd.h>

#include "inline_service_app.h"
#include "inline_service_attributes.h"
#include "inline_service_vservice.h"
#include "platform_prm.h"
#include "service_error.h"
#include "vlc/service_tap.h"

namespace {

using services::ServiceError;
using test::handles_of;
using test::HostOnCard;

class ServiceHostStart : public HostOnCard {
protected:
    ServiceHostStart() { open_card(); }
};

TEST_F(ServiceHostStart, MakesAndPublishesTheRootOnANewWindow)
{
    ASSERT_EQ(card->window().root(), nullptr);
    start_host();
    EXPECT_FALSE(host->found_root());
    EXPECT_EQ(card->window().root(), host->root());
}

TEST_F(ServiceHostStart, SetsTheTwoWordsThatTheLibraryLeavesToTheHost)
{
    start_host();
    EXPECT_EQ(host->root()->initialized, 1u);
    EXPECT_EQ(host->root()->stats_state, 1u);
}

TEST_F(ServiceHostStart, ReturnsWithTheConnectionUpAndRegistered)
{
    start_host();
    EXPECT_NE(host->root()->conn_state & SHADOW_DB_READY, 0);
    EXPECT_NE(host->root()->prm_srh_hdl, nullptr);
    EXPECT_EQ(NUM_LC_NPS, 2);
}

TEST_F(ServiceHostStart, MakesTheTablesOfInterfacesAndServicesAllZero)
{
    start_host();
    const std::vector<uint8_t> attributes(sizeof(uidb_attribute) * UIDB_ATTRIBUTES);
    const std::vector<uint8_t> vservices(sizeof(vservice_config) * VSERVICES);
    ASSERT_NE(host->root()->uidb_attr_table, nullptr);
    ASSERT_NE(host->root()->vservice_db, nullptr);
    EXPECT_EQ(std::memcmp(host->root()->uidb_attr_table, attributes.data(), attributes.size()), 0);
    EXPECT_EQ(std::memcmp(host->root()->vservice_db, vservices.data(), vservices.size()), 0);
}

TEST_F(ServiceHostStart, KeepsTheTablesOfInterfacesAndServicesWithWhatIsInThem)
{
    start_host();
    inline_api_set_uidb_to_app(3, 10, 5);
    const shadow_db before = *host->root();
    restart();
    EXPECT_EQ(host->root()->uidb_attr_table, before.uidb_attr_table);
    EXPECT_EQ(host->root()->vservice_db, before.vservice_db);
    EXPECT_EQ(inline_api_uidb_to_appid(0, 10), 5u);
}

TEST_F(ServiceHostStart, MakesAgainTheTablesThatAKilledStartDidNotGiveToTheRoot)
{
    start_host();
    host->root()->vservice_db = nullptr;
    host->root()->uidb_attr_table = nullptr;
    restart();
    EXPECT_NE(host->root()->uidb_attr_table, nullptr);
    EXPECT_NE(host->root()->vservice_db, nullptr);
}

TEST_F(ServiceHostStart, KeepsTableBitmapsAndHandleOnAWindowThatItFinds)
{
    start_host();
    const shadow_db before = *host->root();
    const uint64_t blocks = card->window().usage().blocks_in_use;
    restart();
    EXPECT_TRUE(host->found_root());
    EXPECT_EQ(host->root()->main_table, before.main_table);
    EXPECT_EQ(host->root()->counters[0], before.counters[0]);
    EXPECT_EQ(host->root()->counters[1], before.counters[1]);
    EXPECT_EQ(host->root()->prm_srh_hdl, before.prm_srh_hdl);
    EXPECT_EQ(card->window().usage().blocks_in_use, blocks);
}

TEST_F(ServiceHostStart, DoesNotTakeADeadHostsConnectionForItsOwn)
{
    start_host();
    ASSERT_NE(host->root()->conn_state & SHADOW_DB_READY, 0); // and it stays so in the window
    bool taken_over = false;
    vlc::set_service_tap([&taken_over](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        taken_over = taken_over || std::strcmp(call.service, "prm_srh_reregister") == 0;
        return std::nullopt;
    });
    restart();
    EXPECT_TRUE(taken_over);
}

TEST_F(ServiceHostStart, SaysThatTheConnectionDidNotComeUp)
{
    card->prm().go_down();
    try {
        start_host();
        FAIL() << "it started without PRM";
    } catch (const ServiceError &error) {
        EXPECT_STREQ(error.what(), "PRM's connection did not come up");
    }
}

TEST_F(ServiceHostStart, NamesTheStepThatFailedWithItsCode)
{
    vlc::set_service_tap([](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        if (std::strcmp(call.service, "shmwin_malloc") == 0)
            return 12;
        return std::nullopt;
    });
    try {
        start_host();
        FAIL() << "it started without a root";
    } catch (const ServiceError &error) {
        EXPECT_EQ(std::string(error.what()), "shmwin_malloc of the shadow DB's root failed: " +
                                                 std::string(cerr_strerror(12)) + " (code 12)");
    }
}

TEST_F(ServiceHostStart, TakesNoRootThatIsNotThere)
{
    vlc::set_service_tap([](const vlc::ServiceCall &call) -> std::optional<uint64_t> {
        if (std::strcmp(call.service, "shmwin_malloc") == 0)
            return 0;
        return std::nullopt;
    });
    try {
        start_host();
        FAIL() << "it started without a root";
    } catch (const ServiceError &error) {
        EXPECT_STREQ(error.what(), "shmwin_malloc of the shadow DB's root gave no block");
    }
}

TEST_F(ServiceHostStart, RefusesACardWithoutNps)
{
    services::HostHandles handles = handles_of(*card);
    handles.num_nps = 0;
    EXPECT_THROW(services::ServiceHost{handles}, ServiceError);
    handles.num_nps = 9;
    EXPECT_THROW(services::ServiceHost{handles}, ServiceError);
}

// ---- killed at any of its calls into the platform

class KilledStart : public HostOnCard {
protected:
    static constexpr int finished = 0;

    // Starts a host in a child process, which kills itself at its n-th platform call.
    int start_and_kill_at(int n)
    {
        const pid_t child = fork();
        if (child == 0) {
            int calls = 0;
            open_card();
            vlc::set_service_tap([&calls, n](const vlc::ServiceCall &) -> std::optional<uint64_t> {
                if (++calls == n)
                    raise(SIGKILL);
                return std::nullopt;
            });
            start_host();
            _exit(finished);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
};

TEST_F(KilledStart, IsMadeUpForByTheNextWhereverItWasKilled)
{
    config.window_bytes = uint64_t{1} << 20; // small: what is lost at each kill must not add up
    int n = 1;
    for (int ended = -SIGKILL; ended == -SIGKILL; ++n) {
        std::filesystem::remove_all(test::card_directory);
        ended = start_and_kill_at(n);
        restart();
        ASSERT_EQ(host->root()->initialized, 1u) << "killed at call " << n;
        ASSERT_EQ(host->root()->stats_state, 1u) << "killed at call " << n;
        action_array empty{};
        ASSERT_EQ(inline_svc_shadow_db_insert_action_array(&empty), 0u) << "killed at call " << n;
        plane.reset();
        card.reset();
    }
    EXPECT_GT(n, 25) << "too few calls were tried";
}

} // namespace
