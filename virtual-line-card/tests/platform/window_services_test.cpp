#include <cerrno>
#include <cstring>

#include "platform_card.h"
#include "platform_shared_window.h"
#include "test_card.h"
#include "vlc/state_error.h"

namespace {

class WindowServices : public card_test::InEachDeployment<card_test::CardTest> {
protected:
    uint32_t window() { return card().window_id(); }
    void *allocate(int32_t size)
    {
        void *block = nullptr;
        EXPECT_EQ(0u, shmwin_malloc(window(), size, &block));
        return block;
    }
};

TEST_P(WindowServices, ABlockLiesInTheWindowAndCanBeGivenBackOnce)
{
    void *block = allocate(100);
    EXPECT_TRUE(card().window().contains(block));
    std::memset(block, 0x5A, 100);
    EXPECT_EQ(0u, shmwin_free(block));
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_free(block));
}

TEST_P(WindowServices, RefusalsLeaveTheOutputAlone)
{
    int unchanged = 0;
    void *block = &unchanged;
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_malloc(window() + 1, 100, &block));
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_malloc(window(), 0, &block));
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_malloc(window(), -1, &block));
    EXPECT_EQ(uint32_t{ENOMEM}, shmwin_malloc(window(), 2 << 20, &block));
    EXPECT_EQ(&unchanged, block);
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_malloc(window(), 100, nullptr));
}

TEST_P(WindowServices, NoBlockOfTheWindowIsRefusedByFree)
{
    int mine = 0;
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_free(nullptr));
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_free(&mine));
}

TEST_P(WindowServices, AResetThrowsEveryBlockAway)
{
    const auto empty = card().window().usage().blocks_in_use;
    void *block = allocate(100);
    allocate(200);
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_reset(window() + 1));
    EXPECT_EQ(empty + 2, card().window().usage().blocks_in_use);
    EXPECT_EQ(0u, shmwin_reset(window()));
    EXPECT_EQ(empty, card().window().usage().blocks_in_use);
    EXPECT_EQ(uint32_t{EINVAL}, shmwin_free(block));
}

TEST_P(WindowServices, ABlockOutlivesTheProcessAtItsAddress)
{
    char *block = static_cast<char *>(allocate(100));
    std::strcpy(block, "what was left");
    card().window().set_root(block);
    restart_process();
    EXPECT_EQ(block, card().window().root());
    EXPECT_STREQ("what was left", block);
    EXPECT_EQ(0u, shmwin_free(block));
}

using CardServices = card_test::InEachDeployment<card_test::CardTest>;

TEST_P(CardServices, TheCardTypeIsTheConfigurations)
{
    EXPECT_EQ(card().config().card_type, platform_get_my_card_type());
    EXPECT_NE(0u, platform_get_my_card_type());
}

TEST_P(CardServices, DataPathStatisticsStartWhilePrmIsUp)
{
    prm().go_down();
    EXPECT_EQ(uint32_t{vlc::prm_not_connected}, plm_dpss_stats_init());
    EXPECT_FALSE(card().data_path_statistics_started());
    prm().come_up();
    EXPECT_EQ(0u, plm_dpss_stats_init());
    EXPECT_TRUE(card().data_path_statistics_started());
}

TEST_P(CardServices, ASecondCardInTheProcessIsRefusedAndTheFirstStays)
{
    const card_test::ScratchDirectory other;
    EXPECT_THROW(vlc::VirtualLineCard(card_test::small_card(), other.path()), vlc::StateError);
    EXPECT_EQ(&card(), vlc::VirtualLineCard::current());
}

IN_BOTH_DEPLOYMENTS(WindowServices);
IN_BOTH_DEPLOYMENTS(CardServices);

} // namespace
