// The host's context and the handles that the library hands out of it.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "card_fixture.h"

namespace {

using Messages = std::vector<std::string>;

class Context : public test::CardTest {
protected:
    Context() { attach_context(); }

    static void *handle(uint64_t value) { return reinterpret_cast<void *>(value); }
};

// ---- before and without a context --------------------------------------------------------------

TEST(ContextAtLoad, TheExportedObjectsAreZero)
{
    EXPECT_EQ(pgbl_ptr, nullptr);
    EXPECT_EQ(pshadow_db, nullptr);
    EXPECT_EQ(NUM_LC_NPS, 0);
    EXPECT_EQ(engine_conn_error, 0);
    EXPECT_EQ(spp_ui_in_progress, 0u);
    EXPECT_EQ(spp_ui_retval, 0u);
    EXPECT_EQ(imp_cmd_codes, 0u);
    EXPECT_EQ(the_punt_decode_hash, nullptr);
    const auto is_zero = [](auto value) { return value == 0; };
    EXPECT_TRUE(std::all_of(std::begin(u32x4_compare_word_mask_table),
                            std::end(u32x4_compare_word_mask_table), is_zero));
    EXPECT_TRUE(std::all_of(std::begin(ed_dummy_libinline_service_infra),
                            std::end(ed_dummy_libinline_service_infra), is_zero));
    EXPECT_TRUE(std::all_of(std::begin(ed_perf_dummy_libinline_service_infra),
                            std::end(ed_perf_dummy_libinline_service_infra), is_zero));
}

TEST_F(Context, ThePrmConnectionIsRefusedBeforeAContextIsSet)
{
    void *out = handle(7);
    EXPECT_EQ(inline_svc_get_prm_conn_hdl(&out), 22u);
    EXPECT_EQ(out, handle(7));
    EXPECT_EQ(log(), Messages{"pgbl_ptr is NULL"});
}

TEST_F(Context, TheEventManagerIsRefusedBeforeAContextIsSet)
{
    void *out = handle(7);
    EXPECT_EQ(inline_svc_get_inline_evm(&out), 22u);
    EXPECT_EQ(out, handle(7));
    EXPECT_EQ(log(), Messages{"pgbl_ptr is NULL"});
}

TEST_F(Context, TheInterfaceConnectionIsRefusedBeforeAContextIsSet)
{
    void *out = handle(7);
    EXPECT_EQ(inline_svc_get_uidb_conn_hdl(&out), 22u);
    EXPECT_EQ(out, handle(7));
    EXPECT_EQ(log(), Messages{"pgbl_ptr is NULL in inline_svc_get_uidb_conn_hdl"});
}

// ---- setting it --------------------------------------------------------------------------------

TEST_F(Context, SettingItStoresBothPointersAndLogsTwoLines)
{
    EXPECT_EQ(inline_svc_set_global_cntx(&context), 0u);
    EXPECT_EQ(pgbl_ptr, &context);
    EXPECT_EQ(pshadow_db, root);
    EXPECT_EQ(log(), (Messages{" set the global context \n", " finish set the global context \n"}));
}

TEST_F(Context, TheContextIsStoredBeforeTheFirstLineAndTheRootBetweenTheTwo)
{
    std::vector<std::pair<void *, void *>> seen;
    services.script("_ltrace", [&](const vlc::ServiceCall &) {
        seen.emplace_back(pgbl_ptr, pshadow_db);
        return std::optional<uint64_t>(0);
    });
    set_context();
    const std::vector<std::pair<void *, void *>> expected = {{&context, nullptr}, {&context, root}};
    EXPECT_EQ(seen, expected);
}

TEST_F(Context, SettingItAsksThePlatformForNothing)
{
    services.forget();
    set_context();
    EXPECT_TRUE(services.calls().empty());
}

TEST_F(Context, AContextWithoutARootIsRefusedButStays)
{
    set_context();
    forget_log();
    inline_svc_global_cntx rootless = {};
    EXPECT_EQ(inline_svc_set_global_cntx(&rootless), 12u);
    EXPECT_EQ(pgbl_ptr, &rootless);
    EXPECT_EQ(pshadow_db, root) << "the root of the call before";
    EXPECT_EQ(log(), Messages{" set the global context \n"});
}

TEST_F(Context, ANullContextIsRefusedButForgetsTheOneBefore)
{
    set_context();
    forget_log();
    EXPECT_EQ(inline_svc_set_global_cntx(nullptr), 12u);
    EXPECT_EQ(pgbl_ptr, nullptr);
    EXPECT_EQ(pshadow_db, root);
    EXPECT_EQ(log(), Messages{" set the global context \n"});
}

TEST_F(Context, ASecondContextTakesThePlaceOfTheFirst)
{
    set_context();
    shadow_db other_root = {};
    inline_svc_global_cntx other = {};
    other.shadow_db = &other_root;
    EXPECT_EQ(inline_svc_set_global_cntx(&other), 0u);
    EXPECT_EQ(pgbl_ptr, &other);
    EXPECT_EQ(pshadow_db, &other_root);
}

// ---- the pause ---------------------------------------------------------------------------------

TEST_F(Context, DummyInitSleepsTwentySecondsAndDoesNothingElse)
{
    const uint64_t slept = vlc::CardClock::slept_seconds();
    services.forget();
    EXPECT_EQ(inline_svc_dummy_init(), 0u);
    EXPECT_EQ(vlc::CardClock::slept_seconds() - slept, 20u);
    EXPECT_TRUE(services.calls().empty());
    EXPECT_TRUE(log().empty());
}

// ---- handles -----------------------------------------------------------------------------------

TEST_F(Context, ThePrmConnectionIsRefusedBeforePrmIsInitialised)
{
    set_context();
    forget_log();
    void *out = handle(7);
    EXPECT_EQ(inline_svc_get_prm_conn_hdl(&out), 22u);
    EXPECT_EQ(out, handle(7));
    EXPECT_EQ(log(), Messages{"pgbl_ptr->prm_conn is NULL, prm hdl not initialized"});
}

TEST_F(Context, ThePrmConnectionIsHandedOutOncePrmIsInitialised)
{
    bring_up();
    void *out = nullptr;
    EXPECT_EQ(inline_svc_get_prm_conn_hdl(&out), 0u);
    EXPECT_NE(out, nullptr);
    EXPECT_EQ(out, context.prm_conn);
    EXPECT_TRUE(log().empty());
}

TEST_F(Context, AMissingEventManagerIsRefused)
{
    context.inline_evm = nullptr;
    set_context();
    forget_log();
    void *out = handle(7);
    EXPECT_EQ(inline_svc_get_inline_evm(&out), 22u);
    EXPECT_EQ(out, handle(7));
    EXPECT_EQ(log(), Messages{"pgbl_ptr->inline_evm is NULL, evm not initialized"});
}

TEST_F(Context, TheEventManagerIsHandedOut)
{
    set_context();
    forget_log();
    void *out = nullptr;
    EXPECT_EQ(inline_svc_get_inline_evm(&out), 0u);
    EXPECT_EQ(out, context.inline_evm);
    EXPECT_TRUE(log().empty());
}

// Kept behaviour: the text names the PRM handle.
TEST_F(Context, AMissingInterfaceConnectionIsRefusedInTheWordsOfThePrmGetter)
{
    set_context();
    forget_log();
    void *out = handle(7);
    EXPECT_EQ(inline_svc_get_uidb_conn_hdl(&out), 22u);
    EXPECT_EQ(out, handle(7));
    EXPECT_EQ(log(), Messages{"pgbl_ptr->uidb_conn is NULL, prm hdl not initialized"});
}

TEST_F(Context, TheInterfaceConnectionIsHandedOut)
{
    context.uidb_conn = handle(0x1234567890);
    set_context();
    forget_log();
    void *out = nullptr;
    EXPECT_EQ(inline_svc_get_uidb_conn_hdl(&out), 0u);
    EXPECT_EQ(out, handle(0x1234567890));
    EXPECT_TRUE(log().empty());
}

TEST_F(Context, ANullOutputIsRefusedByEachGetterInItsOwnName)
{
    context.uidb_conn = handle(1);
    context.prm_conn = handle(2);
    set_context();
    forget_log();
    EXPECT_EQ(inline_svc_get_prm_conn_hdl(nullptr), 22u);
    EXPECT_EQ(inline_svc_get_inline_evm(nullptr), 22u);
    EXPECT_EQ(inline_svc_get_uidb_conn_hdl(nullptr), 22u);
    EXPECT_EQ(log(), (Messages{"out is NULL in inline_svc_get_prm_conn_hdl",
                               "out is NULL in inline_svc_get_inline_evm",
                               "out is NULL in inline_svc_get_uidb_conn_hdl"}));
}

TEST_F(Context, AMissingHandleIsSaidBeforeANullOutput)
{
    set_context();
    forget_log();
    EXPECT_EQ(inline_svc_get_prm_conn_hdl(nullptr), 22u);
    EXPECT_EQ(log(), Messages{"pgbl_ptr->prm_conn is NULL, prm hdl not initialized"});
}

// ---- what the library leaves alone -------------------------------------------------------------

class ContextInUse : public test::CardTest {
protected:
    // A whole life: up, entries in and out, statistics.
    void live()
    {
        bring_up();
        test::Batch batch(1);
        batch.create(1, 0, "key", "result").create(2, 1, "other", "result");
        EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
        run_events();
        EXPECT_EQ(inline_svc_stats_collection(), 0u);
        EXPECT_EQ(inline_shadow_db_clear_main(batch.get()), 0u);
        run_events();
    }
};

TEST_F(ContextInUse, TheHostsOwnObjectsAreNeitherReadNorWritten)
{
    spp_ui_in_progress = 0x11111111;
    spp_ui_retval = 0x2222222222222222;
    imp_cmd_codes = 0x33333333;
    the_punt_decode_hash = reinterpret_cast<void *>(0x4444);
    std::fill(std::begin(u32x4_compare_word_mask_table), std::end(u32x4_compare_word_mask_table),
              uint8_t{0x55});
    live();
    EXPECT_EQ(spp_ui_in_progress, 0x11111111u);
    EXPECT_EQ(spp_ui_retval, 0x2222222222222222u);
    EXPECT_EQ(imp_cmd_codes, 0x33333333u);
    EXPECT_EQ(the_punt_decode_hash, reinterpret_cast<void *>(0x4444));
    EXPECT_TRUE(std::all_of(std::begin(u32x4_compare_word_mask_table),
                            std::end(u32x4_compare_word_mask_table),
                            [](uint8_t byte) { return byte == 0x55; }));
}

TEST_F(ContextInUse, TheLibraryWritesNothingIntoTheContextButThePrmConnection)
{
    attach_context();
    const inline_svc_global_cntx filled = context;
    live(); // fills it the same way again
    inline_svc_global_cntx expected = filled;
    expected.prm_conn = context.prm_conn;
    expected.shadow_db = context.shadow_db;
    EXPECT_NE(context.prm_conn, nullptr);
    EXPECT_EQ(memcmp(&context, &expected, sizeof context), 0);
}

TEST_F(ContextInUse, TheHostsWordsStayAsTheHostLeftThem)
{
    live();
    context.host_word = 0x0123456789ABCDEF;
    for (uint64_t &word : context.host_words)
        word = 0xFEDCBA9876543210;
    context.host_word_72 = 0x1122334455667788;
    const inline_svc_global_cntx before = context;
    test::Batch batch(2);
    batch.create(1, 0, "key", "result");
    EXPECT_EQ(inline_svc_shadow_db_insert_action_array(batch.get()), 0u);
    EXPECT_EQ(inline_svc_stats_collection(), 0u);
    EXPECT_EQ(memcmp(&context, &before, sizeof context), 0);
}

TEST_F(ContextInUse, TheContextIsNeverForgotten)
{
    live();
    EXPECT_EQ(pgbl_ptr, &context);
    EXPECT_EQ(pshadow_db, root);
}

} // namespace
