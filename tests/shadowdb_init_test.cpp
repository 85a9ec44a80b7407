// The root, its main table, and the packing of keys.
#include <cerrno>
#include <cstring>

#include "platform_shared_window.h"
#include "shadow_fixture.h"

using namespace test;

namespace {

class ShadowDbInit : public CardTest {
protected:
    ShadowDbInit()
    {
        attach_context();
        set_context();
        services.forget();
        forget_log();
    }
};

TEST_F(ShadowDbInit, AMissingRootEndsTheProcessAndLeavesACore)
{
    pshadow_db = nullptr;
    EXPECT_SHADOWDB_ASSERTION(inline_svc_shadow_db_initialized(0, 0, 0, 0), "FALSE");
}

TEST_F(ShadowDbInit, RegistersTheComponentUnderInlcBeforeItTakesTheTable)
{
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    EXPECT_EQ(services.names(), (Lines{"ed_init", "shmwin_malloc"}));
    const auto *component = reinterpret_cast<ed_component *>(services.calls()[0].args[0]);
    EXPECT_STREQ(component->short_name, "inlc");
}

TEST_F(ShadowDbInit, PassesTheCallersFourWordsOnToTheEventDebugFacility)
{
    inline_svc_shadow_db_initialized(0x11, 0x2222222222, 0x33, UINT64_MAX);
    const RecordedCall &call = services.calls()[0];
    ASSERT_EQ(call.args.size(), 5u);
    EXPECT_EQ(call.args[1], 0x11u);
    EXPECT_EQ(call.args[2], 0x2222222222u);
    EXPECT_EQ(call.args[3], 0x33u);
    EXPECT_EQ(call.args[4], UINT64_MAX);
}

TEST_F(ShadowDbInit, TheEventDebugFacilitysResultIsNotLookedAt)
{
    services.force("ed_init", 22);
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    EXPECT_NE(root->main_table, nullptr);
}

TEST_F(ShadowDbInit, Takes10240BytesOfTheContextsWindowForTheTable)
{
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    const RecordedCall &call = services.calls()[1];
    EXPECT_EQ(call.args[0], card->window_id());
    EXPECT_EQ(call.args[1], 10240u);
    EXPECT_EQ(call.args[2], reinterpret_cast<uint64_t>(&root->main_table));
    EXPECT_TRUE(card->window().contains(root->main_table));
    EXPECT_EQ(log(), Lines{"MAIN entry initialization"});
}

TEST_F(ShadowDbInit, TheTableIsZeroedAlsoInMemoryThatWasUsedBefore)
{
    services.script("shmwin_malloc", [](const vlc::ServiceCall &call) {
        auto **out = reinterpret_cast<void **>(call.args[2]);
        const uint32_t rc = shmwin_malloc(static_cast<uint32_t>(call.args[0]), 10240, out);
        memset(*out, 0xA5, 10240);
        return std::optional<uint64_t>(rc);
    });
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    for (size_t slot = 0; slot < 1280; ++slot)
        ASSERT_EQ(root->main_table[slot], nullptr) << slot;
}

TEST_F(ShadowDbInit, NeverSetsTheFlagsOfTheRoot)
{
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    EXPECT_EQ(root->initialized, 0u);
    EXPECT_EQ(root->stats_state, 0u);
}

TEST_F(ShadowDbInit, AnInitializedRootIsKeptButRegistersAgain)
{
    ASSERT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0u);
    root->initialized = 7; // any value but 0
    main_entry **const table = root->main_table;
    main_entry entry = {};
    table[9] = &entry;
    services.forget();
    forget_log();
    EXPECT_EQ(inline_svc_shadow_db_initialized(1, 2, 3, 4), 0u);
    EXPECT_EQ(root->main_table, table);
    EXPECT_EQ(table[9], &entry);
    EXPECT_EQ(services.names(), Lines{"ed_init"});
    EXPECT_EQ(log(), Lines{});
}

TEST_F(ShadowDbInit, AFailedTableGivesTheWindowsCodeInTheResultAndInHexInTheLog)
{
    services.force("shmwin_malloc", 0x1C);
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 0x1Cu);
    EXPECT_EQ(log(), Lines{"shared memory alloc for element array failed rc 1c"});
    EXPECT_EQ(root->main_table, nullptr);
}

TEST_F(ShadowDbInit, AFailedTableLeavesThePointerAsTheAllocatorLeftIt)
{
    services.script("shmwin_malloc", [](const vlc::ServiceCall &call) {
        *reinterpret_cast<uint64_t *>(call.args[2]) = 0x123456;
        return std::optional<uint64_t>(12);
    });
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 12u);
    EXPECT_EQ(reinterpret_cast<uint64_t>(root->main_table), 0x123456u);
    root->main_table = nullptr;
}

TEST_F(ShadowDbInit, ASuccessWithoutABlockIs12)
{
    services.force("shmwin_malloc", 0);
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 12u);
    EXPECT_EQ(log(), Lines{"shared memory alloc for element array failed rc c"});
}

TEST_F(ShadowDbInit, WithoutAContextItIs12AndNoTableIsTaken)
{
    pgbl_ptr = nullptr;
    EXPECT_EQ(inline_svc_shadow_db_initialized(0, 0, 0, 0), 12u);
    EXPECT_EQ(services.count("shmwin_malloc"), 0u);
    EXPECT_EQ(log().size(), 1u);
}

// ---- keys

TEST(ShadowDbKeys, AKeyPacksTheTypeMinusOneAboveEightBitsOfIndex)
{
    EXPECT_EQ(inline_shadow_db_appid_to_key(1, 0), 0u);
    EXPECT_EQ(inline_shadow_db_appid_to_key(1, 255), 0xFFu);
    EXPECT_EQ(inline_shadow_db_appid_to_key(2, 1), 0x101u);
    EXPECT_EQ(inline_shadow_db_appid_to_key(4, 255), 0x3FFu);
    EXPECT_EQ(inline_shadow_db_appid_to_key(5, 255), 0x4FFu);
}

TEST(ShadowDbKeys, TypesOutsideOneToFiveHaveNoKey)
{
    for (const int32_t type : {0, 6, -1, INT32_MIN, INT32_MAX})
        EXPECT_EQ(inline_shadow_db_appid_to_key(type, 1), 0xFFFFFFFFu) << type;
}

TEST(ShadowDbKeys, AnIndexWithABitOfFF00HasNoKey)
{
    for (uint32_t bit = 8; bit < 16; ++bit)
        EXPECT_EQ(inline_shadow_db_appid_to_key(2, 1u << bit), 0xFFFFFFFFu) << bit;
}

TEST(ShadowDbKeys, IndexBitsAboveTheLowerSixteenPassUncheckedIntoTheKey)
{
    EXPECT_EQ(inline_shadow_db_appid_to_key(1, 0x10000), 0x10000u);
    EXPECT_EQ(inline_shadow_db_appid_to_key(3, 0xFFFF0007), 0xFFFF0207u);
}

TEST(ShadowDbKeys, KeysBelow1024DecodeToTheirTypeAndIndex)
{
    EXPECT_EQ(inline_shadow_db_key_to_apptype(0), 1u);
    EXPECT_EQ(inline_shadow_db_key_to_appid(0), 0u);
    EXPECT_EQ(inline_shadow_db_key_to_apptype(0x3FF), 4u);
    EXPECT_EQ(inline_shadow_db_key_to_appid(0x3FF), 255u);
    EXPECT_EQ(inline_shadow_db_key_to_apptype(0x207), 3u);
    EXPECT_EQ(inline_shadow_db_key_to_appid(0x207), 7u);
}

TEST(ShadowDbKeys, KeysOfApplicationTypeFiveAreMadeButNeverDecoded)
{
    const uint32_t key = inline_shadow_db_appid_to_key(5, 3);
    EXPECT_EQ(key, 0x403u);
    EXPECT_EQ(inline_shadow_db_key_to_apptype(key), 0u);
    EXPECT_EQ(inline_shadow_db_key_to_appid(key), 0u);
}

TEST(ShadowDbKeys, AKeyWithAnyBitOfFC00DecodesToNothing)
{
    for (uint32_t bit = 10; bit < 16; ++bit) {
        EXPECT_EQ(inline_shadow_db_key_to_apptype(1u << bit | 5), 0u) << bit;
        EXPECT_EQ(inline_shadow_db_key_to_appid(1u << bit | 5), 0u) << bit;
    }
}

TEST(ShadowDbKeys, DecodersDoNotLookAtTheBitsAboveTheLowerSixteen)
{
    EXPECT_EQ(inline_shadow_db_key_to_apptype(0x00010105), 2u);
    EXPECT_EQ(inline_shadow_db_key_to_appid(0xFFFF0105), 5u);
}

} // namespace
